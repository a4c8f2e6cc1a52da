// The application's side end to end: plans, jobs and task files, carried out by the real helper.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <aclapi.h>
#include <objbase.h>
#include <sddl.h>
#include <tlhelp32.h>

#include <fstream>
#include <future>
#include <regex>
#include <stdexcept>

#include "corekit/text.h"
#include "support.h"
#include "uaclient/copy_watch.h"
#include "uaclient/helper_process.h"
#include "uaclient/job_task.h"
#include "uaclient/uaclient.h"

namespace uaclient {
namespace {

using testing::HasSubstr;

std::filesystem::path FullPath(const std::string& path) {
  return std::filesystem::absolute(Utf8ToWide(path)).make_preferred();
}

// Has a folder for temporary files, in which nothing is left in the end.
class Client : public testing::Test {
 protected:
  Client() { UseTemp("temp/"); }
  ~Client() override {
    for (int i = 0; i < 100 && !std::filesystem::is_empty(tempPath_); ++i) Sleep(50);
    EXPECT_EQ(temp_.Contents(), temps_);
  }

  void UseTemp(const std::string& name) {
    temps_[name] = "";
    MakeFolders(temp_ / name);
    tempPath_ = FullPath(temp_ / name);
    SetEnvironmentVariableW(L"TMP", tempPath_.c_str());
  }
  void AddFolder(const std::string& from, const std::string& to) {
    plan_.Folder(FullPath(folder_ / from), FullPath(folder_ / to));
  }
  void AddFile(const std::string& from, const std::string& to) {
    plan_.File(FullPath(folder_ / from), FullPath(folder_ / to));
  }
  // Each item's reason, "" for one that is done.
  static std::vector<std::string> Reasons(const Result& result) {
    std::vector<std::string> reasons;
    for (const Item& item : result.items) {
      EXPECT_EQ(item.done, item.reason.empty());
      reasons.push_back(WideToUtf8(item.reason));
    }
    return reasons;
  }

  const TestFolder folder_;
  std::filesystem::path tempPath_;
  CopyPlan plan_;
  Options options_;

