// What the helper would do with an operation list, and what is wrong with it.
#pragma once

#include <string>

#include "uaclient/work.h"

namespace uaclient {

// Reads the list in `work`, which stands in this file, and adds to the work.
void ReadList(const std::wstring& file, const Options& options, Work& work);

}  // namespace uaclient
