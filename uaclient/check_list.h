// What the helper would do with an operation list, and what is wrong with it.
#pragma once

#include <cstddef>
#include <string>

#include "uaclient/uaclient.h"

namespace uaclient {

// Adds to the report. `listPath` is what the task file names, in the ANSI code page, in this line
// of it.
void CheckOperationList(const std::string& listPath, const std::filesystem::path& taskFile,
                        std::size_t line, TaskFileReport& report);

}  // namespace uaclient
