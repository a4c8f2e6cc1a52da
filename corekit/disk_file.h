// Opens and reads files on disk. Both functions refuse pipes, devices and the like, because those
// could keep the reader waiting forever. They judge by the opened handle, not by the path.
#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace corekit {

struct StreamCloser {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

// Opens a C runtime stream for reading. `path` is in the ANSI code page; `mode` is fopen's. Null
// when the file cannot be opened or is not on a disk.
Stream OpenDiskFile(const char* path, const char* mode);

// The file's bytes; `path` is UTF-16. None when the file cannot be opened, is not on a disk, or
// cannot be read to its end.
std::optional<std::string> ReadDiskFile(const std::wstring& path);

}  // namespace corekit
