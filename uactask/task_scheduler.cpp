#include "uactask/task_scheduler.h"

#include <windows.h>

#include <comdef.h>
#include <wrl/client.h>

#include <boost/lexical_cast.hpp>
#include <cstdio>
#include <utility>

#include "corekit/text.h"
#include "corekit/trace.h"
#include "uactask/weekly_monthly_trigger.h"

namespace {

using Microsoft::WRL::ComPtr;

constexpr std::int32_t kDone = 0;
constexpr std::int32_t kFailed = 1;

constexpr char kRootFolder[] = "\\";
constexpr char kDailyTriggerId[] = "Trigger_Daily";
constexpr char kWeeklyTriggerId[] = "Trigger_Weekly";

static_assert(uactask::kParamKeys.size() == UACTaskScheduler::kParamCount + 1);

// Whether a step failed. If so, prints its message, which holds a "%x" for the status.
bool Failed(HRESULT status, const char* message) {
  if (SUCCEEDED(status)) return false;
  std::printf(message, static_cast<unsigned>(status));
  corekit::Trace(message, static_cast<unsigned>(status));
  return true;
}

// Text from a task file, which is in the ANSI code page, as COM takes it.
_bstr_t ComString(const std::string& text) { return _bstr_t(corekit::AnsiToWide(text).c_str()); }

// Ends what InitTaskSchedulerCom began, at the end of the scope. Declare it before all interface
// pointers, so that they are released first.
class ComSession {
 public:
  ComSession() = default;
  ~ComSession() { End(); }
  ComSession(const ComSession&) = delete;
  ComSession& operator=(const ComSession&) = delete;

  void End() {
    if (active_) CoUninitialize();
    active_ = false;
  }
  void LeaveInitialised() { active_ = false; }

 private:
  bool active_ = true;
};

// Connects to the local machine's service under the caller's own account.
bool OpenRootFolder(ComPtr<ITaskService>& service, ComPtr<ITaskFolder>& rootFolder) {
  if (Failed(CoCreateInstance(__uuidof(TaskScheduler), nullptr, CLSCTX_INPROC_SERVER,
                              IID_PPV_ARGS(&service)),
             "TaskScheduler: Failed to create an instance of ITaskService,%x\n")) {
    return false;
  }
  if (Failed(service->Connect(_variant_t(), _variant_t(), _variant_t(), _variant_t()),
             "TaskScheduler: ITaskService::Connect failed,%x\n")) {
    return false;
  }
  return !Failed(service->GetFolder(ComString(kRootFolder), &rootFolder),
                 "TaskScheduler: Cannot get Root Folder pointer,%x\n");
}

// Asks for another interface of the same object and releases the first one.
template <typename To, typename From>
HRESULT Exchange(ComPtr<From>& from, ComPtr<To>& to) {
  const HRESULT status = from.As(&to);
  from.Reset();
  return status;
}

// Each of the functions below sets up one kind of trigger and returns whether that worked. A
// failing put_Id or put_StartBoundary is printed but does not count.

bool SetDaily(ComPtr<ITrigger>& created, const std::string& runtime) {
  ComPtr<IDailyTrigger> trigger;
  if (Failed(Exchange(created, trigger),
             "TaskScheduler: QueryInterface call on IDailyTrigger failed,%x\n")) {
    return false;
  }
  Failed(trigger->put_Id(ComString(kDailyTriggerId)), "TaskScheduler: Cannot put trigger ID,%x\n");
  Failed(trigger->put_StartBoundary(ComString(runtime)),
         "TaskScheduler: Cannot put start boundary,%x\n");
  return !Failed(trigger->put_DaysInterval(1), "TaskScheduler: Cannot put days interval,%x\n");
}

bool SetWeekly(ComPtr<ITrigger>& created, const std::string& runtime, std::uint16_t daysOfWeek) {
  ComPtr<IWeeklyTrigger> trigger;
  if (Failed(Exchange(created, trigger), "\nQueryInterface call for IWeeklyTrigger failed: %x")) {
    return false;
  }
  Failed(trigger->put_Id(ComString(kWeeklyTriggerId)), "\nCannot put trigger ID: %x");
  Failed(trigger->put_StartBoundary(ComString(runtime)), "\nCannot put the start boundary: %x");
  return !Failed(trigger->put_WeeksInterval(1), "\nCannot put weeks interval: %x") &&
         !Failed(trigger->put_DaysOfWeek(static_cast<short>(daysOfWeek)),
                 "\nCannot put days of week interval: %x");
}

// The texts and the ID are deliberately those of the weekly trigger: programs that read the output
// or look for the ID expect them.
bool SetMonthly(ComPtr<ITrigger>& created, const std::string& runtime, std::int32_t daysOfMonth) {
  ComPtr<IMonthlyTrigger> trigger;
  if (Failed(Exchange(created, trigger), "\nQueryInterface call for IWeeklyTrigger failed: %x")) {
    return false;
  }
  Failed(trigger->put_Id(ComString(kWeeklyTriggerId)), "\nCannot put trigger ID: %x");
  Failed(trigger->put_StartBoundary(ComString(runtime)), "\nCannot put the start boundary: %x");
  return !Failed(trigger->put_DaysOfMonth(daysOfMonth), "\nCannot put days of week interval: %x");
}

}  // namespace

