// Files as they are opened: to see whether they can be copied, overwritten or deleted, as far as
// this user can see, to be compared, read and written.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "uaclient/win32.h"

namespace uaclient {

// Why the file cannot be opened for that, to follow its name; L"" when it can. Where only the
// elevation is lacking, it can be deleted and overwritten.
std::wstring ReadingFault(const std::wstring& fullPath);
std::wstring OverwritingFault(const std::wstring& fullPath);
std::wstring DeletionFault(const std::wstring& fullPath);

// Called between the steps of what takes long; returns false to end it.
using Tick = std::function<bool()>;

enum class Equality { kEqual, kDifferent, kNotRead, kStopped };

class ContentComparer {
 public:
  // Every byte of two files.
  Equality Compare(const std::wstring& first, const std::wstring& second, const Tick& tick = {});

 private:
  std::vector<char> first_;
  std::vector<char> second_;
};

struct WholeFile {
  Handle handle;
  std::string bytes;
  std::wstring fault;  // why it cannot be read, to follow its name; L"" when it is
};

// Of files that the helper reads, too: on a disk, and of less than 2 GiB.
WholeFile ReadWhole(const std::wstring& path, DWORD access, DWORD share);

// Whether the file could be opened and all of it could be written.
bool WriteAll(const Handle& file, const std::string& bytes);

}  // namespace uaclient
