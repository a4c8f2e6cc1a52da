#include "uaclient/file_access.h"

#include <windows.h>

#include "uaclient/path.h"
#include "uaclient/win32.h"

namespace uaclient {
namespace {

DWORD ErrorOfOpening(const std::wstring& fullPath, DWORD rights, DWORD share) {
  const Handle file(CreateFileW(Verbatim(fullPath).c_str(), rights, share, nullptr, OPEN_EXISTING,
                                FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  return file ? ERROR_SUCCESS : GetLastError();
}

// A running program could be deleted from its folder, but would keep its place in it.
DWORD ErrorOfDeletion(const std::wstring& fullPath) {
  constexpr DWORD kReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;
  const DWORD error = ErrorOfOpening(fullPath, DELETE, kReadWrite);
  if (error != ERROR_SUCCESS) return error;
  const DWORD writing = ErrorOfOpening(fullPath, GENERIC_WRITE, kReadWrite | FILE_SHARE_DELETE);
  return writing == ERROR_SHARING_VIOLATION ? writing : ERROR_SUCCESS;
}

}  // namespace

std::wstring AccessFault(const std::wstring& fullPath, Access access) {
  DWORD error = ERROR_SUCCESS;
  switch (access) {
    case Access::kRead:
      error = ErrorOfOpening(fullPath, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
      break;
    case Access::kOverwrite:
      error = ErrorOfOpening(fullPath, GENERIC_WRITE, FILE_SHARE_READ);
      break;
    case Access::kDelete:
      error = ErrorOfDeletion(fullPath);
      break;
  }
  if (error == ERROR_SUCCESS) return {};
  if (error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION) {
    return L" is in use by another program. Close it first.";
  }
  if (access != Access::kRead && !IsElevated()) return {};
  return std::wstring(access == Access::kRead        ? L" cannot be read: "
                      : access == Access::kOverwrite ? L" cannot be written: "
                                                     : L" cannot be deleted: ") +
         SystemMessage(error);
}

}  // namespace uaclient
