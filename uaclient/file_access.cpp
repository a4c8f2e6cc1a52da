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

std::wstring Fault(DWORD error) {
  if (error == ERROR_SUCCESS) return {};
  return error == ERROR_SHARING_VIOLATION ? L" is in use by another program. Close it first."
                                          : L" cannot be opened: " + SystemMessage(error);
}

}  // namespace

std::wstring ReadingFault(const std::wstring& fullPath) {
  return Fault(ErrorOfOpening(fullPath, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE));
}

// A running program could be deleted from its folder, but would keep its place in it.
std::wstring DeletionFault(const std::wstring& fullPath) {
  constexpr DWORD kReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;
  const DWORD error = ErrorOfOpening(fullPath, DELETE, kReadWrite);
  if (ErrorOfOpening(fullPath, GENERIC_WRITE, kReadWrite | FILE_SHARE_DELETE) ==
      ERROR_SHARING_VIOLATION) {
    return Fault(ERROR_SHARING_VIOLATION);
  }
  return error == ERROR_ACCESS_DENIED && !IsElevated() ? std::wstring() : Fault(error);
}

}  // namespace uaclient
