// The application's side end to end: plans, jobs and task files, carried out by the real helper.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <aclapi.h>
#include <objbase.h>
#include <sddl.h>

#include <fstream>
#include <future>
#include <stdexcept>

#include "client_support.h"
#include "corekit/text.h"
#include "support.h"
#include "uaclient/claims.h"
#include "uaclient/copy_progress.h"
#include "uaclient/end_state.h"
#include "uaclient/helper_process.h"
#include "uaclient/kept_folders.h"
#include "uaclient/path.h"
#include "uaclient/uaclient.h"

namespace uaclient {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

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
  std::filesystem::path At(const std::string& path) const { return FullPath(folder_ / path); }

  // Each item's reason, "" for one that is done; checks the status.
  std::vector<std::string> Reasons(Status status, const Result& result) const {
    EXPECT_EQ(result.status, status) << WideToUtf8(result.reason) << Shown(result.report.findings);
    std::vector<std::string> reasons;
    for (const Item& item : result.items) {
      const bool isDone =
          status == Status::kIncomplete ? item.reason.empty() : status == Status::kDone;
      EXPECT_EQ(item.done, isDone);
      reasons.push_back(WideToUtf8(item.reason));
    }
    return reasons;
  }
  std::vector<std::string> RunPlan(Status status) {
    result_ = uaclient::Run(plan_, options_);
    return Reasons(status, result_);
  }

  const TestFolder folder_;
  std::filesystem::path tempPath_;
  CopyPlan plan_;
  Options options_;
  Result result_;

 private:
  const TestFolder temp_;
  Tree temps_;
};

const Tree kTree = TreeOf("empty/, sub/日本 😀.txt=far, ü  a.txt=near");

// The task file's name reaches the helper through the code page, whatever the user's folder is.
TEST_F(Client, CopiesWhateverTheTemporaryFolderIsCalled) {
  std::vector<std::string> temps = {"temp/", "t ü/"};
  // No task file can carry these; their short names, which Windows may lack, do.
  if (OnWine()) temps.insert(temps.end(), {"t [/", "日 😀/"});
  WriteTree(folder_ / "from/", kTree);
  plan_.File(At("from/sub/日本 😀.txt"), At("file"));
  plan_.Folder(At("from"), At("added"));
  plan_.ReplaceFolder(At("from/"), At("old"));
  plan_.Folder(At("from"), FullPath(folder_.Path()).wstring() + L"new/mixed\\deep");
  plan_.File(At("from/ü  a.txt"), At("old/brought/deep/日本"));
  plan_.File(At("from/ü  a.txt"), At("added/new/file"));
  const Tree before = TreeOf("gone/x=x, ü  a.txt=older, SUB/");
  for (const std::string& temp : temps) {
    UseTemp(temp);
    for (const char* folder : {"new/", "old/", "added/"}) RemoveTreeForSure(folder_ / folder);
    for (const char* folder : {"old/", "added/"}) WriteTree(folder_ / folder, before);
    WriteFileBytes(folder_ / "file", "older");
    EXPECT_EQ(RunPlan(Status::kDone), std::vector<std::string>(6)) << temp;
    EXPECT_EQ(result_.files, 9U);
    EXPECT_EQ(result_.bytes, 32U);
    EXPECT_EQ(ReadTree(folder_ / "new/mixed/deep/"), kTree);
    EXPECT_EQ(ReadFileBytes(folder_ / "file"), "far");
    EXPECT_EQ(ReadTree(folder_ / "old/"),
              TreeOf("brought/deep/日本=near, empty/, sub/日本 😀.txt=far, ü  a.txt=near"));
    // Added to: nothing is gone, and a folder keeps its name's case.
    EXPECT_EQ(ReadTree(folder_ / "added/"),
              TreeOf("empty/, gone/x=x, new/file=near, SUB/日本 😀.txt=far, ü  a.txt=near"));
  }
}

