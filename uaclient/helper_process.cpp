#include "uaclient/helper_process.h"

#include <objbase.h>

#include <algorithm>
#include <mutex>
#include <thread>
#include <vector>

#include "corekit/text.h"
#include "uaclient/helper_files.h"
#include "uaclient/path.h"
#include "uaclient/words.h"

namespace uaclient {
namespace {

// It changes the process's current directory for a moment, so one at a time.
std::mutex shellMutex;

// Both give 0, or the system's error.
DWORD StartByShell(const std::wstring& program, const std::wstring& taskFile, void* owner,
                   Handle& process) {
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
  // What other threads send to this thread's windows is answered meanwhile, also where nobody
  // fetches its messages: the elevation prompt belongs to one of them, and would wait for this
  // thread.
  const HANDLE end = ended.get();
  while (MsgWaitForMultipleObjects(1, &end, FALSE, INFINITE, QS_SENDMESSAGE) == WAIT_OBJECT_0 + 1) {
    MSG message;
    PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
  }
  shell.join();
  process = Handle(start.hProcess);
  return error == ERROR_SUCCESS && !process ? ERROR_INVALID_HANDLE : error;
}

DWORD StartDirectly(const std::wstring& program, const std::wstring& taskFile, Handle& process,
                    Handle& output) {
  HANDLE reader = nullptr;
  HANDLE writer = nullptr;
  if (!CreatePipe(&reader, &writer, nullptr, 0)) return GetLastError();
  output = Handle(reader);
  const Handle helpersEnd(writer);

  // It inherits this one handle, whatever else the application holds or other threads start.
  SetHandleInformation(writer, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
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
  PROCESS_INFORMATION started = {};
  const bool isStarted = CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, TRUE,
                                        DETACHED_PROCESS | EXTENDED_STARTUPINFO_PRESENT, nullptr,
                                        ParentOf(program).c_str(), &startup.StartupInfo, &started);
  const DWORD error = isStarted ? ERROR_SUCCESS : GetLastError();
  DeleteProcThreadAttributeList(list);
  process = Handle(started.hProcess);
  const Handle thread(started.hThread);
  return error;
}

}  // namespace

BOOL(*ShellExecuteForHelper)
(SHELLEXECUTEINFOW*) = [](SHELLEXECUTEINFOW* start) { return ShellExecuteExW(start); };

void HelperProcess::Start(const Options& options, const std::wstring& taskFile) {
  const std::wstring path = HelperPath(options);
  std::wstring program;
  std::wstring fault = PathFault(path, {}, program);
  if (fault.empty()) fault = DriveFault(program);
  if (fault.empty()) {
    const DWORD error = IsElevated() ? StartDirectly(program, taskFile, process_, output_)
                                     : StartByShell(program, taskFile, options.owner, process_);
    if (error == ERROR_SUCCESS) return;
    if (error == ERROR_CANCELLED) {
      throw NotStarted{L"The elevation was refused. Nothing was done.", Status::kRefused};
    }
    fault = SystemMessage(error);
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) {
      fault += L" Put it beside the calling program, or write its path into the options.";
    }
  }
  throw NotStarted{L"The helper " + Quoted(path) + L" could not be started: " + fault};
}

DWORD HelperProcess::ExitCode() const {
  DWORD code = ~DWORD{0};
  GetExitCodeProcess(process_.get(), &code);
  return code;
}

std::wstring HelperProcess::Output() const {
  char text[4096];
  DWORD length = 0;
  PeekNamedPipe(output_.get(), text, sizeof text, &length, nullptr, nullptr);
  std::wstring line = AnsiToWide(std::string(text, length));
  std::replace_if(line.begin(), line.end(), [](wchar_t c) { return c < L' '; }, L' ');
  line.resize(line.find_last_not_of(L" .") + 1);
  return line;
}

std::uint64_t HelperProcess::BytesWritten() const {
  IO_COUNTERS counters = {};
  return GetProcessIoCounters(process_.get(), &counters) ? counters.WriteTransferCount : 0;
}

std::wstring OwnFolder() {
  return ParentOf(
      TextFrom([](wchar_t* text, DWORD size) { return GetModuleFileNameW(nullptr, text, size); }));
}

std::wstring HelperPath(const Options& options) {
  return options.helper.empty() ? FullPath(WithSeparator(OwnFolder()) + L"uactask.exe")
                                : options.helper.wstring();
}

}  // namespace uaclient
