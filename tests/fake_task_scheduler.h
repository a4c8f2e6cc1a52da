// A Task Scheduler inside the test process. While a FakeTaskScheduler is in scope, COM hands it out
// instead of the system's service; it records every call, counts references and lets any one step
// fail. It keeps no jobs.
#pragma once

#include <windows.h>

#include <ole2.h>
#include <taskschd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "corekit/text.h"
#include "support.h"
#include "uactask/weekly_monthly_trigger.h"

namespace fake_task_scheduler {

struct Object;

// How arguments are recorded. A text is as long as its BSTR says.
template <typename Number, typename = std::enable_if_t<!std::is_pointer_v<Number>>>
std::string Text(Number number) {
  return std::to_string(static_cast<long>(number));
}
inline std::string Text(Object* object) { return object == nullptr ? "null" : "object"; }
inline std::string Text(BSTR text) {
  return text == nullptr ? "null" : "'" + WideToUtf8({text, SysStringLen(text)}) + "'";
}
inline std::string Text(const VARIANT& value) {
  return value.vt == VT_EMPTY ? "empty" : value.vt == VT_BSTR ? Text(value.bstrVal) : "other";
}

struct Record {
  std::string calls;     // a line each, also one where an object's last reference went
  std::string lastCall;  // what went is not a call
  // How steps end other than well: "ITaskService::Connect", "QueryInterface to IDailyTrigger",
  // "CoCreateInstance", "CoInitializeSecurity".
  std::map<std::string, HRESULT> failures;
  std::multiset<std::string> references;  // each that was not given back, by interface
  int initialisations = 0;                // of COM, that were not ended

  // Records a call and says how it is to end.
  template <typename... Arguments>
  HRESULT Step(const std::string& name, Arguments... arguments) {
    std::string list;
    ((list += (list.empty() ? "" : ", ") + Text(arguments)), ...);
    lastCall = name + "(" + list + ")";
    calls += lastCall + "\n";
    return failures[name];
  }

  // The references, each with a blank ahead.
  std::string Held() const {
    std::string held;
    for (const std::string& name : references) held += " " + name;
    return held;
  }
};

inline Record* record = nullptr;

// Objects begin with a table of functions, as COM has them: with an entry for each method that the
// tests need, at its slot in the system's own interface. On 64-bit Windows callers clear the stack,
// so that one function can stand in all other slots, whatever their arguments. There is one object
// of each interface, which lives while there are references.
using Function = void (*)();

struct Method {
  int slot;
  const char* name;
  Function function;
};

struct Object {
  Object(const char* declared, const IID& ownIid, const std::vector<Method>& ownMethods);

  template <typename... Arguments>
  HRESULT Step(int slot, Arguments... arguments) {
    const char* const state = record->references.count(name) == 0 ? " after its release" : "";
    return record->Step(name + "::" + methods.at(slot).name + state, arguments...);
  }

