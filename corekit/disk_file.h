// Files of the C runtime that are read whole.
#pragma once

#include <cstdio>
#include <memory>

namespace corekit {

struct StreamCloser {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

// Opens a file for reading; `path` is in the ANSI code page, `mode` as fopen takes it. Null when it
// cannot be opened, and when it is no file on a disk: whoever names a pipe or a serial port could
// otherwise keep the reader waiting for ever. What was opened is looked at, not what the path says.
Stream OpenDiskFile(const char* path, const char* mode);

}  // namespace corekit
