#include "uaclient/helper_process.h"

#include <objbase.h>

#include <mutex>
#include <thread>
#include <vector>

#include "corekit/text.h"
#include "uaclient/helper_files.h"
#include "uaclient/path.h"
#include "uaclient/words.h"

namespace uaclient {
namespace {

// Waits as a thread with a window must, also where nobody fetches its messages: what other threads
// send to its windows is answered, so that the elevation prompt, which belongs to one of them,
// cannot wait for this thread while it waits for the prompt.
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

// It changes the process's current directory for a moment, so one at a time.
std::mutex shellMutex;

// What to do about an error of the start; L"" where the system's message has to do.
std::wstring Advice(DWORD error, const std::wstring& program) {
  const bool isDownloaded =
      GetFileAttributesW((program + L":Zone.Identifier").c_str()) != INVALID_FILE_ATTRIBUTES;
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return L" Put it beside the calling program, or write its path into the options.";
    case ERROR_ACCESS_DISABLED_BY_POLICY:
    case ERROR_DS_REFERRAL:  // only signed programs may be elevated
      return L" A policy of this computer does not allow it. Ask its administrator.";
    case ERROR_CANCELLED:
      if (!isDownloaded) return {};
      return L" The helper " + Quoted(program) +
             L" was downloaded, and Windows may have refused it for that reason. To allow it, "
             L"choose Unblock in the file's properties.";
    default:
      return {};
  }
}

}  // namespace

BOOL(*ShellExecuteForHelper)
(SHELLEXECUTEINFOW*) = [](SHELLEXECUTEINFOW* start) { return ShellExecuteExW(start); };

void HelperProcess::Start(const std::wstring& program, const std::wstring& taskFile, void* owner) {
  const std::wstring failed = L"The helper " + Quoted(program) + L" could not be started: ";
  if (const std::wstring fault = DriveFault(program); !fault.empty()) {
    throw NotStarted{failed + fault};
  }
  const DWORD error =
      IsElevated() ? StartDirectly(program, taskFile) : StartByShell(program, taskFile, owner);
  if (error == ERROR_SUCCESS) return;
  const std::wstring advice = Advice(error, program);
  if (error != ERROR_CANCELLED) throw NotStarted{failed + SystemMessage(error) + advice};
  throw NotStarted{L"The elevation was refused. Nothing was done." + advice, Status::kRefused};
}

DWORD HelperProcess::StartByShell(const std::wstring& program, const std::wstring& taskFile,
                                  void* owner) {
  const std::wstring parameters = Quoted(taskFile);
  const std::wstring directory = ParentOf(program);
  SHELLEXECUTEINFOW start = {};
  start.cbSize = sizeof start;
  start.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;
  start.hwnd = static_cast<HWND>(owner);
  start.lpVerb = L"runas";
  start.lpFile = program.c_str();
  start.lpParameters = parameters.c_str();
  start.lpDirectory = directory.c_str();
  start.nShow = SW_HIDE;
  DWORD error = ERROR_SUCCESS;
  const Handle ended(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  // The shell wants an apartment of its kind; the caller's thread may be in another one.
  std::thread shell([&] {
    const std::lock_guard lock(shellMutex);
    const HRESULT com = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
    if (!ShellExecuteForHelper(&start)) error = GetLastError();
    if (SUCCEEDED(com)) CoUninitialize();
    SetEvent(ended.get());
  });
  WaitAndAnswer(ended.get(), owner != nullptr);
  shell.join();
  process_ = Handle(start.hProcess);
  return error == ERROR_SUCCESS && !process_ ? ERROR_INVALID_HANDLE : error;
}

DWORD HelperProcess::StartDirectly(const std::wstring& program, const std::wstring& taskFile) {
  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
  HANDLE reader = nullptr;
  HANDLE writer = nullptr;
  if (!CreatePipe(&reader, &writer, &inherit, 0)) return GetLastError();
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
  std::wstring command = Quoted(program) + L" " + Quoted(taskFile);
  PROCESS_INFORMATION process = {};
  const bool isStarted = CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, TRUE,
                                        DETACHED_PROCESS | EXTENDED_STARTUPINFO_PRESENT, nullptr,
                                        ParentOf(program).c_str(), &startup.StartupInfo, &process);
  const DWORD error = isStarted ? ERROR_SUCCESS : GetLastError();
  DeleteProcThreadAttributeList(list);
  process_ = Handle(process.hProcess);
  const Handle thread(process.hThread);
  return error;
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
  std::wstring line = AnsiToWide(std::string(text, length));
  for (wchar_t& c : line) {
    if (c < L' ') c = L' ';
  }
  line.resize(line.find_last_not_of(L" .") + 1);
  return line;
}

std::uint64_t HelperProcess::BytesWritten() const {
  IO_COUNTERS counters = {};
  return GetProcessIoCounters(process_.get(), &counters) ? counters.WriteTransferCount : 0;
}

std::wstring OwnFolder() {
  std::wstring self(32768, L'\0');
  self.resize(GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size())));
  return ParentOf(self);
}

std::wstring HelperPath(const Options& options) {
  return options.helper.empty() ? WithSeparator(OwnFolder()) + L"uactask.exe"
                                : FullPath(options.helper.wstring());
}

}  // namespace uaclient
