// The helper against the system's own Task Scheduler. Wine's knows daily triggers alone, does not
// take an ID for them and of what it is given writes only the author down; so some of what is
// expected here depends on the system.

#include <gtest/gtest.h>
#include <windows.h>

#include <comdef.h>
#include <taskschd.h>
#include <wrl/client.h>

#include <string>

#include "corekit/text.h"
#include "support.h"

namespace {

using Microsoft::WRL::ComPtr;
using testing::IsSubstring;

const std::string kDaily = "2";
const std::string kRegistered =
    std::string(OnWine() ? "TaskScheduler: Cannot put trigger ID,80004001\r\n" : "") +
    "TaskScheduler: Register Task successfully!\r\n.";

// A job of the root folder, which need not exist and is gone after the test.
class ScheduledJob : public testing::Test {
 protected:
  ScheduledJob() {
    const _variant_t none;
    ComPtr<ITaskService> service;
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    CoCreateInstance(__uuidof(TaskScheduler), nullptr, CLSCTX_INPROC_SERVER,
                     IID_PPV_ARGS(&service));
    service->Connect(none, none, none, none);
    service->GetFolder(_bstr_t(L"\\"), &root_);
  }
  ~ScheduledJob() override {
    root_->DeleteTask(wideName_, 0);
    root_.Reset();
    CoUninitialize();
  }

  // What the service holds, "" when there is no such job.
  std::string Xml() const {
    ComPtr<IRegisteredTask> task;
    BSTR xml = nullptr;
    if (FAILED(root_->GetTask(wideName_, &task))) return "";
    EXPECT_EQ(task->get_Xml(&xml), S_OK);
    return WideToUtf8(static_cast<const wchar_t*>(_bstr_t(xml, false)));
  }

  // Task files: a deletion has no text but the name.
  std::string Deletion(const std::string& kind = "0") const {
    return "[Task]\r\ntype=0\r\ntask_name=" + name_ + "\r\ntime_type=" + kind +
           "\r\ntime_weekday=62\r\ntime_monthday=1\r\n";
  }
  std::string Registration(const std::string& kind, const std::string& author = "author") const {
    return Deletion(kind) +
           "exe_path=C:\\tools\\a.exe\r\nexe_arguments=-a b\r\nauthor_name=" + author +
           "\r\nruntime=2099-01-31T08:00:00\r\n";
  }

  // Runs the helper on a task file with these bytes and returns what it printed. The file goes with
  // success and stays as it was with failure.
  static std::string RunHelper(const std::string& bytes, unsigned long exitCode) {
    const TestFolder folder;
    WriteFileBytes(folder / "task.ini", bytes);
    const ProgramResult result = RunProgram("uactask.exe", {folder / "task.ini"});
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_EQ(folder.Contents(), exitCode == 0 ? Tree() : Tree({{"task.ini", bytes}}));
    return result.output;
  }

  // Not that of another run of these tests; in ASCII, because Wine makes it a file's name in the
  // locale of whoever started its service.
  const std::string name_ = "uactask test " + std::to_string(GetCurrentProcessId());
  const _bstr_t wideName_ = corekit::AnsiToWide(name_).c_str();
  ComPtr<ITaskFolder> root_;
};

TEST_F(ScheduledJob, IsRegisteredReplacedAndDeleted) {
  for (const std::string author : {"first", "\xd6\xd0"}) {
    EXPECT_EQ(RunHelper(Registration(kDaily, author), 0), kRegistered);
    // Numbers that are malformed change nothing.
    for (const std::string& file : {Registration("daily", "x"), Deletion("0.0")})
      EXPECT_EQ(RunHelper(file, 1), "");
    const std::string entry = "<Author>" + WideToUtf8(corekit::AnsiToWide(author)) + "</Author>";
    EXPECT_PRED_FORMAT2(IsSubstring, entry, Xml());
  }
  for (const char* part : {"id=\"Trigger_Daily\"", "<StartBoundary>2099-01-31T08:00:00<",
                           "<DaysInterval>1<", "<Command>C:\\tools\\a.exe<", "<Arguments>-a b<"}) {
    EXPECT_PRED_FORMAT2(IsSubstring, OnWine() ? "" : part, Xml());
  }
  EXPECT_EQ(RunHelper(Deletion(), 0), "TaskScheduler: Delete task successfully!\r\n.");
  EXPECT_EQ(Xml(), "");
  EXPECT_EQ(RunHelper(Deletion(), 1), "TaskScheduler: Delete task failed,80070002\r\n.");
}

TEST_F(ScheduledJob, IsLostWhenTheNewOneIsRefused) {
  // The status is the system's own.
  const char* const refused = "TaskScheduler: Cannot create the trigger,8[0-9a-f]{7}\r\n";
  for (const std::string kind : {"3", "4", "99"}) {
    RunHelper(Registration(kDaily), 0);
    ASSERT_NE(Xml(), "");
    if (kind == "99" || OnWine()) {
      const std::string printed = RunHelper(Registration(kind), 1);
      EXPECT_TRUE(Matches(printed, refused)) << printed;
      EXPECT_EQ(Xml(), "");
    } else {
      EXPECT_EQ(RunHelper(Registration(kind), 0), kRegistered);
      EXPECT_PRED_FORMAT2(IsSubstring, kind == "3" ? "<Friday" : "<Day>1</Day>", Xml());
    }
  }
}

}  // namespace
