// A Task Scheduler inside the test process. While a FakeTaskScheduler is in scope, COM hands it out
// instead of the system's service; it records every call, counts references and lets any one step
// fail. It keeps no jobs.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <objidl.h>
#include <oleauto.h>
#include <taskschd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <regex>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "corekit/text.h"
#include "uactask/weekly_monthly_trigger.h"

namespace fake_task_scheduler {

// How arguments are recorded. A text is as long as its BSTR says.
inline std::string Text(IUnknown* object) { return object == nullptr ? "null" : "object"; }
inline std::string Text(BSTR text) {
  return text == nullptr ? "null" : "'" + WideToUtf8({text, SysStringLen(text)}) + "'";
}
inline std::string Text(const VARIANT& value) {
  if (value.vt == VT_EMPTY) return "empty";
  return value.vt == VT_BSTR ? Text(value.bstrVal) : "vt " + std::to_string(value.vt);
}
template <typename Number,
          typename = std::enable_if_t<!std::is_class_v<Number> && !std::is_pointer_v<Number>>>
std::string Text(Number number) {
  return std::to_string(static_cast<long>(number));
}

struct Record {
  std::string calls;     // a line each, also one where an object's last reference went
  std::string lastCall;  // what went is not a call
  std::string failingStep;
  HRESULT failure = S_OK;
  std::map<std::string, long> references;  // by interface
  int initialisations = 0;                 // of COM, that were not ended

  // Records a call and says how it is to end.
  template <typename... Arguments>
  HRESULT Step(const std::string& name, Arguments... arguments) {
    std::string list;
    for (const std::string& text : std::vector<std::string>{Text(arguments)...}) {
      list += (list.empty() ? "" : ", ") + text;
    }
    lastCall = name + "(" + list + ")";
    calls += lastCall + "\n";
    return name == failingStep ? failure : S_OK;
  }

