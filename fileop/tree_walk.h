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

struct HandleCloser {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

// A folder that is held open. While it is, nobody can rename, remove or replace it. To list, to
// create and to delete in it stays possible for everybody; and who may write its attributes can, on
// NTFS, turn it into a junction while it is empty: its path then leads elsewhere, its handle not.
class Folder {
 public:
  // Of a link the link itself is held.
  explicit Folder(const std::wstring& path);

  // The folder of this name in `parent`, wherever the path leads by now.
  Folder(const Folder& parent, const wchar_t* name, const std::wstring& path);

  bool IsHeld() const { return hold_ != nullptr; }

  // True as well when a held folder does not tell.
  bool IsLink() const { return isLink_; }

  const std::wstring& Path() const { return path_; }
  HANDLE Held() const { return hold_.get(); }
  void LetGo() { hold_.reset(); }

 private:
  std::wstring path_;
  Handle hold_;
  bool isLink_;
};

// The entries that a folder's path lists.
class Listing {
 public:
  explicit Listing(const std::wstring& folder);

  // False when the folder cannot be listed by this very path.
  bool IsOpen() const { return find_ != nullptr; }

  // The next entry but "." and "..", valid until the next call; null behind the last one.
  const WIN32_FIND_DATAW* Next();

  // Behind the last entry: whether there are no others, rather than an error that hides them.
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

// A folder that is walked through.
struct Source {
  explicit Source(const std::wstring& path) : folder(path), entries(path) {}
  bool IsOpen() const { return folder.IsHeld() && entries.IsOpen(); }

  Folder folder;
  Listing entries;
};

// Whether the folder is `outer` or lies in it, by whatever path, as far as the file system numbers
// its folders. A link lies where it stands and where it leads.
bool LiesIn(const std::wstring& folder, const Folder& outer);

// Copies what lies in `source` into `destination`, as CopyDirectoryTree describes it. Where the
// destination is not held each entry fails.
bool CopyTree(Source& source, const Folder& destination, bool recurse);

// Removes by the modes of RemoveDirectoryTree, whose result it gives.
bool RemoveTree(const std::wstring& directory, std::int32_t mode);

}  // namespace fileop
