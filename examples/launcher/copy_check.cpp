#include "copy_check.h"

#include <windows.h>

#include <shlwapi.h>

#include <filesystem>
#include <system_error>

#include "arguments.h"

namespace {

namespace fs = std::filesystem;

constexpr DWORD kMaxUnits = 32768;

std::wstring WithSeparator(const std::wstring& path) {
  return path.back() == L'\\' ? path : path + L"\\";
}

// Where a full path leads, whatever links, short names and substituted drives it goes through, as
// far as it exists. Ends in a separator.
std::wstring RealPath(const std::wstring& path) {
  constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  for (std::size_t end = path.size(); end > 2; end = path.rfind(L'\\', end - 2) + 1) {
    const HANDLE file = CreateFileW(path.substr(0, end).c_str(), 0, kShare, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) continue;
    std::wstring real(kMaxUnits, L'\0');
    real.resize(GetFinalPathNameByHandleW(file, real.data(), kMaxUnits, VOLUME_NAME_DOS));
    CloseHandle(file);
    if (!real.empty()) return WithSeparator(WithSeparator(real) + path.substr(end));
  }
  return WithSeparator(path);
}

// For real paths: also true when they are the same.
bool Holds(const std::wstring& outer, const std::wstring& inner) {
  const int length = static_cast<int>(outer.size());
  return inner.size() >= outer.size() &&
         CompareStringOrdinal(outer.c_str(), length, inner.c_str(), length, TRUE) == CSTR_EQUAL;
}

bool SameKindAndSize(const fs::path& source, const fs::path& copy) {
  std::error_code error;
  if (fs::is_directory(source, error)) return fs::is_directory(copy, error);
  return fs::is_regular_file(copy, error) &&
         fs::file_size(source, error) == fs::file_size(copy, error) && !error;
}

}  // namespace

std::wstring FullPath(const std::wstring& path) {
  std::wstring full(kMaxUnits, L'\0');
  full.resize(GetFullPathNameW(path.c_str(), kMaxUnits, full.data(), nullptr));
  while (full.size() > 3 && full.back() == L'\\') full.pop_back();
  if (full.size() < 3 || full.find_first_of(L":*?\"<>|", 2) != std::wstring::npos ||
      Utf8ToWide(WideToUtf8(full)) != full) {
    throw BadArguments(path, "is not the path of a file or folder.");
  }
  return full;
}

Copy CheckedCopy(const std::wstring& source, const std::wstring& destination) {
  Copy copy = {FullPath(source), FullPath(destination)};
  const auto refuseIf = [](bool wrong, const char* why) {
    if (wrong) throw BadArguments(why);
  };
  std::error_code ignored;
  refuseIf(!fs::exists(copy.source, ignored), "The source does not exist.");
  copy.isFolder = fs::is_directory(copy.source, ignored);
  const bool namesFolder = destination.back() == L'\\' || destination.back() == L'/';
  refuseIf(copy.isFolder ? fs::is_regular_file(copy.destination, ignored)
                         : namesFolder || fs::is_directory(copy.destination, ignored),
           "A file must be copied to a file, a folder to a folder.");

  const std::wstring from = RealPath(copy.source);
  const std::wstring to = RealPath(copy.destination);
  refuseIf(Holds(from, to) || Holds(to, from),
           "The destination must not be, hold or lie inside its own source.");
  refuseIf(PathIsRootW(copy.destination.c_str()), "The copy would replace a whole drive.");

  if (copy.isFolder) copy.source = WithSeparator(copy.source);
  if (copy.isFolder) copy.destination = WithSeparator(copy.destination);
  return copy;
}

bool WasCopied(const Copy& copy) {
  bool same = SameKindAndSize(copy.source, copy.destination);
  std::error_code error;
  fs::recursive_directory_iterator entry;
  if (copy.isFolder) entry = fs::recursive_directory_iterator(copy.source, error);
  for (; same && !error && entry != end(entry); entry.increment(error)) {
    const std::wstring path = entry->path().wstring();
    same = SameKindAndSize(path, copy.destination + path.substr(copy.source.size()));
  }
  return same && !error;
}
