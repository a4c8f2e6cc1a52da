#include "fileop/file_system.h"

#include <windows.h>

#include <boost/filesystem/path.hpp>
#include <cstdarg>
#include <cwchar>

#include "corekit/text.h"
#include "fileop/tree_walk.h"

namespace {

using fileop::PathText;

constexpr std::size_t kMaxPathBytes = 260;

bool CreateAnsiDir(const char* path) {
  return CreateDirectoryA(path, nullptr) || GetLastError() == ERROR_ALREADY_EXISTS;
}

// Calls `create` for each prefix of the path that ends before a separator. Returns its last result.
template <typename Create>
bool CreateEachPrefix(const char* text, Create create) {
  const std::string path = PathText(text);
  if (text == nullptr || path.size() > kMaxPathBytes) return false;

  bool result = true;
  for (std::size_t cursor = 0; cursor < path.size();) {
    std::size_t separator = path.find('/', cursor);
    if (separator == std::string::npos) separator = path.find('\\', cursor);
    if (separator == std::string::npos) break;
    if (separator > 0) result = create(path.substr(0, separator));
    cursor = separator + 1;
  }
  return result;
}

std::wstring WidePath(const char* path) { return Utf8ToWide(PathText(path)); }

}  // namespace

std::string fileop::PathText(const char* path) { return path != nullptr ? path : ""; }

bool PathExists(const char* path) { return GetPathAttributes(path) != INVALID_FILE_ATTRIBUTES; }

int DeleteFileOrSchedule(const char* path) {
  if (path == nullptr) return 1;
  const std::wstring wide = WidePath(path);
  if (DeleteFileW(wide.c_str())) return 0;
  if (GetLastError() == ERROR_FILE_NOT_FOUND) return 0;
  if (!IsNtPlatform()) return 1;
  MoveFileExW(wide.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
  return 2;
}

#ifdef _MSC_VER
#pragma warning(push)
#pragma warning(disable : 4996)  // GetVersionExA is deprecated, but right about the platform
#endif

bool IsNtPlatform() {
  static const bool isNt = [] {
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof version;
    return GetVersionExA(&version) && version.dwPlatformId == VER_PLATFORM_WIN32_NT;
  }();
  return isNt;
}

#ifdef _MSC_VER
#pragma warning(pop)
#endif

std::uint32_t GetPathAttributes(const char* path) {
  return GetFileAttributesW(WidePath(path).c_str());
}

bool IsDirectory(const char* path) {
  std::string tested = PathText(path).substr(0, kMaxPathBytes);
  if (tested.size() < 2) return false;
  if (tested.size() == 2) {
    if (tested[1] != ':') return false;
    tested += '/';
  } else if (tested.back() == '/') {
    tested.pop_back();
  }
  const std::uint32_t attributes = GetPathAttributes(tested.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool CreateDir(const char* path) {
  return CreateDirectoryW(WidePath(path).c_str(), nullptr) ||
         GetLastError() == ERROR_ALREADY_EXISTS;
}

bool CreateDirTree(const char* path) {
  return CreateEachPrefix(path,
                          [](const std::string& prefix) { return CreateDir(prefix.c_str()); });
}

bool MakeParentDirs(const char* path) {
  return CreateEachPrefix(path,
                          [](const std::string& prefix) { return CreateAnsiDir(prefix.c_str()); });
}

bool CopyFileTo(const char* source, const char* destination, std::int32_t failIfExists) {
  return CopyFileW(WidePath(source).c_str(), WidePath(destination).c_str(), failIfExists != 0) !=
         FALSE;
}

bool CopyDirectoryTree(const char* source, const char* destination, std::int32_t noRecursion) {
  fileop::Source from(WidePath(source));
  const fileop::Folder to(WidePath(destination));
  return from.IsOpen() && fileop::CopyTree(from, to, noRecursion == 0);
}

bool RemoveDirectoryTree(const char* directory, std::int32_t mode) {
  return fileop::RemoveTree(WidePath(directory), mode);
}

void SplitPath(const char* path, std::string* fileName, std::string* parent) {
  const boost::filesystem::path whole(WidePath(path));
  if (fileName != nullptr) *fileName = WideToUtf8(whole.filename().wstring());
  if (parent != nullptr) *parent = WideToUtf8(whole.parent_path().wstring());
}

int FormatWidePath(wchar_t* buffer, std::size_t capacity, const wchar_t* format, ...) {
  if (buffer == nullptr || capacity == 0) return -1;
  va_list arguments;
  va_start(arguments, format);
  const int written = _vsnwprintf(buffer, capacity, format, arguments);
  va_end(arguments);
  if (written >= 0 && static_cast<std::size_t>(written) < capacity) return written;
  buffer[capacity - 1] = L'\0';
  return -1;
}
