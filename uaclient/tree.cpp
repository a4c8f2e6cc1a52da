#include "uaclient/tree.h"

#include "uaclient/path.h"
#include "uaclient/win32.h"
#include "uaclient/words.h"

namespace uaclient {
namespace {

constexpr std::uint64_t kTwoSeconds = 20'000'000;

std::uint64_t Join(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

template <typename Data>
FileState StateOf(const Data& data) {
  return {Join(data.nFileSizeHigh, data.nFileSizeLow),
          Join(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime)};
}

struct Lister {
  void Add(const std::wstring& path, Entry entry, bool behindLink) {
    constexpr std::size_t kDeepest = 1024;  // no copy comes as far, and the stack ends somewhere
    const bool isFollowed = followsLinks && entry.isLink;
    const auto fail = [&](DWORD error) { tree.faults.push_back({path, error}); };
    if (path.size() > kDeepest) return fail(ERROR_FILENAME_EXCED_RANGE);
    if (isFollowed && behindLink) return fail(0);
    if (isFollowed && !entry.isFolder && !ReadFileState(Below(root, path), entry.state)) {
      return fail(GetLastError());
    }
    tree.entries.push_back({entry, path});
    if (entry.isFolder && (isFollowed || !entry.isLink)) {
      List(path, behindLink || (isFollowed && !path.empty()));
    }
  }

  void List(const std::wstring& path, bool behindLink) {
    const std::wstring pattern = WithSeparator(Below(root, path)) + L"*";
    const DWORD error = ForEachEntry(pattern, [&](const WIN32_FIND_DATAW& data) {
      Add(path.empty() ? data.cFileName : path + L"\\" + data.cFileName, EntryOf(data), behindLink);
      return true;
    });
    // On an empty drive nothing is found, not even ".". As a source the helper refuses it.
    const bool isEmpty = error == ERROR_FILE_NOT_FOUND && (!followsLinks || !path.empty());
    if (error != 0 && !isEmpty) tree.faults.push_back({path, error});
  }

  std::wstring root;
  bool followsLinks;
  TreeListing& tree;
};

}  // namespace

bool FileState::Matches(const FileState& other) const {
  const std::uint64_t apart = time > other.time ? time - other.time : other.time - time;
  return size == other.size && apart <= kTwoSeconds;
}

Entry EntryOf(const WIN32_FIND_DATAW& data) {
  Entry entry;
  entry.attributes = data.dwFileAttributes;
  entry.isFolder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  entry.isLink = fileop::IsLinkTag(data.dwFileAttributes, data.dwReserved0);
  if (!entry.isFolder) entry.state = StateOf(data);
  return entry;
}

TreeListing ListTree(const std::wstring& fullPath, const Entry& root, Links links) {
  TreeListing tree;
  Lister{Verbatim(fullPath), links == Links::kFollowedOnce, tree}.Add({}, root, false);
  return tree;
}

std::wstring InWords(const TreeListing::Fault& fault, const std::wstring& root) {
  return Filled(fault.error == 0
                    ? L"{} is a link behind a link. Put the files themselves into the source."
                    : L"{} cannot be listed: {}",
                {Quoted(Below(root, fault.path)), SystemMessage(fault.error)});
}

// Only links have to be opened, which takes longer.
bool ReadFileState(const std::wstring& fullPath, FileState& state) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  if (!GetFileAttributesExW(fullPath.c_str(), GetFileExInfoStandard, &data)) return false;
  state = StateOf(data);
  const DWORD kind = data.dwFileAttributes;
  if ((kind & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return (kind & FILE_ATTRIBUTE_DIRECTORY) == 0;
  const Handle file(CreateFileW(fullPath.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                                OPEN_EXISTING, 0, nullptr));
  BY_HANDLE_FILE_INFORMATION info = {};
  if (!file || !GetFileInformationByHandle(file.get(), &info)) return false;
  state = StateOf(info);
  return true;
}

}  // namespace uaclient
