#include "fileop/file_system.h"

#include <windows.h>

#include <boost/filesystem/path.hpp>
#include <cstdarg>
#include <cstring>
#include <cwchar>

#include "corekit/text.h"

namespace {

constexpr std::size_t kMaxPathBytes = 260;
constexpr std::size_t kPathUnits = 260;  // the terminator included

bool CreateWideDir(const wchar_t* path) {
  return CreateDirectoryW(path, nullptr) || GetLastError() == ERROR_ALREADY_EXISTS;
}

bool CreateAnsiDir(const char* path) {
  return CreateDirectoryA(path, nullptr) || GetLastError() == ERROR_ALREADY_EXISTS;
}

// Calls `create` for each prefix of the path that ends before a separator; returns its last result.
template <typename Create>
bool CreateEachPrefix(const std::string& path, Create create) {
  if (path.size() > kMaxPathBytes) return false;

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

// The path of something in a directory. One that does not fit has been cut, and so names something
// else: a sibling, the directory itself, a folder above it. Nothing may be done under such a name,
// or a walk would meet the same folder for ever, or leave the tree that it was given.
struct EntryPath {
  EntryPath(const wchar_t* format, const std::wstring& directory, const wchar_t* name)
      : fits(FormatWidePath(text, kPathUnits, format, directory.c_str(), name) >= 0) {}

  wchar_t text[kPathUnits] = {};
  bool fits;
};

class FindHandle {
 public:
  FindHandle(const wchar_t* pattern, WIN32_FIND_DATAW& first)
      : handle_(FindFirstFileW(pattern, &first)) {}
  ~FindHandle() {
    if (IsOpen()) FindClose(handle_);
  }
  FindHandle(const FindHandle&) = delete;
  FindHandle& operator=(const FindHandle&) = delete;

  bool IsOpen() const { return handle_ != INVALID_HANDLE_VALUE; }
  bool Next(WIN32_FIND_DATAW& entry) { return FindNextFileW(handle_, &entry) != FALSE; }

 private:
  HANDLE handle_;
};

// Calls `visit` for each entry of the directory but "." and "..". False when it cannot be read.
template <typename Visit>
bool ForEachEntry(const std::wstring& directory, Visit visit) {
  EntryPath pattern(L"%s%s", directory, L"*.*");
  // Where the whole pattern no longer fits a shorter one that matches the same may.
  if (!pattern.fits) pattern = EntryPath(L"%s%s", directory, L"*");
  if (!pattern.fits) return false;

  WIN32_FIND_DATAW entry;
  FindHandle find(pattern.text, entry);
  if (!find.IsOpen()) return false;
  do {
    const bool itself = std::wcscmp(entry.cFileName, L".") == 0;
    const bool parent = std::wcscmp(entry.cFileName, L"..") == 0;
    if (!itself && !parent) visit(entry);
  } while (find.Next(entry));
  return true;
}

bool IsDirectoryEntry(const WIN32_FIND_DATAW& entry) {
  return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// A junction or a symbolic link, as opposed to reparse points that hold their own content (files
// kept in the cloud, for instance). Wine reports links without their tag.
bool IsLink(const WIN32_FIND_DATAW& entry) {
  const DWORD tag = entry.dwReserved0;
  return (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         (tag == 0 || IsReparseTagNameSurrogate(tag));
}

// For a path without a separator at its end.
bool IsLinkPath(const std::wstring& path) {
  WIN32_FIND_DATAW entry;
  return FindHandle(path.c_str(), entry).IsOpen() && IsLink(entry);
}

bool IsEmptyDirectory(const std::wstring& directory) {
  bool isEmpty = true;
  return ForEachEntry(directory, [&](const WIN32_FIND_DATAW&) { isEmpty = false; }) && isEmpty;
}

// How a directory is copied.
struct CopyMode {
  bool recurse;
  bool behindLink;        // the way into it has led through a link
  bool intoNewDirectory;  // the destination was empty at the start
};

bool CopyTree(const std::wstring& source, const std::wstring& destination, CopyMode mode);

bool CopyOneFile(const std::wstring& source, const std::wstring& destination, const wchar_t* name,
                 CopyMode mode) {
  const EntryPath from(L"%s%s", source, name);
  const EntryPath to(L"%s%s", destination, name);
  if (!from.fits || !to.fits) return false;
  // A link that was there would lead the copy out of the destination.
  if (!mode.intoNewDirectory && IsLinkPath(to.text)) return false;
  return CopyFileW(from.text, to.text, FALSE) != FALSE;
}

bool CopySubdirectory(const std::wstring& source, const std::wstring& destination,
                      const WIN32_FIND_DATAW& entry, CopyMode mode) {
  const EntryPath created(L"%s%s", destination, entry.cFileName);
  if (!created.fits) return false;
  mode.intoNewDirectory = CreateDirectoryW(created.text, nullptr) != FALSE;
  if (!mode.intoNewDirectory &&
      (GetLastError() != ERROR_ALREADY_EXISTS || IsLinkPath(created.text))) {
    return false;
  }
  // Links that lead to links can multiply the tree without end.
  if (IsLink(entry) && mode.behindLink) return false;
  mode.behindLink = mode.behindLink || IsLink(entry);

  const EntryPath from(L"%s%s/", source, entry.cFileName);
  const EntryPath to(L"%s%s/", destination, entry.cFileName);
  return from.fits && to.fits && CopyTree(from.text, to.text, mode);
}

bool CopyTree(const std::wstring& source, const std::wstring& destination, CopyMode mode) {
  bool result = true;
  const bool found = ForEachEntry(source, [&](const WIN32_FIND_DATAW& entry) {
    if (mode.recurse && IsDirectoryEntry(entry)) {
      // A subdirectory's result stands for everything before it, failures among it included.
      result = CopySubdirectory(source, destination, entry, mode);
    } else if (!CopyOneFile(source, destination, entry.cFileName, mode)) {
      result = false;
    }
  });
  return found && result;
}

// What a mode of RemoveDirectoryTree removes.
bool RemovesFiles(std::int32_t mode) { return mode < 2; }
bool RemovesDirectories(std::int32_t mode) { return (mode & ~0x2) == 0; }

bool RemoveTree(const std::wstring& directory, std::int32_t mode);

// A link goes, and what it leads to stays: deleting through it would reach out of the tree.
bool RemoveLink(const wchar_t* path, std::int32_t mode) {
  return !RemovesDirectories(mode) || RemoveDirectoryW(path);
}

bool RemoveFile(const wchar_t* path) {
  SetFileAttributesW(path, FILE_ATTRIBUTE_NORMAL);  // so that read-only files can go
  return DeleteFileW(path) != FALSE;
}

bool RemoveTree(const std::wstring& directory, std::int32_t mode) {
  bool result = true;
  const bool found = ForEachEntry(directory, [&](const WIN32_FIND_DATAW& entry) {
    const bool isTree = IsDirectoryEntry(entry) && !IsLink(entry);
    if (!IsDirectoryEntry(entry) && !RemovesFiles(mode)) return;

    const EntryPath path(isTree ? L"%s%s/" : L"%s%s", directory, entry.cFileName);
    if (!path.fits) {
      result = false;
    } else if (isTree) {
      result = RemoveTree(path.text, mode);
    } else if (IsDirectoryEntry(entry)) {
      result = RemoveLink(path.text, mode);
    } else {
      result = RemoveFile(path.text);
    }
  });
  if (!found) return false;
  if (RemovesDirectories(mode)) RemoveDirectoryW(directory.c_str());
  return result;
}

}  // namespace

bool PathExists(const char* path) { return GetPathAttributes(path) != INVALID_FILE_ATTRIBUTES; }

int DeleteFileOrSchedule(const char* path) {
  const std::wstring wide = Utf8ToWide(path);
  if (DeleteFileW(wide.c_str())) return 0;
  if (GetLastError() == ERROR_FILE_NOT_FOUND) return 0;
  if (!IsNtPlatform()) return 1;
  MoveFileExW(wide.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
  return 2;
}

#ifdef _MSC_VER
#pragma warning(push)
#pragma warning(disable : 4996)  // GetVersionExA: deprecated, but it tells the platform right
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
  return GetFileAttributesW(Utf8ToWide(path).c_str());
}

bool IsDirectory(const char* path) {
  if (path == nullptr) return false;
  std::string tested(path, strnlen(path, kMaxPathBytes));
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

bool CreateDir(const char* path) { return CreateWideDir(Utf8ToWide(path).c_str()); }

bool CreateDirTree(const char* path) {
  return CreateEachPrefix(path,
                          [](const std::string& prefix) { return CreateDir(prefix.c_str()); });
}

bool MakeParentDirs(const char* path) {
  return CreateEachPrefix(path,
                          [](const std::string& prefix) { return CreateAnsiDir(prefix.c_str()); });
}

bool CopyFileTo(const char* source, const char* destination, std::int32_t failIfExists) {
  return CopyFileW(Utf8ToWide(source).c_str(), Utf8ToWide(destination).c_str(),
                   failIfExists != 0) != FALSE;
}

bool CopyDirectoryTree(const char* source, const char* destination, std::int32_t noRecursion) {
  const std::wstring from = Utf8ToWide(source);
  const std::wstring to = Utf8ToWide(destination);
  // Text that is no path would stand for the current directory.
  if (from.empty() || to.empty()) return false;
  return CopyTree(from, to, {noRecursion == 0, false, IsEmptyDirectory(to)});
}

bool RemoveDirectoryTree(const char* directory, std::int32_t mode) {
  const std::wstring wide = Utf8ToWide(directory);
  if (wide.empty()) return false;
  const std::wstring bare = wide.substr(0, wide.find_last_not_of(L"/\\") + 1);
  return IsLinkPath(bare) ? RemoveLink(bare.c_str(), mode) : RemoveTree(wide, mode);
}

void SplitPath(const char* path, std::string* fileName, std::string* parent) {
  const boost::filesystem::path whole(Utf8ToWide(path));
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
