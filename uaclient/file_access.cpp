#include "uaclient/file_access.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <vector>

#include "uaclient/path.h"
#include "uaclient/words.h"

namespace uaclient {
namespace {

constexpr DWORD kReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr DWORD kChunk = 512 * 1024;
constexpr wchar_t kIsInUse[] = L" is in use by another program. Close it first.";

std::wstring InWords(DWORD error) {
  if (error == ERROR_SHARING_VIOLATION) return kIsInUse;
  return L" cannot be opened: " + SystemMessage(error);
}

std::wstring Fault(const std::wstring& fullPath, DWORD access, DWORD share) {
  if (Open(Verbatim(fullPath), access, share)) return {};
  const DWORD error = GetLastError();
  if (error == ERROR_ACCESS_DENIED && access != GENERIC_READ && !IsElevated()) return {};
  return InWords(error);
}

}  // namespace

std::wstring ReadingFault(const std::wstring& fullPath) {
  return Fault(fullPath, GENERIC_READ, kReadWrite);
}

std::wstring OverwritingFault(const std::wstring& fullPath) {
  return Fault(fullPath, GENERIC_WRITE, kShareAll);
}

// A running program could be deleted from its folder, but would keep its place in it. It shows when
// it is opened for writing.
std::wstring DeletionFault(const std::wstring& fullPath) {
  if (Open(Verbatim(fullPath), DELETE | FILE_WRITE_DATA, kReadWrite)) return {};
  if (GetLastError() == ERROR_SHARING_VIOLATION) return kIsInUse;
  return Fault(fullPath, DELETE, kReadWrite);
}

Equality Compare(const std::wstring& first, const std::wstring& second, const Tick& tick) {
  const auto open = [](const std::wstring& fullPath) {  // a virus scanner holds a new file a moment
    return Open(Verbatim(fullPath), GENERIC_READ, kShareAll, OPEN_EXISTING, 25);
  };
  const Handle firstFile = open(first);
  const Handle secondFile = open(second);
  LARGE_INTEGER size = {};
  if (!firstFile || !secondFile || !GetFileSizeEx(firstFile.get(), &size)) {
    return Equality::kNotRead;
  }
  // Large enough for the whole of a small file, and to see its end.
  const auto most = static_cast<DWORD>(std::min<LONGLONG>(size.QuadPart + 1, kChunk));
  std::string firstChunk;
  std::string secondChunk;
  const auto read = [most](const Handle& file, std::string& chunk) {
    DWORD length = 0;
    chunk.resize(most);
    const bool isRead = ReadFile(file.get(), chunk.data(), most, &length, nullptr) != FALSE;
    chunk.resize(length);
    return isRead;
  };
  for (;;) {
    if (tick && !tick()) return Equality::kStopped;
    if (!read(firstFile, firstChunk) || !read(secondFile, secondChunk)) return Equality::kNotRead;
    if (firstChunk != secondChunk) return Equality::kDifferent;
    if (firstChunk.size() < most) return Equality::kEqual;
  }
}

void InParallel(std::size_t count, const std::function<void(std::size_t, const Tick&)>& work,
                const Tick& tick) {
  constexpr std::size_t kThreads = 4;
  std::atomic<std::size_t> next{0};
  std::atomic<bool> isStopped{false};
  const Tick goesOn = [&] { return !isStopped; };
  const auto workOn = [&] {
    for (std::size_t i = next++; i < count && !isStopped; i = next++) work(i, goesOn);
  };
  std::vector<std::future<void>> threads(std::min(kThreads, count));
  const std::shared_ptr<void> end(nullptr,
                                  [&](void*) { isStopped = true; });  // then they are joined
  for (std::future<void>& thread : threads) thread = std::async(std::launch::async, workOn);
  for (std::future<void>& thread : threads) {
    while (thread.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready) {
      if (tick && !tick()) isStopped = true;
    }
    thread.get();
  }
}

WholeFile ReadWhole(const std::wstring& path, DWORD access, DWORD share) {
  WholeFile file;
  file.handle = Open(path, access, share);
  const DWORD error = GetLastError();
  LARGE_INTEGER size = {};
  DWORD count = 0;
  if (IsFolder(path)) {
    file.fault = L" is a folder. Write the path of a file.";
  } else if (!file.handle && !Exists(path)) {
    file.fault = L" does not exist. Write its whole path.";
  } else if (!file.handle) {
    file.fault = InWords(error);
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

bool WriteAll(const Handle& file, const std::string& bytes) {
  DWORD written = 0;
  const auto size = static_cast<DWORD>(bytes.size());
  return file && WriteFile(file.get(), bytes.data(), size, &written, nullptr) && written == size;
}

}  // namespace uaclient
