// The scheduler task against a Task Scheduler that lets every step fail.

#include "uactask/task_scheduler.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <boost/lexical_cast.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "corekit/text.h"
#include "fake_task_scheduler.h"
#include "support.h"

namespace {

constexpr int kAny = -1;  // trigger kinds
constexpr int kDaily = 2;
constexpr int kWeekly = 3;
constexpr int kMonthly = 4;

const std::string kStart = "2026-01-31T08:00:00";
const std::string kRegistered = "TaskScheduler: Register Task successfully!\n.";
const std::string kDeleted = "TaskScheduler: Delete task successfully!\n.";
const std::string kComLeft = "<CoUninitialize>";  // when no object is held any more

std::int32_t Register(std::int32_t kind, const std::string& start = kStart) {
  return UACTaskScheduler().RegisterScheduleTask("job", "C:\\a b.exe", "-x \"y z\"", start,
                                                 "author", kind, 62, 1);
}

std::int32_t Delete() { return UACTaskScheduler().DeleteScheduleTask("job"); }

// What is printed meanwhile, with a mark for each CoUninitialize.
std::string PrintedBy(const std::function<void()>& run) {
  testing::internal::CaptureStdout();
  run();
  return testing::internal::GetCapturedStdout();
}

enum Ending { kStops, kStopsAfterComLeft, kStopsWithComKept, kGoesOn };

// One line of the fake's calls, and what is printed where it can fail.
struct Step {
  int kind;
  std::string call;
  std::string failure = {};
  Ending ending = kStops;

