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
#include <utility>
#include <vector>

#include "corekit/text.h"
#include "uactask/weekly_monthly_trigger.h"

// Puts a function in the place of one that this program imports, whose address it keeps in a
// variable named __imp_ and the function's name.
class ReplacedImport {
 public:
  ReplacedImport(void*& address, void* function) : address_(address), other_(function) { Swap(); }
  ~ReplacedImport() { Swap(); }
  ReplacedImport(const ReplacedImport&) = delete;
  ReplacedImport& operator=(const ReplacedImport&) = delete;

 private:
  void Swap() {
    DWORD access = 0;
    VirtualProtect(&address_, sizeof address_, PAGE_READWRITE, &access);
    std::swap(address_, other_);
    VirtualProtect(&address_, sizeof address_, access, &access);
  }

  void*& address_;
  void* other_;
};

extern "C" void* __imp_CoInitializeSecurity;

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
template <typename Number, typename = std::enable_if_t<!std::is_class_v<Number>>>
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

  // The interfaces still referenced, each with a blank ahead.
  std::string Held() const {
    std::string held;
    for (const auto& [name, count] : references) {
      if (count != 0) held += " " + name + (count == 1 ? "" : "*" + std::to_string(count));
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
#define CHILD(name, type)                                                         \
  METHOD(get_##name, (I##type * *out), Give<type>(this->Step("get_" #name), out)) \
  UNUSED(put_##name, (I##type*))

// What all objects share. Callers get most of them as `Interface` at once; triggers and actions
// they get as `Base` and have to ask for the rest, which is a step.
template <typename Interface, typename Base = Interface>
class Object : public Interface {
 public:
  Object() { AddRef(); }
  virtual ~Object() { record->calls += "release " + name_ + "\n"; }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    *out = nullptr;
    HRESULT status = E_NOINTERFACE;
    if (iid == __uuidof(IUnknown) || iid == __uuidof(IDispatch) || iid == __uuidof(Base)) {
      status = S_OK;
    } else if (iid == __uuidof(Interface)) {
      status = record->Step("QueryInterface to " + name_);
    }
    if (FAILED(status)) return status;
    AddRef();
    *out = this;
    return S_OK;
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
  UNUSED(get_Name, (BSTR*))
  UNUSED(get_Path, (BSTR*))
  UNUSED(get_State, (TASK_STATE*))
  PROPERTY(Enabled, VARIANT_BOOL)
  UNUSED(Run, (VARIANT, IRunningTask**))
  UNUSED(RunEx, (VARIANT, LONG, LONG, BSTR, IRunningTask**))
  UNUSED(GetInstances, (LONG, IRunningTaskCollection**))
  UNUSED(get_LastRunTime, (DATE*))
  UNUSED(get_LastTaskResult, (LONG*))
  UNUSED(get_NumberOfMissedRuns, (LONG*))
  UNUSED(get_NextRunTime, (DATE*))
  UNUSED(get_Definition, (ITaskDefinition**))
  UNUSED(get_Xml, (BSTR*))
  UNUSED(GetSecurityDescriptor, (LONG, BSTR*))
  UNUSED(SetSecurityDescriptor, (BSTR, LONG))
  UNUSED(Stop, (LONG))
  UNUSED(GetRunTimes, (const LPSYSTEMTIME, const LPSYSTEMTIME, DWORD*, LPSYSTEMTIME*))
};

struct RegistrationInfo : Object<IRegistrationInfo> {
  PROPERTY(Description, BSTR)
  PROPERTY(Author, BSTR)
  PROPERTY(Version, BSTR)
  PROPERTY(Date, BSTR)
  PROPERTY(Documentation, BSTR)
  PROPERTY(XmlText, BSTR)
  PROPERTY(URI, BSTR)
  PROPERTY(SecurityDescriptor, VARIANT)
  PROPERTY(Source, BSTR)
};

template <typename Interface>
struct Trigger : Object<Interface, ITrigger> {
  UNUSED(get_Type, (TASK_TRIGGER_TYPE2*))
  PROPERTY(Id, BSTR)
  PROPERTY(Repetition, IRepetitionPattern*)
  PROPERTY(ExecutionTimeLimit, BSTR)
  UNUSED(get_StartBoundary, (BSTR*))
  HRESULT STDMETHODCALLTYPE put_StartBoundary(BSTR start) override {
    static const std::regex valid(
        "'\\d{4}-(0[1-9]|1[0-2])-(0[1-9]|[12]\\d|3[01])T([01]\\d|2[0-3]):[0-5]\\d:[0-5]\\d"
        "(Z|[+-]([01]\\d|2[0-3]):[0-5]\\d)?'");
    const HRESULT status = this->Step("put_StartBoundary", start);
    return SUCCEEDED(status) && !std::regex_match(Text(start), valid) ? E_INVALIDARG : status;
  }
  PROPERTY(EndBoundary, BSTR)
  PROPERTY(Enabled, VARIANT_BOOL)
};

struct DailyTrigger : Trigger<IDailyTrigger> {
  PROPERTY(DaysInterval, short)
  PROPERTY(RandomDelay, BSTR)
};

struct WeeklyTrigger : Trigger<IWeeklyTrigger> {
  PROPERTY(DaysOfWeek, short)
  PROPERTY(WeeksInterval, short)
  PROPERTY(RandomDelay, BSTR)
};

struct MonthlyTrigger : Trigger<IMonthlyTrigger> {
  PROPERTY(DaysOfMonth, LONG)
  PROPERTY(MonthsOfYear, short)
  PROPERTY(RunOnLastDayOfMonth, VARIANT_BOOL)
  PROPERTY(RandomDelay, BSTR)
};

struct TriggerCollection : Object<ITriggerCollection> {
  UNUSED(get_Count, (LONG*))
  UNUSED(get_Item, (LONG, ITrigger**))
  UNUSED(get__NewEnum, (IUnknown**))
  HRESULT STDMETHODCALLTYPE Create(TASK_TRIGGER_TYPE2 type, ITrigger** out) override {
    const int kind = static_cast<int>(type);
    HRESULT status = Step("Create", kind);
    if (SUCCEEDED(status) && (kind < 0 || kind > 12)) status = E_INVALIDARG;
    if (kind == TASK_TRIGGER_DAILY) return Give<DailyTrigger>(status, out);
    if (kind == TASK_TRIGGER_WEEKLY) return Give<WeeklyTrigger>(status, out);
    if (kind == TASK_TRIGGER_MONTHLY) return Give<MonthlyTrigger>(status, out);
    return Give<Trigger<ITrigger>>(status, out);
  }
  UNUSED(Remove, (VARIANT))
  UNUSED(Clear, ())
};

struct ExecAction : Object<IExecAction, IAction> {
  PROPERTY(Id, BSTR)
  UNUSED(get_Type, (TASK_ACTION_TYPE*))
  PROPERTY(Path, BSTR)
  PROPERTY(Arguments, BSTR)
  PROPERTY(WorkingDirectory, BSTR)
};

struct ActionCollection : Object<IActionCollection> {
  UNUSED(get_Count, (LONG*))
  UNUSED(get_Item, (LONG, IAction**))
  UNUSED(get__NewEnum, (IUnknown**))
  PROPERTY(XmlText, BSTR)
  METHOD(Create, (TASK_ACTION_TYPE type, IAction** out),
         Give<ExecAction>(Step("Create", type), out))
  UNUSED(Remove, (VARIANT))
  UNUSED(Clear, ())
  PROPERTY(Context, BSTR)
};

struct TaskDefinition : Object<ITaskDefinition> {
  CHILD(RegistrationInfo, RegistrationInfo)
  CHILD(Triggers, TriggerCollection)
  PROPERTY(Settings, ITaskSettings*)
  PROPERTY(Data, BSTR)
  PROPERTY(Principal, IPrincipal*)
  CHILD(Actions, ActionCollection)
  PROPERTY(XmlText, BSTR)
};

struct TaskFolder : Object<ITaskFolder> {
  UNUSED(get_Name, (BSTR*))
  UNUSED(get_Path, (BSTR*))
  UNUSED(GetFolder, (BSTR, ITaskFolder**))
  UNUSED(GetFolders, (LONG, ITaskFolderCollection**))
  UNUSED(CreateFolder, (BSTR, VARIANT, ITaskFolder**))
  UNUSED(DeleteFolder, (BSTR, LONG))
  UNUSED(GetTask, (BSTR, IRegisteredTask**))
  UNUSED(GetTasks, (LONG, IRegisteredTaskCollection**))
  METHOD(DeleteTask, (BSTR name, LONG flags), Step("DeleteTask", name, flags))
  UNUSED(RegisterTask,
         (BSTR, BSTR, LONG, VARIANT, VARIANT, TASK_LOGON_TYPE, VARIANT, IRegisteredTask**))
  METHOD(RegisterTaskDefinition,
         (BSTR path, ITaskDefinition* task, LONG flags, VARIANT user, VARIANT password,
          TASK_LOGON_TYPE logon, VARIANT security, IRegisteredTask** out),
         Give<RegisteredTask>(Step("RegisterTaskDefinition", path, task, flags, user, password,
                                   logon, security),
                              out))
  UNUSED(GetSecurityDescriptor, (LONG, BSTR*))
  UNUSED(SetSecurityDescriptor, (BSTR, LONG))
};

struct TaskService : Object<ITaskService> {
  METHOD(GetFolder, (BSTR path, ITaskFolder** out), Give<TaskFolder>(Step("GetFolder", path), out))
  UNUSED(GetRunningTasks, (LONG, IRunningTaskCollection**))
  METHOD(NewTask, (DWORD flags, ITaskDefinition** out),
         Give<TaskDefinition>(Step("NewTask", flags), out))
  METHOD(Connect, (VARIANT server, VARIANT user, VARIANT domain, VARIANT password),
         Step("Connect", server, user, domain, password))
  UNUSED(get_Connected, (VARIANT_BOOL*))
  UNUSED(get_TargetServer, (BSTR*))
  UNUSED(get_ConnectedUser, (BSTR*))
  UNUSED(get_ConnectedDomain, (BSTR*))
  UNUSED(get_HighestVersion, (DWORD*))
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

#undef CHILD
#undef PROPERTY
#undef UNUSED
#undef METHOD

inline HRESULT WINAPI InitializeSecurity(void*, LONG services, void*, void*, DWORD level,
                                         DWORD impersonation, void*, DWORD capabilities, void*) {
  return record->Step("CoInitializeSecurity", services, level, impersonation, capabilities);
}

}  // namespace fake_task_scheduler

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
  // Wine does not tell when it is too late to set a process's security.
  ReplacedImport security_{__imp_CoInitializeSecurity,
                           reinterpret_cast<void*>(&fake_task_scheduler::InitializeSecurity)};
};
