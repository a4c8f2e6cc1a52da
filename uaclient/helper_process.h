// Starts the helper elevated and tells how it ended.
#pragma once

#include <windows.h>

#include <shellapi.h>

#include <cstdint>
#include <string>

#include "uaclient/uaclient.h"
#include "uaclient/win32.h"

namespace uaclient {

// The one call that may show the elevation prompt. A variable, so that a test can stand in for it.
extern BOOL (*ShellExecuteForHelper)(SHELLEXECUTEINFOW* start);

class HelperProcess {
 public:
  // Starts it on a task file, in its own folder. A process that is elevated already starts it
  // directly and can read what it prints; otherwise the user is asked. Throws NotStarted.
  void Start(const Options& options, const std::wstring& taskFile);

  // Null before the start.
  HANDLE Get() const { return process_.get(); }
  bool HasEnded(DWORD milliseconds) const {
    return WaitForSingleObject(process_.get(), milliseconds) == WAIT_OBJECT_0;
  }
  DWORD ExitCode() const;

  // How many bytes it has written so far, to whatever file; 0 where that cannot be read.
  std::uint64_t BytesWritten() const;

  // What it has printed, in one line; "" where that cannot be read.
  std::wstring Output() const;

 private:
  Handle process_;
  Handle output_;
};

// The calling program's folder.
std::wstring OwnFolder();

// The helper's path, as the options give it or beside the calling program.
std::wstring HelperPath(const Options& options);

}  // namespace uaclient
