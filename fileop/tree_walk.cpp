#include "fileop/tree_walk.h"

#include <cwchar>

#include "fileop/file_system.h"

namespace fileop {
namespace {

constexpr std::size_t kPathUnits = 260;  // the terminator included

// The path of something in a directory. Nothing may be done under one that is not usable, or a walk
// would meet the same folder for ever, or leave the tree that it was given. One that does not fit
// has been cut, and so names something else: a sibling, the directory itself, a folder above it. So
// does one with a name that holds what separates here, as other systems allow it. Behind "\\?\"
// only "\" separates.
struct EntryPath {
  EntryPath(const wchar_t* format, const std::wstring& directory, const wchar_t* name)
      : usable(FormatWidePath(text, kPathUnits, format, directory.c_str(), name) >= 0 &&
               std::wcspbrk(name, L"/\\:") == nullptr) {}

  wchar_t text[kPathUnits] = {};
  bool usable;
};

HANDLE OpenFolder(const std::wstring& path, DWORD access, DWORD sharing) {
  const HANDLE handle =
      CreateFileW(path.c_str(), access, sharing, nullptr, OPEN_EXISTING,
                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

// The tag is asked for only where there is one: FAT does not know the question.
bool IsLinkWith(DWORD attributes, HANDLE handle) {
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
  FILE_ATTRIBUTE_TAG_INFO info = {};
  return handle == nullptr ||
         !GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &info, sizeof info) ||
         IsLinkTag(attributes, info.ReparseTag);
}

bool IsLinkHandle(HANDLE handle) {
  BY_HANDLE_FILE_INFORMATION info;
  return !GetFileInformationByHandle(handle, &info) || IsLinkWith(info.dwFileAttributes, handle);
}

// A drive keeps its separator: without it the path would be the current directory there.
std::wstring WithoutSeparator(const std::wstring& path) {
  const std::size_t end = path.find_last_not_of(L"/\\");
  return end == std::wstring::npos || path[end] == L':' ? path : path.substr(0, end + 1);
}

// Whether a link stands at the path, with or without a separator at its end. What keeps that from
// being found out could be a link, unless nothing is there.
bool IsLinkPath(const std::wstring& path) {
  const std::wstring bare = WithoutSeparator(path);
  const DWORD attributes = GetFileAttributesW(bare.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    const DWORD error = GetLastError();
    return error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND;
  }
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
  const HANDLE handle = OpenFolder(bare, FILE_READ_ATTRIBUTES,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  const bool isLink = IsLinkWith(attributes, handle);
  if (handle != nullptr) CloseHandle(handle);
  return isLink;
}

bool IsDirectoryEntry(const WIN32_FIND_DATAW& entry) {
  return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// How a directory is copied.
struct CopyMode {
  bool recurse;
  bool behindLink;  // the way into it has led through a link
};

bool CopyOneFile(const Directory& source, const Directory& destination, bool wasEmpty,
                 const wchar_t* name) {
  const EntryPath from(L"%s%s", source.Path(), name);
  const EntryPath to(L"%s%s", destination.Path(), name);
  if (!from.usable || !to.usable) return false;
  // A link that was there would lead the copy out of the destination. In a folder that was empty
  // what is there now has come since, and is not replaced.
  if (!wasEmpty && IsLinkPath(to.text)) return false;
  return CopyFileW(from.text, to.text, wasEmpty) != FALSE;
}

bool CopyEntries(Directory& source, Directory& destination, CopyMode mode);

bool CopySubdirectory(const Directory& source, const Directory& destination, const wchar_t* name,
                      CopyMode mode) {
  const EntryPath created(L"%s%s", destination.Path(), name);
  if (!created.usable) return false;
  if (!CreateDirectoryW(created.text, nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    return false;
  }
  const EntryPath fromPath(L"%s%s\\", source.Path(), name);
  const EntryPath toPath(L"%s%s\\", destination.Path(), name);
  if (!fromPath.usable || !toPath.usable) return false;

  Directory from(fromPath.text);
  Directory to(toPath.text);
  if (!from.IsOpen() || !to.IsOpen() || to.IsLink()) return false;
  // Links that lead to links can multiply the tree without end.
  if (from.IsLink() && mode.behindLink) return false;
  mode.behindLink = mode.behindLink || from.IsLink();
  return CopyEntries(from, to, mode);
}

bool CopyEntries(Directory& source, Directory& destination, CopyMode mode) {
  bool result = true;
  const bool wasEmpty = destination.Next() == nullptr;
  while (const WIN32_FIND_DATAW* entry = source.Next()) {
    const wchar_t* const name = entry->cFileName;
    if (mode.recurse && IsDirectoryEntry(*entry)) {
      // A subdirectory's result stands for everything before it, failures among it included.
      result = CopySubdirectory(source, destination, name, mode);
    } else if (!CopyOneFile(source, destination, wasEmpty, name)) {
      result = false;
    }
  }
  return result;
}

// What a mode of RemoveDirectoryTree removes.
bool RemovesFiles(std::int32_t mode) { return mode < 2; }
bool RemovesDirectories(std::int32_t mode) { return (mode & ~0x2) == 0; }

bool RemoveFile(const wchar_t* path) {
  SetFileAttributesW(path, FILE_ATTRIBUTE_NORMAL);  // so that read-only files can go
  return DeleteFileW(path) != FALSE;
}

bool RemoveEntry(const Directory& directory, const WIN32_FIND_DATAW& entry, std::int32_t mode) {
  const bool isDirectory = IsDirectoryEntry(entry);
  const EntryPath path(isDirectory ? L"%s%s\\" : L"%s%s", directory.Path(), entry.cFileName);
  if (!path.usable) return false;
  return isDirectory ? RemoveTree(path.text, mode) : RemoveFile(path.text);
}

}  // namespace

bool IsLinkTag(DWORD attributes, DWORD tag) {
  return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         (tag == 0 || IsReparseTagNameSurrogate(tag));
}

// Whoever has the folder as current directory or watches it for changes shares it for reading; only
// one who is about to remove or rename it is in the way. The link is looked for by the held handle,
// and by the path as well, because Wine's handles are those of what a link leads to.
Directory::Directory(const std::wstring& path)
    : path_(path),
      hold_(OpenFolder(path, FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE)) {
  if (hold_ == nullptr) return;
  EntryPath pattern(L"%s%s", path_, L"*.*");
  // Where the whole pattern no longer fits a shorter one that matches the same may.
  if (!pattern.usable) pattern = EntryPath(L"%s%s", path_, L"*");
  if (!pattern.usable) return;
  const HANDLE find = FindFirstFileW(pattern.text, &entry_);
  if (find == INVALID_HANDLE_VALUE) return;
  find_.reset(find);
  isFirst_ = true;
  isLink_ = IsLinkHandle(hold_.get()) || IsLinkPath(path_);
}

const WIN32_FIND_DATAW* Directory::Next() {
  while (isFirst_ || FindNextFileW(find_.get(), &entry_)) {
    isFirst_ = false;
    const bool itself = std::wcscmp(entry_.cFileName, L".") == 0;
    const bool parent = std::wcscmp(entry_.cFileName, L"..") == 0;
    if (!itself && !parent) return &entry_;
  }
  return nullptr;
}

bool CopyTree(Directory& source, Directory& destination, bool recurse) {
  return CopyEntries(source, destination, {recurse, false});
}

bool RemoveTree(const std::wstring& directory, std::int32_t mode) {
  if (IsLinkPath(directory)) {
    // The link goes, and what it leads to stays: deleting through it would reach out of the tree.
    return !RemovesDirectories(mode) || RemoveDirectoryW(WithoutSeparator(directory).c_str());
  }
  bool result = true;
  {
    Directory open(directory);
    if (!open.IsOpen() || open.IsLink()) return false;  // a link may have come since
    while (const WIN32_FIND_DATAW* entry = open.Next()) {
      if (IsDirectoryEntry(*entry) || RemovesFiles(mode)) result = RemoveEntry(open, *entry, mode);
    }
  }
  if (RemovesDirectories(mode)) RemoveDirectoryW(directory.c_str());
  return result;
}

}  // namespace fileop
