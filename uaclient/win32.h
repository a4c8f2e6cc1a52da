// Small things that the client's files share about Win32.
#pragma once

#include <windows.h>

#include <string>

#include "fileop/tree_walk.h"

namespace corekit {}
namespace uactask {}

namespace uaclient {

using namespace corekit;  // NOLINT: what the client uses of the libraries below
using namespace uactask;  // NOLINT

// Closes a handle; one that is INVALID_HANDLE_VALUE counts as none.
class Handle : public fileop::Handle {
 public:
  explicit Handle(HANDLE handle = nullptr)
      : unique_ptr(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
};

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Opens a file or a folder. Tries again after 20 ms, at most so many times, while another program
// holds it. Whoever waits behind the name of a pipe cannot act as this user.
inline Handle Open(const std::wstring& path, DWORD access, DWORD share = kShareAll,
                   DWORD creation = OPEN_EXISTING, int retries = 0) {
  constexpr DWORD kFlags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_SEQUENTIAL_SCAN |
                           SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
  for (;;) {
    Handle opened(CreateFileW(path.c_str(), access, share, nullptr, creation, kFlags, nullptr));
    if (opened || GetLastError() != ERROR_SHARING_VIOLATION || retries-- == 0) return opened;
    Sleep(20);
  }
}

inline bool Exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Whether a folder is there, links to folders included.
inline bool IsFolder(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// What call(buffer, size) writes, when it returns the length. L"" when it fails, and for a text of
// 1024 units, far longer than what the helper can reach.
template <typename Call>
std::wstring TextFrom(Call call) {
  constexpr DWORD kSize = 1024;
  wchar_t text[kSize];
  const DWORD length = call(text, kSize);
  return length < kSize ? std::wstring(text, length) : std::wstring();
}

// Whether this process is elevated already. A variable, so that a test can say what it is not.
inline bool (*IsElevated)() = [] {
  TOKEN_ELEVATION elevation = {};
  DWORD size = sizeof elevation;
  GetTokenInformation(GetCurrentProcessToken(), TokenElevation, &elevation, size, &size);
  return elevation.TokenIsElevated != 0;
};

}  // namespace uaclient
