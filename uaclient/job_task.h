// Jobs as the parameters of a scheduler task.
#pragma once

#include <string>
#include <vector>

#include "uaclient/uaclient.h"
#include "uactask/task_file.h"

namespace uaclient {

// For a job that its check has passed.
uactask::TaskParams RegistrationParams(const Job& job);
uactask::TaskParams DeletionParams(const JobRemoval& removal);

// A command line from which a program takes exactly these arguments.
std::wstring CommandLine(const std::vector<std::wstring>& arguments);

}  // namespace uaclient
