// The helper against the system's own Task Scheduler. Wine's knows daily triggers alone, does not
// take an ID for them and of what it is given writes only the author down; so some of what is
// expected here depends on the system.

#include <gtest/gtest.h>
#include <windows.h>

#include <comdef.h>
#include <taskschd.h>
#include <wrl/client.h>

#include <regex>
#include <stdexcept>
#include <string>

#include "corekit/text.h"
#include "support.h"

namespace {

using Microsoft::WRL::ComPtr;

bool IsWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

const std::string kRegistered =
    std::string(IsWine() ? "TaskScheduler: Cannot put trigger ID,80004001\r\n" : "") +
    "TaskScheduler: Register Task successfully!\r\n.";
const std::string kDeleted = "TaskScheduler: Delete task successfully!\r\n.";

constexpr char kDaily[] = "2";
constexpr char kWeekly[] = "3";
constexpr char kMonthly[] = "4";
constexpr char kUnknown[] = "99";

// A job of the root folder, which need not exist and is gone after the test.
class Job {
 public:
  Job() {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    const _variant_t none;
    ComPtr<ITaskService> service;
    if (FAILED(CoCreateInstance(__uuidof(TaskScheduler), nullptr, CLSCTX_INPROC_SERVER,
                                IID_PPV_ARGS(&service))) ||
        FAILED(service->Connect(none, none, none, none)) ||
        FAILED(service->GetFolder(_bstr_t(L"\\"), &root_))) {
      throw std::runtime_error("no Task Scheduler");
    }
  }
  ~Job() {
    root_->DeleteTask(WideName(), 0);
    root_.Reset();
    CoUninitialize();
  }
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  // What the service holds, "" when there is no such job.
  std::string Xml() const {
    ComPtr<IRegisteredTask> task;
    if (FAILED(root_->GetTask(WideName(), &task))) return "";
    BSTR xml = nullptr;
    EXPECT_EQ(task->get_Xml(&xml), S_OK);
    return WideToUtf8(static_cast<const wchar_t*>(_bstr_t(xml, false)));
  }

  std::string Registration(const std::string& kind, const std::string& author = "author") const {
    return TaskFile("exe_arguments=-a b\r\nauthor_name=" + author + "\r\ntime_type=" + kind);
  }
  std::string Deletion() const { return TaskFile("time_type=0"); }

 private:
  _bstr_t WideName() const { return AnsiToWide(name_).c_str(); }
  std::string TaskFile(const std::string& entries) const {
    return "[Task]\r\ntype=0\r\ntask_name=" + name_ + "\r\nexe_path=C:\\tools\\a.exe\r\n" +
           "runtime=2099-01-31T08:00:00\r\ntime_weekday=62\r\ntime_monthday=1\r\n" + entries +
           "\r\n";
  }

  // Not that of another run of these tests; in ASCII, because Wine makes it a file's name in the
  // locale of whoever started its service.
  const std::string name_ = "uactask test " + std::to_string(GetCurrentProcessId());
  ComPtr<ITaskFolder> root_;
};

// Runs the helper on a task file with these bytes and returns what it printed. The file goes with
// success and stays as it was with failure.
std::string RunHelper(const std::string& bytes, unsigned long exitCode) {
  const TestFolder folder;
  WriteFileBytes(folder / "task.ini", bytes);
  const ProgramResult result = RunProgram("uactask.exe", {folder / "task.ini"});
  EXPECT_EQ(result.exitCode, exitCode);
  EXPECT_EQ(folder.Contents(), exitCode == 0 ? Tree() : Tree({{"task.ini", bytes}}));
  return result.output;
}

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(ScheduledJobTest, RegistersAndReplaces) {
  const Job job;
  for (const std::string author : {"first", "\xd6\xd0"}) {
    EXPECT_EQ(RunHelper(job.Registration(kDaily, author), 0), kRegistered);
    const std::string entry = "<Author>" + WideToUtf8(AnsiToWide(author)) + "</Author>";
    EXPECT_TRUE(Holds(job.Xml(), entry)) << entry << job.Xml();
  }
  if (IsWine()) return;
  for (const char* part : {"id=\"Trigger_Daily\"", "<StartBoundary>2099-01-31T08:00:00<",
                           "<DaysInterval>1<", "<Command>C:\\tools\\a.exe<", "<Arguments>-a b<"}) {
    EXPECT_TRUE(Holds(job.Xml(), part)) << part << job.Xml();
  }
}

TEST(ScheduledJobTest, Deletes) {
  const Job job;
  RunHelper(job.Registration(kDaily), 0);
  ASSERT_NE(job.Xml(), "");
  EXPECT_EQ(RunHelper(job.Deletion(), 0), kDeleted);
  EXPECT_EQ(job.Xml(), "");
  EXPECT_EQ(RunHelper(job.Deletion(), 1), "TaskScheduler: Delete task failed,80070002\r\n.");
}

TEST(ScheduledJobTest, LosesTheOldJobWhenTheNewOneIsRefused) {
  // The status is the system's own.
  const std::regex refused("TaskScheduler: Cannot create the trigger,8[0-9a-f]{7}\r\n");
  for (const std::string kind : {kWeekly, kMonthly, kUnknown}) {
    const Job job;
    RunHelper(job.Registration(kDaily), 0);
    ASSERT_NE(job.Xml(), "");
    if (kind == kUnknown || IsWine()) {
      const std::string printed = RunHelper(job.Registration(kind), 1);
      EXPECT_TRUE(std::regex_match(printed, refused)) << printed;
      EXPECT_EQ(job.Xml(), "");
    } else {
      EXPECT_EQ(RunHelper(job.Registration(kind), 0), kRegistered);
      EXPECT_TRUE(Holds(job.Xml(), kind == kWeekly ? "<Friday" : "<Day>1</Day>")) << job.Xml();
    }
  }
}

TEST(ScheduledJobTest, DoesNothingWithAMalformedNumber) {
  const Job job;
  RunHelper(job.Registration(kDaily, "first"), 0);
  std::string deletion = job.Deletion();
  deletion.replace(deletion.find("weekday=62"), 10, "weekday=6.2");
  for (const std::string& file : {job.Registration("daily"), deletion}) {
    EXPECT_EQ(RunHelper(file, 1), "");
    EXPECT_TRUE(Holds(job.Xml(), "<Author>first</Author>")) << job.Xml();
  }
}

}  // namespace
