// What the helper would do with an operation list, and what is wrong with it.
#pragma once

#include <cstddef>
#include <string>

#include "uaclient/findings.h"
#include "uaclient/task_reading.h"

namespace uaclient {

// Reads the list that the task file names in this line and adds to the reading.
void ReadList(const std::wstring& list, std::size_t line, FileFindings& inTaskFile,
              const Options& options, TaskReading& reading);

}  // namespace uaclient