// A copy needs no helper when everything is there that could not be overwritten.
TEST_F(Client, LeavesOutProtectedFilesThatAreEqual) {
  WriteTree(folder_.Path(), TreeOf("from/a=1, to/a=1"));
  MakeReadOnly(folder_ / "to/a");
  plan_.Folder(At("from"), At("to"));
  options_.helper = At("none.exe");
  EXPECT_THAT(RunPlan(Status::kDone), ElementsAre(""));
  EXPECT_EQ(result_.files, 1U);
}

TEST_F(Client, CopiesWhatHoldsItsTemporaryFolder) {
  WriteTree(folder_ / "profile/", TreeOf("a=1, tmp/b=2"));
  SetEnvironmentVariableW(L"TMP", At("profile/tmp").c_str());
  plan_.Folder(At("profile"), At("backup"));
  EXPECT_THAT(RunPlan(Status::kDone), ElementsAre(""));
  EXPECT_EQ(ReadTree(folder_ / "backup/"), TreeOf("a=1, tmp/b=2"));
  plan_ = {};
  plan_.ReplaceFolder(At("profile"), At("backup"));
  EXPECT_THAT(RunPlan(Status::kInvalid), ElementsAre(HasSubstr("where the helper's files go")));
  WriteFileBytes(folder_ / "list.xml", "<root><task><i src='" + Absolute(folder_) +
                                           "profile/' dec='" + Absolute(folder_) +
                                           "backup/' type='dir'/></task></root>");
  WriteFileBytes(folder_ / "task.ini",
                 "[Task]\ntype=1\nxml_path=" + Absolute(folder_) + "list.xml\n");
  EXPECT_EQ(uaclient::Run(TaskFile{At("task.ini")}).status, Status::kInvalid);
}

// The helper answers 0 for all of these.
TEST_F(Client, NamesWhatDidNotArrive) {
  WriteTree(folder_.Path(), TreeOf("from/a=new, from/s/b=new, same=old, gone/a=a, z=z"));
  plan_.File(At("from/a"), At("same"));
  plan_.Folder(At("gone"), At("new"));
  plan_.File(At("z"), At("y"));
  const FileLock unreadable(folder_ / "gone/a");
  const FileLock lock(folder_ / "same", FILE_SHARE_READ);
  for (const Comparison comparison : {Comparison::kContent, Comparison::kSizeAndTime}) {
    options_.comparison = comparison;
    EXPECT_THAT(RunPlan(Status::kIncomplete),
                ElementsAre(testing::AllOf(StartsWith("It differs from its source"),
                                           HasSubstr("it is in use by another program")),
                            HasSubstr("\"a\" is missing: the source is in use"), ""));
    EXPECT_EQ(WideToUtf8(result_.reason),
              "2 of 3 items did not arrive as they should, or were not compared.");
    EXPECT_EQ(result_.files, 1U);
    EXPECT_EQ(At("same"), result_.items[0].destination);
  }
}

TEST_F(Client, RefusesAllForOne) {
  WriteFileBytes(folder_ / "a", "a");
  plan_.File(At("a"), At("b"));
  plan_.File(At("none"), At("c"));
  EXPECT_THAT(RunPlan(Status::kInvalid),
              ElementsAre("Another item was refused.", HasSubstr("does not exist.")));
  EXPECT_THAT(WideToUtf8(result_.reason), HasSubstr("does not exist."));
  EXPECT_EQ(folder_.Contents(), TreeOf("a=a"));
}

