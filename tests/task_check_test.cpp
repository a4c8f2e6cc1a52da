// What is said ahead of a run, against what there is on the disk and against the helper itself.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <list>
#include <random>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "corekit/text.h"
#include "fileop/file_system.h"
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

bool Names(const std::wstring& text, const std::filesystem::path& path) {
  const auto plain = [](const std::wstring& written) {
    return Replaced(WideToUtf8(written), "/", "\\");
  };
  const std::string name = plain(path.wstring());
  return plain(text).find(name.substr(0, name.find_last_not_of('\\') + 1)) != std::string::npos;
}

std::string Repeated(const std::string& text, std::size_t times) {
  std::string result;
  while (times-- > 0) result += text;
  return result;
}

std::string OwnProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return WideToUtf8(path);
}

TEST(PlanCheck, FindsWhatWouldFailOrDoHarm) {
  const TestFolder folder;
  const std::string root = Absolute(folder);
  WriteTree(folder.Path(), TreeOf("f=1, g=22, s/a=1, s/d/b=2, old/x=333, old/y/z=4, ro=, used="));
  MakeReadOnly(folder / "ro");
  WriteFileBytes(folder / ".hidden", "");
  SetFileAttributesA((folder / ".hidden").c_str(), FILE_ATTRIBUTE_HIDDEN);
  const auto freeSpace = static_cast<std::int64_t>(std::filesystem::space(root).available);
  for (const char* name : {"huge", "huger"}) {
    WriteSparseFile(folder / name, "", freeSpace + (std::int64_t{1} << 40));
  }
  const FileLock lock(folder / "used");
  WriteFileBytes(folder / "inuse/x", "");
  const FileLock otherLock(folder / "inuse/x");
  const FileLock noObstacle(folder / "old/x",
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  WriteFileBytes(folder / "linked/x", "");
  WriteFileBytes(folder / "twin1", "");
  CreateHardLinkA((folder / "twin2").c_str(), (folder / "twin1").c_str(), nullptr);
  MakeFolders(folder / "running/");
  CopyFileA(OwnProgram().c_str(), (folder / "running/x.exe").c_str(), TRUE);
  const HMODULE running =
      LoadLibraryExA((folder / "running/x.exe").c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE);
  const bool hasLinks = MakeFolderLink("../old", folder / "linked/link");

  // Only Wine lets such a name be made, for it has those of the system below.
  const std::string plainName = folder / "odd/plain";
  const std::string oddName = folder / "odd/x.";
  const auto hasPlainName = [&] { return PathExists(plainName.c_str()); };
  WriteFileBytes(plainName, "");
  if (OnWine()) RunUnixProgram("mv " + plainName + " " + oddName, std::not_fn(hasPlainName));

  const auto letters = [](std::size_t count) { return std::string(count, 'n'); };
  // A name with which a path below the folder has so many units.
  const auto upTo = [&](std::size_t units) { return letters(units - root.size()); };
  WriteFileBytes(folder / "fits/" + letters(11), "");
  WriteFileBytes(folder / "fitsnot/" + letters(12), "");
  // A name with which a path below the folder has so many bytes, and a third as many signs.
  const auto nameUpTo = [&](std::size_t bytes) {
    const std::size_t length = bytes - root.size();
    return std::string(length % 3, 'n') + Repeated("日", length / 3);
  };

  // So many that what lies in that folder is no longer looked at one by one.
  std::string manyInLinked;
  for (int i = 0; i < 60; ++i) manyInLinked += "@e/>@linked/" + std::to_string(i) + "/,";
  MakeFolders(folder / "e/");

  const struct {
    std::string items;  // "source>destination", folders with "/" at the end, separated by ","
    std::vector<std::string> findings;
  } kCases[] = {
      {"@f>@new/f,@g>@new/g,@g>@new/d/g,@s/>@p/q/r/", {}},
      {"@s/>@old/", {"W 2 files, 4 bytes in it are deleted"}},
      {"@none>@a,@none/>@b/", {"E none/\" does not exist", "E none\" does not exist"}},
      {"@s>@a,@f/>@b/", {"E is a file, but", "E is a folder, but"}},
      {"@f>@s,@s/>@f/",
       {"! \"@s\" is the source", "E is a file already", "E is a folder already",
        "! \"@f/\" is the source of another"}},
      {"@s/>@s/", {"! its own source", "W 2 files"}},
      {"@s/>@s/new/", {"! lies in its own source"}},
      {"@s/d/>@s/", {"! holds its own source", "W 2 files"}},
      {"@s/>@a/,@s/d/>@b/,@f>@S/D/n", {"! the source of another item, \"@s/d/\""}},
      {"@s/>@a/,@g>@A/b/c,@f>@ab", {"! destroys the other"}},
      {"@f>@a,@g>@A", {"! destroys the other"}},
      {"@s/>@old/,@f>@old/n,@g>@old/d/n", {"W 2 files"}},
      {"@s/>@old/,@f>@old/a", {"! destroys the other", "W 2 files"}},
      {"@s/>@old/,@f>@old/y/n", {"! destroys the other", "W 2 files"}},
      {"@g>@twin1,@twin2>@x", {"W other names", "! another name of the source"}},
      {"@f>@twin1,@g>@twin2", {"W other names", "W other names", "! is another name of the dest"}},
      {"@f>" + OwnProgram(), {"E which runs meanwhile", "W in use"}},
      {"@f>@" + Repeated("日", 80) + "/f", {"E is missing, and its path too long"}},
      {"@s/>@running/", {"W x.exe\" is to be deleted", "W 1 file, "}},
      {"@linked/>@a/,@s/>@old/", {"W is a link", "! a link in it leads to", "W 2 files"}},
      {manyInLinked + "@s/>@linked/link/,@s/>@old/,@e/>@linked/X/",
       {"W 2 files", "! destroys the other", "W is a link", "W 2 files",
        "E there is a file already"}},
      {"@f>@p/q/f", {"E more than one is missing"}},
      {"@f>@g/x", {"E there is a file"}},
      {"@f>@ro,@g>@.hidden", {"E is read-only", "E is read-only, hidden"}},
      {"@f>@used", {"W is in use"}},
      {"@s/>@inuse/", {"W x\" is to be deleted", "W 1 file, 0 bytes"}},
      {"f>C:g", {"E \"f\" is relative", "E \"C:g\" is relative"}},
      {"@f>@../x", {"E holds \"..\""}},
      {"@f>@x.,@g>@nul .txt", {"E holds \"x.\"", "E holds \"nul .txt\""}},
      {"@f>@a:b,@g>@a*", {"E holds \"a:b\"", "E holds \"a*\""}},
      {"@f>@a//b", {"W two separators"}},
      {"@f>@Com1.a,@g>@lpt\xC2\xB9", {"E holds \"Com1.a\"", "E holds \"lpt\xC2\xB9\""}},
      {"@f>@com,@g>@comx", {}},
      {"@s/>@" + nameUpTo(260), {"E too long"}},
      {"@s/>@" + nameUpTo(259), {}},
      {"@s/>@" + nameUpTo(259) + "/", {}},
      {"@f>@" + upTo(259), {}},
      {"@f>@" + upTo(260), {"E too long"}},
      {"@fits/>@" + upTo(247), {}},
      {"@fits/>@" + upTo(248), {"E too long", "E is not copied"}},
      {"@fitsnot/>@" + upTo(247), {"E is not copied"}},
      {"@s/>@" + upTo(245), {}},
      {"@s/>@" + upTo(246), {"E s\\d\" is not copied"}},
      {"@odd/>@a/", {"W x.\" has a name"}},
      {"@s/>@odd/", {"W x.\" has a name by which", "W 1 file, 0 bytes"}},
      {"@f>@" + Repeated("日", 90), {}},
      {"@s/>C:/", {"! whole drive"}},
      {"@s/>C:/Windows/System32/", {"! lies in Windows"}},
      {"@s/>C:/program files/", {"! is the folder %ProgramFiles%"}},
      {"@s/>C:/Program Files/uactask test/new/,@s/>C:/ProgramData/uactask test/", {}},
      {"@s/>C:/Users/", {"! holds the folder %"}},
      {"C:/>@all/", {"! whole drive"}},
      {"@s/>//server/share/", {"! whole drive or share"}},
      {"@f>//?/C:/x", {"E names a device"}},
      {"@f>Q:/x", {"E no drive Q:"}},
      {"@f>//127.0.0.1/none/x", {"W on another computer", "W cannot be seen"}},
      {"@huge>@x", {"W does not fit"}},
      {"@huge>@huger", {}},
      {"@f>@\xEF\xBF\xBF/", {"E ends like a folder"}},
  };
  for (const auto& [items, expected] : kCases) {
    SCOPED_TRACE(items);
    if (!hasLinks && items.find("linked") != std::string::npos) continue;
    if (!OnWine() && items.find("odd") != std::string::npos) continue;
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
    const Findings found = plan.Check();
    EXPECT_TRUE(Are(found, findings));
    for (const Finding& finding : found) {
      const uaclient::CopyItem& meant = plan.Items().at(finding.item);
      EXPECT_TRUE(Names(finding.text, meant.source) || Names(finding.text, meant.destination));
    }
  }
  if (OnWine()) RunUnixProgram("mv " + oddName + " " + plainName, hasPlainName);
  FreeLibrary(running);
}

TEST(TaskFileCheck, NamesTheFirstHundredOddLines) {
  const TestFolder folder;
  for (const std::size_t count : {100U, 102U}) {
    WriteFileBytes(folder / "task.ini", "[Task]\n" + Repeated("x\n", count));
    std::vector<std::string> expected = {"E no \"type\""};
    for (int line = 2; line <= 101; ++line) {
      expected.push_back("W" + std::to_string(line) + " is no header");
    }
    if (count == 102) expected.push_back("W102 Further such lines");
    EXPECT_TRUE(Are(uaclient::CheckTaskFile(Utf8ToWide(Absolute(folder)) + L"task.ini").findings,
                    expected));
  }
}

TEST(PlanCheck, RemarksOnTheFirstEntriesOfAFolder) {
  for (const std::size_t count : {20U, 22U}) {
    const TestFolder folder;
    std::list<FileLock> locks;
    for (std::size_t i = 0; i < count; ++i) {
      const std::string file = folder / "many/" + std::to_string(i);
      WriteFileBytes(file, "");
      locks.emplace_back(file);
    }
    const std::wstring root = Utf8ToWide(Absolute(folder));
    std::vector<std::string> expected(20, "W is to be deleted");
    expected.push_back("W " + std::to_string(count) + " files, 0 bytes in it");
    if (count == 22) expected.push_back("W There are 2 more");
    MakeFolders(folder / "new/");
    uaclient::CopyPlan plan;
    plan.Folder(root + L"new/", root + L"many/");
    EXPECT_TRUE(Are(plan.Check(), expected));
  }
}

TEST(JobCheck, NamesEachMistake) {
  using uaclient::Job;
  using Every = Job::Every;
  const std::filesystem::path program = Utf8ToWide(OwnProgram());
  const struct {
    std::function<void(Job&)> change;
    std::vector<std::string> findings;
  } kCases[] = {
      {[](Job& job) { job.hour = 23, job.minute = 59; }, {}},
      {[](Job& job) { job.hour = 24; }, {"E hours go"}},
      {[](Job& job) { job.hour = -1; }, {"E hours go"}},
      {[](Job& job) { job.minute = 60; }, {"E minutes to"}},
      {[](Job& job) { job.minute = -1; }, {"E minutes to"}},
      {[](Job& job) { job.name = L""; }, {"E no name"}},
      {[](Job& job) { job.name = L" a"; }, {"E \" a\" holds"}},
      {[](Job& job) { job.name = L"a."; }, {"E \"a.\" holds"}},
      {[](Job& job) { job.name = L"a "; }, {"E \"a \" holds one", "E \"a \" holds a control"}},
      {[](Job& job) { job.name = L"a\\b"; }, {"E \"a\\b\" holds"}},
      {[](Job& job) { job.author = L"[a]"; }, {"E author \"[a]\""}},
      {[](Job& job) { job.every = Every::kWeek, job.days = 0x7F; }, {}},
      {[](Job& job) { job.every = Every::kWeek, job.days = 0; }, {"E No day"}},
      {[](Job& job) { job.every = Every::kWeek, job.days = 0x81; }, {"E there are 7"}},
      {[](Job& job) { job.every = Every::kMonth, job.days = 0x7FFFFFFF; }, {}},
      {[](Job& job) { job.every = Every::kMonth, job.days = 0x80000001; }, {"E there are 31"}},
      {[](Job& job) { job.program = L""; }, {"E program is missing"}},
      {[](Job& job) { job.program = L"calc.exe"; }, {"E \"calc.exe\" is relative"}},
      {[](Job& job) { job.program = L"C:\\none.exe"; }, {"E no program"}},
      {[](Job& job) { job.program = L"C:\\windows"; }, {"E is a folder"}},
      {[](Job& job) { job.program = L"C:\\a\xD83D"; },
       {"E half of a surrogate", "E code page lacks"}},
      {[](Job& job) { job.program = L"C:\\a\xD83D\xD83D\xDE00"; },
       {"E half of a surrogate", "E code page lacks"}},
      {[](Job& job) { job.program = L"C:\\a\xDFFF"; },
       {"E half of a surrogate", "E code page lacks"}},
      {[](Job& job) { job.program = L"C:\\a\xD83D\xDE00"; }, {"E no program", "E code page lacks"}},
      {[](Job& job) { job.program = L"%ComSpec%"; }, {"E \"%ComSpec%\" holds"}},
      {[](Job& job) { job.arguments = {}; }, {"E no arguments"}},
      {[](Job& job) {
         job.arguments = {L"5%%", L"$x"};
       },
       {}},
      {[](Job& job) {
         job.arguments = {L"5 %", L"6 %"};
       },
       {"E holds"}},
      {[](Job& job) { job.arguments = {L"$(x"}; }, {"E holds"}},
  };
  for (const auto& [change, expected] : kCases) {
    Job job = {L"n", Every::kDay, 8, 0, 0, program, {L"-a"}, L"author"};
    change(job);
    EXPECT_TRUE(Are(job.Check(), expected));
  }
}

TEST(TaskFileCheck, NamesEachMistake) {
  const TestFolder folder;
  const std::string root = Absolute(folder);
  WriteTree(folder.Path(), TreeOf("f=1, s/a=1, s/b/c=2, old/x=333, ro=, used=, read="));
  MakeReadOnly(folder / "ro");
  WriteSparseFile(folder / "large", "<a/>", std::int64_t{1} << 31);
  const FileLock lock(folder / "used");
  const FileLock readLock(folder / "read", FILE_SHARE_READ);
  std::string deep;
  for (int i = 0; i < 1100; ++i) deep += "<a>";

  // "#…" is an operation list below a task file that names it; "[J]" and "[D]" are beginnings, of a
  // job's registration and its deletion.
  const std::string listTask = "[Task]\ntype=1\nxml_path=@list.xml\n";
  const std::string numbers = "time_weekday=0\ntime_monthday=0\n";
  const std::string job = "[Task]\ntype=0\ntask_name=n\nruntime=2099-01-31T08:00:00\n" + numbers +
                          "exe_path=" + OwnProgram() + "\ntime_type=2\n";
  const std::string weekly = "[Task]\ntype=0\ntask_name=n\nruntime=WHEN\nexe_path=" + OwnProgram() +
                             "\nexe_arguments=1\ntime_type=3\ntime_monthday=0\n";
  const std::string deletion = "[Task]\ntype=0\ntask_name=n\n" + numbers + "time_type=0\n";
  const std::string item = "<i key='1' src='@f' dec='@g' type='file'/>";
  struct Case {
    std::string file;
    std::vector<std::string> findings;
    std::string step = {};  // what one of the steps says, among other things
  };
  const Case cases[] = {
      {"#<root><task>" + item + "</task></root>", {}},
      {"[J]exe_arguments=-a\n",
       {},
       "registers the job \"n\", in place of an older one: starts \"" + OwnProgram() +
           "\" with the arguments \"-a\" daily from 2099-01-31T08:00:00 on"},
      {Replaced("[Task]\ntype=0\ntask_name=n ;#\nauthor_name=\"a\"\nruntime=2099-01-31T08:00:00\n"
                "exe_path=\"P\"\nexe_arguments=\"a\" #b\ntime_type=2\n" +
                    numbers,
                "P", OwnProgram()),
       {}},
      {"[Task]\ntype=0\ntask_name=n\nexe_path=\nexe_arguments=\nruntime=\nauthor_name=\n" +
           numbers + "time_type=0\n",
       {}},
      // The task file's lines.
      {"[Task]\ntype=0\ntype=1",
       {"W3 no line break", "E time_type", "E time_weekday", "E time_monthday", "W no name",
        "W3 put right"}},
      {"[Task]\ntype = 1\n", {"W2 without blanks", "E no \"type\""}},
      {"[Task]\ntyp=1\n", {"W2 is not the key \"type\"", "E no \"type\""}},
      {"[Task]\ntypee=1\n", {"W2 is not the key \"type\"", "E no \"type\""}},
      {"[Task]\ntpye=1\nkind=1\n", {"E no \"type\""}},
      {"[Task]\ntype=1\nxmlpth=1\nxml_pathes=1\nxml_file=1\n",
       {"W3 is not the key", "W4 is not the key", "E missing or empty"}},
      {"[Task]\ntype=" + Repeated("7", 201) + "\n", {"E2 \"" + Repeated("7", 200) + "…\" is"}},
      {"\xEF\xBB\xBF[Task]\ntype=1\n",
       {"W1 byte-order mark", "W1 whole line a header", "E no section"}},
      {"[Task]\ntype=\"1\"\n", {"W2 quotes", "E2 \"\"1\"\" is unknown"}},
      {"[Task]\ntype=\"\n", {"E2 \"\"\" is unknown"}},
      {"[Task]\ntype=1\"\n", {"E2 \"1\"\" is unknown"}},
      {"[Task]\ntype=1\nxml_path=@s ; it's\n",
       {"W3 \"; it's\" is no comment", "E3 does not exist"}},
      {"[Task]\ntype=1\nxml_path=@s\n", {"E3 is a folder"}},
      {"[Task]\ntype=1\nxml_path=@used\n", {"!3 cannot be opened"}},
      {"[Task]\ntype=1\nxml_path=@large\n", {"E3 has 2 GiB or more"}},
      {"[Task]\ntype=1\nxml_path=C:/nul\n", {"E3 is a device"}},
      {std::string("\xFF\xFE[\0T\0]\0\n\0", 10),
       {"W1 UTF-16", "W1 whole line a header", "W2 line break", "E no section"}},
      {"[task]\nType=7\n", {"W1 is not \"Task\"", "E no section"}},
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
      {"[D]", {"W is missing"}},
      {"[D]runtime=2099-01-31T08:00:00\n", {"! is missing"}},
      {"[D]exe_path=C:", {"W7 no line break", "!7 cut off"}},
      {"exe_arguments=-a\n[D]", {"W1 before any header", "!1 in no section"}},
      {"[J]exe_arguments=-x [y]\n", {"W9 whole line a header", "!9 holds a"}},
      {"[Task]\ntype=0\ntime_type=3\ntime_weekday=1.5\ntime_monthday=\nexe_arguments=1\n",
       {"E4 \"1.5\", no number", "E5 no number", "W no name", "W program is missing", "W no date"}},
      {"[Task]\ntype=0\ntask_name=a\\b\nruntime=tomorrow\nexe_path=calc\nexe_arguments=1\ntime_"
       "type=3\n" +
           numbers,
       {"W3 \\ /", "!4 no date", "W5 start nothing", "!8 weekly"}},
      {"[Task]\ntype=0\ntask_name=n\nruntime=2099-02-30T08:00:00\nexe_path=C:\\none.exe\nexe_"
       "arguments=1\n"
       "time_type=4\n" +
           numbers,
       {"!4 no date", "W5 no program", "!9 monthly"},
       "deletes the job \"n\" and does not register it again"},
      {Replaced(job, "monthday=0", "monthday=1").substr(0, job.size() - 2) + "4\nexe_arguments=1\n",
       {},
       "\"1\" monthly from"},
      {"[Task]\ntype=0\nexe_arguments=1\ntime_type=5\n" + numbers,
       {"!4 kind of trigger", "W no name"}},
      {"[D]exe_path=\n", {"! is missing"}},
      {"[D]Exe_path=x\nexe_arguments=\n", {"W7 is not the key", "!8 is empty"}},
      {"[D]exe_arguments=\nexe_arguments=/s\n", {"W8 in line 7 already", "!7 is empty"}},
      {"[D]author_name=x\n", {"! is missing"}, "deletes the job \"n\""},
      {Replaced(weekly, "WHEN", "2099-12-31T23:59:59+01:00") + "time_weekday=127\n",
       {},
       "\"1\" weekly from 2099-12-31T23:59:59+01:00 on"},
      {Replaced(weekly, "WHEN", "2099-01-31T08:00:00Z") + "time_weekday=128\n", {"!9 128 is no"}},
      {Replaced(weekly, "WHEN", "2099-01-31T08:00:00+1:00") + "time_weekday=1\n", {"!4 no date"}},
      {Replaced(weekly, "WHEN", "2099-01-31T08:00:60") + "time_weekday=1\n", {"!4 no date"}},
      {Replaced(weekly, "WHEN", "2099-01-31T08:00:0x") + "time_weekday=1\n", {"!4 no date"}},
      // Operation lists.
      {std::string("#<root><task/></root>\0<", 23), {"W: NUL byte", "W: empty"}},
      {"#<root><task>\n<i ", {"E:2 not closed"}},
      {std::string("#\xFF\xFE<\0", 5), {"E:1 UTF-16"}},
      {std::string("#\xFE\xFF\0<", 5), {"E:1 UTF-16"}},
      {"#" + deep, {"E:1 levels deep"}},
      {"#", {"E: no element \"root\""}},
      {"#<Root><task/></Root>", {"E: no element \"root\""}},
      {"#<root><Task/></root>", {"E: no element \"task\""}},
      {"#<root><task/></root>", {"W: empty"}},
      {"#<root><task>\n\n<!-- note -->" + item + "</task></root>", {"E:3 comment"}},
      {"#<root><task>" + item + "\n<i/></task></root>", {"E:2 without attributes"}},
      {"#<root><task>\n<a.b key='1'/></task></root>", {"E:2 a dot"}},
      {"#<root><task>" + item + "</task>\n<task/></root>", {"W:2 first \"task\""}},
      {"#<x><task/></x><root><task><i key='0' src='@f' dec='@h'><task/></i>\n<i/></task></root>",
       {"E:2 without attributes", "W:1 no \"type\""}},
      {"#<root><task>" + item + "</task></root>\n<x/>\n<root><task><i/></task></root>",
       {"W:3 first \"task\""}},
      {"#<root><task>\n<i key='1' src='@f' dst='@g' type='file'/></task></root>",
       {"W:2 to \"error of read\" in whatever folder the helper is started in; write it. \"dst\" "
        "is "
        "not read",
        "W:2 \"error of read\" is relative"}},
      {"#<root><task><i key='1' src='@s/' dec='" + folder.Path() +
           "old/' type='dir'/></task></root>",
       {"W:1 is relative", "!:1 depends on the folder"}},
      {"#<root><task><i key='1' src='@s/' dec='//./@s/' type='dir'/>"
       "<i key='2' src='@old/' dec='\\??\\Volume{1}\\s' type='dir'/></task></root>",
       {"W:1 names a device", "!:1 own source", "W:1 names a device", "!:1 cannot be told"},
       "does harm, see above, where it should copy the folder"},
      {"#<root><task>\n<i src='@f' dec='@g' type='file'/></task></root>", {"W:2 no \"key\""}},
      {"#<root><task>\n<i key='1' src='@s/' dec='@g/' type='Dir'/></task></root>",
       {"W:2 not \"dir\"", "W:2 s/\" ends like", "W:2 g/\" ends like",
        "W:2 copy; write type=\"dir\" for a"}},
      {"#<root><task>" + item + "\n<i key='1' src='@f' dec='@h' type='file'/></task></root>",
       {"W:2 in line 1 already"}},
      {"#<root><task><i key='9' src='@f' dec='@h' type='file'/>\n<i key='10' src='@f' dec='@i' "
       "type='file'/><i key='8' src='@f' dec='@j' type='file'/></task></root>",
       {"W:2 comes after \"10\""}},
      {"#<root><task><i key='' src='@f' dec='@h' type='file'/><i key='7' src='@f' dec='@i' "
       "type='file'/><i key='9999999999999999999' src='@f' dec='@j' type='file'/>"
       "<i key='8a' src='@f' dec='@k' type='file'/></task></root>",
       {}},
      {"#<root><task><i key='1' src='@f' src='@s' src='@s' dec='@h' type='file'/></task></root>",
       {"W:1 \"src\" stands twice"}},
      {"#<root><task><i key='1' src='@f' dec='@h&#0;x' type='file'/></task></root>",
       {"W:1 \"dec\" holds a NUL"}},
      {"#<root><task><i key='1' src='\xE9' dec='@h' type='file'/></task></root>",
       {"W:1 not UTF-8"}},
      {"#<root><task><i key='1' src='@none' dec='@h' type='file'/></task></root>",
       {"W:1 does not exist"}},
      {"#<root><task><i key='1' src='@used' dec='@h' type='file'/></task></root>",
       {"W:1 is in use"}},
      {"#<root><task><i key='1' src='@read' dec='@h' type='file'/></task></root>", {}},
      {"#<root><task><i key='1' src='@f' dec='@task.ini' type='file'/></task></root>",
       {"W:1 tells the helper what to do"}},
      {"#<root><task><i key='1' src='@f' dec='@ro' type='file'/></task></root>", {"W:1 read-only"}},
      {"#<root><task><i key='1' src='f' dec='@h' type='file'/></task></root>",
       {"W:1 \"f\" is relative", "W:1 does not exist"}},
      {"#<root><task>\n\n<i key='1' src='@s/b/' dec='@s/' type='dir'/></task></root>",
       {"!:3 own source"}},
      {"#<root><task><i key='1' src='@s/' dec='C:/' type='dir'/></task></root>",
       {"!:1 whole drive"},
       "does harm, see above, where it should copy to \"C:/\""},
      {"#<root><task><i key='1' src='@s/' dec='@p\\q\\r' type='dir'/></task></root>",
       {"W:1 mixes"}},
      {"#<root><task><i key='1' src='@s/' dec='@p\\q/r/' type='dir'/></task></root>",
       {"W:1 mixes"}},
      {"#<root><task><i key='1' src='@s/' dec='@" + std::string(250, 'n') +
           "/' type='dir'/></task></root>",
       {"W:1 too long", "W:1 s\\a\" is not copied", "W:1 s\\b\" is not copied"},
       "does not copy, or not wholly, see above, the folder"},
  };
  for (const auto& [file, expected, step] : cases) {
    SCOPED_TRACE(file.substr(0, 300));
    std::string task =
        file[0] == '#' ? listTask : Replaced(Replaced(file, "[J]", job), "[D]", deletion);
    WriteFileBytes(folder / "task.ini", Replaced(task, "@", root));
    if (file[0] == '#') WriteFileBytes(folder / "list.xml", Replaced(file.substr(1), "@", root));
    const auto report = uaclient::CheckTaskFile(Utf8ToWide(root + "task.ini"));
    EXPECT_TRUE(report.exists);
    EXPECT_EQ(report.helperFails, uaclient::HasErrors(report.findings));
    EXPECT_TRUE(Are(report.findings, expected));
    std::string steps;
    for (const auto& one : report.steps) steps += WideToUtf8(one.text) + "\n";
    EXPECT_NE(steps.find(step), std::string::npos) << steps;
    if (file[0] == '#') DeleteFileW(Utf8ToWide(folder / "list.xml").c_str());
  }
  EXPECT_FALSE(uaclient::CheckTaskFile(L"none.ini").exists);
  EXPECT_TRUE(Are(uaclient::CheckTaskFile(Utf8ToWide(root + "s")).findings, {"E cannot read it"}));
  WriteFileBytes(folder / "😀", "");
  EXPECT_TRUE(Are(uaclient::CheckTaskFile(Utf8ToWide(root + "😀")).findings,
                  {"W name holds characters", "E cannot read it"}));
}

// Files made of good and bad pieces, against the helper itself: where it fails the check says why,
// and where the check has nothing to remark everything arrives.
class RandomTaskFiles : public testing::Test {
 protected:
  struct Copy {
    std::string source;
    std::string destination;
    bool isFolder = false;
  };

  std::size_t Below(std::size_t limit) { return random_() % limit; }
  std::string OneOf(const std::vector<std::string>& texts) { return texts[Below(texts.size())]; }
  // In half of the files one thing is bad. Of several bad ones each comes in its turn.
  std::string OneOf(const std::vector<std::string>& good, const std::vector<std::string>& bad) {
    if (bad_ == 0 || Below(bad.size() > 3 ? 4 : 14) != 0) return OneOf(good);
    --bad_;
    return bad[turn_++ % bad.size()];
  }

  // Sources and destinations that other items do not touch, unless something bad is wanted.
  std::string Item(std::size_t number) {
    const std::string n = std::to_string(number);
    Copy copy;
    copy.isFolder = Below(2) == 0;
    copy.source = copy.isFolder
                      ? OneOf({"@s/", "@e", "@s\\d/"}, {"@none/", "@f", "@s./", "t/"})
                      : OneOf({"@f", "@s/a", "@s\\d\\b"}, {"@none", "@used", "@s/", "", "f"});
    copy.destination =
        copy.isFolder
            ? OneOf({"@new" + n + "/", "@old" + n + "/", "@p/q" + n + "/r/", "@é" + n + "/"},
                    {"@old0/", "@s/new/", "@f/", "@p\\q" + n + "/r/", "@p/..", "@in/", "@x ", ".",
                     "@" + std::string(240, 'l') + "/", "@p\\q\\r" + n, "", "@old" + n + "//"})
            : OneOf({"@out" + n, "@over" + n, "@dir" + n + "/f", "@ü" + n},
                    {"@over0", "@p/q" + n + "/f", "@ro", "@used", "@s", "@in/x/y", "@x:y", "@nul",
                     "@out" + n + "/", "none/x/y", "@" + std::string(250, 'l'), "@s/d/b", "@f"});
    copies_.push_back(copy);
    const std::string key = std::string(2 - n.size(), '0') + n;
    return OneOf({"<item", "<i", "<!DOCTYPE x><i"}, {"<a.b", "<!-- c --><i", "<b/><i"}) + " key='" +
           OneOf({key}, {"01", "1"}) + "' " + OneOf({"src"}, {"Src", "source"}) + "=\"" +
           copy.source + "\" " + "dec" + "='" + copy.destination + "' " + OneOf({"type"}, {"typ"}) +
           "='" +
           (copy.isFolder ? OneOf({"dir"}, {"Dir", "dir ", "file"})
                          : OneOf({"file"}, {"", "dir"})) +
           "'/>" + OneOf({"", "\n", "\r\n\t"});
  }
  std::string List() {
    std::string items;
    for (std::size_t n = 1 + Below(5); n > 0; --n) items += Item(n);
    return OneOf({"", "<?xml version='1.0'?>\n", "\xEF\xBB\xBF"}, {"\xFF\xFE", "x"}) +
           OneOf({"<root>"}, {"<Root>", ""}) +
           OneOf({"<task>", "<o/><task note='[x'>"}, {"<tasks>"}) + items + "</task></root>" +
           OneOf({"", "\n", "<!-- end -->"}, {"<root/>", "<"});
  }

  // Lines in any order below the header.
  std::string TaskFile(std::vector<std::string> lines) {
    std::shuffle(lines.begin(), lines.end(), random_);
    std::string text =
        OneOf({"", "; note\n", "\r\n \n", "[Other]\nkind=1\n"}, {"\xEF\xBB\xBF", "#[x]\n"}) +
        OneOf({"[Task]", "  [Task] "}, {"[task]", "[Task", "[ Task]"});
    for (const std::string& line : lines) {
      text += OneOf({"\n", "\r\n", "\n\n", "\n# note\n"},
                    {"\nx\n", "\n;[", "\n;type=2\n", "\n; a=[b]\n"}) +
              OneOf({"", " "}, {"#", "x"}) + line;
    }
    return text + OneOf({"\n", "\r\n; end\n"}, {"", "\n\x1A"});
  }
  std::string Key(const std::string& key, const std::string& value) {
    return OneOf({key}, {key + "s", key + " ", "x"}) + "=" +
           OneOf({value}, {" " + value, "", "[" + value}) + OneOf({"", "\t"});
  }

  // Checks the file, has the helper carry it out, and compares. Returns whether it succeeded.
  bool RunChecked(const std::string& path) {
    SCOPED_TRACE("file " + std::to_string(files_) + ": " + ReadFileBytes(path));
    report_ = uaclient::CheckTaskFile(std::filesystem::absolute(Utf8ToWide(path)));
    SCOPED_TRACE(Shown(report_.findings));
    const unsigned long exitCode = RunProgram("uactask.exe", {path}).exitCode;
    EXPECT_EQ(report_.helperFails, exitCode != 0);
    EXPECT_EQ(report_.helperFails, uaclient::HasErrors(report_.findings));
    ++files_;
    if (report_.findings.empty()) ++clean_;
    for (const Copy& copy : copies_) {
      if (!report_.findings.empty()) break;
      EXPECT_EQ(Bytes(copy.source, copy.isFolder), Bytes(copy.destination, copy.isFolder))
          << copy.destination;
    }
    copies_.clear();
    bad_ = Below(2);
    return exitCode == 0;
  }
  static Tree Bytes(const std::string& path, bool isFolder) {
    return isFolder ? ReadTree(path.back() == '/' ? path : path + "/")
                    : Tree{{"", PathExists(path.c_str()) ? ReadFileBytes(path) : "none"}};
  }
  // A good share of the files has nothing to remark, or half of the law is not tested.
  ~RandomTaskFiles() override { EXPECT_GE(clean_ * 10, files_ * 3); }

  std::mt19937 random_{4711};
  std::size_t bad_ = 0;  // things that may still be
  std::size_t turn_ = 0;
  std::vector<Copy> copies_;
  uaclient::TaskFileReport report_;
  std::size_t files_ = 0;
  std::size_t clean_ = 0;
};

TEST_F(RandomTaskFiles, OfCopies) {
  for (int i = 0; i < 80; ++i) {
    const TestFolder folder;
    const std::string root = Absolute(folder);
    Tree tree = TreeOf("f=1, s/a=22, s/d/b=333, s/d/e/, e/, ro=r, used=u, in/x=i");
    for (const char* n : {"0", "1", "2", "3", "4", "5"}) {
      tree[std::string("old") + n + "/x/y"] = tree[std::string("over") + n] = "old";
    }
    WriteTree(folder.Path(), tree);
    MakeReadOnly(folder / "ro");
    const FileLock lock(folder / "used");
    const FileLock otherLock(folder / "in/x");
    WriteFileBytes(folder / "list.xml", Replaced(List(), "@", root));
    for (Copy& copy : copies_) {
      copy.source = Replaced(copy.source, "@", root);
      copy.destination = Replaced(copy.destination, "@", root);
    }
    const std::string list = OneOf({root}, {"", "C:/none/"}) + "list.xml";
    WriteFileBytes(folder / "task.ini", TaskFile({Key("type", OneOf({"1", "+1"}, {"2", "one"})),
                                                  Key("xml_path", list)}));
    RunChecked(folder / "task.ini");
  }
}

// Of the triggers the service under Wine knows the daily one alone.
TEST_F(RandomTaskFiles, OfJobs) {
  const TestFolder folder;
  const std::string name = "uactask test " + std::to_string(GetCurrentProcessId()) + " check";
  const auto run = [&](bool isDeletion) {
    WriteFileBytes(folder / "task.ini",
                   TaskFile({Key("type", "0"), "task_name=" + name,
                             Key("exe_path", isDeletion ? "" : OwnProgram()),
                             Key("exe_arguments", isDeletion ? "" : "-a"), Key("author_name", "x"),
                             Key("runtime", "2099-01-31T08:00:00"), Key("time_weekday", "+0"),
                             Key("time_monthday", OneOf({"0", "-1"}, {"0.5"})),
                             Key("time_type", OneOf({"2"}, {"5", "99"}))}));
    if (!RunChecked(folder / "task.ini")) return false;
    EXPECT_EQ(report_.steps.size(), 1U);
    return report_.steps.front().kind == uaclient::Step::Kind::kRegisterJob;
  };
  bool isThere = false;
  for (int i = 0; i < 20; ++i) isThere = run(isThere && Below(2) == 0);

  WriteFileBytes(folder / "task.ini", "[Task]\ntype=0\ntask_name=" + name +
                                          "\ntime_type=0\ntime_weekday=0\ntime_monthday=0\n");
  RunProgram("uactask.exe", {folder / "task.ini"});
}

}  // namespace
