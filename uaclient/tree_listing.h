// What lies in a folder, in the order in which the helper comes across it.
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

  // File systems round times, by up to two seconds.
  bool Matches(const FileState& other) const;
};

struct TreeEntry {
  std::wstring path;  // below the folder, with "\" between its parts
  bool isFolder = false;
  bool isLink = false;
  FileState state;
};

struct TreeListing {
  std::vector<TreeEntry> entries;  // a folder ahead of what is in it
  // Folders that could not be read, "" for the folder itself; links behind links in a source.
  std::vector<std::wstring> unlisted;
};

// How links to folders are treated: as the helper does in a source, where the first one on a way
// down is followed, or in a destination, where none is.
enum class Links { kFollowedOnce, kNotFollowed };

// `folder` has a separator at its end.
TreeListing ListTree(const std::wstring& folder, Links links);

// Whether the helper takes the entry for a link.
bool IsLink(const WIN32_FIND_DATAW& entry);

// False when nothing is there or it is a folder.
bool ReadFileState(const std::wstring& path, FileState& state);

}  // namespace uaclient
