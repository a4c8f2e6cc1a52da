// Which paths are the same place. The file system is asked, never the spelling: drive letters,
// shares, short names, links and letter case all come to that.
#pragma once

#include <windows.h>

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "uaclient/tree.h"
#include "uaclient/win32.h"

namespace uaclient {

struct Folder {
  bool exists = false;
  bool isFile = false;  // a file stands there
  DWORD error = 0;      // why it is not known what this is; 0 when it is, or is missing
  std::wstring path;    // where it leads, in the system's own spelling
  // Its own, then those of the folders above it: volume and index, and where there is no such
  // folder or the system gives no numbers, the name below the folder above. The same folder has the
  // same keys while none comes or goes.
  std::vector<std::wstring> keys;

  bool IsInOrIs(const Folder& other) const;
};

// A folder, or a file: by the folder that it lies in and its name in upper case.
struct Spot {
  const Folder* folder = nullptr;
  std::wstring name;

  std::wstring Key() const {
    return name.empty() ? folder->keys[0] : folder->keys[0] + L"\\" + name;
  }
};

using IndexByKey = std::unordered_map<std::wstring, std::size_t>;

// What is at the spot or at a folder above it; not the index that is passed over.
std::optional<std::size_t> FindUpwards(const IndexByKey& indexes, const Spot& spot,
                                       std::size_t passedOver = static_cast<std::size_t>(-1));

// Looks up what there is. Each folder is opened and listed once, however many paths lead into it.
class Folders {
 public:
  // The folder at a full path, links followed. Stays where it is.
  const Folder& At(const std::wstring& fullPath);

  // That folder, or the file, or whatever else is or may be, at a full path that is no root; links
  // not followed.
  Spot SpotOf(const std::wstring& fullPath, bool isFile);

  // What stands at a full path, links not followed; null when nothing does. `spot` is its spot as a
  // file. Where it is not `listed`, the system is asked for this very name: a folder may hold two
  // that differ only in case.
  const Entry* Find(const std::wstring& fullPath, const Spot& spot, bool listed = true);
  const Entry* Find(const std::wstring& path) { return Find(path, SpotOf(path, true)); }

 private:
  struct Listing {
    bool isWhole = false;
    std::unordered_map<std::wstring, Entry> entries;  // by name in upper case
  };

  Listing& ListingOf(const Folder& folder);

  std::unordered_map<std::wstring, Folder> folders_;
  std::unordered_map<const Folder*, Listing> listings_;
  // While a folder is open its number is not given to another one.
  std::vector<Handle> held_;
};

std::wstring UpperCase(std::wstring text);

}  // namespace uaclient