  // An interface for every reference that was not given back, each with a blank ahead.
  std::string Held() const {
    std::string held;
    for (const auto& [name, count] : references) {
      for (long i = 0; i < count; ++i) held += " " + name;
    }
    return held;
  }
};

inline Record* record = nullptr;

template <typename Class, typename Interface>
HRESULT Give(HRESULT status, Interface** out) {
  *out = SUCCEEDED(status) ? new Class : nullptr;
  return status;
}

#define METHOD(name, parameters, result) \
  HRESULT STDMETHODCALLTYPE name parameters override { return result; }
#define UNUSED(name, parameters) METHOD(name, parameters, E_NOTIMPL)
#define PROPERTY(name, type) \
  UNUSED(get_##name, (type*)) METHOD(put_##name, (type value), this->Step("put_" #name, value))
#define UNUSED2(name1, parameters1, name2, parameters2) \
  UNUSED(name1, parameters1) UNUSED(name2, parameters2)
#define PROPERTY2(name1, type1, name2, type2) PROPERTY(name1, type1) PROPERTY(name2, type2)
#define CHILD(name, type)                                        \
  HRESULT STDMETHODCALLTYPE get_##name(I##type** out) override { \
    return Give<type>(this->Step("get_" #name), out);            \
  }                                                              \
  UNUSED(put_##name, (I##type*))

// What all objects share. Callers get most of them as `Interface` at once; triggers and actions
// they get as `Base` and have to ask for the rest, which is a step.
template <typename Interface, typename Base = Interface>
class Object : public Interface {
 public:
  Object() { AddRef(); }
  virtual ~Object() { record->calls += "release " + name_ + "\n"; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    HRESULT status = E_NOINTERFACE;
    if (iid == __uuidof(IUnknown) || iid == __uuidof(IDispatch) || iid == __uuidof(Base)) {
      status = S_OK;
    } else if (iid == __uuidof(Interface)) {
      status = record->Step("QueryInterface to " + name_);
    }
    *out = SUCCEEDED(status) ? this : nullptr;
    if (SUCCEEDED(status)) AddRef();
    return status;
  }
  ULONG STDMETHODCALLTYPE AddRef() override {
    ++record->references[name_];
    return ++references_;
  }
  ULONG STDMETHODCALLTYPE Release() override {
    --record->references[name_];
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }
  UNUSED(GetTypeInfoCount, (UINT*))
  UNUSED(GetTypeInfo, (UINT, LCID, ITypeInfo**))
  UNUSED(GetIDsOfNames, (REFIID, LPOLESTR*, UINT, LCID, DISPID*))
  UNUSED(Invoke, (DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*))

 protected:
  template <typename... Arguments>
  HRESULT Step(const char* method, Arguments... arguments) {
    return record->Step(name_ + "::" + method, arguments...);
  }

 private:
  // Compilers put a length or "struct " ahead of the name.
  const std::string name_ = std::strchr(typeid(Interface).name(), 'I');
  ULONG references_ = 0;
};

struct RegisteredTask : Object<IRegisteredTask> {
  PROPERTY(Enabled, VARIANT_BOOL)
  UNUSED2(get_Name, (BSTR*), get_Path, (BSTR*))
  UNUSED2(get_State, (TASK_STATE*), Stop, (LONG))
  UNUSED2(get_LastRunTime, (DATE*), get_LastTaskResult, (LONG*))
  UNUSED2(get_NumberOfMissedRuns, (LONG*), get_NextRunTime, (DATE*))
  UNUSED2(get_Definition, (ITaskDefinition**), get_Xml, (BSTR*))
  UNUSED2(GetSecurityDescriptor, (LONG, BSTR*), SetSecurityDescriptor, (BSTR, LONG))
  UNUSED2(Run, (VARIANT, IRunningTask**), GetInstances, (LONG, IRunningTaskCollection**))
  UNUSED(RunEx, (VARIANT, LONG, LONG, BSTR, IRunningTask**))
  UNUSED(GetRunTimes, (const LPSYSTEMTIME, const LPSYSTEMTIME, DWORD*, LPSYSTEMTIME*))
};

struct RegistrationInfo : Object<IRegistrationInfo> {
  PROPERTY2(SecurityDescriptor, VARIANT, Description, BSTR)
  PROPERTY2(Author, BSTR, Version, BSTR)
  PROPERTY2(Date, BSTR, Documentation, BSTR)
  PROPERTY2(XmlText, BSTR, URI, BSTR)
  PROPERTY(Source, BSTR)
};

template <typename Interface>
struct Trigger : Object<Interface, ITrigger> {
  PROPERTY2(Repetition, IRepetitionPattern*, Enabled, VARIANT_BOOL)
  PROPERTY2(Id, BSTR, ExecutionTimeLimit, BSTR)
  PROPERTY(EndBoundary, BSTR)
  HRESULT STDMETHODCALLTYPE put_StartBoundary(BSTR start) override {
    static const std::regex valid(
        "'\\d{4}-[01]\\d-[0-3]\\dT[0-2]\\d(:[0-5]\\d){2}(Z|[+-]\\d\\d:\\d\\d)?'");
    const HRESULT status = this->Step("put_StartBoundary", start);
    return SUCCEEDED(status) && !std::regex_match(Text(start), valid) ? E_INVALIDARG : status;
  }
  UNUSED2(get_Type, (TASK_TRIGGER_TYPE2*), get_StartBoundary, (BSTR*))
};

struct DailyTrigger : Trigger<IDailyTrigger> {
  PROPERTY2(DaysInterval, short, RandomDelay, BSTR)
};

struct WeeklyTrigger : Trigger<IWeeklyTrigger> {
  PROPERTY2(DaysOfWeek, short, WeeksInterval, short)
  PROPERTY(RandomDelay, BSTR)
};

struct MonthlyTrigger : Trigger<IMonthlyTrigger> {
  PROPERTY2(DaysOfMonth, LONG, MonthsOfYear, short)
  PROPERTY2(RunOnLastDayOfMonth, VARIANT_BOOL, RandomDelay, BSTR)
};

struct TriggerCollection : Object<ITriggerCollection> {
  HRESULT STDMETHODCALLTYPE Create(TASK_TRIGGER_TYPE2 type, ITrigger** out) override {
    const int kind = static_cast<int>(type);
    HRESULT status = Step("Create", kind);
    if (SUCCEEDED(status) && (kind < 0 || kind > 12)) status = E_INVALIDARG;
    if (kind == TASK_TRIGGER_DAILY) return Give<DailyTrigger>(status, out);
    if (kind == TASK_TRIGGER_WEEKLY) return Give<WeeklyTrigger>(status, out);
    if (kind == TASK_TRIGGER_MONTHLY) return Give<MonthlyTrigger>(status, out);
    return Give<Trigger<ITrigger>>(status, out);
  }
  UNUSED2(get_Count, (LONG*), get_Item, (LONG, ITrigger**))
  UNUSED2(get__NewEnum, (IUnknown**), Remove, (VARIANT))
  UNUSED(Clear, ())
};

struct ExecAction : Object<IExecAction, IAction> {
  PROPERTY2(Id, BSTR, Path, BSTR)
  PROPERTY2(Arguments, BSTR, WorkingDirectory, BSTR)
  UNUSED(get_Type, (TASK_ACTION_TYPE*))
};

struct ActionCollection : Object<IActionCollection> {
  PROPERTY2(XmlText, BSTR, Context, BSTR)
  METHOD(Create, (TASK_ACTION_TYPE type, IAction** out),
         Give<ExecAction>(Step("Create", type), out))
  UNUSED2(get_Count, (LONG*), get_Item, (LONG, IAction**))
  UNUSED2(get__NewEnum, (IUnknown**), Remove, (VARIANT))
  UNUSED(Clear, ())
};

struct TaskDefinition : Object<ITaskDefinition> {
  PROPERTY2(Settings, ITaskSettings*, Principal, IPrincipal*)
  PROPERTY2(Data, BSTR, XmlText, BSTR)
  CHILD(RegistrationInfo, RegistrationInfo)
  CHILD(Triggers, TriggerCollection)
  CHILD(Actions, ActionCollection)
};

struct TaskFolder : Object<ITaskFolder> {
  METHOD(DeleteTask, (BSTR name, LONG flags), Step("DeleteTask", name, flags))
  METHOD(RegisterTaskDefinition,
         (BSTR path, ITaskDefinition* task, LONG flags, VARIANT user, VARIANT password,
          TASK_LOGON_TYPE logon, VARIANT security, IRegisteredTask** out),
         Give<RegisteredTask>(Step("RegisterTaskDefinition", path, task, flags, user, password,
                                   logon, security),
                              out))
  UNUSED2(get_Name, (BSTR*), get_Path, (BSTR*))
  UNUSED2(GetFolder, (BSTR, ITaskFolder**), GetFolders, (LONG, ITaskFolderCollection**))
  UNUSED2(CreateFolder, (BSTR, VARIANT, ITaskFolder**), DeleteFolder, (BSTR, LONG))
  UNUSED2(GetTask, (BSTR, IRegisteredTask**), GetTasks, (LONG, IRegisteredTaskCollection**))
  UNUSED2(GetSecurityDescriptor, (LONG, BSTR*), SetSecurityDescriptor, (BSTR, LONG))
  UNUSED(RegisterTask,
         (BSTR, BSTR, LONG, VARIANT, VARIANT, TASK_LOGON_TYPE, VARIANT, IRegisteredTask**))
};

struct TaskService : Object<ITaskService> {
  METHOD(GetFolder, (BSTR path, ITaskFolder** out), Give<TaskFolder>(Step("GetFolder", path), out))
  METHOD(NewTask, (DWORD flags, ITaskDefinition** out),
         Give<TaskDefinition>(Step("NewTask", flags), out))
  METHOD(Connect, (VARIANT server, VARIANT user, VARIANT domain, VARIANT password),
         Step("Connect", server, user, domain, password))
  UNUSED2(GetRunningTasks, (LONG, IRunningTaskCollection**), get_Connected, (VARIANT_BOOL*))
  UNUSED2(get_TargetServer, (BSTR*), get_ConnectedUser, (BSTR*))
  UNUSED2(get_ConnectedDomain, (BSTR*), get_HighestVersion, (DWORD*))
};

// An object that is there as long as the fake.
template <typename Interface>
struct Lasting : Interface {
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    const bool known = iid == __uuidof(IUnknown) || iid == __uuidof(Interface);
    *out = known ? this : nullptr;
    return known ? S_OK : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

struct Factory : Lasting<IClassFactory> {
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** out) override {
    TaskService* service = nullptr;
    *out = nullptr;
    HRESULT status = Give<TaskService>(record->Step("CoCreateInstance"), &service);
    if (FAILED(status)) return status;
    status = service->QueryInterface(iid, out);
    service->Release();
    return status;
  }
  METHOD(LockServer, (BOOL), S_OK)
};

// Writes each CoUninitialize among what is printed, with what is still held then.
struct Spy : Lasting<IInitializeSpy> {
  HRESULT STDMETHODCALLTYPE PreInitialize(DWORD apartment, DWORD) override {
    record->Step("CoInitializeEx", apartment);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE PostInitialize(HRESULT status, DWORD, DWORD) override {
    if (SUCCEEDED(status)) ++record->initialisations;
    return status;
  }
  METHOD(PreUninitialize, (DWORD), S_OK)
  HRESULT STDMETHODCALLTYPE PostUninitialize(DWORD) override {
    --record->initialisations;
    std::printf("<CoUninitialize%s>", record->Held().c_str());
    return S_OK;
  }
};

inline HRESULT WINAPI InitializeSecurity(PSECURITY_DESCRIPTOR, LONG services,
                                         SOLE_AUTHENTICATION_SERVICE*, void*, DWORD level,
                                         DWORD impersonation, void*, DWORD capabilities, void*) {
  return record->Step("CoInitializeSecurity", services, level, impersonation, capabilities);
}

}  // namespace fake_task_scheduler

// The program calls CoInitializeSecurity through this; were it not defined here, the linker would
// take the import library's. The system's own can be set only once in a process, and Wine's always
// succeeds. Because of it one source file alone of a program can include this header.
extern "C" {
decltype(&CoInitializeSecurity) __imp_CoInitializeSecurity =
    fake_task_scheduler::InitializeSecurity;
}

class FakeTaskScheduler : public fake_task_scheduler::Record {
 public:
  // Joins an apartment of this kind.
  explicit FakeTaskScheduler(DWORD apartment = COINIT_APARTMENTTHREADED) {
    fake_task_scheduler::record = this;
    CoInitializeEx(nullptr, apartment);
    CoRegisterClassObject(__uuidof(TaskScheduler), &factory_, CLSCTX_INPROC_SERVER,
                          REGCLS_MULTIPLEUSE, &class_);
    CoRegisterInitializeSpy(&spy_, &spyCookie_);
  }
  // Also ends the initialisations of COM that were left.
  ~FakeTaskScheduler() {
    CoRevokeInitializeSpy(spyCookie_);
    CoRevokeClassObject(class_);
    for (int i = 0; i <= initialisations; ++i) CoUninitialize();
  }

  // Lets a step end with a status: "ITaskService::Connect", "QueryInterface to IDailyTrigger",
  // "CoCreateInstance", "CoInitializeSecurity".
  void Fail(const std::string& step, HRESULT status) {
    failingStep = step;
    failure = status;
  }

 private:
  fake_task_scheduler::Factory factory_;
  fake_task_scheduler::Spy spy_;
  DWORD class_ = 0;
  ULARGE_INTEGER spyCookie_ = {};
};
