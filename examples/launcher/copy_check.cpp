#include "copy_check.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "arguments.h"

namespace {

namespace fs = std::filesystem;

constexpr DWORD kMaxUnits = 32768;
constexpr std::size_t kMaxHelperPath = 259;

std::wstring WithSeparator(const std::wstring& path) {
  return path.back() == L'\\' ? path : path + L"\\";
}

// Empty when the path cannot be opened.
std::wstring FinalPath(const std::wstring& path) {
  const HANDLE file =
      CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return {};
  std::wstring result(kMaxUnits, L'\0');
  result.resize(GetFinalPathNameByHandleW(file, result.data(), kMaxUnits, VOLUME_NAME_DOS));
  CloseHandle(file);
  if (result.rfind(L"\\\\?\\UNC\\", 0) == 0) return L"\\\\" + result.substr(8);
  return result.rfind(L"\\\\?\\", 0) == 0 ? result.substr(4) : result;
}

// Where a full path leads, whatever links, short names and substituted drives it goes through, as
// far as it exists. Ends in a separator.
std::wstring RealPath(const std::wstring& path) {
  for (std::size_t end = path.size(); end > 2; end = path.rfind(L'\\', end - 2) + 1) {
    const std::wstring real = FinalPath(path.substr(0, end));
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

// "C:\" or "\\server\share\".
bool IsRoot(const std::wstring& realPath) {
  const auto separators = std::count(realPath.begin(), realPath.end(), L'\\');
  return separators <= (realPath.rfind(L"\\\\", 0) == 0 ? 4 : 1);
}

// The helper measures folders in UTF-8.
bool IsTooLong(const std::wstring& path, bool isFolder) {
  return (isFolder ? WideToUtf8(path).size() : path.size()) > kMaxHelperPath;
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

  const bool hasControl = std::any_of(full.begin(), full.end(), [](wchar_t c) { return c < L' '; });
  if (full.size() < 3 || hasControl || full.find_first_of(L":*?\"<>|", 2) != std::wstring::npos ||
      Utf8ToWide(WideToUtf8(full)) != full) {
    throw BadArguments(L"\"" + path + L"\" is not the path of a file or folder.");
  }
  return full;
}

Copy CheckedCopy(const std::wstring& source, const std::wstring& destination) {
  Copy copy = {FullPath(source), FullPath(destination)};
  const auto refuseIf = [](bool wrong, const wchar_t* why) {
    if (wrong) throw BadArguments(why);
  };
  const bool namesFolder = destination.back() == L'\\' || destination.back() == L'/';
  refuseIf(!fs::exists(copy.source), L"The source does not exist.");
  copy.isFolder = fs::is_directory(copy.source);
  refuseIf(copy.isFolder ? fs::is_regular_file(copy.destination)
                         : namesFolder || fs::is_directory(copy.destination),
           L"A file must be copied to a file, a folder to a folder.");

  const std::wstring from = RealPath(copy.source);
  const std::wstring to = RealPath(copy.destination);
  refuseIf(Holds(from, to) || Holds(to, from),
           L"The destination must not be, hold or lie inside its own source.");
  refuseIf(IsRoot(to), L"The copy would replace a whole drive.");

  if (copy.isFolder) copy.source = WithSeparator(copy.source);
  if (copy.isFolder) copy.destination = WithSeparator(copy.destination);
  refuseIf(IsTooLong(copy.source, copy.isFolder) || IsTooLong(copy.destination, copy.isFolder),
           L"The source or the destination is too long a path.");
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
