// Which paths are the same place. The file system is asked, never the spelling: drive letters,
// shares, short names, links and letter case all come to that.
#pragma once

#include <windows.h>

#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "uaclient/tree.h"
#include "uaclient/win32.h"

namespace uaclient {

// A folder's number on its volume.
struct FolderNumber {
  std::uint64_t volume = 0;
  std::uint64_t index = 0;  // 0 where there is no such folder, or no number is given

  bool operator==(const FolderNumber& other) const {
    return volume == other.volume && index == other.index;
  }
};

// Where a path leads, from its root down.
struct Place {
  struct Level {
    FolderNumber number;
    std::wstring name;  // in upper case
  };
  std::vector<Level> levels;
};

// How one place lies to another: in it, around it.
enum class Relation { kApart, kSame, kInside, kHolds };

// Holds for places that were looked at at different times, when folders may have come and gone.
Relation Relate(const Place& one, const Place& other);

// What a run needs of a folder: the files with these names (in upper case), or all of it.
struct Claimed {
  Place folder;
  std::set<std::wstring> names;
  bool isWritten = false;
};

bool Meet(const Claimed& one, const Claimed& other);

struct Folder {
  bool exists = false;
  bool isFile = false;   // a file stands there
  DWORD error = 0;       // why it cannot be seen; 0 when it can, or is missing
  bool isKnown = false;  // by its number or by the path that the system gives for it
  std::wstring path;     // where it leads, in the system's own spelling
  Place place;
  // Its own, then those of the folders above it. Equal for the same folder while none comes or
  // goes: the number of the deepest folder that has one, and the names below that.
  std::vector<std::wstring> keys;

  std::wstring KeyBelow(const std::wstring& name) const { return keys[0] + L"\\" + name; }
};

// Looks up what there is. Each folder is opened and listed once, however many paths lead into it.
class Folders {
 public:
  // The folder at a full path, links followed. Stays where it is.
  const Folder& At(const std::wstring& fullPath);

  // What stands at a full path, links not followed; null when nothing does.
  const Entry* Find(const std::wstring& fullPath);

 private:
  struct Listing {
    bool isWhole = false;
    std::unordered_map<std::wstring, Entry> entries;  // by name in upper case
  };

  Listing& ListingOf(const std::wstring& folder);

  std::unordered_map<std::wstring, Folder> folders_;
  std::unordered_map<std::wstring, Listing> listings_;
  // While a folder is open its number is not given to another one.
  std::vector<Handle> held_;
};

std::wstring UpperCase(std::wstring text);

}  // namespace uaclient
