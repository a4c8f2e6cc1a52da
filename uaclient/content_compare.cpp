#include "uaclient/content_compare.h"

#include <cstring>

#include "uaclient/win32.h"

namespace uaclient {
namespace {

constexpr DWORD kChunk = 512 * 1024;

// Fills the buffer unless the file ends before.
bool ReadChunk(const Handle& file, std::vector<char>& buffer, DWORD& length) {
  return ReadFile(file.get(), buffer.data(), kChunk, &length, nullptr) != FALSE;
}

// A virus scanner holds a new file for a moment.
Handle OpenPatiently(const std::wstring& path) {
  constexpr int kAttempts = 20;
  Handle file = OpenForReading(path);
  for (int i = 1; !file && GetLastError() == ERROR_SHARING_VIOLATION && i < kAttempts; ++i) {
    Sleep(25);
    file = OpenForReading(path);
  }
  return file;
}

}  // namespace

Equality ContentComparer::Compare(const std::wstring& first, const std::wstring& second,
                                  const Tick& tick) {
  first_.resize(kChunk);
  second_.resize(kChunk);
  const Handle firstFile = OpenPatiently(first);
  const Handle secondFile = OpenPatiently(second);
  if (!firstFile || !secondFile) return Equality::kNotRead;
  for (;;) {
    if (tick && !tick()) return Equality::kStopped;
    DWORD firstLength = 0;
    DWORD secondLength = 0;
    if (!ReadChunk(firstFile, first_, firstLength) ||
        !ReadChunk(secondFile, second_, secondLength)) {
      return Equality::kNotRead;
    }
    if (firstLength != secondLength ||
        std::memcmp(first_.data(), second_.data(), firstLength) != 0) {
      return Equality::kDifferent;
    }
    if (firstLength < kChunk) return Equality::kEqual;
  }
}

}  // namespace uaclient