std::int32_t InitTaskSchedulerCom() {
  if (Failed(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED),
             "TaskScheduler: CoInitializeEx failed,%x\n")) {
    return E_FAIL;
  }
  const HRESULT secured =
      CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
                           RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
  // RPC_E_TOO_LATE means that the process's security is set already.
  if (secured != RPC_E_TOO_LATE &&
      Failed(secured, "TaskScheduler: CoInitializeSecurity failed,%x\n")) {
    CoUninitialize();
    return E_FAIL;
  }
  return kDone;
}

bool UACTaskScheduler::Run() {
  // All from one reading: if a second one failed, a registration would become a deletion.
  const uactask::TaskParams values = uactask::ReadParams(TaskFilePath());
  // The numbers are checked first: a task file that is malformed or cannot be read must not even
  // delete.
  const auto timeType = boost::lexical_cast<std::int32_t>(values.at(kTimeType));
  const auto daysOfWeek = boost::lexical_cast<std::int32_t>(values.at(kTimeWeekday));
  const auto daysOfMonth = boost::lexical_cast<std::int32_t>(values.at(kTimeMonthday));

  if (values.at(kExeArguments).empty()) return DeleteScheduleTask(values.at(kTaskName)) == kDone;
  return RegisterScheduleTask(values.at(kTaskName), values.at(kExePath), values.at(kExeArguments),
                              values.at(kRuntime), values.at(kAuthorName), timeType,
                              static_cast<std::uint16_t>(daysOfWeek), daysOfMonth) == kDone;
}

bool UACTaskScheduler::SaveTaskInfos(std::string path) {
  if (Params().size() != kParamCount) return false;

  bool written = true;
  for (std::int32_t index = 0; index < kParamCount; ++index) {
    written &= uactask::WriteParam(index, uactask::RequireEntry(Params(), index), path);
  }
  written &= UACTaskBase::SaveTaskInfos(path);
  return written;
}

