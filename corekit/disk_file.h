// Files that are read whole. Both functions refuse what is no file on a disk: whoever names a pipe
// or a serial port could otherwise keep the reader waiting for ever. What was opened is looked at,
// not what the path says.
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

// A stream of the C runtime for reading; `path` is in the ANSI code page, `mode` as fopen takes it.
// Null when the file cannot be opened.
Stream OpenDiskFile(const char* path, const char* mode);

// The file's bytes. None when it cannot be opened or any part of it cannot be read.
std::optional<std::string> ReadDiskFile(const std::wstring& path);

}  // namespace corekit
