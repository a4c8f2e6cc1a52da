#include "corekit/disk_file.h"

#include <io.h>
#include <windows.h>

#include <utility>

namespace corekit {

Stream OpenDiskFile(const char* path, const char* mode) {
  Stream stream(std::fopen(path, mode));
  if (!stream) return nullptr;
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream.get())));
  return GetFileType(handle) == FILE_TYPE_DISK ? std::move(stream) : nullptr;
}

}  // namespace corekit
