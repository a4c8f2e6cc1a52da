// The task files in tests/cases, each with what its check is to find.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "corekit/text.h"
#include "support.h"
#include "uaclient/uaclient.h"

namespace {

namespace fs = std::filesystem;
using uaclient::Severity;

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

// One line a finding ("E3 text", with ":" before the line of a list) and a step ("> text").
std::vector<std::string> Lines(const uaclient::Report& report) {
  std::vector<std::string> lines;
  for (const uaclient::Finding& finding : report.findings) {
    lines.push_back((finding.severity == Severity::kError     ? "E"
                     : finding.severity == Severity::kHarmful ? "H"
                                                              : "W") +
                    std::string(finding.file.extension() == ".xml" ? ":" : "") +
                    (finding.line != 0 ? std::to_string(finding.line) : "") + " " +
                    WideToUtf8(finding.text));
  }
  if (report.leavesOut) lines.push_back("leaves out");
  for (const uaclient::Step& step : report.steps) lines.push_back("> " + WideToUtf8(step.text));
  return lines;
}

// Whether the line begins like the expected one up to its blank, and holds the rest.
bool Matches(const std::string& line, const std::string& expected) {
  const std::size_t text = expected.find(' ') + 1;
  return line.compare(0, text, expected, 0, text) == 0 &&
         line.find(expected.substr(text), text) != std::string::npos;
}

void Compare(std::vector<std::string> lines, const std::string& expected) {
  std::istringstream stream(expected);
  for (std::string one; std::getline(stream, one);) {
    const auto found = std::find_if(lines.begin(), lines.end(), [&](const std::string& line) {
      return Matches(Replaced(line, "\\", "/"), Replaced(one, "\\", "/"));
    });
    if (found == lines.end()) {
      ADD_FAILURE() << "missing: " << one;
    } else {
      lines.erase(found);
    }
  }
  for (const std::string& line : lines) ADD_FAILURE() << "unexpected: " << line;
}

TEST(TaskFileCheck, FindsWhatTheCasesExpect) {
  const TestFolder folder;
  const std::string root = WideToUtf8(fs::absolute(Utf8ToWide(folder.Path())).generic_wstring());
  WriteTree(folder.Path(), TreeOf("f=1, p.exe=, s/a=1, s/b/c=2, used="));
  WriteSparseFile(folder / "large", "<a/>", std::int64_t{1} << 31);
  const FileLock lock(folder / "used");

  const fs::path cases = Utf8ToWide(UACTASK_TEST_CASES);
  for (const fs::directory_entry& entry : fs::directory_iterator(cases)) {
    if (entry.path().extension() != ".expected") continue;
    const auto read = [&](const char* extension, const std::string& otherwise) {
      const fs::path path = fs::path(entry.path()).replace_extension(extension);
      return Replaced(fs::exists(path) ? ReadFileBytes(WideToUtf8(path.wstring())) : otherwise, "@",
                      root);
    };
    SCOPED_TRACE(entry.path().stem().string());
    WriteFileBytes(folder / "task.ini", read(".ini", "[Task]\ntype=1\nxml_path=@list.xml\n"));
    WriteFileBytes(folder / "list.xml", read(".xml", ""));
    const uaclient::Report report =
        uaclient::Check(uaclient::TaskFile{Utf8ToWide(root + "task.ini")});
    Compare(Lines(report), read(".expected", ""));
    const auto& findings = report.findings;
    EXPECT_EQ(report.helperFails,
              std::any_of(findings.begin(), findings.end(), [](const uaclient::Finding& finding) {
                return finding.severity == Severity::kError;
              }));
    EXPECT_TRUE(report.exists);
  }

  const auto check = [&](const std::string& name) {
    return uaclient::Check(uaclient::TaskFile{Utf8ToWide(root + name)});
  };
  EXPECT_FALSE(check("none.ini").exists);
  Compare(Lines(check("none.ini")), "E does not exist");
  Compare(Lines(check("s")), "E is a folder");
  WriteFileBytes(folder / "😀", "");
  Compare(Lines(check("😀")), "E code page lacks");
}

}  // namespace
