#include "uaclient/whole_file.h"

#include <cstdint>

namespace uaclient {

WholeFile ReadWhole(const std::wstring& path, DWORD access, DWORD share) {
  // Whoever waits behind the name of a pipe must not act as this user.
  constexpr DWORD kFlags =
      FILE_FLAG_SEQUENTIAL_SCAN | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
  WholeFile file;
  file.handle =
      Handle(CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, kFlags, nullptr));
  const DWORD error = GetLastError();
  LARGE_INTEGER size = {};
  DWORD count = 0;
  if (IsFolder(path)) {
    file.fault = L" is a folder. Write the path of a file.";
  } else if (!file.handle && GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
    file.fault = L" does not exist. Write its whole path.";
  } else if (!file.handle) {
    file.fault = L" cannot be opened: " + SystemMessage(error);
  } else if (GetFileType(file.handle.get()) != FILE_TYPE_DISK) {
    file.fault = L" is a device, which the helper does not read. Write the path of a file.";
  } else if (!GetFileSizeEx(file.handle.get(), &size) || size.QuadPart > INT32_MAX) {
    file.fault = L" has 2 GiB or more, which the helper does not read. Use several smaller ones.";
  } else {
    file.bytes.resize(static_cast<std::size_t>(size.QuadPart));
    if (!ReadFile(file.handle.get(), file.bytes.data(), size.LowPart, &count, nullptr)) {
      file.fault = L" cannot be read: " + SystemMessage(GetLastError());
    }
    file.bytes.resize(count);
  }
  return file;
}

}  // namespace uaclient
