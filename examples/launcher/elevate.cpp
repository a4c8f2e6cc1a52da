#include "elevate.h"

#include <windows.h>

#include <objbase.h>
#include <shellapi.h>

#include <stdexcept>

namespace {

// With its separator.
std::wstring OwnFolder() {
  std::wstring self(32768, L'\0');
  self.resize(GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size())));
  return self.substr(0, self.rfind(L'\\') + 1);
}

std::string WhyNotStarted(DWORD error) {
  if (error == ERROR_CANCELLED) return "The request for raised rights was refused.";
  if (error == ERROR_FILE_NOT_FOUND) return "uactask.exe does not stand beside this program.";
  return "The helper could not be started: error " + std::to_string(error) + ".";
}

}  // namespace

unsigned long RunHelper(const std::wstring& taskFile) {
  // The shell may need COM for this.
  const HRESULT com = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
  const std::wstring folder = OwnFolder();
  const std::wstring helper = folder + L"uactask.exe";
  const std::wstring parameters = L"\"" + taskFile + L"\"";
  SHELLEXECUTEINFOW start = {};
  start.cbSize = sizeof start;
  start.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;
  start.lpVerb = L"runas";
  start.lpFile = helper.c_str();
  start.lpParameters = parameters.c_str();
  // Not the task's folder, which must be free to be removed.
  start.lpDirectory = folder.c_str();
  start.nShow = SW_HIDE;
  const BOOL started = ShellExecuteExW(&start);
  const DWORD error = GetLastError();
  if (SUCCEEDED(com)) CoUninitialize();
  if (!started || start.hProcess == nullptr) throw std::runtime_error(WhyNotStarted(error));

  DWORD exitCode = 0;
  const bool known = WaitForSingleObject(start.hProcess, INFINITE) == WAIT_OBJECT_0 &&
                     GetExitCodeProcess(start.hProcess, &exitCode);
  CloseHandle(start.hProcess);
  if (!known) throw std::runtime_error("What became of the helper is not known.");
  return exitCode;
}
