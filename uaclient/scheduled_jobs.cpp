#include "uaclient/scheduled_jobs.h"

#include <windows.h>

#include <comdef.h>
#include <taskschd.h>
#include <wrl/client.h>

#include <thread>

#include "uaclient/win32.h"

namespace uaclient {
namespace {

using Microsoft::WRL::ComPtr;

JobState LookUp(const std::wstring& name) {
  const _variant_t none;
  ComPtr<ITaskService> service;
  ComPtr<ITaskFolder> rootFolder;
  ComPtr<IRegisteredTask> job;
  if (FAILED(CoCreateInstance(__uuidof(TaskScheduler), nullptr, CLSCTX_INPROC_SERVER,
                              IID_PPV_ARGS(&service))) ||
      FAILED(service->Connect(none, none, none, none)) ||
      FAILED(service->GetFolder(_bstr_t(L"\\"), &rootFolder))) {
    return JobState::kUnknown;
  }
  const HRESULT found = rootFolder->GetTask(_bstr_t(name.c_str()), &job);
  if (SUCCEEDED(found)) return JobState::kThere;
  const bool isMissing = found == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) ||
                         found == HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
  return isMissing && IsElevated() ? JobState::kNotThere : JobState::kUnknown;
}

}  // namespace

JobState FindJob(const std::wstring& name) {
  JobState state = JobState::kUnknown;
  std::thread([&] {
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return;
    state = LookUp(name);
    CoUninitialize();
  }).join();
  return state;
}

}  // namespace uaclient
