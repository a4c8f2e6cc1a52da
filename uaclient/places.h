// Which paths are the same place. The file system is asked, never the spelling: drive letters,
// shares, short names, links and letter case all come to that.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace uaclient {

// Size and time of the last change, by which a file is known again.
struct FileState {
  std::uint64_t size = 0;
  std::uint64_t time = 0;  // in the system's units of 100 ns

  // File systems round times, by up to two seconds.
  bool Matches(const FileState& other) const;
};

// What stands at a path.
struct Entry {
  std::wstring name;
  DWORD attributes = 0;
  bool isFolder = false;
  bool isLink = false;  // by its reparse tag, as the helper tells it
  FileState state;
};

// A folder's number on its volume; 0 where there is none or it is not known.
struct FolderNumber {
  std::uint64_t volume = 0;
  std::uint64_t index = 0;

  explicit operator bool() const { return index != 0; }
  bool operator==(const FolderNumber& other) const {
    return volume == other.volume && index == other.index;
  }
};

// Where a path leads, from its root down.
struct Place {
  struct Level {
    FolderNumber number;  // of a folder that exists
    std::wstring name;    // in upper case
  };
  std::vector<Level> levels;

  // Equal for equal places, as long as no folder comes or goes: the number of the deepest folder
  // that has one and the names below it. `count` levels are looked at.
  std::wstring Key(std::size_t count) const;
  std::wstring Key() const { return Key(levels.size()); }

  Place Below(const std::wstring& name) const;
};

enum class Relation { kApart, kSame, kInside, kHolds };

// How `one` lies to `other`: kInside in it, kHolds around it. Holds for places that were looked at
// at different times: folders may have come and gone in between.
Relation Relate(const Place& one, const Place& other);

// A place that a run needs: files in a folder, or all of it.
struct Claimed {
  Place place;
  bool isWritten = false;
};

// Looks up what there is. Each folder is opened and listed once, however many paths lead into it.
class Folders {
 public:
  struct Folder {
    bool exists = false;
    bool isFile = false;  // a file stands where the folder is looked for
    DWORD error = 0;      // why it cannot be seen; 0 when it can, or is missing
    bool isKnown = false;  // by its number, or by the path that the system gives for it
    Place place;
    std::wstring path;  // where it leads, in the system's own spelling
  };

  const Folder& At(const std::wstring& fullPath);

  // What stands at the path; null when nothing does. A folder that may not be listed is asked for
  // the one entry.
  const Entry* Find(const std::wstring& fullPath);

 private:
  using Entries = std::unordered_map<std::wstring, Entry>;  // by name in upper case

  Folder Look(const std::wstring& fullPath);
  Entries& EntriesOf(const std::wstring& folder);

  std::unordered_map<std::wstring, Folder> folders_;
  std::unordered_map<std::wstring, Entries> entries_;
  std::unordered_map<std::wstring, std::unique_ptr<Entry>> single_;
};

std::wstring UpperCase(std::wstring text);

}  // namespace uaclient
