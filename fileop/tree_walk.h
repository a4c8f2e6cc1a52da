// The walks through folders that copy and remove whole trees, for the other files of this folder.
// Paths are UTF-16; a folder's ends in a separator, because names are appended to it as they stand.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>

namespace fileop {

// Whether attributes and reparse tag are those of a junction or a symbolic link, as opposed to
// reparse points that hold their own content (files kept in the cloud, for instance). Without a
// tag, as Wine reports them, they count as links.
bool IsLinkTag(DWORD attributes, DWORD tag);

// A folder that is open for a walk. While it is, nobody can rename, remove or replace it: what has
// been found out about the folder stays true of its path, also when others may write there. To
// list, to create and to delete in it stays possible for everybody.
class Directory {
 public:
  // Of a link the link itself is held; the entries are those of the folder that it leads to.
  explicit Directory(const std::wstring& path);

  // False when the folder cannot be held, or not be listed by this very path.
  bool IsOpen() const { return find_ != nullptr; }

  // True as well when that cannot be found out.
  bool IsLink() const { return isLink_; }

  const std::wstring& Path() const { return path_; }

  // The next entry but "." and "..", valid until the next call; null behind the last one.
  const WIN32_FIND_DATAW* Next();

 private:
  struct CloseHold {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
  };
  struct CloseFind {
    void operator()(HANDLE handle) const { FindClose(handle); }
  };

  std::wstring path_;
  std::unique_ptr<void, CloseHold> hold_;
  std::unique_ptr<void, CloseFind> find_;
  WIN32_FIND_DATAW entry_ = {};
  bool isFirst_ = false;  // entry_ has been found but not given out
  bool isLink_ = true;
};

// Copies what lies in `source` into `destination`, both open, as CopyDirectoryTree describes it.
bool CopyTree(Directory& source, Directory& destination, bool recurse);

// Removes by the modes of RemoveDirectoryTree, whose result it gives.
bool RemoveTree(const std::wstring& directory, std::int32_t mode);

}  // namespace fileop
