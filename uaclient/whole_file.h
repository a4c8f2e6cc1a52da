// Files that are read whole, once, and may stay open for that.
#pragma once

#include <windows.h>

#include <string>

#include "uaclient/win32.h"

namespace uaclient {

struct WholeFile {
  Handle handle;
  std::string bytes;
  std::wstring fault;  // why it cannot be read, as the end of a sentence; L"" when it is
};

// Of files that the helper reads, too: on a disk, and of less than 2 GiB.
WholeFile ReadWhole(const std::wstring& path, DWORD access, DWORD share);

}  // namespace uaclient
