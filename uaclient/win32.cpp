#include "uaclient/win32.h"

namespace uaclient {

Handle Open(const std::wstring& path, DWORD access, DWORD share, DWORD creation) {
  constexpr DWORD kFlags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_SEQUENTIAL_SCAN |
                           SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
  return Handle(CreateFileW(path.c_str(), access, share, nullptr, creation, kFlags, nullptr));
}

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool (*IsElevated)() = [] {
  TOKEN_ELEVATION elevation = {};
  DWORD size = sizeof elevation;
  GetTokenInformation(GetCurrentProcessToken(), TokenElevation, &elevation, size, &size);
  return elevation.TokenIsElevated != 0;
};

}  // namespace uaclient
