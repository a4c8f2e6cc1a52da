// The helper's entry point: runs the one task file that it is given and reports by its exit code.

#include <windows.h>

#include <cstdlib>
#include <exception>
#include <new>

#include "corekit/text.h"
#include "corekit/trace.h"
#include "fileop/file_system.h"
#include "uactask/exit_codes.h"
#include "uactask/task_runner.h"

namespace {

using uactask::HelperExitCode;
using uactask::kHelperFailed;
using uactask::kHelperFoundNoTaskFile;
using uactask::kHelperSucceeded;

HelperExitCode RunAndDelete(const std::string& taskFile) {
  if (!PathExists(taskFile.c_str())) return kHelperFoundNoTaskFile;
  if (!RunTaskFile(taskFile)) return kHelperFailed;
  DeleteFileOrSchedule(taskFile.c_str());
  return kHelperSucceeded;
}

// The trace tells developers why a run ended as it did. It is on under a debugger, and always on in
// a build with UACTASK_TRACE, which is for machines without a debugger.
void EnableTraceForDevelopers() {
#ifdef UACTASK_TRACE
  corekit::EnableTrace(true);
#else
  corekit::EnableTrace(IsDebuggerPresent() != FALSE);
#endif
}

int Answer(HelperExitCode exitCode) {
  corekit::Trace("uactask: exit code %d\n", exitCode);
  return exitCode;
}

}  // namespace

int wmain(int argumentCount, wchar_t* arguments[]) {
  // An elevated process must not load DLLs from its own folder or from the current directory.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  // Nobody is there to answer a dialog about a missing disk or a crash.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
  // Exhausted memory is a failure like any other. It must not be thrown as std::bad_alloc: MinGW's
  // runtime allocates memory to throw, and crashes when there is none.
  std::set_new_handler([] { std::_Exit(kHelperFailed); });
  EnableTraceForDevelopers();
  if (argumentCount < 2) return Answer(kHelperFailed);
  try {
    return Answer(RunAndDelete(WideToUtf8(arguments[1])));
  } catch (const std::exception& problem) {
    corekit::Trace("uactask: the task ended with an exception: %s\n", problem.what());
  } catch (...) {
    corekit::Trace("uactask: the task ended with an exception of an unknown kind\n");
  }
  return Answer(kHelperFailed);
}
