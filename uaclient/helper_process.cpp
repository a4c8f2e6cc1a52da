#include "uaclient/helper_process.h"

#include <objbase.h>
#include <shellapi.h>

#include <thread>
#include <vector>

#include "corekit/text.h"

namespace uaclient {
namespace {

// Waits as a thread with a window must, also where nobody fetches its messages: what other threads
// send to its windows is answered, so that the request for raised rights, which belongs to one of
// them, cannot wait for this thread while it waits for the request.
void WaitAndAnswer(HANDLE handle, bool hasWindow) {
  if (!hasWindow) {
    WaitForSingleObject(handle, INFINITE);
    return;
  }
  while (MsgWaitForMultipleObjects(1, &handle, FALSE, INFINITE, QS_SENDMESSAGE) ==
         WAIT_OBJECT_0 + 1) {
    MSG message;
    PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
  }
}

}  // namespace

Status HelperProcess::Start(const std::wstring& program, const std::wstring& taskFile,
                            const std::wstring& directory, void* owner, std::wstring& why) {
  if (!IsElevated()) return StartByShell(program, taskFile, directory, owner, why);
  if (StartDirectly(program, taskFile, directory)) return Status::kDone;
  why = L"The helper \"" + program + L"\" could not be started: " + SystemMessage(GetLastError());
  return Status::kNotStarted;
}

Status HelperProcess::StartByShell(const std::wstring& program, const std::wstring& taskFile,
                                   const std::wstring& directory, void* owner, std::wstring& why) {
  const std::wstring parameters = L"\"" + taskFile + L"\"";
  SHELLEXECUTEINFOW start = {};
  start.cbSize = sizeof start;
  start.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;
  start.hwnd = static_cast<HWND>(owner);
  start.lpVerb = L"runas";
  start.lpFile = program.c_str();
  start.lpParameters = parameters.c_str();
  start.lpDirectory = directory.c_str();
  start.nShow = SW_HIDE;
  bool started = false;
  DWORD error = 0;
  const Handle ended(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  // The shell wants an apartment of its kind; the caller's thread may be in another one.
  std::thread shell([&] {
    const HRESULT com = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
    started = ShellExecuteExW(&start) && start.hProcess != nullptr;
    error = GetLastError();
    if (SUCCEEDED(com)) CoUninitialize();
    SetEvent(ended.get());
  });
  WaitAndAnswer(ended.get(), owner != nullptr);
  shell.join();
  process_ = Handle(start.hProcess);
  if (started) return Status::kDone;

  if (error == ERROR_CANCELLED) {
    why = L"The request for administrator rights was refused. Nothing was done.";
    return Status::kRefused;
  }
  why = L"The helper \"" + program + L"\" could not be started: " + SystemMessage(error);
  return Status::kNotStarted;
}

bool HelperProcess::StartDirectly(const std::wstring& program, const std::wstring& taskFile,
                                  const std::wstring& directory) {
  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
  HANDLE reader = nullptr;
  HANDLE writer = nullptr;
  if (!CreatePipe(&reader, &writer, &inherit, 0)) return false;
  output_ = Handle(reader);
  Handle helpersEnd(writer);
  SetHandleInformation(reader, HANDLE_FLAG_INHERIT, 0);

  // It inherits this one handle, whatever else the application holds or other threads start.
  SIZE_T size = 0;
  InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
  std::vector<char> memory(size);
  const auto list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
  InitializeProcThreadAttributeList(list, 1, 0, &size);
  UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, &writer, sizeof writer,
                            nullptr, nullptr);
  STARTUPINFOEXW startup = {};
  startup.StartupInfo.cb = sizeof startup;
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdOutput = writer;
  startup.lpAttributeList = list;

  // Without a console, which would cost it a process of its own.
  std::wstring command = L"\"" + program + L"\" \"" + taskFile + L"\"";
  PROCESS_INFORMATION process = {};
  const BOOL started = CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, TRUE,
                                      DETACHED_PROCESS | EXTENDED_STARTUPINFO_PRESENT, nullptr,
                                      directory.c_str(), &startup.StartupInfo, &process);
  const DWORD error = GetLastError();
  DeleteProcThreadAttributeList(list);
  process_ = Handle(process.hProcess);
  const Handle thread(process.hThread);
  SetLastError(error);
  return started != FALSE;
}

DWORD HelperProcess::ExitCode() const {
  DWORD code = ~DWORD{0};
  GetExitCodeProcess(process_.get(), &code);
  return code;
}

std::wstring HelperProcess::Output() const {
  char text[4096];
  DWORD available = 0;
  DWORD length = 0;
  if (!output_ || !PeekNamedPipe(output_.get(), nullptr, 0, nullptr, &available, nullptr) ||
      available == 0 || !ReadFile(output_.get(), text, sizeof text, &length, nullptr)) {
    return {};
  }
  std::wstring line;
  for (const wchar_t c : AnsiToWide(std::string(text, length))) {
    if (c >= L' ') line += c;
    if (c == L'\n' && !line.empty()) line += L' ';
  }
  line.resize(line.find_last_not_of(L" .") + 1);
  return line;
}

std::wstring OwnProgram() {
  std::wstring self(32768, L'\0');
  self.resize(GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size())));
  return self;
}

std::wstring OwnFolder() {
  const std::wstring self = OwnProgram();
  return self.substr(0, self.rfind(L'\\') + 1);
}

}  // namespace uaclient
