// A file, or a folder with what lies in it, in the order in which the helper comes across it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace uaclient {

// Size and time of the last change, by which a file is known again.
struct FileState {
  std::uint64_t size = 0;
  std::uint64_t time = 0;  // in the system's units of 100 ns

  bool operator==(const FileState& other) const { return size == other.size && time == other.time; }

  // File systems round times, by up to two seconds.
  bool Matches(const FileState& other) const;
};

// What stands at a path.
struct Entry {
  DWORD attributes = 0;
  bool isFolder = false;
  bool isLink = false;  // by its reparse tag, as the helper tells links
  FileState state;      // of a file
  DWORD error = 0;      // why it cannot be seen; 0 when it can

  // Windows copies over no file that has one of these.
  bool IsProtected() const {
    return (attributes &
            (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) != 0;
  }
};

// What is to be said of such a file, to follow its name.
constexpr wchar_t kIsProtected[] =
    L" is read-only, hidden or a system file, and Windows does not overwrite those. Clear the "
    L"attribute first.";

Entry EntryOf(const WIN32_FIND_DATAW& data);

struct TreeEntry : Entry {
  std::wstring path;  // below the root, with "\" between its parts; empty for the root itself
};

struct TreeListing {
  struct Fault {
    std::wstring path;  // like an entry's
    DWORD error = 0;    // 0 for a link behind a link
  };
  std::vector<TreeEntry> entries;  // the root, then a folder ahead of what is in it
  std::vector<Fault> faults;       // what could not be listed or followed
};

// What is to be said of what could not be listed below this root.
std::wstring InWords(const TreeListing::Fault& fault, const std::wstring& root);

// How links are treated: in a source the first one on a way down from the root is followed, and
// counts as what it leads to; in a destination none is.
enum class Links { kFollowedOnce, kNotFollowed };

// `root` is what stands at the path.
TreeListing ListTree(const std::wstring& fullPath, const Entry& root, Links links);

// The state of a file, links followed. False when nothing is there or it is a folder.
bool ReadFileState(const std::wstring& fullPath, FileState& state);

// Calls visit(data) for every entry of the folder but "." and "..", until it answers false. Returns
// the system's error when not all could be listed, or 0.
template <typename Visit>
DWORD ForEachEntry(const std::wstring& pattern, Visit visit) {
  WIN32_FIND_DATAW data;
  const HANDLE find = FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &data,
                                       FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
  if (find == INVALID_HANDLE_VALUE) return GetLastError();
  DWORD error = 0;
  do {
    const std::wstring name = data.cFileName;
    if (name != L"." && name != L".." && !visit(data)) break;
    if (!FindNextFileW(find, &data)) error = GetLastError();
  } while (error == 0);
  FindClose(find);
  return error == ERROR_NO_MORE_FILES ? 0 : error;
}

}  // namespace uaclient
