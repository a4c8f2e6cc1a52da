#include "uaclient/places.h"

#include <algorithm>
#include <cstdint>

#include "uaclient/path.h"

namespace uaclient {
namespace {

// Of more folders than these the file system's own care has to suffice: NTFS gives a number that
// was freed a new count.
constexpr std::size_t kMaxHeld = 500;

// Every other error leaves open what is there.
bool MeansMissing(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
         error == ERROR_INVALID_NAME || error == ERROR_DIRECTORY;
}

// L"" where the system gives no numbers.
std::wstring NumberOf(const BY_HANDLE_FILE_INFORMATION& info) {
  if ((info.nFileIndexHigh | info.nFileIndexLow) == 0) return {};
  return std::to_wstring(info.dwVolumeSerialNumber) + L"/" +
         std::to_wstring(std::uint64_t{info.nFileIndexHigh} << 32 | info.nFileIndexLow);
}

}  // namespace

bool Folder::IsInOrIs(const Folder& other) const {
  return std::find(keys.begin(), keys.end(), other.keys[0]) != keys.end();
}

std::optional<std::size_t> FindUpwards(const IndexByKey& indexes, const Spot& spot,
                                       std::size_t passedOver) {
  if (indexes.empty() || spot.folder == nullptr) return std::nullopt;
  auto found = indexes.end();
  const auto isThere = [&](const std::wstring& key) {
    found = indexes.find(key);
    return found != indexes.end() && found->second != passedOver;
  };
  const std::vector<std::wstring>& above = spot.folder->keys;
  const bool isFound = isThere(spot.Key()) || std::any_of(above.begin(), above.end(), isThere);
  return isFound ? std::optional(found->second) : std::nullopt;
}

const Folder& Folders::At(const std::wstring& fullPath) {
  const auto known = folders_.find(fullPath);
  if (known != folders_.end()) return known->second;

  Folder folder;
  std::wstring number;
  Handle open(CreateFileW(Verbatim(fullPath).c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  BY_HANDLE_FILE_INFORMATION info = {};
  if (open && GetFileInformationByHandle(open.get(), &info)) {
    folder.exists = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    folder.isFile = !folder.exists;
    folder.path = FinalPath(open.get());
    if (folder.exists) number = NumberOf(info);
    if (number.empty() && folder.path.empty()) folder.error = ERROR_NOT_SUPPORTED;
    if (folder.exists && held_.size() < kMaxHeld) held_.push_back(std::move(open));
  } else if (!MeansMissing(GetLastError())) {
    folder.error = GetLastError();
  }
  if (folder.path.empty()) folder.path = fullPath;
  const std::wstring name = NameOf(folder.path);
  std::wstring key = UpperCase(name);
  if (!IsRoot(folder.path)) {
    const Folder& above = At(ParentOf(folder.path));
    folder.path = WithSeparator(above.path) + name;
    folder.keys = above.keys;
    key = above.keys[0] + L"\\" + key;
  }
  folder.keys.insert(folder.keys.begin(), number.empty() ? key : number);
  return folders_.emplace(fullPath, std::move(folder)).first->second;
}

Spot Folders::SpotOf(const std::wstring& fullPath, bool isFile) {
  if (!isFile) return {&At(fullPath), {}};
  return {&At(ParentOf(fullPath)), UpperCase(NameOf(fullPath))};
}

// A short name is not among the names that are listed, and what may not be listed may be seen.
const Entry* Folders::Find(const std::wstring& fullPath, const Spot& spot, bool listed) {
  static const Entry kRoot = {FILE_ATTRIBUTE_DIRECTORY, true, false, {}, 0};
  if (IsRoot(fullPath)) return At(fullPath).exists ? &kRoot : nullptr;
  Listing& listing = ListingOf(*spot.folder);
  const auto found = listing.entries.find(spot.name);
  if (found != listing.entries.end() && listed) return &found->second;
  if (listing.isWhole && listed && spot.name.find(L'~') == std::wstring::npos) return nullptr;

  Entry entry;
  entry.error = ForEachEntry(Verbatim(fullPath), [&](const WIN32_FIND_DATAW& data) {
    entry = EntryOf(data);
    return false;
  });
  if (MeansMissing(entry.error)) return nullptr;
  return &listing.entries.insert_or_assign(spot.name, entry).first->second;
}

Folders::Listing& Folders::ListingOf(const Folder& folder) {
  const auto [listed, isNew] = listings_.try_emplace(&folder);
  Listing& listing = listed->second;
  if (!isNew) return listing;
  const DWORD error =
      ForEachEntry(WithSeparator(Verbatim(folder.path)) + L"*", [&](const WIN32_FIND_DATAW& data) {
        listing.entries.emplace(UpperCase(data.cFileName), EntryOf(data));
        return true;
      });
  listing.isWhole = error == 0 || MeansMissing(error);
  return listing;
}

// With what kernel32 has: user32 takes as long to load as the rest of a check.
std::wstring UpperCase(std::wstring text) {
  const int length = static_cast<int>(text.size());
  LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, text.data(), length, text.data(), length,
                nullptr, nullptr, 0);
  return text;
}

}  // namespace uaclient
