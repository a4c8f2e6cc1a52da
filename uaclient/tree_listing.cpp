#include "uaclient/tree_listing.h"

#include <cwchar>

#include "fileop/tree_walk.h"

namespace uaclient {
namespace {

constexpr std::uint64_t kTwoSeconds = 20'000'000;

std::uint64_t Join(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

template <typename Data>
FileState StateOf(const Data& data) {
  return {Join(data.nFileSizeHigh, data.nFileSizeLow),
          Join(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)};
}

class Lister {
 public:
  Lister(const std::wstring& folder, Links links, TreeListing& listing)
      : folder_(folder), links_(links), listing_(listing) {}

  // `below` is "" or ends in a separator.
  void List(const std::wstring& below, bool behindLink) {
    WIN32_FIND_DATAW entry;
    const HANDLE find = FindFirstFileExW((folder_ + below + L"*").c_str(), FindExInfoBasic, &entry,
                                         FindExSearchNameMatch, nullptr, 0);
    if (find == INVALID_HANDLE_VALUE) {
      listing_.unlisted.push_back(below);
      return;
    }
    do {
      if (std::wcscmp(entry.cFileName, L".") == 0 || std::wcscmp(entry.cFileName, L"..") == 0) {
        continue;
      }
      const bool isFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      const bool isLink = IsLink(entry);
      listing_.entries.push_back({below + entry.cFileName, isFolder, isLink, StateOf(entry)});
      const bool enters = !isLink || (links_ == Links::kFollowedOnce && !behindLink);
      if (!isFolder) continue;
      if (enters) List(below + entry.cFileName + L'\\', behindLink || isLink);
      if (!enters && links_ == Links::kFollowedOnce) {
        listing_.unlisted.push_back(below + entry.cFileName);
      }
    } while (FindNextFileW(find, &entry));
    FindClose(find);
  }

 private:
  const std::wstring& folder_;
  const Links links_;
  TreeListing& listing_;
};

}  // namespace

bool IsLink(const WIN32_FIND_DATAW& entry) {
  return fileop::IsLinkTag(entry.dwFileAttributes, entry.dwReserved0);
}

bool FileState::Matches(const FileState& other) const {
  const std::uint64_t apart = time > other.time ? time - other.time : other.time - time;
  return size == other.size && apart <= kTwoSeconds;
}

TreeListing ListTree(const std::wstring& folder, Links links) {
  TreeListing listing;
  Lister(folder, links, listing).List({}, false);
  return listing;
}

bool ReadFileState(const std::wstring& path, FileState& state) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) ||
      (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return false;
  }
  state = StateOf(data);
  return true;
}

}  // namespace uaclient