  const Function* slots = table;
  Function table[32];
  std::string name;
  IID iid;
  std::map<int, Method> methods;
};

inline ULONG AddRef(Object* self) {
  record->references.insert(self->name);
  return 1;
}

inline ULONG Release(Object* self) {
  record->references.erase(record->references.find(self->name));
  if (record->references.count(self->name) == 0) record->calls += "release " + self->name + "\n";
  return 0;
}

inline HRESULT Give(HRESULT status, Object& object, Object** out) {
  *out = SUCCEEDED(status) ? &object : nullptr;
  if (SUCCEEDED(status)) AddRef(*out);
  return status;
}

// A step, but where COM itself asks: for the service.
inline HRESULT QueryInterface(Object* self, REFIID iid, Object** out) {
  HRESULT status = iid == __uuidof(IUnknown) || iid == self->iid ? S_OK : E_NOINTERFACE;
  if (iid == self->iid && iid != __uuidof(ITaskService)) {
    status = record->Step("QueryInterface to " + self->name);
  }
  return Give(status, *self, out);
}

inline HRESULT Unexpected() { return record->Step("a method that the fake lacks"); }

template <typename Code>
Method At(int slot, const char* name, Code* code) {
  return {slot, name, reinterpret_cast<Function>(code)};
}

// A method that takes these arguments, and one that makes a new object of them.
template <int kSlot, typename... Arguments>
Method Takes(const char* name) {
  HRESULT(*const code)
  (Object*, Arguments...) = [](Object* self, Arguments... values) {
    return self->Step(kSlot, values...);
  };
  return At(kSlot, name, code);
}
template <int kSlot, Object& kMade, typename... Arguments>
Method Makes(const char* name) {
  HRESULT(*const code)
  (Object*, Arguments..., Object**) = [](Object* self, Arguments... values, Object** out) {
    return Give(self->Step(kSlot, values...), kMade, out);
  };
  return At(kSlot, name, code);
}

inline Object::Object(const char* declared, const IID& ownIid,
                      const std::vector<Method>& ownMethods)
    : name(std::strchr(declared, 'I')), iid(ownIid) {
  for (Function& function : table) function = reinterpret_cast<Function>(Unexpected);
  std::vector<Method> all = {At(0, "", QueryInterface), At(1, "", AddRef), At(2, "", Release)};
  all.insert(all.end(), ownMethods.begin(), ownMethods.end());
  for (const Method& method : all) {
    table[method.slot] = method.function;
    methods[method.slot] = method;
  }
}

// Compilers put a length or "struct " ahead of an interface's name.
template <typename Interface>
Object Has(const std::vector<Method>& methods) {
  return {typeid(Interface).name(), __uuidof(Interface), methods};
}

inline HRESULT PutStartBoundary(Object* self, BSTR start) {
  const char* const valid = "'\\d{4}-[01]\\d-[0-3]\\dT[0-2]\\d:[0-5]\\d:[0-5]\\d'";
  const HRESULT status = self->Step(15, start);
  return SUCCEEDED(status) && !Matches(Text(start), valid) ? E_INVALIDARG : status;
}

inline const Method kPutId = Takes<9, BSTR>("put_Id");
inline const Method kPutStart = At(15, "put_StartBoundary", PutStartBoundary);
inline Object kTriggers[] = {
    Has<IDailyTrigger>({kPutId, kPutStart, Takes<21, short>("put_DaysInterval")}),
    Has<IWeeklyTrigger>({kPutId, kPutStart, Takes<21, short>("put_DaysOfWeek"),
                         Takes<23, short>("put_WeeksInterval")}),
    Has<IMonthlyTrigger>({kPutId, kPutStart, Takes<21, LONG>("put_DaysOfMonth")}),
    Has<ITrigger>({})};

inline HRESULT CreateTrigger(Object* self, int kind, Object** out) {
  HRESULT status = self->Step(10, kind);
  if (SUCCEEDED(status) && (kind < 0 || kind > 12)) status = E_INVALIDARG;
  const bool isPlain = kind < TASK_TRIGGER_DAILY || kind > TASK_TRIGGER_MONTHLY;
  return Give(status, kTriggers[isPlain ? 3 : kind - TASK_TRIGGER_DAILY], out);
}

inline Object kTriggerList = Has<ITriggerCollection>({At(10, "Create", CreateTrigger)});
inline Object kAction =
    Has<IExecAction>({Takes<11, BSTR>("put_Path"), Takes<13, BSTR>("put_Arguments")});
inline Object kActionList = Has<IActionCollection>({Makes<12, kAction, LONG>("Create")});
inline Object kInfo = Has<IRegistrationInfo>({Takes<10, BSTR>("put_Author")});
inline Object kTask = Has<ITaskDefinition>({Makes<7, kInfo>("get_RegistrationInfo"),
                                            Makes<9, kTriggerList>("get_Triggers"),
                                            Makes<17, kActionList>("get_Actions")});
inline Object kRegistered = Has<IRegisteredTask>({});
inline Object kFolder =
    Has<ITaskFolder>({Takes<15, BSTR, LONG>("DeleteTask"),
                      Makes<17, kRegistered, BSTR, Object*, LONG, VARIANT, VARIANT, LONG, VARIANT>(
                          "RegisterTaskDefinition")});
inline Object kService =
    Has<ITaskService>({Makes<7, kFolder, BSTR>("GetFolder"), Makes<9, kTask, LONG>("NewTask"),
                       Takes<10, VARIANT, VARIANT, VARIANT, VARIANT>("Connect")});

// The program calls CoInitializeSecurity through this; were it not defined here, the linker would
// take the import library's. The system's own can be set only once in a process, and Wine's always
// succeeds. Because of it one source file alone of a program can include this header.
extern "C" {
decltype(&CoInitializeSecurity) __imp_CoInitializeSecurity =  // NOLINT: the linker's name
    [](void*, LONG services, SOLE_AUTHENTICATION_SERVICE*, void*, DWORD level, DWORD impersonation,
       void*, DWORD capabilities, void*) {
      return record->Step("CoInitializeSecurity", services, level, impersonation, capabilities);
    };
}

#define METHOD(name, parameters, result) \
  HRESULT STDMETHODCALLTYPE name parameters override { return result; }

// It is the class object that COM asks for the service, and learns of each use of COM.
class FakeTaskScheduler : public Record, IClassFactory, IInitializeSpy {
 public:
  // Joins an apartment of this kind.
  explicit FakeTaskScheduler(DWORD apartment = COINIT_APARTMENTTHREADED) {
    record = this;
    CoInitializeEx(nullptr, apartment);
    CoRegisterClassObject(__uuidof(TaskScheduler), static_cast<IClassFactory*>(this),
                          CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &class_);
    CoRegisterInitializeSpy(this, &spyCookie_);
  }
  // Also ends the initialisations of COM that were left.
  ~FakeTaskScheduler() {
    CoRevokeInitializeSpy(spyCookie_);
    CoRevokeClassObject(class_);
    for (int i = 0; i <= initialisations; ++i) CoUninitialize();
  }

 private:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    *out = nullptr;
    if (iid == __uuidof(IUnknown) || iid == __uuidof(IClassFactory)) {
      *out = static_cast<IClassFactory*>(this);
    }
    if (iid == __uuidof(IInitializeSpy)) *out = static_cast<IInitializeSpy*>(this);
    return *out == nullptr ? E_NOINTERFACE : S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }

  METHOD(CreateInstance, (IUnknown*, REFIID, void** out),
         Give(Step("CoCreateInstance"), kService, reinterpret_cast<Object**>(out)))
  METHOD(LockServer, (BOOL), S_OK)

  METHOD(PreInitialize, (DWORD apartment, DWORD), Step("CoInitializeEx", apartment))
  HRESULT STDMETHODCALLTYPE PostInitialize(HRESULT status, DWORD, DWORD) override {
    if (SUCCEEDED(status)) ++initialisations;
    return status;
  }
  METHOD(PreUninitialize, (DWORD), S_OK)
  HRESULT STDMETHODCALLTYPE PostUninitialize(DWORD) override {
    --initialisations;
    // Among what is printed, with what is still held then.
    std::printf("<CoUninitialize%s>", Held().c_str());
    return S_OK;
  }

  DWORD class_ = 0;
  ULARGE_INTEGER spyCookie_ = {};
};

}  // namespace fake_task_scheduler

using fake_task_scheduler::FakeTaskScheduler;
