// A minimal file stream for reading and writing whole files, over the C runtime's streams.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// Unlike the functions of file_system.h, JFile hands its path to the narrow runtime as it stands:
// the bytes are a name in the process's ANSI code page, not UTF-8.
//
// The destructor does not close the stream; whoever opened the file calls Close.
class JFile {
 public:
  // Flags of Open, combined with "|". OpenText wins over OpenBinary; with neither, the C runtime's
  // default holds, which is text.
  static constexpr std::int32_t OpenRead = 0x1;
  static constexpr std::int32_t OpenWrite = 0x2;
  static constexpr std::int32_t OpenText = 0x100;
  static constexpr std::int32_t OpenBinary = 0x200;

  JFile() = default;
  virtual ~JFile() = default;
  JFile(const JFile&) = delete;
  JFile& operator=(const JFile&) = delete;

  // Opens the file, closing whatever was open before. OpenWrite creates the file, and the
  // directories missing above it, or empties it. Only a file on a disk is opened for reading, no
  // device and no pipe. Returns whether a stream is open. Give either
  // OpenRead or OpenWrite: what becomes of both or neither is the C runtime's decision.
  bool Open(const std::string& path, std::int32_t flags);

  void Close();

  // Transfer `count` bytes. Return the number transferred, or -1 without an open stream, with a
  // null buffer or a negative count.
  std::int32_t Read(void* buffer, std::int32_t count);
  std::int32_t Write(const void* buffer, std::int32_t count);

  // The file's size in bytes; -1 without an open stream, and for files of 2 GiB and more, whose
  // size the result cannot hold. The position stays where it was.
  std::int32_t GetSize();

  // Goes back to the start. Returns 0, or -1 without an open stream.
  std::int32_t Rewind();

 private:
  std::FILE* stream_ = nullptr;
};
