// The walks that copy and remove whole trees, for the other files of this folder. Paths are UTF-16.
// A folder's path ends in a separator, because names are appended to it as they stand.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>

namespace fileop {

// Whether attributes and reparse tag are those of a junction or a symbolic link. Other reparse
// points hold content of their own, such as files kept in the cloud. A reparse point without a tag
// counts as a link, because Wine reports links so.
bool IsLinkTag(DWORD attributes, DWORD tag);

// Whether a link stands somewhere. It may, where that cannot be found out.
enum class Link { kNo, kMaybe, kYes };

struct HandleCloser {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

// A folder that is held open, so that nobody can rename, remove or replace it. Others can still
// list it, and create and delete entries in it. On NTFS, whoever may add files to it or write its
// attributes can turn it into a junction while it is empty: its path then leads elsewhere, but its
// handle does not.
class Folder {
 public:
  // Where a link stands, the link itself is held.
  explicit Folder(const std::wstring& path);

  // Holds the folder of this name in `parent`, wherever `path` leads by now.
  Folder(const Folder& parent, const wchar_t* name, const std::wstring& path);

  bool IsHeld() const { return hold_ != nullptr; }

  // What may be a link is treated as one.
  bool IsLink() const { return link_ != Link::kNo; }
  bool IsLinkForSure() const { return link_ == Link::kYes; }

  const std::wstring& Path() const { return path_; }
  HANDLE Held() const { return hold_.get(); }
  void LetGo() { hold_.reset(); }

 private:
  std::wstring path_;
  Handle hold_;
  Link link_;
};

// Lists a folder's entries by its path.
class Listing {
 public:
  explicit Listing(const std::wstring& folder);

  // False when the folder cannot be listed by this path, and for an empty drive: nothing is found
  // there, not even ".".
  bool IsOpen() const { return find_ != nullptr; }

  // The next entry except "." and "..", valid until the next call; null after the last one.
  const WIN32_FIND_DATAW* Next();

  // After the last entry: false when an error has ended the listing early. True for an empty drive.
  bool IsComplete() const;

 private:
  struct CloseFind {
    void operator()(HANDLE handle) const { FindClose(handle); }
  };

  std::unique_ptr<void, CloseFind> find_;
  WIN32_FIND_DATAW entry_ = {};
  bool isFirst_ = false;  // entry_ has been found but not given out
  DWORD error_ = ERROR_SUCCESS;
};

// A folder to copy from: held open, with its entries. Not open where nothing is found, because an
// empty drive is more likely a mistake than a source.
struct Source {
  explicit Source(const std::wstring& path) : folder(path), entries(path) {}
  bool IsOpen() const { return folder.IsHeld() && entries.IsOpen(); }

  Folder folder;
  Listing entries;
};

// Whether the folder is `outer` or lies in it, by whatever path. A link counts both where it stands
// and where it leads. True also when `outer` is not held, because nothing can be found out then;
// false where the file system does not number its folders. On a volume that has no drive letter and
// is mounted nowhere, only the folders that the path names are compared.
bool LiesIn(const std::wstring& folder, const Folder& outer);

// Does what CopyDirectoryTree describes. If the destination is not held, every entry fails.
bool CopyTree(Source& source, const Folder& destination, bool recurse);

// Does what RemoveDirectoryTree describes.
bool RemoveTree(const std::wstring& directory, std::int32_t mode);

}  // namespace fileop
