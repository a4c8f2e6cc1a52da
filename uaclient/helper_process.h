// Starts the helper with raised rights and tells how it ended.
#pragma once

#include <windows.h>

#include <string>

#include "uaclient/uaclient.h"
#include "uaclient/win32.h"

namespace uaclient {

class HelperProcess {
 public:
  // Starts it on a task file, in this current directory. A process that has raised rights already
  // starts it directly and can read what it prints; otherwise the user is asked. Returns kDone, or
  // kRefused or kNotStarted with the reason.
  Status Start(const std::wstring& program, const std::wstring& taskFile,
               const std::wstring& directory, void* owner, std::wstring& why);

  // The same by the request for raised rights, also where the process has them.
  Status StartByShell(const std::wstring& program, const std::wstring& taskFile,
                      const std::wstring& directory, void* owner, std::wstring& why);

  HANDLE Get() const { return process_.get(); }
  bool HasEnded(DWORD milliseconds) const {
    return WaitForSingleObject(process_.get(), milliseconds) == WAIT_OBJECT_0;
  }
  DWORD ExitCode() const;

  // What it has printed, in one line; "" where that cannot be read.
  std::wstring Output() const;

 private:
  bool StartDirectly(const std::wstring& program, const std::wstring& taskFile,
                     const std::wstring& directory);

  Handle process_;
  Handle output_;
};

// The folder of the calling program, with a separator at its end. The helper stands there, and the
// folder is its current directory: one that nobody wants to remove while it works.
std::wstring OwnFolder();

// The calling program's path.
std::wstring OwnProgram();

}  // namespace uaclient
