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

// One line a finding: harmful "!", error "E", warning "W", then ":" for one in an operation list,
// its line and text.
std::string Shown(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += finding.harmful ? "!" : finding.severity == Severity::kError ? "E" : "W";
    if (finding.file.extension() == ".xml") text += ":";
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

std::string OwnProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return WideToUtf8(path);
}

TEST(TaskFileCheck, NamesEachMistake) {
  const TestFolder folder;
  const std::string root = Absolute(folder);
  WriteTree(folder.Path(), TreeOf("f=1, s/a=1, s/b/c=2, old/x=333, ro=, used="));
  MakeReadOnly(folder / "ro");
  const FileLock lock(folder / "used");
  std::string deep;
  for (int i = 0; i < 1100; ++i) deep += "<a>";

  // "#…" is an operation list below a task file that names it; "[T]0" and "[J]" are beginnings.
  const std::string listTask = "[Task]\ntype=1\nxml_path=@list.xml\n";
  const std::string numbers = "time_weekday=0\ntime_monthday=0\n";
  const std::string job = "[Task]\ntype=0\ntask_name=n\nruntime=2099-01-31T08:00:00\n" + numbers +
                          "exe_path=" + OwnProgram() + "\ntime_type=2\n";
  const std::string item = "<i key='1' src='@f' dec='@g' type='file'/>";
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"#<root><task>" + item + "</task></root>", {}},
      {"[J]exe_arguments=-a\n", {}},
      {"[Task]\ntype=0\ntask_name=n\nexe_path=\nexe_arguments=\nruntime=\nauthor_name=\n" +
           numbers + "time_type=0\n",
       {}},
      // The task file's lines.
      {"[Task]\ntype=0\ntype=1",
       {"W3 no line break", "E time_type", "E time_weekday", "E time_monthday"}},
      {"[Task]\ntype = 1\n", {"W2 without blanks", "E no \"type\""}},
      {"\xEF\xBB\xBF[Task]\ntype=1\n",
       {"W1 byte-order mark", "W1 whole line a header", "E no \"type\""}},
      {std::string("\xFF\xFE[\0T\0]\0\n\0", 10),
       {
           "W1 UTF-16",
           "E1 no \"]\"",
       }},
      {"[task]\nType=7\n", {"W1 is not \"Task\"", "E no \"type\""}},
      {"[Task\ntype=1\n", {"E1 no \"]\""}},
      {"[Task]\n# see [1]\ntype=1\n", {"W2 even a comment", "E no \"type\""}},
      {"type=1\n[Task]\nnonsense\n", {"W1 before any header", "W3 passed over", "E no \"type\""}},
      {"[Task]\n;type=2\ntype=1\n", {"W2 commented out", "W3 in line 2 already", "E2 unknown"}},
      {"[Task]\ntype=1\nxml_path= @list.xml\n",
       {"W3 blank behind", "W3 relative", "E3 does not exist"}},
      {"[Task]\ntype=1\nxml_path=list.xml\n", {"W3 relative", "E3 does not exist"}},
      {"[Task]\ntype=1\n\x1Axml_path=x\n", {"W Ctrl+Z", "E missing or empty"}},
      {"[Task]\ntype=1\nxml_path=C:\\tmp\\\xC3\xA9.xml\n", {"W3 UTF-8", "E3 list"}},
      {"[Task]\ntype=9\n", {"E2 unknown"}},
      // Jobs.
      {"[J]", {"! deletes the job \"n\", because \"exe_arguments\" is missing"}},
      {"[J]exe_arguments=-a", {"W9 no line break", "!9 no line break"}},
      {"[J]exe_argument=-a\n", {"W9 is not the key", "!9 misspelt"}},
      {"[J]exe_arguments=\n", {"!9 is empty"}},
      {"[J]exe_arguments=-x [y]\n", {"W9 whole line a header", "!9 holds a"}},
      {"[Task]\ntype=0\ntime_type=3\ntime_weekday=1.5\ntime_monthday=\n",
       {"E4 \"1.5\", no number", "E5 no number"}},
      {"[Task]\ntype=0\ntask_name=a\\b\nruntime=tomorrow\nexe_path=calc\nexe_arguments=1\ntime_"
       "type=3\n" +
           numbers,
       {"W3 \\ /", "W4 no date", "W5 start nothing", "W8 weekly"}},
      {"[Task]\ntype=0\ntask_name=n\nruntime=2099-02-30T08:00:00\nexe_path=C:\\none.exe\nexe_"
       "arguments=1\n"
       "time_type=4\n" +
           numbers,
       {"W4 no date", "W5 no program", "W9 monthly"}},
      {"[Task]\ntype=0\nexe_arguments=1\ntime_type=5\n" + numbers,
       {"!4 kind of trigger", "W no name"}},
      // Operation lists.
      {"#<root><task>\n<i ", {"E:2 no XML"}},
      {"#" + deep, {"E:1 levels deep"}},
      {"#<Root><task/></Root>", {"E: no element \"root\""}},
      {"#<root><Task/></root>", {"E: no element \"task\""}},
      {"#<root><task/></root>", {"W: empty"}},
      {"#<root><task>\n\n<!-- note -->" + item + "</task></root>", {"E:3 comment"}},
      {"#<root><task>" + item + "\n<i/></task></root>", {"E:2 without attributes"}},
      {"#<root><task>\n<a.b key='1'/></task></root>", {"E:2 a dot"}},
      {"#<root><task>" + item + "</task>\n<task/></root>", {"W:2 first \"task\""}},
      {"#<root><task>\n<i key='1' src='@f' dst='@g' type='file'/></task></root>",
       {"W:2 no \"dec\", and so cannot be copied; write it. \"dst\" is not read"}},
      {"#<root><task>\n<i src='@f' dec='@g' type='file'/></task></root>", {"W:2 no \"key\""}},
      {"#<root><task>\n<i key='1' src='@s/' dec='@g/' type='Dir'/></task></root>",
       {"W:2 not \"dir\"", "W:2 s/\" ends like", "W:2 g/\" ends like", "W:2 is a folder, but"}},
      {"#<root><task>" + item + "\n<i key='1' src='@f' dec='@h' type='file'/></task></root>",
       {"W:2 in line 1 already"}},
      {"#<root><task><i key='9' src='@f' dec='@h' type='file'/>\n<i key='10' src='@f' dec='@i' "
       "type='file'/></task></root>",
       {"W:1 comes after \"10\""}},
      {"#<root><task><i key='1' src='\xE9' dec='@h' type='file'/></task></root>",
       {"W:1 not UTF-8"}},
      {"#<root><task><i key='1' src='@none' dec='@h' type='file'/></task></root>",
       {"W:1 does not exist"}},
      {"#<root><task><i key='1' src='@used' dec='@h' type='file'/></task></root>",
       {"W:1 is in use"}},
      {"#<root><task><i key='1' src='@f' dec='@ro' type='file'/></task></root>", {"W:1 read-only"}},
      {"#<root><task><i key='1' src='f' dec='@h' type='file'/></task></root>",
       {"W:1 \"f\" is relative", "W:1 does not exist"}},
      {"#<root><task>\n\n<i key='1' src='@s/b/' dec='@s/' type='dir'/></task></root>",
       {"!:3 own source"}},
      {"#<root><task><i key='1' src='@s/' dec='C:/' type='dir'/></task></root>",
       {"!:1 whole drive"}},
      {"#<root><task><i key='1' src='@s/' dec='@p\\q\\r' type='dir'/></task></root>",
       {"W:1 mixes"}},
      {"#<root><task><i key='1' src='@s/' dec='@" + std::string(250, 'n') +
           "/' type='dir'/></task></root>",
       {"W:1 too long", "W:1 s\\a\" is not copied", "W:1 s\\b\" is not copied"}},
  };
  for (const auto& [file, expected] : cases) {
    SCOPED_TRACE(file.substr(0, 300));
    std::string task = file[0] == '#' ? listTask : Replaced(file, "[J]", job);
    WriteFileBytes(folder / "task.ini", Replaced(task, "@", root));
    if (file[0] == '#') WriteFileBytes(folder / "list.xml", Replaced(file.substr(1), "@", root));
    const auto report = uaclient::CheckTaskFile(Utf8ToWide(root + "task.ini"));
    EXPECT_TRUE(report.exists);
    EXPECT_EQ(report.helperFails, uaclient::HasErrors(report.findings));
    EXPECT_TRUE(Are(report.findings, expected));
    if (file[0] == '#') DeleteFileW(Utf8ToWide(folder / "list.xml").c_str());
  }
  EXPECT_FALSE(uaclient::CheckTaskFile(L"none.ini").exists);
}

}  // namespace
