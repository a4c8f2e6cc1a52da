#include "fileop/jfile.h"

#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>
#include <cstdio>

#include "corekit/disk_file.h"
#include "corekit/text.h"
#include "fileop/file_system.h"

namespace {

bool Exists(const std::string& ansiPath) {
  boost::system::error_code ignored;
  return exists(boost::filesystem::status(corekit::AnsiToWide(ansiPath), ignored));
}

}  // namespace

bool JFile::Open(const std::string& path, std::int32_t flags) {
  if (!Exists(path)) {
    if ((flags & OpenWrite) == 0) {
      Close();
      return false;
    }
    MakeParentDirs(path.c_str());
  }
  Close();

  std::string mode;
  if ((flags & OpenWrite) != 0) mode += 'w';
  if ((flags & OpenRead) != 0) mode += 'r';
  if ((flags & OpenText) != 0) {
    mode += 't';
  } else if ((flags & OpenBinary) != 0) {
    mode += 'b';
  }
  stream_ = (flags & OpenWrite) != 0 ? std::fopen(path.c_str(), mode.c_str())
                                     : corekit::OpenDiskFile(path.c_str(), mode.c_str()).release();
  return stream_ != nullptr;
}

void JFile::Close() {
  if (stream_ != nullptr) std::fclose(stream_);
  stream_ = nullptr;
}

std::int32_t JFile::Read(void* buffer, std::int32_t count) {
  if (stream_ == nullptr || buffer == nullptr || count < 0) return -1;
  return static_cast<std::int32_t>(std::fread(buffer, 1, static_cast<std::size_t>(count), stream_));
}

std::int32_t JFile::Write(const void* buffer, std::int32_t count) {
  if (stream_ == nullptr || buffer == nullptr || count < 0) return -1;
  return static_cast<std::int32_t>(
      std::fwrite(buffer, 1, static_cast<std::size_t>(count), stream_));
}

std::int32_t JFile::GetSize() {
  if (stream_ == nullptr) return -1;
  // The standard library's calls would wrap around at 2 GiB.
  const std::int64_t position = _ftelli64(stream_);
  if (position < 0 || _fseeki64(stream_, 0, SEEK_END) != 0) return -1;
  const std::int64_t size = _ftelli64(stream_);
  _fseeki64(stream_, position, SEEK_SET);
  return size > INT32_MAX ? -1 : static_cast<std::int32_t>(size);
}

std::int32_t JFile::Rewind() { return stream_ == nullptr ? -1 : std::fseek(stream_, 0, SEEK_SET); }
