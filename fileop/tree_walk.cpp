#include "fileop/tree_walk.h"

#include <winternl.h>

#include <algorithm>
#include <cwchar>
#include <optional>
#include <tuple>
#include <utility>

#include "fileop/file_system.h"

namespace fileop {
namespace {

constexpr std::size_t kPathUnits = 260;  // the terminator included
constexpr DWORD kForEverybody = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// The path of an entry in a folder. Nothing may be done under a path that is not usable, because
// the walk would never end or would leave its tree. A path that does not fit has been cut and names
// something else: a sibling, the folder itself or one above it. So does a path with a separator in
// the entry's name, which other systems allow. Formats use "\", because behind "\\?\" nothing else
// separates.
struct EntryPath {
  EntryPath(const wchar_t* format, const std::wstring& directory, const wchar_t* name)
      : usable(FormatWidePath(text, kPathUnits, format, directory.c_str(), name) >= 0 &&
               std::wcspbrk(name, L"/\\:") == nullptr) {}

  wchar_t text[kPathUnits] = {};
  bool usable;
};

// How a folder is held. That goes together with programs that have it as their current directory or
// watch it for changes, but not with one that is about to remove or rename it.
constexpr DWORD kHoldAccess = FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES;
constexpr DWORD kHoldSharing = FILE_SHARE_READ | FILE_SHARE_WRITE;

// What to open where a link stands.
constexpr DWORD kTheLink = FILE_FLAG_OPEN_REPARSE_POINT;
constexpr DWORD kItsTarget = 0;

Handle OpenFolder(const std::wstring& path, DWORD access, DWORD sharing, DWORD flags = kTheLink) {
  const HANDLE handle = CreateFileW(path.c_str(), access, sharing, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr);
  return Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

// Opens an entry by its name relative to the held folder, because a path could lead elsewhere by
// now. `kind` is FILE_DIRECTORY_FILE or FILE_NON_DIRECTORY_FILE. Where a link stands, opens the
// link itself.
Handle OpenIn(const Folder& folder, const wchar_t* name, DWORD access, DWORD sharing, ULONG kind) {
  constexpr ULONG kFollowNothing = 0x1000;  // OBJ_DONT_REPARSE
  constexpr NTSTATUS kInvalidParameter = static_cast<NTSTATUS>(0xC000000D);
  UNICODE_STRING text = {};
  text.Buffer = const_cast<wchar_t*>(name);
  text.Length = text.MaximumLength = static_cast<USHORT>(std::wcslen(name) * sizeof(wchar_t));
  OBJECT_ATTRIBUTES attributes;
  InitializeObjectAttributes(&attributes, &text, kFollowNothing, folder.Held(), nullptr);
  const auto open = [&] {
    IO_STATUS_BLOCK status;
    HANDLE handle = nullptr;
    const NTSTATUS result = NtCreateFile(
        &handle, access | SYNCHRONIZE, &attributes, &status, nullptr, 0, sharing, FILE_OPEN,
        kind | FILE_OPEN_REPARSE_POINT | FILE_OPEN_FOR_BACKUP_INTENT | FILE_SYNCHRONOUS_IO_NONALERT,
        nullptr, 0);
    return std::make_pair(result, Handle(result < 0 ? nullptr : handle));
  };
  auto opened = open();
  if (opened.first == kInvalidParameter) {  // older systems do not know the flag
    attributes.Attributes = 0;
    opened = open();
  }
  return std::move(opened.second);
}

// Asks for the tag only where there is one, because FAT does not support the query.
Link LinkWith(DWORD attributes, HANDLE handle) {
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return Link::kNo;
  FILE_ATTRIBUTE_TAG_INFO info = {};
  if (handle == nullptr ||
      !GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &info, sizeof info)) {
    return Link::kMaybe;
  }
  return IsLinkTag(attributes, info.ReparseTag) ? Link::kYes : Link::kNo;
}

Link LinkHeldBy(HANDLE handle) {
  BY_HANDLE_FILE_INFORMATION info;
  if (!GetFileInformationByHandle(handle, &info)) return Link::kMaybe;
  return LinkWith(info.dwFileAttributes, handle);
}

// A drive keeps its separator: without it the path would mean the drive's current directory.
std::wstring WithoutSeparator(const std::wstring& path) {
  const std::size_t end = path.find_last_not_of(L"/\\");
  return end == std::wstring::npos || path[end] == L':' ? path : path.substr(0, end + 1);
}

// Whether a link stands at the path, which may end in a separator. None where nothing is there.
Link LinkAt(const std::wstring& path) {
  const std::wstring bare = WithoutSeparator(path);
  const DWORD attributes = GetFileAttributesW(bare.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    const DWORD error = GetLastError();
    const bool isMissing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    return isMissing ? Link::kNo : Link::kMaybe;
  }
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return Link::kNo;
  return LinkWith(attributes, OpenFolder(bare, FILE_READ_ATTRIBUTES, kForEverybody).get());
}

// What tells a folder from all others while it exists. None where the file system has no numbers.
std::optional<std::tuple<DWORD, DWORD, DWORD>> IdentityOf(HANDLE folder) {
  BY_HANDLE_FILE_INFORMATION info;
  if (folder == nullptr || !GetFileInformationByHandle(folder, &info)) return std::nullopt;
  if (info.nFileIndexHigh == 0 && info.nFileIndexLow == 0) return std::nullopt;
  return std::make_tuple(info.dwVolumeSerialNumber, info.nFileIndexHigh, info.nFileIndexLow);
}

// Both give the folder's full path, with a separator at its end: as it was given, and with all
// links above it resolved. The latter is "" on a volume that has no drive letter and is mounted
// nowhere.
std::wstring FullPath(const std::wstring& folder) {
  const DWORD size = GetFullPathNameW(folder.c_str(), 0, nullptr, nullptr);
  std::wstring path(size, L'\0');
  path.resize(GetFullPathNameW(folder.c_str(), size, path.data(), nullptr));
  return path;
}

std::wstring FinalPath(HANDLE folder) {
  const DWORD size = GetFinalPathNameByHandleW(folder, nullptr, 0, FILE_NAME_OPENED);
  std::wstring path(size, L'\0');
  path.resize(GetFinalPathNameByHandleW(folder, path.data(), size, FILE_NAME_OPENED));
  if (!path.empty() && path.back() != L'\\') path += L'\\';
  return path;
}

bool IsDirectoryEntry(const WIN32_FIND_DATAW& entry) {
  return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsEmpty(const Folder& folder) {
  Listing entries(folder.Path());
  return entries.Next() == nullptr && entries.IsComplete();
}

// How a directory is copied.
struct CopyMode {
  bool recurse;
  bool behindLink;  // a link led here
};

bool CopyOneFile(const Folder& source, const Folder& destination, bool wasEmpty,
                 const wchar_t* name) {
  const EntryPath from(L"%s%s", source.Path(), name);
  const EntryPath to(L"%s%s", destination.Path(), name);
  if (!from.usable || !to.usable) return false;
  // A link would lead the copy out of the destination. In a folder that was empty, whatever is
  // there now came later and is not replaced.
  if (!wasEmpty && LinkAt(to.text) != Link::kNo) return false;
  return CopyFileW(from.text, to.text, wasEmpty) != FALSE;
}

bool CopyEntries(Source& source, const Folder& destination, CopyMode mode);

bool CopySubdirectory(const Folder& source, const Folder& destination, const wchar_t* name,
                      CopyMode mode) {
  const EntryPath created(L"%s%s", destination.Path(), name);
  if (!created.usable) return false;
  if (!CreateDirectoryW(created.text, nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    return false;
  }
  const EntryPath fromPath(L"%s%s\\", source.Path(), name);
  const EntryPath toPath(L"%s%s\\", destination.Path(), name);
  if (!fromPath.usable || !toPath.usable) return false;

  Source from(fromPath.text);
  const Folder to(toPath.text);
  if (!from.folder.IsHeld() || to.IsLink()) return false;
  // Links behind links can multiply the tree without end.
  if (from.folder.IsLink() && mode.behindLink) return false;
  mode.behindLink = mode.behindLink || from.folder.IsLink();
  return CopyEntries(from, to, mode);
}

bool CopyEntries(Source& source, const Folder& destination, CopyMode mode) {
  // With nowhere to go, every entry fails; an empty source has none.
  if (!destination.IsHeld()) return IsEmpty(source.folder);

  bool result = true;
  const bool wasEmpty = IsEmpty(destination);
  while (const WIN32_FIND_DATAW* entry = source.entries.Next()) {
    const wchar_t* const name = entry->cFileName;
    if (mode.recurse && IsDirectoryEntry(*entry)) {
      // A subdirectory's result replaces that of everything before it, even a failure.
      result = CopySubdirectory(source.folder, destination, name, mode);
    } else if (!CopyOneFile(source.folder, destination, wasEmpty, name)) {
      result = false;
    }
  }
  return result && source.entries.IsComplete();
}

// What a mode of RemoveDirectoryTree removes.
bool RemovesFiles(std::int32_t mode) { return mode < 2; }
bool RemovesDirectories(std::int32_t mode) { return (mode & ~0x2) == 0; }

bool Delete(HANDLE entry) {
  // First try to remove the name at once, even if others have the entry open. Older systems and
  // some file systems can only remove it when its last handle is closed.
  constexpr auto kDispositionInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
  DWORD atOnce = 0x1 | 0x2;  // FILE_DISPOSITION_DELETE, FILE_DISPOSITION_POSIX_SEMANTICS
  FILE_DISPOSITION_INFO later = {TRUE};
  return SetFileInformationByHandle(entry, kDispositionInfoEx, &atOnce, sizeof atOnce) ||
         SetFileInformationByHandle(entry, FileDispositionInfo, &later, sizeof later);
}

bool RemoveFile(const Folder& folder, const wchar_t* name) {
  constexpr DWORD kDelete = DELETE;
  for (const DWORD access : {kDelete | FILE_WRITE_ATTRIBUTES, kDelete}) {
    const Handle file = OpenIn(folder, name, access, kForEverybody, FILE_NON_DIRECTORY_FILE);
    if (!file) continue;
    FILE_BASIC_INFO normal = {};
    normal.FileAttributes = FILE_ATTRIBUTE_NORMAL;  // so that read-only files can go
    SetFileInformationByHandle(file.get(), FileBasicInfo, &normal, sizeof normal);
    return Delete(file.get());
  }
  return false;
}

bool RemoveEntries(const Folder& folder, Listing& entries, std::int32_t mode);

// Empties the folder, lets go of it and removes it by `removeItself`, as far as the mode allows.
template <typename Remove>
bool RemoveFolder(Folder folder, std::int32_t mode, Remove removeItself) {
  if (!folder.IsHeld()) return false;
  if (folder.IsLink()) {
    // Only the link goes. Deleting through it would leave the tree.
    folder.LetGo();
    return RemovesDirectories(mode) ? removeItself() : folder.IsLinkForSure();
  }
  bool result = false;
  {
    Listing entries(folder.Path());
    if (!entries.IsOpen() && !entries.IsComplete()) return false;
    result = RemoveEntries(folder, entries, mode);
  }
  folder.LetGo();
  if (RemovesDirectories(mode)) removeItself();
  return result;
}

bool RemoveEntry(const Folder& folder, const WIN32_FIND_DATAW& entry, std::int32_t mode) {
  const wchar_t* const name = entry.cFileName;
  const bool isDirectory = IsDirectoryEntry(entry);
  const EntryPath path(isDirectory ? L"%s%s\\" : L"%s%s", folder.Path(), name);
  if (!path.usable) return false;
  if (!isDirectory) return RemoveFile(folder, name);
  return RemoveFolder(Folder(folder, name, path.text), mode, [&] {
    const Handle emptied = OpenIn(folder, name, DELETE, kForEverybody, FILE_DIRECTORY_FILE);
    return emptied && Delete(emptied.get());
  });
}

bool RemoveEntries(const Folder& folder, Listing& entries, std::int32_t mode) {
  bool result = true;
  while (const WIN32_FIND_DATAW* entry = entries.Next()) {
    if (IsDirectoryEntry(*entry) || RemovesFiles(mode)) result = RemoveEntry(folder, *entry, mode);
  }
  return result && entries.IsComplete();
}

}  // namespace

bool IsLinkTag(DWORD attributes, DWORD tag) {
  return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         (tag == 0 || IsReparseTagNameSurrogate(tag));
}

// Looks for a link by the held handle and by the path, because under Wine the handle is that of the
// link's target.
Folder::Folder(const std::wstring& path)
    : path_(path),
      hold_(OpenFolder(path, kHoldAccess, kHoldSharing)),
      link_(IsHeld() ? std::max(LinkHeldBy(Held()), LinkAt(path)) : Link::kNo) {}

Folder::Folder(const Folder& parent, const wchar_t* name, const std::wstring& path)
    : path_(path),
      hold_(OpenIn(parent, name, kHoldAccess, kHoldSharing, FILE_DIRECTORY_FILE)),
      link_(IsHeld() ? std::max(LinkHeldBy(Held()), LinkAt(path)) : Link::kNo) {}

Listing::Listing(const std::wstring& folder) {
  EntryPath pattern(L"%s%s", folder, L"*.*");
  // If this pattern does not fit, a shorter one that matches the same may.
  if (!pattern.usable) pattern = EntryPath(L"%s%s", folder, L"*");
  error_ = ERROR_FILENAME_EXCED_RANGE;
  if (!pattern.usable) return;
  const HANDLE find = FindFirstFileW(pattern.text, &entry_);
  error_ = GetLastError();
  if (find == INVALID_HANDLE_VALUE) return;
  find_.reset(find);
  isFirst_ = true;
}

const WIN32_FIND_DATAW* Listing::Next() {
  if (!IsOpen()) return nullptr;
  while (isFirst_ || FindNextFileW(find_.get(), &entry_)) {
    isFirst_ = false;
    const bool itself = std::wcscmp(entry_.cFileName, L".") == 0;
    const bool parent = std::wcscmp(entry_.cFileName, L"..") == 0;
    if (!itself && !parent) return &entry_;
  }
  error_ = GetLastError();
  return nullptr;
}

bool Listing::IsComplete() const {
  return error_ == ERROR_NO_MORE_FILES || (!IsOpen() && error_ == ERROR_FILE_NOT_FOUND);
}

bool LiesIn(const std::wstring& folder, const Folder& outer) {
  if (!outer.IsHeld()) return true;
  const auto wanted = IdentityOf(outer.Held());
  if (!wanted) return false;
  const auto open = [](const std::wstring& path, DWORD flags) {
    return OpenFolder(path, FILE_READ_ATTRIBUTES, kForEverybody, flags);
  };
  for (const std::wstring& path : {FullPath(folder), FinalPath(open(folder, kTheLink).get()),
                                   FinalPath(open(folder, kItsTarget).get())}) {
    // Compares the folder and every one above it.
    for (std::size_t end = path.size(); end > 1; end = path.find_last_of(L'\\', end - 2) + 1) {
      if (IdentityOf(open(path.substr(0, end), kItsTarget).get()) == wanted) return true;
    }
  }
  return false;
}

bool CopyTree(Source& source, const Folder& destination, bool recurse) {
  return CopyEntries(source, destination, {recurse, false});
}

bool RemoveTree(const std::wstring& directory, std::int32_t mode) {
  return RemoveFolder(Folder(directory), mode, [&] {
    return RemoveDirectoryW(WithoutSeparator(directory).c_str()) != FALSE;
  });
}

}  // namespace fileop