 private:
  const TestFolder temp_;
  Tree temps_;
};

const Tree kTree = {{"empty/", ""}, {"sub/", ""}, {"sub/日本 😀.txt", "far"}, {"ü  a.txt", "near"}};

// The task file's name reaches the helper through the code page, whatever the user's folder is.
TEST_F(Client, CopiesWhateverTheTemporaryFolderIsCalled) {
  std::vector<std::string> temps = {"temp/", "t ü/"};
  // No task file can carry these; their short names, which Windows may lack, do.
  if (OnWine()) temps.insert(temps.end(), {"t [/", "日 😀/"});
  WriteTree(folder_ / "from/", kTree);
  AddFile("from/sub/日本 😀.txt", "file");
  AddFolder("from", "old");
  plan_.Folder(FullPath(folder_ / "from/"), FullPath(folder_.Path()).wstring() + L"new/mixed\\");
  AddFile("from/ü  a.txt", "made/日本");
  AddFile("from/ü  a.txt", "old/added");
  for (const std::string& temp : temps) {
    UseTemp(temp);
    RemoveTreeForSure(folder_ / "new/");
    WriteTree(folder_ / "old/", {{"gone/", ""}, {"gone/x", "x"}, {"ü  a.txt", "older"}});
    WriteFileBytes(folder_ / "file", "older");
    const Result result = uaclient::Run(plan_, options_);
    EXPECT_EQ(result.status, Status::kDone) << temp << WideToUtf8(result.reason);
    EXPECT_EQ(Reasons(result), std::vector<std::string>(5));
    EXPECT_EQ(result.files, 7U);
    EXPECT_EQ(result.bytes, 25U);
    EXPECT_EQ(ReadFileBytes(folder_ / "old/added"), "near");
    DeleteFileW(FullPath(folder_ / "old/added").c_str());
    for (const char* copy : {"new/mixed/", "old/"}) EXPECT_EQ(ReadTree(folder_ / copy), kTree);
    EXPECT_EQ(ReadFileBytes(folder_ / "file") + ReadFileBytes(folder_ / "made/日本"), "farnear");
  }
}

// An application that has ended left them; those of a day may still be in use.
TEST_F(Client, RemovesOldFilesOfItsOwn) {
  const auto leave = [&](wchar_t digit, std::uint64_t hours) {
    std::filesystem::path left = tempPath_ / (L"uactask-" + std::wstring(32, digit));
    std::filesystem::create_directory(left);
    WriteFileBytes(WideToUtf8((left / L"list.xml").generic_wstring()), "list");
    const Handle folder(CreateFileW(left.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    ULARGE_INTEGER time;
    GetSystemTimeAsFileTime(reinterpret_cast<FILETIME*>(&time));
    time.QuadPart -= hours * 36'000'000'000;
    EXPECT_TRUE(SetFileTime(folder.get(), nullptr, nullptr, reinterpret_cast<FILETIME*>(&time)));
    return left;
  };
  leave(L'0', 25);
  const std::filesystem::path young = leave(L'1', 23);
  WriteFileBytes(folder_ / "a", "a");
  AddFile("a", "b");
  EXPECT_EQ(uaclient::Run(plan_, options_).status, Status::kDone);
  EXPECT_EQ(std::filesystem::remove_all(young), 2U);
}

TEST_F(Client, PutsItsFilesNowhereElse) {
  WriteFileBytes(folder_ / "a", "a");
  AddFile("a", "b");
  const std::wstring longPath = L"C:\\" + std::wstring(300, L'x');
  const std::wstring file = FullPath(folder_ / "a").wstring();
  const wchar_t* const kTemps[] = {
      nullptr, L"", L"temp", L"\\temp", L"C:\\no such folder", file.c_str(), longPath.c_str()};
  for (const wchar_t* temp : kTemps) {
    SetEnvironmentVariableW(L"TMP", temp);
    const Result result = uaclient::Run(plan_, options_);
    EXPECT_EQ(result.status, Status::kNotStarted);
    EXPECT_THAT(WideToUtf8(result.reason), HasSubstr("TMP"));
    EXPECT_EQ(Reasons(result), std::vector<std::string>{WideToUtf8(result.reason)});
  }
  EXPECT_EQ(folder_.Contents(), TreeOf("a=a"));
}

// The helper answers 0 for all of these.
TEST_F(Client, NamesWhatDidNotArrive) {
  WriteTree(folder_.Path(), TreeOf("from/a=new, from/s/b=new, to/kept=k, same=old, gone/a=a, z=z"));
  CopyFileW(FullPath(folder_ / "from/a").c_str(), FullPath(folder_ / "same time").c_str(), FALSE);
  AddFile("from/a", "same");
  AddFile("from/a", "same time");
  AddFolder("from", "to");
  AddFolder("gone", "new");
  AddFile("z", "y");
  {
    // Changed, with its time as it was.
    const std::filesystem::path path = FullPath(folder_ / "same time");
    const auto time = std::filesystem::last_write_time(path);
    WriteFileBytes(folder_ / "same time", "bad");
    std::filesystem::last_write_time(path, time);
  }
  const FileLock unreadable(folder_ / "gone/a");
  const FileLock locks[] = {FileLock(folder_ / "same", FILE_SHARE_READ),
                            FileLock(folder_ / "same time", FILE_SHARE_READ),
                            FileLock(folder_ / "to/kept", FILE_SHARE_READ)};
  for (const Comparison comparison : {Comparison::kContent, Comparison::kSizeAndTime}) {
    options_.comparison = comparison;
    const Result result = uaclient::Run(plan_, options_);
    EXPECT_EQ(result.status, Status::kIncomplete);
    EXPECT_EQ(WideToUtf8(result.reason), "4 of 5 items did not arrive as they should.");
    const std::vector<std::string> reasons = Reasons(result);
    EXPECT_THAT(reasons[0], testing::AllOf(HasSubstr("It is not what its source is"),
                                           HasSubstr("another program has it open")));
    EXPECT_THAT(reasons[1], HasSubstr("It is not what its source is"));
    EXPECT_THAT(reasons[2], testing::AllOf(testing::StartsWith("\"kept\" is left over"),
                                           HasSubstr("\"a\" is missing"),
                                           testing::EndsWith("\"s\" is missing. And 1 more.")));
    EXPECT_THAT(reasons[3], HasSubstr("\"a\" is missing: its source cannot be read"));
    EXPECT_EQ(reasons[4], "");
    EXPECT_EQ(result.files, 1U);
    EXPECT_EQ(FullPath(folder_ / "same"), result.items[0].destination);
  }
}

TEST_F(Client, RefusesAllForOne) {
  EXPECT_EQ(uaclient::Run(plan_, options_).reason, L"The plan is empty; add a file or a folder.");
  WriteFileBytes(folder_ / "a", "a");
  AddFile("a", "b");
  AddFile("none", "c");
  const Result result = uaclient::Run(plan_, options_);
  EXPECT_EQ(result.status, Status::kInvalid);
  EXPECT_THAT(Reasons(result),
              testing::ElementsAre(
                  "Nothing was started: another item was refused.",
                  testing::MatchesRegex("Nothing was started: The source .* does not exist.")));
  EXPECT_EQ(folder_.Contents(), TreeOf("a=a"));
  for (const Result& job :
       {uaclient::Run(Job{}, options_), uaclient::Run(JobRemoval{}, options_)}) {
    EXPECT_THAT(Reasons(job), testing::ElementsAre(testing::StartsWith("Nothing was started: ")));
  }
}

TEST_F(Client, NamesLinksThatAreNotFollowed) {
  WriteTree(folder_ / "from/", TreeOf("a=a"));
  if (!MakeFolderLink(".", folder_ / "from/x")) GTEST_SKIP() << "links cannot be made here";
  AddFolder("from", "to");
  const Result result = uaclient::Run(plan_, options_);
  EXPECT_EQ(result.status, Status::kIncomplete);
  EXPECT_THAT(Reasons(result).at(0), HasSubstr("\"x\\x\" cannot be read, or is a link"));
  EXPECT_EQ(result.files, 2U);
}

TEST_F(Client, CarriesOutManyItemsInTheirOrderAndShowsHowFarItIs) {
  Tree tree;
  for (int i = 0; i < 1000; ++i) {
    tree["from/" + std::to_string(i)] = std::to_string(i);
    const std::string to = "to/" + std::to_string(i % 20) + "/";
    tree[to] = "";
    AddFile("from/" + std::to_string(i), to + std::to_string(999 - i));
  }
  WriteTree(folder_.Path(), tree);
  std::vector<std::uint64_t> seen;
  std::uint64_t arrived = 0;
  std::chrono::milliseconds last{-100};
  options_.progress = [&](const Progress& now) {
    arrived = now.files;
    if (!now.comparing) {
      seen.push_back(now.files);
      EXPECT_GE(now.elapsed.count() - last.count(), 100);
      last = now.elapsed;
    }
    EXPECT_EQ(now.allFiles, 1000U);
    EXPECT_EQ(now.allBytes, 2890U);
    return true;
  };
  const Result result = uaclient::Run(plan_, options_);
  EXPECT_EQ(result.status, Status::kDone);
  EXPECT_EQ(result.items.size(), 1000U);
  EXPECT_EQ(result.bytes, 2890U);
  EXPECT_EQ(ReadFileBytes(folder_ / "to/19/0"), "999");
  EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
  EXPECT_TRUE(seen.empty() || seen.back() > 0) << "progress is seen while the helper works";
  EXPECT_EQ(arrived, 1000U) << "the last report is of what has arrived";
}

// A program in the helper's place that does nothing until it is killed.
class HangingHelper : public Client {
 protected:
  HangingHelper() {
    options_.helper = std::filesystem::path(OwnFolder()) / L"hanging_helper.exe";
    WriteFileBytes(folder_ / "a", "a");
    AddFile("a", "b");
  }
  static bool KillHelper() {
    const Handle all(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    bool killed = false;
    for (BOOL more = Process32FirstW(all.get(), &entry); more;
         more = Process32NextW(all.get(), &entry)) {
      if (_wcsicmp(entry.szExeFile, L"hanging_helper.exe") != 0 ||
          entry.th32ParentProcessID != GetCurrentProcessId()) {
        continue;
      }
      const Handle helper(OpenProcess(PROCESS_TERMINATE, FALSE, entry.th32ProcessID));
      killed = TerminateProcess(helper.get(), 0xC0000005) != FALSE;
    }
    return killed;
  }
};

// Its files go when it has ended.
TEST_F(HangingHelper, IsLeftToItself) {
  for (const bool cancels : {false, true}) {
    options_.timeout = std::chrono::milliseconds(cancels ? 0 : 200);
    options_.progress = [cancels](const Progress& now) {
      return !cancels || now.elapsed.count() == 0;
    };
    const Result result = uaclient::Run(plan_, options_);
    EXPECT_EQ(result.status, Status::kStillRunning);
    EXPECT_THAT(Reasons(result).at(0), HasSubstr("it goes on, and its files in \""));
    EXPECT_TRUE(KillHelper());
  }
  options_.progress = [](const Progress& now) {
    return now.elapsed.count() == 0 ? true : throw std::runtime_error("enough");
  };
  EXPECT_THROW(uaclient::Run(plan_, options_), std::runtime_error);
  EXPECT_TRUE(KillHelper());
}

// The folder's access list, as text.
std::wstring AccessOf(std::wstring folder) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  wchar_t* text = nullptr;
  GetNamedSecurityInfoW(folder.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                        nullptr, nullptr, &descriptor);
  ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                       DACL_SECURITY_INFORMATION, &text, nullptr);
  std::wstring access = text != nullptr ? text : L"";
  for (void* memory : {descriptor, static_cast<void*>(text)}) LocalFree(memory);
  return access;
}

// Meanwhile nobody can put other files in the place of those that it has been given, and nobody
// else can read them.
TEST_F(HangingHelper, IsKilled) {
  options_.progress = [this](const Progress& now) {
    if (now.comparing || now.elapsed.count() == 0) return true;
    for (const auto& folder : std::filesystem::directory_iterator(tempPath_)) {
      EXPECT_FALSE(MoveFileW(folder.path().c_str(), (tempPath_ / L"other").c_str()));
      EXPECT_FALSE(std::ofstream(folder.path() / L"list.xml"));
      const std::wregex ownOnly(L"D:[PAI]*(\\(A;OICI;FA;;;(SY|BA|LA|S-1-5-21-[-0-9]+)\\))+");
      EXPECT_TRUE(std::regex_match(AccessOf(folder.path().wstring()), ownOnly))
          << AccessOf(folder.path().wstring());
    }
    return KillHelper();
  };
  const Result result = uaclient::Run(plan_, options_);
  EXPECT_EQ(result.status, Status::kFailed);
  EXPECT_THAT(WideToUtf8(result.reason), HasSubstr("ended abnormally"));
  EXPECT_THAT(Reasons(result).at(0), HasSubstr("It is missing"));

  const std::filesystem::path task = FullPath(folder_ / "task.ini");
  const std::string list = WideToUtf8(FullPath(folder_ / "list.xml").wstring());
  WriteTree(folder_.Path(), {{"list.xml", "<root><task/></root>"},
                             {"task.ini", "[Task]\ntype=1\nxml_path=" + list + "\n"}});
  EXPECT_EQ(uaclient::Run(TaskFile{task}, options_).status, Status::kFailed);
}

TEST_F(Client, SaysThatThereIsNoHelper) {
  WriteFileBytes(folder_ / "a", "a");
  AddFile("a", "b");
  options_.helper = FullPath(folder_ / "none.exe");
  Result result = uaclient::Run(plan_, options_);
  EXPECT_EQ(result.status, Status::kNotStarted);
  EXPECT_THAT(WideToUtf8(result.reason), HasSubstr("none.exe"));
  options_.helper = FullPath(folder_ / "a");
  result = uaclient::Run(plan_, options_);
  EXPECT_EQ(result.status, Status::kNotStarted);
  EXPECT_THAT(WideToUtf8(result.reason), HasSubstr("could not be started"));
}

TEST_F(Client, DoesNothingWhenItIsGivenUpBeforeTheStart) {
  WriteFileBytes(folder_ / "a", "a");
  AddFile("a", "b");
  options_.progress = [](const Progress&) { return false; };
  const Result result = uaclient::Run(plan_, options_);
  EXPECT_EQ(result.status, Status::kNotStarted);
  EXPECT_THAT(WideToUtf8(result.reason), HasSubstr("given up before"));
  EXPECT_EQ(folder_.Contents(), TreeOf("a=a"));
}

// A list that holds items of which nothing comes, in the order in which the helper goes through it.
TEST_F(Client, RunsListsOfOthers) {
  const std::string root = WideToUtf8(FullPath(folder_.Path()).generic_wstring());
  WriteTree(folder_.Path(), TreeOf("f=1, s/a=2, old/x=3, ro=r, hid=h"));
  MakeReadOnly(folder_ / "ro");
  SetFileAttributesW(FullPath(folder_ / "hid").c_str(), FILE_ATTRIBUTE_HIDDEN);
  WriteFileBytes(folder_ / "list.xml",
                 std::regex_replace("<root><task><i key='1' src='@f' dec='@g'/>"
                                    "<i key='2' dec='@h'/>"
                                    "<i key='3' src='@s/' dec='' type='dir'/>"
                                    "<i key='4' src='\xE9' dec='@old/' type='dir'/>"
                                    "<i key='5' src='@f' dec='@ro'/>"
                                    "<i key='6' src='@f' dec='@hid'/></task></root>",
                                    std::regex("@"), root));
  WriteFileBytes(folder_ / "task.ini", "[Task]\ntype=1\nxml_path=" + root + "list.xml\n");
  const std::filesystem::path task = FullPath(folder_ / "task.ini");
  std::string steps;
  for (const Step& step : CheckTaskFile(task).steps) {
    steps += WideToUtf8(step.destination.filename().wstring()) + " ";
  }
  EXPECT_EQ(steps, "  g h ro hid ");
  // Wine replaces such files, unless they are open.
  const FileLock locks[] = {FileLock(folder_ / "ro", FILE_SHARE_READ),
                            FileLock(folder_ / "hid", FILE_SHARE_READ)};
  const Result result = uaclient::Run(TaskFile{task}, options_);
  EXPECT_EQ(result.status, Status::kIncomplete);
  const std::vector<std::string> reasons = Reasons(result);
  ASSERT_EQ(reasons.size(), 6U);
  for (const std::size_t folder : {0U, 1U})
    EXPECT_THAT(reasons[folder], HasSubstr("is empty or not UTF-8"));
  EXPECT_EQ(reasons[2], "");
  EXPECT_THAT(reasons[3], HasSubstr("It is missing: its source cannot be read"));
  EXPECT_THAT(reasons[4], HasSubstr("It is not what its source is: it is read-only"));
  EXPECT_THAT(reasons[5], HasSubstr("It is not what its source is: it is a hidden or system"));
  EXPECT_EQ(result.files, 1U);
  Tree contents = folder_.Contents();
  contents.erase("list.xml");
  EXPECT_EQ(contents, TreeOf("f=1, g=1, s/a=2, old/x=3, ro=r, hid=h"));

  // Success of the helper is not all that counts.
  const std::string item = "<i key='1' src='" + root + "f' dec='" + root + "g'/>";
  WriteFileBytes(folder_ / "list.xml", "<root><task>" + item + item + "</task></root>");
  WriteFileBytes(folder_ / "task.ini", "[Task]\ntype=1\nxml_path=" + root + "list.xml\n");
  for (const char* unreadable : {"list.xml", "task.ini"}) {
    const FileLock lock(folder_ / unreadable);
    EXPECT_EQ(uaclient::Run(TaskFile{task}, options_).status, Status::kInvalid);
  }
  const Result partial = uaclient::Run(TaskFile{task}, options_);
  EXPECT_EQ(partial.status, Status::kIncomplete);
  EXPECT_THAT(WideToUtf8(partial.reason), HasSubstr("leaves items out"));

  WriteFileBytes(folder_ / "list.xml", "<root><task>" + item + "</task></root>");
  WriteFileBytes(folder_ / "task.ini", "[Task]\ntype=1\nxml_path=" + root + "list.xml\n");
  MakeReadOnly(folder_ / "task.ini");
  const Result kept = uaclient::Run(TaskFile{task}, options_);
  EXPECT_EQ(kept.status, Status::kDone);
  EXPECT_THAT(WideToUtf8(kept.reason), HasSubstr("task.ini\" could not be deleted"));
  EXPECT_TRUE(
      ForgetDeletionsAtRestart(folder_.Path().substr(0, folder_.Path().size() - 1) + "\\task.ini"));
}

TEST_F(Client, ServesTwoThreadsAtOnceAndLeavesTheProcessAsItWas) {
  const std::filesystem::path directory = std::filesystem::current_path();
  CopyPlan plans[2];
  for (int i = 0; i < 2; ++i) {
    const std::string name = std::to_string(i);
    WriteTree(folder_ / name + "/", kTree);
    plans[i].Folder(FullPath(folder_ / name), FullPath(folder_ / name + " copy"));
  }
  auto other = std::async(std::launch::async, [&] { return uaclient::Run(plans[1], options_); });
  EXPECT_EQ(uaclient::Run(plans[0], options_).status, Status::kDone);
  EXPECT_EQ(other.get().status, Status::kDone);
  EXPECT_EQ(ReadTree(folder_ / "1 copy/"), kTree);
  EXPECT_EQ(std::filesystem::current_path(), directory);
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK) << "COM is as it was";
  CoUninitialize();
}

// As a process without raised rights does it; Wine asks nobody.
TEST_F(Client, AsksForRaisedRights) {
  if (ElevationPrompts()) GTEST_SKIP() << "the system would ask the user";
  const std::wstring helper = OwnFolder() + L"uactask.exe";
  for (void* owner : {static_cast<HWND>(nullptr), GetDesktopWindow()}) {
    HelperProcess process;
    std::wstring why;
    ASSERT_EQ(process.StartByShell(helper, L"C:\\no such file", OwnFolder(), owner, why),
              Status::kDone);
    EXPECT_TRUE(process.HasEnded(30000));
    EXPECT_EQ(process.ExitCode(), 2U);
    EXPECT_EQ(process.StartByShell(L"C:\\none.exe", L"", OwnFolder(), owner, why),
              Status::kNotStarted);
    EXPECT_THAT(WideToUtf8(why), HasSubstr("none.exe"));
  }
}

TEST_F(Client, SchedulesAndUnschedules) {
  Job job;
  job.name = L"uactask test client ü " + std::to_wstring(GetCurrentProcessId());
  job.program = L"C:\\windows\\system32\\cmd.exe";
  job.arguments = {L"/c"};
  const Result registered = uaclient::Run(job, options_);
  EXPECT_EQ(registered.status, Status::kDone) << WideToUtf8(registered.reason);
  EXPECT_EQ(registered.items.at(0).job, job.name);
  EXPECT_EQ(uaclient::Run(JobRemoval{job.name}, options_).status, Status::kDone);
  const Result missing = uaclient::Run(JobRemoval{job.name}, options_);
  EXPECT_EQ(missing.status, Status::kFailed);
  EXPECT_THAT(Reasons(missing).at(0), HasSubstr("There is no job of that name."));
  if (!OnWine()) return;  // whose scheduler refuses all but daily jobs
  job.every = Job::Every::kWeek;
  job.days = 1;
  const Result refused = uaclient::Run(job, options_);
  EXPECT_EQ(refused.status, Status::kFailed);
  EXPECT_THAT(Reasons(refused).at(0),
              testing::MatchesRegex("The helper gave up .exit code 1.. The job .+ may be gone. It "
                                    "said: TaskScheduler: Cannot create the trigger,80004001."));
}

// What is there before the start looks like the finished copy.
TEST_F(Client, SeesNoProgressInAFolderThatIsStillToBeEmptied) {
  WriteTree(folder_.Path(), TreeOf("from/a=1, from/b=22, from/c=333, to/"));
  const auto copy = [&](const std::string& name) {
    CopyFileW(FullPath(folder_ / "from/" + name).c_str(), FullPath(folder_ / "to/" + name).c_str(),
              FALSE);
  };
  for (const char* name : {"a", "b", "c"}) copy(name);
  CopyWatch watch({{FullPath(folder_ / "from"), FullPath(folder_ / "to"), true}},
                  Comparison::kContent);
  const auto files = [&] {
    watch.Advance();
    return watch.Seen().files;
  };
  EXPECT_EQ(files(), 0U);
  for (const char* name : {"a", "b", "c"}) {
    EXPECT_EQ(files(), 0U);
    DeleteFileW(FullPath(folder_ / "to/" + name).c_str());
  }
  EXPECT_EQ(files(), 0U);
  copy("a");
  EXPECT_EQ(files(), 1U);
  EXPECT_EQ(watch.Seen().current, FullPath(folder_ / "to/b"));
  EXPECT_EQ(watch.Seen().bytes, 1U);
  WriteFileBytes(folder_ / "to/b", "2");  // begun
  EXPECT_EQ(files(), 1U);
  EXPECT_EQ(watch.Seen().bytes, 2U);
  DeleteFileW(FullPath(folder_ / "to/b").c_str());
  copy("c");  // "b" failed
  EXPECT_EQ(files(), 3U);
  EXPECT_EQ(watch.Seen().bytes, 6U);
  EXPECT_EQ(watch.Seen().current, "");
  WriteFileBytes(folder_ / "over", "1");
  CopyWatch single({{FullPath(folder_ / "from/a"), FullPath(folder_ / "over"), false}},
                   Comparison::kContent);
  for (const std::uint64_t seen : {0U, 1U}) {
    single.Advance();
    EXPECT_EQ(single.Seen().files, seen);
    CopyFileW(FullPath(folder_ / "from/a").c_str(), FullPath(folder_ / "over").c_str(), FALSE);
  }
  const std::vector<Item> items = watch.Finish([] { return true; });
  EXPECT_THAT(WideToUtf8(items.at(0).reason), testing::StartsWith("\"b\" is missing"));
}

TEST(ContentComparer, ComparesEveryByte) {
  const TestFolder folder;
  const std::string bytes(1 << 20, 'x');
  const char* const names[] = {"same", "longer", "other end", "other start"};
  for (const char* name : {"first", "same"}) WriteFileBytes(folder / name, bytes);
  WriteFileBytes(folder / "longer", bytes + 'x');
  WriteFileBytes(folder / "other end", bytes.substr(1) + 'y');
  WriteFileBytes(folder / "other start", 'y' + bytes.substr(1));
  ContentComparer comparer;
  const auto compare = [&](const std::string& one, const std::string& other, bool goOn = true) {
    return comparer.Compare(FullPath(folder / one), FullPath(folder / other),
                            [goOn] { return goOn; });
  };
  for (const std::string name : names) {
    const Equality expected = name == "same" ? Equality::kEqual : Equality::kDifferent;
    EXPECT_EQ(compare("first", name), expected) << name;
    EXPECT_EQ(compare(name, "first"), expected) << name;
    EXPECT_EQ(compare(name, name), Equality::kEqual) << name;
  }
  EXPECT_EQ(compare("first", "same", false), Equality::kStopped);
  EXPECT_EQ(compare("first", "none"), Equality::kNotRead);
  EXPECT_EQ(compare("none", "first"), Equality::kNotRead);
}

TEST(FileState, MatchesWithinTwoSeconds) {
  const FileState state = {1, 50'000'000};
  for (const std::uint64_t apart : {0U, 20'000'000U, 20'000'001U}) {
    const bool matches = apart <= 20'000'000;
    EXPECT_EQ(state.Matches({1, state.time + apart}), matches);
    EXPECT_EQ(state.Matches({1, state.time - apart}), matches);
    EXPECT_FALSE(state.Matches({2, state.time + apart}));
  }
}

TEST(JobTask, HandsArgumentsOnAsTheyAreGiven) {
  EXPECT_EQ(CommandLine({L"plain", L"", L"b ü", L"a \"b\"", L"C:\\a b\\", L"C:\\c\\", L"\\\"\\"}),
            L"plain \"\" \"b ü\" \"a \\\"b\\\"\" \"C:\\a b\\\\\" C:\\c\\ \"\\\\\\\"\\\\\"");
  Job job;
  job.arguments = {L"a"};
  job.days = 42;
  job.hour = 7;
  for (const auto& [every, kind, weekdays, monthDays] :
       {std::tuple(Job::Every::kDay, "2", "0", "0"), std::tuple(Job::Every::kWeek, "3", "42", "0"),
        std::tuple(Job::Every::kMonth, "4", "0", "42")}) {
    job.every = every;
    const uactask::TaskParams params = RegistrationParams(job);
    EXPECT_EQ(params.at(5) + params.at(6) + params.at(7), std::string(kind) + weekdays + monthDays);
    EXPECT_THAT(params.at(3), testing::MatchesRegex("20\\d\\d-\\d\\d-\\d\\dT07:00:00"));
  }
}

}  // namespace
}  // namespace uaclient
