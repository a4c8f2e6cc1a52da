// What is said ahead of a run, against what there is on the disk and against the helper itself.

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "corekit/text.h"
#include "support.h"
#include "uaclient/uaclient.h"

namespace {

using uaclient::Finding;
using uaclient::Findings;
using uaclient::Severity;

// The whole path, with "/" at its end, of a test's folder.
std::string Absolute(const TestFolder& folder) {
  return WideToUtf8(std::filesystem::absolute(Utf8ToWide(folder.Path())).generic_wstring());
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

// One line a finding: harmful "!", error "E", warning "W", then its line and text.
std::string Shown(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += finding.harmful ? "!" : finding.severity == Severity::kError ? "E" : "W";
    if (finding.line != 0) text += std::to_string(finding.line);
    text += " " + WideToUtf8(finding.text) + "\n";
  }
  return text;
}

// Whether there is a line for each of the expected beginnings and fragments ("E3 …fragment"), in
// any order, and no other.
testing::AssertionResult Are(const Findings& findings, const std::vector<std::string>& expected) {
  std::vector<bool> met(findings.size());
  std::string faults;
  for (const std::string& one : expected) {
    const std::size_t blank = one.find(' ');
    bool found = false;
    for (std::size_t i = 0; i < findings.size() && !found; ++i) {
      const std::string line = Shown({findings[i]});
      found = !met[i] && line.rfind(one.substr(0, blank + 1), 0) == 0 &&
              line.find(one.substr(blank + 1)) != std::string::npos;
      if (found) met[i] = true;
    }
    if (!found) faults += "missing: " + one + "\n";
  }
  if (faults.empty() && expected.size() == findings.size()) return testing::AssertionSuccess();
  return testing::AssertionFailure() << faults << "of:\n" << Shown(findings);
}

TEST(PlanCheck, FindsWhatWouldFailOrDoHarm) {
  const TestFolder folder;
  const std::string root = Absolute(folder);
  WriteTree(folder.Path(), TreeOf("f=1, g=22, s/a=1, s/d/b=2, old/x=333, old/y/z=4, ro=, used="));
  MakeReadOnly(folder / "ro");
  const FileLock lock(folder / "used");
  WriteFileBytes(folder / "inuse/x", "");
  const FileLock otherLock(folder / "inuse/x");
  const std::string deep(230 - root.size(), 'n');

  const struct {
    const char* items;  // "source>destination", folders with "/" at the end, separated by ","
    std::vector<std::string> findings;
  } kCases[] = {
      {"@f>@new/f,@g>@new/g,@s/>@p/q/r/", {}},
      {"@s/>@old/", {"W 2 files, 4 bytes in it are deleted"}},
      {"@none>@a,@none/>@b/", {"E none/\" does not exist", "E none\" does not exist"}},
      {"@s>@a,@f/>@b/", {"E is a file, but", "E is a folder, but"}},
      {"@f>@s,@s/>@f/",
       {"! \"@s\" is, holds or lies in the source", "E is a file already", "E is a folder already",
        "! is, holds or lies in the source of another"}},
      {"@s/>@s/", {"! its own source", "W 2 files"}},
      {"@s/>@s/new/", {"! its own source"}},
      {"@s/d/>@s/", {"! its own source", "W 2 files"}},
      {"@s/>@a/,@f>@S/D/n", {"! the source of another item"}},
      {"@s/>@a/,@g>@A/b/c,@f>@ab", {"! destroys the other"}},
      {"@f>@a,@g>@A", {"! destroys the other"}},
      {"@f>@p/q/f", {"E more than one is missing"}},
      {"@f>@g/x", {"E there is a file"}},
      {"@f>@ro", {"E is read-only"}},
      {"@f>@used", {"W is in use"}},
      {"@s/>@inuse/", {"W x\" is to be deleted", "W 1 file, 0 bytes"}},
      {"f>C:g", {"E \"f\" is relative", "E \"C:g\" is relative"}},
      {"@f>@../x", {"E holds \"..\""}},
      {"@f>@x.,@g>@nul.txt", {"E holds \"x.\"", "E holds \"nul.txt\""}},
      {"@f>@a:b,@g>@a*", {"E holds \"a:b\"", "E holds \"a*\""}},
      {"@f>@a//b", {"W two separators"}},
      {"@s/>C:/", {"! whole drive"}},
      {"C:/>@all/", {"! whole drive"}},
      {"@s/>//server/share/", {"! whole drive or share"}},
      {"@f>//?/C:/x", {"E names a device"}},
      {"@f>Q:/x", {"E no drive Q:"}},
      {"@f>@\xEF\xBF\xBF/", {"E ends like a folder"}},
  };
  for (const auto& [items, expected] : kCases) {
    SCOPED_TRACE(items);
    uaclient::CopyPlan plan;
    const std::regex item("([^>,]*)>([^>,]*)");
    const std::string text = Replaced(items, "@", root);
    for (std::sregex_iterator at(text.begin(), text.end(), item), end; at != end; ++at) {
      const std::wstring source = Utf8ToWide((*at)[1]);
      const std::wstring destination = Utf8ToWide((*at)[2]);
      if (source.back() == L'/') {
        plan.Folder(source, destination);
      } else {
        plan.File(source, destination);
      }
    }
    std::vector<std::string> findings = expected;
    for (std::string& finding : findings) finding = Replaced(finding, "@", root);
    EXPECT_TRUE(Are(plan.Check(), findings));
  }
}

}  // namespace
