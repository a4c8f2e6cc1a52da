// What the helper would do with an operation list, and what is wrong with it.
#pragma once

#include <string>

#include "uaclient/task_reading.h"

namespace uaclient {

// Goes through the list of the reading, which stands in this file, and adds to the reading.
void ReadList(const std::wstring& file, const Options& options, TaskReading& reading);

}  // namespace uaclient
