// The task files in tests/cases, each with the findings and steps that its check is to name.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "client_support.h"
#include "corekit/text.h"
#include "support.h"
#include "uaclient/uaclient.h"

namespace {

namespace fs = std::filesystem;

// `expected` has a line a finding, as Are takes them, one a step ("> fragment"), and "leaves out".
void Compare(const uaclient::Report& report, const std::string& expected) {
  std::vector<std::string> findings;
  std::vector<std::string> steps;
  bool leavesOut = false;
  std::istringstream lines(expected);
  for (std::string line; std::getline(lines, line);) {
    if (line == "leaves out") {
      leavesOut = true;
    } else if (line[0] == '>') {
      steps.push_back(line.substr(2));
    } else {
      findings.push_back(line);
    }
  }
  EXPECT_TRUE(Are(report.findings, findings));
  EXPECT_EQ(report.leavesOut, leavesOut);
  EXPECT_EQ(report.helperFails, std::any_of(findings.begin(), findings.end(),
                                            [](const auto& line) { return line[0] == 'E'; }));
  ASSERT_EQ(report.steps.size(), steps.size());
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const std::string text = Replaced(WideToUtf8(report.steps[i].text), "\\", "/");
    EXPECT_NE(text.find(Replaced(steps[i], "\\", "/")), std::string::npos)
        << steps[i] << " in " << text;
  }
}

TEST(TaskFileCheck, FindsWhatTheCasesExpect) {
  const TestFolder folder;
  const std::string root = Absolute(folder);
  WriteTree(folder.Path(), TreeOf("f=1, p.exe=, s/a=1, s/b/c=2, used="));
  WriteSparseFile(folder / "large", "<a/>", std::int64_t{1} << 31);
  const FileLock lock(folder / "used");
  const auto check = [&](const std::string& name) {
    return uaclient::Check(uaclient::TaskFile{Utf8ToWide(root + name)});
  };

  for (const fs::directory_entry& entry : fs::directory_iterator(Utf8ToWide(UACTASK_TEST_CASES))) {
    if (entry.path().extension() != ".expected") continue;
    const auto read = [&](const char* extension, const std::string& otherwise) {
      const fs::path path = fs::path(entry.path()).replace_extension(extension);
      const std::string text =
          fs::exists(path) ? ReadFileBytes(WideToUtf8(path.wstring())) : otherwise;
      return Replaced(text, "@", root);
    };
    SCOPED_TRACE(entry.path().stem().string());
    WriteFileBytes(folder / "task.ini", read(".ini", "[Task]\ntype=1\nxml_path=@list.xml\n"));
    WriteFileBytes(folder / "list.xml", read(".xml", ""));
    Compare(check("task.ini"), read(".expected", ""));
  }

  EXPECT_FALSE(check("none.ini").exists);
  Compare(check("none.ini"), "E does not exist");
  Compare(check("s"), "E is a folder");
  WriteFileBytes(folder / "😀", "");
  Compare(check("😀"), "E code page lacks");
  WriteFileBytes(folder / "task.ini", "[Task]\ntype=1\nxml_path=" + root + "\n");
  const fs::path before = fs::current_path();
  fs::current_path(Utf8ToWide(root));
  EXPECT_TRUE(Are(uaclient::Check(uaclient::TaskFile{L"task.ini"}).findings,
                  {"! \"task.ini\" is relative", "E3 is a folder"}));
  fs::current_path(before);
}

}  // namespace