  bool CanFail() const { return !failure.empty() || ending == kGoesOn; }
  std::string Printed() const {
    if (failure.empty()) return "";
    if (failure[0] == '\n') return failure + ": 8004abcd";
    return "TaskScheduler: " + failure + ",8004abcd\n";
  }
};

const std::vector<Step> kRegistration = {
    {kAny, "CoInitializeEx(2)"},
    {kAny, "CoInitializeSecurity(-1, 6, 3, 0)", "CoInitializeSecurity failed"},
    {kAny, "CoCreateInstance()", "Failed to create an instance of ITaskService"},
    {kAny, "ITaskService::Connect(empty, empty, empty, empty)", "ITaskService::Connect failed"},
    {kAny, "ITaskService::GetFolder('\\')", "Cannot get Root Folder pointer"},
    {kAny, "ITaskFolder::DeleteTask('job', 0)", "", kGoesOn},
    {kAny, "ITaskService::NewTask(0)", "Failed to CoCreate an instance of the TaskService class"},
    {kAny, "release ITaskService"},
    {kAny, "ITaskDefinition::get_RegistrationInfo()", "Cannot get identification pointer",
     kStopsWithComKept},
    {kAny, "IRegistrationInfo::put_Author('author')", "Cannot put identification info"},
    {kAny, "release IRegistrationInfo"},
    {kAny, "ITaskDefinition::get_Triggers()", "Cannot get trigger collection"},
    {kDaily, "ITriggerCollection::Create(2)", "Cannot create the trigger"},
    {kWeekly, "ITriggerCollection::Create(3)", "Cannot create the trigger"},
    {kMonthly, "ITriggerCollection::Create(4)", "Cannot create the trigger"},
    {kAny, "release ITriggerCollection"},
    {kDaily, "QueryInterface to IDailyTrigger()", "QueryInterface call on IDailyTrigger failed"},
    {kDaily, "IDailyTrigger::put_Id('Trigger_Daily')", "Cannot put trigger ID", kGoesOn},
    {kDaily, "IDailyTrigger::put_StartBoundary('2026-01-31T08:00:00')", "Cannot put start boundary",
     kGoesOn},
    {kDaily, "IDailyTrigger::put_DaysInterval(1)", "Cannot put days interval"},
    {kDaily, "release IDailyTrigger"},
    {kWeekly, "QueryInterface to IWeeklyTrigger()",
     "\nQueryInterface call for IWeeklyTrigger failed"},
    {kWeekly, "IWeeklyTrigger::put_Id('Trigger_Weekly')", "\nCannot put trigger ID", kGoesOn},
    {kWeekly, "IWeeklyTrigger::put_StartBoundary('2026-01-31T08:00:00')",
     "\nCannot put the start boundary", kGoesOn},
    {kWeekly, "IWeeklyTrigger::put_WeeksInterval(1)", "\nCannot put weeks interval"},
    {kWeekly, "IWeeklyTrigger::put_DaysOfWeek(62)", "\nCannot put days of week interval"},
    {kWeekly, "release IWeeklyTrigger"},
    {kMonthly, "QueryInterface to IMonthlyTrigger()",
     "\nQueryInterface call for IWeeklyTrigger failed"},
    {kMonthly, "IMonthlyTrigger::put_Id('Trigger_Weekly')", "\nCannot put trigger ID", kGoesOn},
    {kMonthly, "IMonthlyTrigger::put_StartBoundary('2026-01-31T08:00:00')",
     "\nCannot put the start boundary", kGoesOn},
    {kMonthly, "IMonthlyTrigger::put_DaysOfMonth(1)", "\nCannot put days of week interval"},
    {kMonthly, "release IMonthlyTrigger"},
    {kAny, "ITaskDefinition::get_Actions()", "Cannot get task collection pointer"},
    {kAny, "IActionCollection::Create(0)", "Cannot create action"},
    {kAny, "release IActionCollection"},
    {kAny, "QueryInterface to IExecAction()", "QueryInterface call failed for IExecAction"},
    {kAny, "IExecAction::put_Path('C:\\a b.exe')", "Cannot put the executable path"},
    {kAny, "IExecAction::put_Arguments('-x \"y z\"')", "Cannot put the executable arguments"},
    {kAny, "release IExecAction"},
    {kAny, "ITaskFolder::RegisterTaskDefinition('job', object, 6, empty, empty, 3, '')",
     "Register Task failed"},
};

const std::vector<Step> kDeletion = {
    kRegistration[0],
    kRegistration[1],
    kRegistration[2],
    kRegistration[3],
    kRegistration[4],
    {kAny, "release ITaskService"},
    {kAny, "ITaskFolder::DeleteTask('job', 0)", "Delete task failed", kStopsAfterComLeft},
};

// Lets none of the steps fail and then each that can.
void Walk(const std::vector<Step>& steps, int kind, const std::string& success,
          const std::function<std::int32_t()>& run) {
  std::string all;
  for (const Step& step : steps) {
    if (step.kind == kAny || step.kind == kind) all += step.call + "\n";
  }
  {
    FakeTaskScheduler fake;
    EXPECT_EQ(PrintedBy([&] { EXPECT_EQ(run(), 0); }), success + kComLeft);
    // The order in which the last objects go is free.
    EXPECT_EQ(fake.calls.substr(0, all.size()), all);
    EXPECT_EQ(fake.lastCall, steps.back().call);
  }
  for (const Step& step : steps) {
    if (!step.CanFail() || (step.kind != kAny && step.kind != kind)) continue;
    SCOPED_TRACE(step.call);
    FakeTaskScheduler fake;
    fake.Fail(step.call.substr(0, step.call.find('(')), static_cast<HRESULT>(0x8004abcd));
    std::int32_t result = -1;
    const std::string printed = PrintedBy([&] { result = run(); });
    EXPECT_EQ(result, step.ending == kGoesOn ? 0 : 1);
    EXPECT_EQ(fake.lastCall, (step.ending == kGoesOn ? steps.back() : step).call);
    EXPECT_EQ(fake.Held(), "");
    EXPECT_EQ(fake.initialisations, step.ending == kStopsWithComKept ? 1 : 0);
    const std::map<Ending, std::string> expected = {
        {kStops, step.Printed() + kComLeft},
        {kStopsAfterComLeft, kComLeft + step.Printed() + "."},
        {kStopsWithComKept, step.Printed()},
        {kGoesOn, step.Printed() + success + kComLeft}};
    EXPECT_EQ(printed, expected.at(step.ending));
  }
}

TEST(SchedulerTest, EachStepEndsAsItShould) {
  for (const int kind : {kDaily, kWeekly, kMonthly}) {
    Walk(kRegistration, kind, kRegistered, [&] { return Register(kind); });
  }
  Walk(kDeletion, kAny, kDeleted, Delete);
}

TEST(SchedulerTest, GoesOnWhenSecurityWasSetBefore) {
  FakeTaskScheduler fake;
  fake.Fail("CoInitializeSecurity", RPC_E_TOO_LATE);
  EXPECT_EQ(PrintedBy([] { EXPECT_EQ(Register(kDaily), 0); }), kRegistered + kComLeft);
  EXPECT_EQ(PrintedBy([] { EXPECT_EQ(Delete(), 0); }), kDeleted + kComLeft);
  EXPECT_EQ(PrintedBy([] { EXPECT_EQ(InitTaskSchedulerCom(), 0); }), "");
  EXPECT_EQ(fake.initialisations, 1);
}

TEST(SchedulerTest, FailsInAMultithreadedApartment) {
  FakeTaskScheduler fake(COINIT_MULTITHREADED);
  const std::string line = "TaskScheduler: CoInitializeEx failed,80010106\n";
  EXPECT_EQ(PrintedBy([] { EXPECT_EQ(Register(kDaily), 1); }), line);
  EXPECT_EQ(PrintedBy([] { EXPECT_EQ(Delete(), 1); }), line);
  EXPECT_EQ(PrintedBy([] { EXPECT_EQ(InitTaskSchedulerCom(), E_FAIL); }), line);
  EXPECT_EQ(fake.lastCall, "CoInitializeEx(2)");
}

TEST(SchedulerTest, LeavesAnUnsupportedTriggerInSilence) {
  for (int kind = -1; kind <= 13; ++kind) {
    if (kind >= kDaily && kind <= kMonthly) continue;
    SCOPED_TRACE(kind);
    const bool known = kind >= 0 && kind <= 12;
    FakeTaskScheduler fake;
    EXPECT_EQ(PrintedBy([&] { EXPECT_EQ(Register(kind), 1); }),
              known ? "" : "TaskScheduler: Cannot create the trigger,80070057\n" + kComLeft);
    EXPECT_EQ(fake.Held(), known ? " ITaskDefinition ITaskFolder ITrigger" : "");
    EXPECT_EQ(fake.initialisations, known ? 1 : 0);
  }
}

TEST(SchedulerTest, RegistersInSpiteOfAMalformedStart) {
  for (const char* start : {"2026-01-31 08:00:00", "2026-01-31", ""}) {
    FakeTaskScheduler fake;
    EXPECT_EQ(PrintedBy([&] { EXPECT_EQ(Register(kDaily, start), 0); }),
              "TaskScheduler: Cannot put start boundary,80070057\n" + kRegistered + kComLeft);
    EXPECT_EQ(PrintedBy([&] { EXPECT_EQ(Register(kMonthly, start), 0); }),
              "\nCannot put the start boundary: 80070057" + kRegistered + kComLeft);
  }
}

// Runs a task file that registers a weekly job, but for these changes.
using Entries = std::map<std::string, std::string>;
const std::string kMissing = "(missing)";

bool RunFile(const Entries& changes) {
  Entries entries = {{"type", "0"},           {"task_name", "job"},   {"exe_path", "a.exe"},
                     {"exe_arguments", "-x"}, {"runtime", kStart},    {"author_name", "author"},
                     {"time_type", "3"},      {"time_weekday", "62"}, {"time_monthday", "1"}};
  for (const auto& [key, value] : changes) entries[key] = value;
  std::string text = "[Task]\r\n";
  for (const auto& [key, value] : entries) {
    if (value != kMissing) text += key + "=" + value + "\r\n";
  }
  const TestFolder folder;
  WriteFileBytes(folder / "task.ini", text);
  UACTaskScheduler task;
  task.SetTaskFile(folder / "task.ini");
  return task.Run();
}

TEST(SchedulerTaskFileTest, RefusesMalformedNumbersBeforeAnythingElse) {
  FakeTaskScheduler fake;
  for (const char* key : {"time_type", "time_weekday", "time_monthday"}) {
    for (const char* text :
         {kMissing.c_str(), "", "1.0", " 3", "3x", "0x3", "+-3", "2147483648", "-2147483649"}) {
      for (const char* arguments : {"", "-x"}) {
        const auto run = [&] { RunFile({{key, text}, {"exe_arguments", arguments}}); };
        EXPECT_EQ(PrintedBy([&] { EXPECT_THROW(run(), boost::bad_lexical_cast) << text; }), "");
      }
    }
  }
  EXPECT_EQ(fake.calls, "");
}

TEST(SchedulerTaskFileTest, HandsNumbersOn) {
  const std::map<std::string, Entries> table = {
      {"ITriggerCollection::Create(3)", {{"time_type", "+3 "}}},
      {"ITriggerCollection::Create(-2147483648)", {{"time_type", "-2147483648"}}},
      {"IWeeklyTrigger::put_DaysOfWeek(65)", {{"time_weekday", "65"}}},
      {"IWeeklyTrigger::put_DaysOfWeek(62)", {{"time_weekday", "65598"}}},
      {"IWeeklyTrigger::put_DaysOfWeek(-1)", {{"time_weekday", "-1"}}},
      {"IMonthlyTrigger::put_DaysOfMonth(-2147483648)",
       {{"time_type", "4"}, {"time_monthday", "-2147483648"}}}};
  for (const auto& [call, changes] : table) {
    FakeTaskScheduler fake;
    PrintedBy([&, &changes = changes] { RunFile(changes); });
    EXPECT_NE(fake.calls.find(call + "\n"), std::string::npos) << call << "\n" << fake.calls;
  }
}

TEST(SchedulerTaskFileTest, DeletesWithoutArgumentsAndOnlyThen) {
  const std::vector<std::pair<Entries, std::string>> table = {
      {{{"exe_arguments", kMissing}, {"exe_path", kMissing}, {"runtime", kMissing}}, kDeleted},
      {{{"exe_arguments", " "}, {"time_type", "0"}, {"time_weekday", "0"}}, kDeleted},
      {{{"exe_arguments", "0"}, {"exe_path", ""}}, kRegistered}};
  for (const auto& row : table) {
    FakeTaskScheduler fake;
    EXPECT_EQ(PrintedBy([&] { EXPECT_TRUE(RunFile(row.first)); }), row.second + kComLeft);
    fake.Fail("ITaskService::Connect", E_ACCESSDENIED);
    PrintedBy([&] { EXPECT_FALSE(RunFile(row.first)); });
  }
}

// The same two bytes everywhere: two letters in code page 1252, one character in 936.
TEST(SchedulerTaskFileTest, ReadsTextsInTheAnsiCodePage) {
  const std::map<UINT, std::string> texts = {{1252, "'\xc3\x96\xc3\x90'"}, {936, "'\xe4\xb8\xad'"}};
  if (texts.count(GetACP()) == 0) GTEST_SKIP() << "no text for code page " << GetACP();
  const std::string& text = texts.at(GetACP());
  const std::string bytes = "\xd6\xd0";
  Entries entries = {{"task_name", bytes}, {"exe_path", bytes}, {"exe_arguments", bytes}};
  entries.insert({{"runtime", bytes}, {"author_name", bytes}});

  FakeTaskScheduler fake;
  PrintedBy([&] { RunFile(entries); });
  for (const char* call : {"DeleteTask(", "put_Author(", "put_StartBoundary(", "put_Path(",
                           "put_Arguments(", "RegisterTaskDefinition("}) {
    EXPECT_NE(fake.calls.find(call + text), std::string::npos) << call << fake.calls;
  }
  PrintedBy([&] { RunFile({{"task_name", bytes}, {"exe_arguments", ""}}); });
  EXPECT_EQ(fake.lastCall, "ITaskFolder::DeleteTask(" + text + ", 0)");
}

TEST(SchedulerTaskFileTest, SavesExactlyItsEightParameters) {
  const TestFolder folder;
  const std::string file = folder / "task.ini";
  TaskParams params = {{0, "name"},   {1, "path"}, {2, "arguments"}, {3, "start"},
                       {4, "author"}, {5, "type"}, {6, "weekday"},   {7, "monthday"}};
  const auto save = [&] {
    UACTaskScheduler task;
    task.SetParams(params);
    return task.SaveTaskInfos(file);
  };
  EXPECT_FALSE(save());
  EXPECT_EQ(folder.Contents(), Tree());
  WriteFileBytes(file, "");
  EXPECT_TRUE(save());
  const std::string saved =
      "[Task]\r\ntype=0\r\ntime_monthday=monthday\r\ntime_weekday=weekday\r\ntime_type=type\r\n"
      "author_name=author\r\nruntime=start\r\nexe_arguments=arguments\r\nexe_path=path\r\n"
      "task_name=name\r\n";
  EXPECT_EQ(ReadFileBytes(file), saved);

  params[7] = "other";
  params[8] = "a ninth";
  EXPECT_FALSE(save());
  params.erase(0);
  try {
    save();
    ADD_FAILURE() << "nothing thrown without number 0";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "invalid map<K, T> key");
  }
  params.erase(8);
  EXPECT_FALSE(save());
  EXPECT_EQ(ReadFileBytes(file), saved);
}

}  // namespace
