// Files as they are opened: to see whether they can be copied, overwritten or deleted, as far as
// this user can see, to be compared, read and written.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "uaclient/win32.h"

namespace uaclient {

// Why the file cannot be opened for that, to follow its name; L"" when it can. Where only the
// elevation is lacking, it can be deleted and overwritten.
std::wstring ReadingFault(const std::wstring& fullPath);
std::wstring OverwritingFault(const std::wstring& fullPath);
std::wstring DeletionFault(const std::wstring& fullPath);

// Tries again after 20 ms, at most so many times, while another program holds the file.
Handle OpenPatiently(const std::wstring& path, DWORD access, DWORD share, DWORD creation,
                     int retries);

// Called now and then while something takes long; returns false to end it.
using Tick = std::function<bool()>;

enum class Equality { kStopped, kEqual, kDifferent, kNotRead };

// Compares every byte of two files.
Equality Compare(const std::wstring& first, const std::wstring& second, const Tick& tick = {});

// Calls work(i) for each number below `count`, in threads of its own, several at a time: to open a
// file takes mostly waiting. Calls `tick` in the caller's thread meanwhile; once that returns false
// or throws, no further work begins.
void InParallel(std::size_t count, const std::function<void(std::size_t)>& work,
                const Tick& tick = {});

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
