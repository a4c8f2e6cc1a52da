#include "corekit/disk_file.h"

#include <io.h>
#include <windows.h>

#include <utility>

namespace corekit {
namespace {

struct HandleCloser {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};

}  // namespace

Stream OpenDiskFile(const char* path, const char* mode) {
  Stream stream(std::fopen(path, mode));
  if (!stream) return nullptr;
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream.get())));
  return GetFileType(handle) == FILE_TYPE_DISK ? std::move(stream) : nullptr;
}

std::optional<std::string> ReadDiskFile(const std::wstring& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return std::nullopt;
  const std::unique_ptr<void, HandleCloser> closer(file);
  if (GetFileType(file) != FILE_TYPE_DISK) return std::nullopt;

  std::string bytes;
  char block[1 << 16];
  DWORD size = 0;
  do {
    if (!ReadFile(file, block, sizeof block, &size, nullptr)) return std::nullopt;
    bytes.append(block, size);
  } while (size != 0);
  return bytes;
}

}  // namespace corekit