std::int32_t UACTaskScheduler::RegisterScheduleTask(
    const std::string& taskName, const std::string& exePath, const std::string& exeArguments,
    const std::string& runtime, const std::string& authorName, std::int32_t timeType,
    std::uint16_t daysOfWeek, std::int32_t daysOfMonth) {
  if (InitTaskSchedulerCom() != kDone) return kFailed;
  ComSession com;
  const _bstr_t name = ComString(taskName);
  const _bstr_t program = ComString(exePath);

  ComPtr<ITaskService> service;
  ComPtr<ITaskFolder> rootFolder;
  if (!OpenRootFolder(service, rootFolder)) return kFailed;
  // An older job of this name goes first. It is no error if there is none.
  rootFolder->DeleteTask(name, 0);

  ComPtr<ITaskDefinition> definition;
  const HRESULT defined = service->NewTask(0, &definition);
  service.Reset();
  if (Failed(defined,
             "TaskScheduler: Failed to CoCreate an instance of the TaskService class,%x\n")) {
    return kFailed;
  }

  ComPtr<IRegistrationInfo> info;
  if (Failed(definition->get_RegistrationInfo(&info),
             "TaskScheduler: Cannot get identification pointer,%x\n")) {
    com.LeaveInitialised();  // deliberate
    return kFailed;
  }
  const HRESULT authored = info->put_Author(ComString(authorName));
  info.Reset();
  if (Failed(authored, "TaskScheduler: Cannot put identification info,%x\n")) return kFailed;

  ComPtr<ITriggerCollection> triggers;
  if (Failed(definition->get_Triggers(&triggers),
             "TaskScheduler: Cannot get trigger collection,%x\n")) {
    return kFailed;
  }
  ComPtr<ITrigger> trigger;
  const HRESULT created = triggers->Create(static_cast<TASK_TRIGGER_TYPE2>(timeType), &trigger);
  triggers.Reset();
  if (Failed(created, "TaskScheduler: Cannot create the trigger,%x\n")) return kFailed;

  switch (timeType) {
    case kDaily:
      if (!SetDaily(trigger, runtime)) return kFailed;
      break;
    case kWeekly:
      if (!SetWeekly(trigger, runtime, daysOfWeek)) return kFailed;
      break;
    case kMonthly:
      if (!SetMonthly(trigger, runtime, daysOfMonth)) return kFailed;
      break;
    default:
      // The scheduler knows this kind, but this task does not. Deliberately says nothing and
      // releases nothing; the process ends right after.
      trigger.Detach();
      definition.Detach();
      rootFolder.Detach();
      com.LeaveInitialised();
      return kFailed;
  }

  ComPtr<IActionCollection> actions;
  if (Failed(definition->get_Actions(&actions),
             "TaskScheduler: Cannot get task collection pointer,%x\n")) {
    return kFailed;
  }
  ComPtr<IAction> action;
  const HRESULT added = actions->Create(TASK_ACTION_EXEC, &action);
  actions.Reset();
  if (Failed(added, "TaskScheduler: Cannot create action,%x\n")) return kFailed;
  ComPtr<IExecAction> start;
  if (Failed(Exchange(action, start),
             "TaskScheduler: QueryInterface call failed for IExecAction,%x\n")) {
    return kFailed;
  }
  if (Failed(start->put_Path(program), "TaskScheduler: Cannot put the executable path,%x\n")) {
    return kFailed;
  }
  const HRESULT argued = start->put_Arguments(ComString(exeArguments));
  start.Reset();
  if (Failed(argued, "TaskScheduler: Cannot put the executable arguments,%x\n")) return kFailed;

  ComPtr<IRegisteredTask> registered;
  if (Failed(rootFolder->RegisterTaskDefinition(
                 name, definition.Get(), TASK_CREATE_OR_UPDATE, _variant_t(), _variant_t(),
                 TASK_LOGON_INTERACTIVE_TOKEN, _variant_t(L""), &registered),
             "TaskScheduler: Register Task failed,%x\n")) {
    return kFailed;
  }
  std::printf("TaskScheduler: Register Task successfully!\n.");
  return kDone;
}

std::int32_t UACTaskScheduler::DeleteScheduleTask(const std::string& taskName) {
  if (InitTaskSchedulerCom() != kDone) return kFailed;
  ComSession com;
  const _bstr_t name = ComString(taskName);

  ComPtr<ITaskService> service;
  ComPtr<ITaskFolder> rootFolder;
  if (!OpenRootFolder(service, rootFolder)) return kFailed;
  service.Reset();

  const HRESULT deleted = rootFolder->DeleteTask(name, 0);
  rootFolder.Reset();
  if (FAILED(deleted)) {
    com.End();  // before the line is printed, unlike everywhere else
    Failed(deleted, "TaskScheduler: Delete task failed,%x\n.");
    return kFailed;
  }
  std::printf("TaskScheduler: Delete task successfully!\n.");
  return kDone;
}
