// A minimal file stream over the C runtime's, for reading and writing whole files.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// Unlike the functions of file_system.h, JFile takes paths in the process's ANSI code page, not
// UTF-8. The destructor does not close the stream: call Close.
class JFile {
 public:
  // Flags of Open, combined with "|". OpenText wins over OpenBinary. With neither, the C runtime's
  // default applies, which is text.
  static constexpr std::int32_t OpenRead = 0x1;
  static constexpr std::int32_t OpenWrite = 0x2;
  static constexpr std::int32_t OpenText = 0x100;
  static constexpr std::int32_t OpenBinary = 0x200;

  JFile() = default;
  virtual ~JFile() = default;
  JFile(const JFile&) = delete;
  JFile& operator=(const JFile&) = delete;

  // Opens the file, and closes whatever was open before. Give either OpenRead or OpenWrite; what
  // both or neither do is up to the C runtime. OpenRead refuses what is not on a disk, such as a
  // pipe. OpenWrite empties the file, or creates it together with the directories missing above it.
  // Returns whether a stream is open.
  bool Open(const std::string& path, std::int32_t flags);

  void Close();

  // Transfer `count` bytes. Return the number transferred, or -1 without an open stream, with a
  // null buffer or a negative count.
  std::int32_t Read(void* buffer, std::int32_t count);
  std::int32_t Write(const void* buffer, std::int32_t count);

  // The file's size in bytes; -1 without an open stream, and for 2 GiB or more, which the result
  // cannot hold. Does not move the position.
  std::int32_t GetSize();

  // Goes back to the start. Returns 0, or -1 without an open stream.
  std::int32_t Rewind();

 private:
  std::FILE* stream_ = nullptr;
};