TEST_F(Client, CarriesOutManyItemsInTheirOrderAndShowsHowFarItIs) {
  Tree tree;
  for (int i = 0; i < 1000; ++i) {
    tree["from/" + std::to_string(i)] = std::to_string(i);
    plan_.File(At("from/" + std::to_string(i)),
               At("to/" + std::to_string(i % 20) + "/" + std::to_string(999 - i)));
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
  EXPECT_EQ(RunPlan(Status::kDone), std::vector<std::string>(1000));
  EXPECT_EQ(result_.bytes, 2890U);
  EXPECT_EQ(ReadFileBytes(folder_ / "to/19/0"), "999");
  EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
  EXPECT_TRUE(seen.empty() || seen.back() > 0) << "progress is seen while the helper works";
  EXPECT_EQ(arrived, 1000U) << "the last report is of what has arrived";
}

// A program in the helper's place that does nothing until it is told to end.
class HangingHelper : public Client {
 protected:
  HangingHelper() {
    options_.helper = std::filesystem::path(OwnFolder()) / L"hanging_helper.exe";
    WriteFileBytes(folder_ / "a", "a");
    plan_.File(At("a"), At("b"));
  }
  void EndHelper() const {
    for (const auto& folder : std::filesystem::directory_iterator(tempPath_)) {
      std::ofstream(folder.path() / L"task.ini.end") << "x";
    }
  }
  // Nothing but the lock is left beside the claims.
  void AwaitNoClaims() const {
    using Iterator = std::filesystem::directory_iterator;
    for (int i = 0; i < 500 && std::distance(Iterator(claims_), Iterator()) > 1; ++i) Sleep(20);
  }

  const std::filesystem::path claims_ =
      std::filesystem::path(KnownFolder(FOLDERID_LocalAppData)) / L"uactask";
};

// Its files go when it has ended. Meanwhile nobody else is let into its places, whoever waits.
TEST_F(HangingHelper, IsLeftToItself) {
  CopyPlan other;
  other.File(At("b"), At("c"));
  CopyPlan apart;
  apart.File(At("a"), At("d"));
  for (const bool cancels : {false, true}) {
    options_.timeout = std::chrono::milliseconds(cancels ? 0 : 200);
    options_.progress = [cancels](const Progress& now) {
      return !cancels || now.elapsed.count() == 0;
    };
    RunPlan(Status::kStillRunning);
    EXPECT_THAT(WideToUtf8(result_.reason), HasSubstr("it goes on, and its files in \""));
    WriteFileBytes(folder_ / "b", "b");
    for (const CopyPlan& plan : {plan_, other}) {
      const Result refused = uaclient::Run(plan);
      EXPECT_EQ(refused.status, Status::kNotStarted);
      EXPECT_THAT(WideToUtf8(refused.reason),
                  HasSubstr("Another run is at work at \"" + WideToUtf8(At("").wstring())));
    }
    EXPECT_EQ(uaclient::Run(apart).status, Status::kDone);
    EndHelper();
    AwaitNoClaims();
  }
  options_.progress = [](const Progress& now) {
    return now.elapsed.count() == 0 ? true : throw std::runtime_error("enough");
  };
  EXPECT_THROW(uaclient::Run(plan_, options_), std::runtime_error);
  EXPECT_THROW(uaclient::Run(uaclient::JobRemoval{L"uactask test"}, options_), std::runtime_error);
  EXPECT_EQ(uaclient::Run(uaclient::JobRemoval{L"UACTASK test"}).status, Status::kNotStarted);
  EndHelper();
  AwaitNoClaims();
  EXPECT_EQ(uaclient::Run(other).status, Status::kDone) << "the claim has gone with the helper";
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
TEST_F(HangingHelper, EndsAbnormally) {
  bool hasEnded = false;
  std::unique_ptr<FileLock> lock;
  options_.progress = [&](const Progress& now) {
    if (hasEnded || now.elapsed.count() == 0) return true;
    for (const auto& folder : std::filesystem::directory_iterator(tempPath_)) {
      EXPECT_FALSE(MoveFileW(folder.path().c_str(), (tempPath_ / L"other").c_str()));
      EXPECT_FALSE(std::ofstream(folder.path() / L"list.xml"));
      const std::string access = WideToUtf8(AccessOf(folder.path().wstring()));
      EXPECT_TRUE(Matches(access, "D:[PAI]*(\\(A;OICI;FA;;;(SY|BA|LA|S-1-5-21-[-0-9]+)\\))+"))
          << access;
      lock = std::make_unique<FileLock>(WideToUtf8((folder.path() / L"list.xml").wstring()),
                                        FILE_SHARE_READ | FILE_SHARE_WRITE);
    }
    EndHelper();
    return hasEnded = true;
  };
  EXPECT_THAT(RunPlan(Status::kFailed), ElementsAre(HasSubstr("It is missing")));
  EXPECT_EQ(WideToUtf8(result_.reason), "The helper ended abnormally, with exit code 5.");

  // What is held then stays for a later run, and keeps none from the place.
  options_ = {};
  RunPlan(Status::kDone);
  lock.reset();

  // An application that has ended left these; what only looks like them is somebody's own.
  const auto leave = [&](const std::wstring& name) {
    std::filesystem::create_directory(tempPath_ / name);
    for (const wchar_t* file : {L"task.ini", L"list.xml"}) {
      std::ofstream(tempPath_ / name / file) << "x";
    }
    return tempPath_ / name;
  };
  const std::filesystem::path left = leave(L"uactask-" + std::wstring(32, L'a'));
  const std::filesystem::path own = leave(L"uactask-demo");
  const std::filesystem::path claim = claims_ / L"test.claim";
  for (const std::filesystem::path& folder : {left, own}) {
    std::ofstream(claim, std::ios::binary)
        << "h|" << WideToUtf8(folder.wstring()) << "|\np|4294967295|1\n";
    RunPlan(Status::kDone);
    EXPECT_FALSE(std::filesystem::exists(claim));
  }
  EXPECT_EQ(std::filesystem::remove_all(own), 3U);
  EXPECT_TRUE(std::filesystem::is_empty(tempPath_));
}

TEST_F(Client, SaysWhyNothingWasStarted) {
  WriteFileBytes(folder_ / "a", "a");
  plan_.File(At("a"), At("b"));
  const auto expect = [this](const std::string& reason) {
    RunPlan(Status::kNotStarted);
    EXPECT_THAT(WideToUtf8(result_.reason), HasSubstr(reason));
    options_ = {};
  };
  options_.helper = At("none.exe");
  expect("none.exe");
  options_.helper = At("a");
  expect("this file");  // in place of "%1"
  options_.helper = L"uactask.exe";
  expect("\"uactask.exe\" is relative");
  options_.progress = [](const Progress&) { return false; };
  expect("given up before");
  options_.confirm = [](const Report& report) { return report.steps.empty(); };
  expect("given up before");
  // Its files go nowhere else.
  const std::wstring longPath = L"C:\\" + std::wstring(300, L'x');
  const std::wstring file = At("a").wstring();
  const wchar_t* const kTemps[] = {
      nullptr, L"", L"temp", L"\\temp", L"C:\\no such folder", file.c_str(), longPath.c_str()};
  for (const wchar_t* temp : kTemps) {
    SetEnvironmentVariableW(L"TMP", temp);
    expect("TMP");
  }
  EXPECT_EQ(folder_.Contents(), TreeOf("a=a"));
}

// What an ordinary user meets: a prompt that is refused, drives that the elevated side lacks.
TEST_F(Client, AsksForElevation) {
  WriteFileBytes(folder_ / "a", "a");
  plan_.File(At("a"), At("b"));
  const auto isElevated = std::exchange(uaclient::IsElevated, [] { return false; });
  const auto shellExecute = std::exchange(ShellExecuteForHelper, [](SHELLEXECUTEINFOW* start) {
    EXPECT_STREQ(start->lpVerb, L"runas");
    SetLastError(ERROR_CANCELLED);
    return FALSE;
  });
  RunPlan(Status::kRefused);
  EXPECT_EQ(WideToUtf8(result_.reason), "The elevation was refused. Nothing was done.");
  ShellExecuteForHelper = shellExecute;
  if (OnWine() || ::IsElevated()) {  // no prompt: the way of the shell, with an owner and without
    for (void* owner : {static_cast<HWND>(nullptr), GetDesktopWindow()}) {
      options_.owner = owner;
      RunPlan(Status::kDone);
    }
    options_.helper = At("a");
    RunPlan(Status::kNotStarted);
  }
  uaclient::IsElevated = isElevated;
}

class TaskFiles : public Client {
 protected:
  TaskFiles() { WriteTree(folder_.Path(), TreeOf("f=1, s/a=2, old/x=3")); }

  void Write(const std::string& items) const {
    const std::string root = WideToUtf8(At("").generic_wstring());
    WriteFileBytes(folder_ / "list.xml",
                   Replaced("<root><task>" + items + "</task></root>", "@", root));
    WriteFileBytes(folder_ / "task.ini", "[Task]\ntype=1\nxml_path=" + root + "list.xml\n");
  }
  std::vector<std::string> Run(Status status) {
    result_ = uaclient::Run(TaskFile{At("task.ini")}, options_);
    return Reasons(status, result_);
  }
};

// A list that holds items of which nothing comes, in the order in which the helper goes through it.
TEST_F(TaskFiles, AreLookedAtItemByItem) {
  WriteTree(folder_.Path(), TreeOf("ro=r, hid=h"));
  MakeReadOnly(folder_ / "ro");
  SetFileAttributesW(At("hid").c_str(), FILE_ATTRIBUTE_HIDDEN);
  Write(
      "<i key='1' src='@f' dec='@g'/><i key='2' src='@none' dec='@h'/><i key='3' src='' dec='@i'/>"
      "<i key='4' src='@s/' dec='@old/' type='dir'/><i key='5' src='@f' dec='@ro'/>"
      "<i key='6' src='@f' dec='@hid'/><i key='7' src='@s' dec='@new'/>");
  // Wine replaces such files, unless they are open.
  const FileLock locks[] = {FileLock(folder_ / "ro", FILE_SHARE_READ),
                            FileLock(folder_ / "hid", FILE_SHARE_READ)};
  EXPECT_THAT(Run(Status::kIncomplete),
              ElementsAre("", HasSubstr("source does not exist"), HasSubstr("a path is wrong"), "",
                          StartsWith("It differs from its source: it is read-only"),
                          StartsWith("It differs from its source: it is read-only"),
                          StartsWith("The folder is missing: it was not copied")));
  EXPECT_EQ(result_.files, 2U);
  Tree contents = folder_.Contents();
  contents.erase("list.xml");
  EXPECT_EQ(contents, TreeOf("f=1, g=1, s/a=2, old/a=2, ro=r, hid=h"));

  Write("<i key='1' src='@f' dec='@g'/><i key='1' src='@f' dec='@g'/>");
  Run(Status::kIncomplete);
  EXPECT_THAT(WideToUtf8(result_.reason), HasSubstr("leaves items out"));
}

// From the check on nobody can change what is done.
TEST_F(TaskFiles, AreRunAsTheyWereChecked) {
  Write("<i key='1' src='@f' dec='@g'/>");
  options_.confirm = [this](const Report&) {
    EXPECT_FALSE(std::ofstream(At("task.ini")));
    EXPECT_FALSE(DeleteFileW(At("task.ini").c_str()));
    WriteFileBytes(folder_ / "list.xml", "<root><task><i key='1' src='" + (folder_ / "s/") +
                                             "' dec='" + (folder_ / "old/") +
                                             "' type='dir'/></task></root>");
    return true;
  };
  EXPECT_THAT(Run(Status::kDone), ElementsAre(""));
  EXPECT_EQ(ReadTree(folder_ / "old/"), TreeOf("x=3"));
  EXPECT_FALSE(std::filesystem::exists(At("task.ini")));

  options_ = {};
  Write("<i key='1' src='@f' dec='g'/>");
  Run(Status::kInvalid);
  for (const char* unreadable : {"list.xml", "task.ini"}) {
    Write("<i key='1' src='@f' dec='@g'/>");
    const FileLock lock(folder_ / unreadable);
    Run(Status::kInvalid);
  }
  MakeReadOnly(folder_ / "task.ini");
  Run(Status::kDone);
  EXPECT_THAT(WideToUtf8(result_.reason), HasSubstr("task.ini\" could not be deleted"));
}

TEST_F(Client, ServesTwoThreadsAtOnceAndLeavesTheProcessAsItWas) {
  const std::filesystem::path directory = std::filesystem::current_path();
  CopyPlan plans[2];
  for (int i = 0; i < 2; ++i) {
    const std::string name = std::to_string(i);
    WriteTree(folder_ / name + "/", kTree);
    plans[i].Folder(At(name), At(name + " copy"));
  }
  auto other = std::async(std::launch::async, [&] { return uaclient::Run(plans[1], options_); });
  EXPECT_EQ(uaclient::Run(plans[0], options_).status, Status::kDone);
  EXPECT_EQ(other.get().status, Status::kDone);
  EXPECT_EQ(ReadTree(folder_ / "1 copy/"), kTree);
  EXPECT_EQ(std::filesystem::current_path(), directory);
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK) << "COM is as it was";
  CoUninitialize();
}

// Copies without a helper: the test does, between survey and judgement, what can happen there.
class Copies : public Client {
 protected:
  Work SurveyOf(CopyItem::Kind kind) const {
    CopyPlan plan;
    kind == CopyItem::Kind::kFolder ? plan.Folder(At("from"), At("to"))
                                    : plan.ReplaceFolder(At("from"), At("to"));
    return WorkOf(plan, options_, Hold::kNo);
  }
  void Copy(const std::string& name) const {
    CopyFileW(At("from/" + name).c_str(), At("to/" + name).c_str(), FALSE);
  }
  std::string Judge(const Work& survey, Comparison comparison) const {
    Progress progress;
    std::vector<Item> items(1);
    JudgeEndState(survey.copies, comparison, [] { return true; }, progress, items);
    return WideToUtf8(items[0].reason);
  }
};

TEST_F(Copies, AreJudgedByTheirEndState) {
  const struct {
    std::function<void()> change;
    std::string said;
    std::string ofAdded = said;  // what is said of a folder that was added
  } kCases[] = {
      {[] {}, ""},
      {[this] { WriteFileBytes(folder_ / "from/new", "n"); },
       "\"new\" is missing: the source has changed"},
      {[this] { WriteFileBytes(folder_ / "from/a", "changed"); },
       "\"a\" differs from its source: the source has changed"},
      {[this] { DeleteFileW(At("from/a").c_str()); }, "\"a\" is no longer in the source"},
      {[this] { RemoveTreeForSure(folder_ / "from/"); }, "The source was removed"},
      {[this] {
         const auto time = std::filesystem::last_write_time(At("to/a"));
         WriteFileBytes(folder_ / "to/a", "2");
         std::filesystem::last_write_time(At("to/a"), time);
       },
       "\"a\" differs from its source"},
      {[this] { WriteFileBytes(folder_ / "to/other", ""); }, "\"other\" is not in the source", ""},
      {[this] { RemoveTreeForSure(folder_ / "to/s/"); },
       "The folder \"s\" is missing: it was not copied"},
  };
  for (const auto& [change, said, ofAdded] : kCases) {
    for (const auto kind : {CopyItem::Kind::kFolder, CopyItem::Kind::kReplaceFolder}) {
      for (const char* folder : {"from/", "to/"}) RemoveTreeForSure(folder_ / folder);
      WriteTree(folder_.Path(), TreeOf("from/a=1, from/s/b=2, to/a=1"));
      Copy("a");
      const Work survey = SurveyOf(kind);
      WriteTree(folder_.Path(), TreeOf("to/S/"));
      for (const char* name : {"a", "s/b"}) Copy(name);
      change();
      const std::string& expected = kind == CopyItem::Kind::kFolder ? ofAdded : said;
      EXPECT_THAT(Judge(survey, Comparison::kContent), StartsWith(expected));
      EXPECT_THAT(Judge(survey, Comparison::kSizeAndTime), StartsWith(expected));
    }
  }
}

// Only what has gone.
TEST_F(Copies, SayThatOldContentIsGone) {
  for (const bool isGone : {false, true}) {
    WriteTree(folder_.Path(), TreeOf("from/a=1, to/old=2, to/s/old=3"));
    const Work survey = SurveyOf(CopyItem::Kind::kReplaceFolder);
    if (isGone) RemoveTreeForSure(folder_ / "to/s/");
    const std::string said = Judge(survey, Comparison::kContent);
    EXPECT_EQ(said.find("Old content of the folder is gone") != said.npos, isGone) << said;
  }
}

// What is there before the start looks like the finished copy.
TEST_F(Copies, ShowNoProgressThatIsNone) {
  WriteTree(folder_.Path(), TreeOf("from/a=1, from/b=22, from/c=333, from/d=4, to/"));
  for (const char* name : {"a", "d"}) Copy(name);
  const Work survey = SurveyOf(CopyItem::Kind::kReplaceFolder);
  Progress progress;
  CopyProgress watch(survey.copies, progress);
  const auto seen = [&](std::uint64_t written) {
    watch.Advance(written);
    return std::pair(progress.files, progress.bytes);
  };
  EXPECT_EQ(seen(0), std::pair(0ULL, 0ULL));
  EXPECT_EQ(seen(1), std::pair(0ULL, 1ULL));
  Copy("b");
  EXPECT_EQ(seen(0), std::pair(2ULL, 3ULL));
  EXPECT_EQ(progress.current, At("to/c"));
  // Windows sets the size first: it is no progress, but what the process has written is.
  WriteFileBytes(folder_ / "to/c", "...");
  std::filesystem::last_write_time(
      At("to/c"), std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
  EXPECT_EQ(seen(3), std::pair(2ULL, 3ULL));
  EXPECT_EQ(seen(5), std::pair(2ULL, 5ULL));
  EXPECT_EQ(seen(7), std::pair(3ULL, 7ULL));
  EXPECT_EQ(progress.current, At("to/d"));
  EXPECT_THAT(Judge(survey, Comparison::kSizeAndTime), StartsWith("\"c\" differs"));
}

TEST_F(Copies, ClaimPlaces) {
  WriteTree(folder_.Path(), TreeOf("a/b/f=, new/x/"));
  const auto place = [&](const std::string& path, const wchar_t* file, bool isWritten = true) {
    return std::vector<Claimed>{{isWritten, At(path).wstring(), file}};
  };
  const struct {
    std::vector<Claimed> other;
    bool meets;
  } kCases[] = {{place("A/B", L"F"), true},       {place("a/b", L"f", false), true},
                {place("a/b", L"H"), false},      {place("a/b", L""), true},
                {place("a", L""), true},          {place("a", L"F"), false},
                {place("a/b/c/d", L""), false},   {place("a/b/f", L""), true},
                {place("a/b", L"", false), true}, {place("new", L""), false}};
  for (const auto& [other, meets] : kCases) {
    const std::vector<Claimed> own = place("a/b", L"F");
    EXPECT_EQ(Meet(own, other) != nullptr, meets) << WideToUtf8(other[0].folder);
    EXPECT_EQ(Meet(other, own) != nullptr, meets) << WideToUtf8(other[0].folder);
  }
  const std::vector<Claimed> read = place("a", L"", false);
  EXPECT_EQ(Meet(read, read), nullptr) << "both read";
}

TEST(Compare, ComparesEveryByte) {
  const TestFolder folder;
  const std::string bytes(1 << 20, 'x');
  const std::string others[] = {bytes, bytes + 'x', bytes.substr(1) + 'y', 'y' + bytes.substr(1)};
  const auto compare = [&](const std::string& one, const std::string& other, bool goOn = true) {
    return Compare(FullPath(folder / one), FullPath(folder / other), [goOn] { return goOn; });
  };
  WriteFileBytes(folder / "first", bytes);
  for (const std::string& other : others) {
    WriteFileBytes(folder / "same", other);
    const Equality expected = other == bytes ? Equality::kEqual : Equality::kDifferent;
    EXPECT_EQ(compare("first", "same"), expected);
    EXPECT_EQ(compare("same", "first"), expected);
  }
  EXPECT_EQ(compare("first", "same", false), Equality::kStopped);
  EXPECT_EQ(compare("first", "none"), Equality::kNotRead);
  EXPECT_EQ(compare("none", "first"), Equality::kNotRead);
}

}  // namespace
}  // namespace uaclient
