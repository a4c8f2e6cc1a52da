#include "uaclient/check_tree.h"

#include <windows.h>

#include <utility>

#include "uaclient/tree_listing.h"
#include "uaclient/win32.h"

namespace uaclient {
namespace {

// The helper lists a folder by its path, a separator and a pattern of one sign.
constexpr std::size_t kMaxListedFolder = kMaxFilePath - 2;

// So many remarks on one tree tell what is the matter with it.
constexpr std::size_t kMaxRemarks = 20;

struct Entry {
  std::wstring path;
  std::wstring name;
  bool isFolder = false;
  bool isLink = false;
  std::uint64_t size = 0;
};

// Adds a remark on an entry; false, so that a visit ends with it.
auto RemarkInto(Remarks& remarks) {
  return [&remarks](Weight weight, const Entry& entry, const std::wstring& text) {
    remarks.push_back({weight, Quoted(entry.path) + L" " + text});
    return false;
  };
}

// Calls visit(entry) for everything below the folder; a folder in it is entered when that answers
// true. Calls fail(folder, error) for what cannot be listed. Paths may be longer than the helper's.
template <typename Visit, typename Fail>
void WalkTree(const std::wstring& root, Visit visit, Fail fail) {
  std::vector<std::wstring> folders = {root};
  while (!folders.empty()) {
    const std::wstring folder = std::move(folders.back());
    folders.pop_back();
    WIN32_FIND_DATAW data;
    const HANDLE find = FindFirstFileExW((Verbatim(folder) + L"\\*").c_str(), FindExInfoBasic,
                                         &data, FindExSearchNameMatch, nullptr, 0);
    if (find == INVALID_HANDLE_VALUE) {
      fail(folder, GetLastError());
      continue;
    }
    do {
      Entry entry;
      entry.name = data.cFileName;
      if (entry.name == L"." || entry.name == L"..") continue;
      entry.path = folder + L"\\" + entry.name;
      entry.isFolder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      entry.isLink = IsLink(data);
      entry.size = std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
      if (visit(entry) && entry.isFolder) folders.push_back(entry.path);
    } while (FindNextFileW(find, &data));
    FindClose(find);
  }
}

void Count(const Entry& entry, TreeSize& size) {
  if (entry.isFolder) return;
  ++size.files;
  size.bytes += entry.size;
}

void Shorten(Remarks& remarks) {
  if (remarks.size() <= kMaxRemarks) return;
  const std::size_t more = remarks.size() - kMaxRemarks;
  remarks.resize(kMaxRemarks);
  remarks.push_back({Weight::kDoubt, L"There are " + std::to_wstring(more) +
                                         L" more such entries in the same folder."});
}

}  // namespace

std::wstring AccessFault(const std::wstring& fullPath, Access access) {
  constexpr DWORD kReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;
  constexpr DWORD kShareAll = kReadWrite | FILE_SHARE_DELETE;
  const auto open = [&](DWORD rights, DWORD share) -> DWORD {
    const Handle file(CreateFileW(Verbatim(fullPath).c_str(), rights, share, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT,
                                  nullptr));
    return file ? ERROR_SUCCESS : GetLastError();
  };
  DWORD error = ERROR_SUCCESS;
  switch (access) {
    case Access::kRead:
      error = open(GENERIC_READ, kReadWrite);
      break;
    case Access::kOverwrite:
      error = open(GENERIC_WRITE, FILE_SHARE_READ);
      if (error == ERROR_ACCESS_DENIED && !IsElevated())
        error = open(GENERIC_READ, FILE_SHARE_READ);
      break;
    case Access::kDelete:
      error = open(DELETE, kReadWrite);
      // A running program could be deleted from its folder, but would keep its place in it.
      if (error == ERROR_SUCCESS && open(GENERIC_WRITE, kShareAll) == ERROR_SHARING_VIOLATION) {
        error = ERROR_SHARING_VIOLATION;
      }
      break;
  }
  if (error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION) {
    return L"is in use by another program; have that end first.";
  }
  if (error == ERROR_SUCCESS || (access != Access::kRead && !IsElevated())) return {};
  return (access == Access::kRead        ? L"cannot be opened for reading: "
          : access == Access::kOverwrite ? L"cannot be opened for writing: "
                                         : L"cannot be deleted: ") +
         SystemMessage(error);
}

TreeSize MeasureSource(const std::wstring& folder, const std::wstring& destination, bool openFiles,
                       Remarks& remarks, std::vector<std::wstring>& links) {
  TreeSize size;
  const auto remark = RemarkInto(remarks);
  const auto visit = [&](const Entry& entry) {
    if (entry.isLink) {
      links.push_back(entry.path);
      return remark(Weight::kDoubt, entry,
                    L"is a link: what it leads to is copied, but of links behind links nothing is; "
                    L"have the files themselves in the source.");
    }
    if (!IsPlainName(entry.name)) {
      return remark(Weight::kDoubt, entry,
                    L"has a name that names something else, or nothing, to most programs; give it "
                    L"another one.");
    }
    const std::size_t copied = destination.size() + (entry.path.size() - folder.size());
    if (entry.path.size() > (entry.isFolder ? kMaxListedFolder : kMaxFilePath) ||
        copied > (entry.isFolder ? kMaxFolderPath : kMaxFilePath)) {
      return remark(Weight::kFails, entry,
                    L"is not copied: there or at the destination its path is longer than Windows "
                    L"takes it (259 units for a file, 247 for a folder). Use shorter paths.");
    }
    if (openFiles) {
      const std::wstring fault = AccessFault(entry.path, Access::kRead);
      if (!fault.empty()) remark(Weight::kDoubt, entry, fault);
    }
    Count(entry, size);
    return true;
  };
  WalkTree(folder, visit, [&](const std::wstring& path, DWORD error) {
    remarks.push_back(
        {Weight::kDoubt, Quoted(path) + L" cannot be listed: " + SystemMessage(error)});
  });
  Shorten(remarks);
  return size;
}

TreeSize MeasureEmptied(const std::wstring& folder, Remarks& remarks) {
  TreeSize size;
  const auto remark = RemarkInto(remarks);
  const auto visit = [&](const Entry& entry) {
    Count(entry, size);
    if (entry.isLink) {
      return remark(
          Weight::kDoubt, entry,
          L"is a link in a folder that is to be replaced: the link goes, what it leads to "
          L"stays. Remove it first if that is not meant.");
    }
    if (entry.path.size() > (entry.isFolder ? kMaxListedFolder : kMaxFilePath)) {
      return remark(Weight::kFails, entry,
                    L"has too long a path to be deleted, so the folder is not replaced; remove it "
                    L"first.");
    }
    if (!IsPlainName(entry.name)) {
      return remark(Weight::kDoubt, entry,
                    L"has a name by which it may not be deleted; remove it first.");
    }
    const std::wstring fault = AccessFault(entry.path, Access::kDelete);
    if (!fault.empty()) {
      remark(Weight::kDoubt, entry,
             L"is to be deleted with the folder that it is in, but " + fault);
    }
    return true;
  };
  WalkTree(folder, visit, [&](const std::wstring& path, DWORD error) {
    if (error == ERROR_ACCESS_DENIED) return;  // what raised rights are for
    remarks.push_back({Weight::kDoubt, Quoted(path) + L" cannot be listed, and so not emptied: " +
                                           SystemMessage(error)});
  });
  Shorten(remarks);
  return size;
}

}  // namespace uaclient
