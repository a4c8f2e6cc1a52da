// The helper's exit codes, for itself and for the application's side.
#pragma once

namespace uactask {

enum HelperExitCode : int {
  kHelperSucceeded = 0,       // the task file is deleted, or will be at the next restart
  kHelperFailed = 1,          // no argument, or the task failed; the task file is kept
  kHelperFoundNoTaskFile = 2  // the argument names nothing that exists
};

}  // namespace uactask
