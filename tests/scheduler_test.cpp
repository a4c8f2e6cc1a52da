// The scheduler task against a Task Scheduler that lets every step fail.

#include "uactask/task_scheduler.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <boost/lexical_cast.hpp>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "fake_task_scheduler.h"
#include "support.h"

namespace {

constexpr int kDeletion = 0;  // among the kinds of trigger to register
constexpr int kDaily = 2;

const std::string kComLeft = "<CoUninitialize>";  // when no object is held any more
const std::string kRegistered = "TaskScheduler: Register Task successfully!\n." + kComLeft + "0";
const std::string kDeleted = "TaskScheduler: Delete task successfully!\n." + kComLeft + "0";
const std::string kMalformed = "malformed";

using Attempt = std::function<std::int32_t()>;
Attempt To(int kind) {
  if (kind == kDeletion) return [] { return UACTaskScheduler().DeleteScheduleTask("job"); };
  return [kind] {
    return UACTaskScheduler().RegisterScheduleTask("job", "C:\\a b.exe", "-x \"y z\"",
                                                   "2026-01-31T08:00:00", "author", kind, 62, 1);
  };
}

// What is printed, with a mark for each CoUninitialize, and the result behind it.
std::string Outcome(const Attempt& run) {
  testing::internal::CaptureStdout();
  std::string result = kMalformed;
  try {
    result = std::to_string(run());
  } catch (const boost::bad_lexical_cast&) {
  }
  return testing::internal::GetCapturedStdout() + result;
}

// The fake's calls: who makes it (registrations by kind of trigger, 0 the deletion), the call, what
// is printed where it fails, and how that ends unless it is just a failure. "#" is the kind of
// trigger, "@" its interface.
constexpr char kSteps[] = R"(
0234|CoInitializeEx(2)
0234|CoInitializeSecurity(-1, 6, 3, 0)|CoInitializeSecurity failed
0234|CoCreateInstance()|Failed to create an instance of ITaskService
0234|ITaskService::Connect(empty, empty, empty, empty)|ITaskService::Connect failed
0234|ITaskService::GetFolder('\')|Cannot get Root Folder pointer
0|release ITaskService
0|ITaskFolder::DeleteTask('job', 0)|Delete task failed|COM left first
234|ITaskFolder::DeleteTask('job', 0)||goes on
234|ITaskService::NewTask(0)|Failed to CoCreate an instance of the TaskService class
234|release ITaskService
234|ITaskDefinition::get_RegistrationInfo()|Cannot get identification pointer|COM kept
234|IRegistrationInfo::put_Author('author')|Cannot put identification info
234|release IRegistrationInfo
234|ITaskDefinition::get_Triggers()|Cannot get trigger collection
234|ITriggerCollection::Create(#)|Cannot create the trigger
234|release ITriggerCollection
2|QueryInterface to @()|QueryInterface call on IDailyTrigger failed
34|QueryInterface to @()|\nQueryInterface call for IWeeklyTrigger failed
2|@::put_Id('Trigger_Daily')|Cannot put trigger ID|goes on
34|@::put_Id('Trigger_Weekly')|\nCannot put trigger ID|goes on
2|@::put_StartBoundary('2026-01-31T08:00:00')|Cannot put start boundary|goes on
34|@::put_StartBoundary('2026-01-31T08:00:00')|\nCannot put the start boundary|goes on
2|@::put_DaysInterval(1)|Cannot put days interval
3|@::put_WeeksInterval(1)|\nCannot put weeks interval
3|@::put_DaysOfWeek(62)|\nCannot put days of week interval
4|@::put_DaysOfMonth(1)|\nCannot put days of week interval
234|release @
234|ITaskDefinition::get_Actions()|Cannot get task collection pointer
234|IActionCollection::Create(0)|Cannot create action
234|release IActionCollection
234|QueryInterface to IExecAction()|QueryInterface call failed for IExecAction
234|IExecAction::put_Path('C:\a b.exe')|Cannot put the executable path
234|IExecAction::put_Arguments('-x "y z"')|Cannot put the executable arguments
234|release IExecAction
234|ITaskFolder::RegisterTaskDefinition('job', object, 6, empty, empty, 3, '')|Register Task failed
0234|none fails||goes on
)";

// A call, what is printed, the ending.
using Step = std::array<std::string, 3>;

std::vector<Step> StepsOf(int kind) {
  const char* const triggers[] = {"", "", "IDailyTrigger", "IWeeklyTrigger", "IMonthlyTrigger"};
  const std::string digit = std::to_string(kind);
  const std::string text = ReplaceMatches(ReplaceMatches(kSteps, "@", triggers[kind]), "#", digit);
  const std::string row = "\n\\d*" + digit + "\\d*\\|([^|\n]+)\\|?([^|\n]*)\\|?([^\n]*)";
  std::vector<Step> steps;
  for (const std::vector<std::string>& groups : MatchesIn(text, row)) {
    std::string line = groups[2];
    if (!line.empty() && line[0] != '\\') line = "TaskScheduler: " + line + ",8004abcd\n";
    if (line[0] == '\\') line = "\n" + line.substr(2) + ": 8004abcd";
    steps.push_back({groups[1], line, groups[3]});
  }
  return steps;
}

TEST(Scheduler, EachStepEndsAsItShould) {
  for (const int kind : {kDeletion, 2, 3, 4}) {
    const std::vector<Step> steps = StepsOf(kind);
    std::string calls;
    for (const Step& step : steps) calls += step[0] + "\n";
    for (const auto& [call, line, ending] : steps) {
      if (line.empty() && ending.empty()) continue;
      SCOPED_TRACE(std::to_string(kind) + call);
      FakeTaskScheduler fake;
      fake.failures[call.substr(0, call.find('('))] = static_cast<HRESULT>(0x8004abcd);
      const std::map<std::string, std::string> outcomes = {
          {"", line + kComLeft + "1"},
          {"COM left first", kComLeft + line + ".1"},
          {"COM kept", line + "1"},
          {"goes on", line + (kind == kDeletion ? kDeleted : kRegistered)}};
      EXPECT_EQ(Outcome(To(kind)), outcomes.at(ending));
      const std::string last = ending == "goes on" ? steps[steps.size() - 2][0] : call;
      EXPECT_EQ(fake.lastCall, last);
      // Behind it the last objects go, in any order.
      const std::size_t length = calls.find(last + "\n") + last.size();
      EXPECT_EQ(fake.calls.substr(0, length), calls.substr(0, length));
      EXPECT_EQ(fake.Held(), "");
      EXPECT_EQ(fake.initialisations, ending == "COM kept" ? 1 : 0);
    }
  }
}

TEST(Scheduler, GoesOnWhenSecurityWasSetBefore) {
  FakeTaskScheduler fake;
  fake.failures["CoInitializeSecurity"] = RPC_E_TOO_LATE;
  EXPECT_EQ(Outcome(To(kDaily)), kRegistered);
  EXPECT_EQ(Outcome(To(kDeletion)), kDeleted);
  EXPECT_EQ(Outcome(InitTaskSchedulerCom), "0");
  EXPECT_EQ(fake.initialisations, 1);
}

TEST(Scheduler, FailsInAMultithreadedApartment) {
  FakeTaskScheduler fake(COINIT_MULTITHREADED);
  const std::string line = "TaskScheduler: CoInitializeEx failed,80010106\n";
  EXPECT_EQ(Outcome(To(kDaily)), line + "1");
  EXPECT_EQ(Outcome(To(kDeletion)), line + "1");
  EXPECT_EQ(Outcome(InitTaskSchedulerCom), line + std::to_string(E_FAIL));
  EXPECT_EQ(fake.lastCall, "CoInitializeEx(2)");
}

TEST(Scheduler, LeavesAnUnsupportedTriggerInSilence) {
  for (const int kind : {-1, 1, 5, 12, 13}) {
    const bool known = kind >= 0 && kind <= 12;
    FakeTaskScheduler fake;
    EXPECT_EQ(Outcome(To(kind)),
              known ? "1" : "TaskScheduler: Cannot create the trigger,80070057\n" + kComLeft + "1");
    EXPECT_EQ(fake.Held(), known ? " ITaskDefinition ITaskFolder ITrigger" : "") << kind;
    EXPECT_EQ(fake.initialisations, known ? 1 : 0);
  }
}

// Runs a task file that registers a weekly job, but for the entries that stand ahead of its own.
constexpr char kEntries[] =
    "\ntype=0\ntask_name=job\nexe_path=a.exe\nexe_arguments=-x\nruntime=2026-01-31T08:00:00\n"
    "author_name=author\ntime_type=3\ntime_weekday=62\ntime_monthday=1\n";

Attempt ToRun(const std::string& entries) {
  return [entries] {
    const TestFolder folder;
    WriteFileBytes(folder / "task.ini", "[Task]\n" + entries + kEntries);
    UACTaskScheduler task;
    task.SetTaskFile(folder / "task.ini");
    return task.Run() ? 0 : 1;
  };
}

TEST(SchedulerTaskFile, RefusesMalformedNumbersBeforeAnythingElse) {
  FakeTaskScheduler fake;
  for (const char* key : {"time_type=", "time_weekday=", "time_monthday="}) {
    for (const char* number : {"", "1.0", " 3", "3x", "0x3", "+-3", "2147483648"}) {
      for (const char* arguments : {"", "\nexe_arguments="}) {
        EXPECT_EQ(Outcome(ToRun(key + std::string(number) + arguments)), kMalformed)
            << key << number;
      }
    }
  }
  EXPECT_EQ(fake.calls, "");
}

// The file's end holds the arguments, without which it would be a deletion. A large file takes
// several reads; a small one would fail within a second reading.
TEST(SchedulerTaskFile, DeletesNothingWhereAReadFails) {
  FakeTaskScheduler fake;
  for (const std::size_t size : {0U, 1U << 17}) {
    const auto run =
        ToRun("time_type=2\ntime_weekday=1\ntime_monthday=1\n" + std::string(size, '#'));
    for (int successes = 0; successes < 20; ++successes) {
      const SystemFailure failure(SystemFailure::kReadFile, successes, ERROR_LOCK_VIOLATION);
      const std::string outcome = Outcome(run);
      EXPECT_TRUE(outcome == kMalformed || (outcome == kRegistered && successes > 0))
          << successes << outcome;
    }
  }
}

TEST(SchedulerTaskFile, HandsItsEntriesOn) {
  const std::string table[][3] = {
      {"time_type=+3 ", "ITriggerCollection::Create(3)\n", kRegistered},
      {"time_weekday=65598", "IWeeklyTrigger::put_DaysOfWeek(62)\n", kRegistered},
      {"time_weekday=-1", "IWeeklyTrigger::put_DaysOfWeek(-1)\n", kRegistered},
      {"time_type=4\ntime_monthday=-2147483648", "put_DaysOfMonth(-2147483648)\n", kRegistered},
      {"exe_path=\nexe_arguments=0", "put_Path('')\n", kRegistered},
      {"exe_arguments= \ntime_type=0", "DeleteTask('job', 0)\n", kDeleted}};
  for (const auto& [entries, call, outcome] : table) {
    FakeTaskScheduler fake;
    EXPECT_EQ(Outcome(ToRun(entries)), outcome) << entries;
    EXPECT_NE(fake.calls.find(call), std::string::npos) << call << fake.calls;
  }
}

// The same two bytes everywhere: two letters in code page 1252, one character in 936. The start is
// refused, which prevents nothing.
TEST(SchedulerTaskFile, ReadsTextsInTheAnsiCodePage) {
  const std::map<UINT, std::string> texts = {{1252, "('\xc3\x96\xc3\x90"}, {936, "('\xe4\xb8\xad"}};
  if (texts.count(GetACP()) == 0) GTEST_SKIP() << "no text for code page " << GetACP();
  const std::string& text = texts.at(GetACP());
  const std::map<std::string, std::string> keys = {
      {"DeleteTask", "task_name"},      {"RegisterTaskDefinition", "task_name"},
      {"put_Path", "exe_path"},         {"put_Arguments", "exe_arguments"},
      {"put_StartBoundary", "runtime"}, {"put_Author", "author_name"}};
  std::string entries;
  for (const auto& [call, key] : keys) entries += key + "=\xd6\xd0 " + key + "\n";
  FakeTaskScheduler fake;
  EXPECT_EQ(Outcome(ToRun(entries)), "\nCannot put the start boundary: 80070057" + kRegistered);
  for (const auto& [call, key] : keys) {
    EXPECT_NE(fake.calls.find(call + text + " " + key + "'"), std::string::npos)
        << call << fake.calls;
  }
  EXPECT_EQ(Outcome(ToRun("exe_arguments=\n" + entries)), kDeleted);
  EXPECT_EQ(fake.lastCall, "ITaskFolder::DeleteTask" + text + " task_name', 0)");
}

TEST(SchedulerTaskFile, SavesExactlyItsEightParameters) {
  const TestFolder folder;
  const auto save = [&](const uactask::TaskParams& params) {
    UACTaskScheduler task;
    task.SetParams(params);
    return task.SaveTaskInfos(folder / "task.ini");
  };
  uactask::TaskParams params;
  for (int i = 0; i < 8; ++i) params[i] = "a";
  EXPECT_FALSE(save(params)) << "no file";
  WriteFileBytes(folder / "task.ini", "");
  params[8] = "a";
  EXPECT_FALSE(save(params)) << "nine";
  params.erase(0);
  EXPECT_THROW(save(params), std::out_of_range);
  params.erase(8);
  EXPECT_FALSE(save(params)) << "seven";
  EXPECT_EQ(ReadFileBytes(folder / "task.ini"), "");
}

}  // namespace
