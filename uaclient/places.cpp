#include "uaclient/places.h"

#include <algorithm>
#include <iterator>

#include "uaclient/path.h"

namespace uaclient {
namespace {

// Of more folders than these the file system's own care has to suffice: NTFS gives a number that
// was freed a new count.
constexpr std::size_t kMaxHeld = 500;

// Every other error leaves open what is there.
bool MeansMissing(DWORD error) {
  constexpr DWORD kMissing[] = {
      ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND,       ERROR_INVALID_NAME, ERROR_BAD_PATHNAME,
      ERROR_DIRECTORY,      ERROR_FILENAME_EXCED_RANGE, ERROR_INVALID_DRIVE};
  return std::find(std::begin(kMissing), std::end(kMissing), error) != std::end(kMissing);
}

}  // namespace

// From the deepest folder on that both ways go through, the names decide. Where they have none in
// common, whole paths are compared.
Relation Relate(const Place& one, const Place& other) {
  auto here = one.levels.begin();
  auto there = other.levels.begin();
  for (auto at = one.levels.end(); at-- != one.levels.begin();) {
    const auto met =
        std::find_if(other.levels.rbegin(), other.levels.rend(),
                     [&](const Place::Level& level) { return level.number == at->number; });
    if (at->number.index == 0 || met == other.levels.rend()) continue;
    here = at + 1;
    there = met.base();
    break;
  }
  const auto [oneRest, otherRest] = std::mismatch(
      here, one.levels.end(), there, other.levels.end(),
      [](const Place::Level& left, const Place::Level& right) { return left.name == right.name; });
  if (oneRest == one.levels.end()) {
    return otherRest == other.levels.end() ? Relation::kSame : Relation::kHolds;
  }
  return otherRest == other.levels.end() ? Relation::kInside : Relation::kApart;
}

bool Meet(const Claimed& one, const Claimed& other) {
  switch (Relate(one.folder, other.folder)) {
    case Relation::kApart:
      return false;
    case Relation::kInside:
      return other.names.empty();
    case Relation::kHolds:
      return one.names.empty();
    case Relation::kSame:
      break;
  }
  return one.names.empty() || other.names.empty() ||
         std::any_of(one.names.begin(), one.names.end(),
                     [&](const std::wstring& name) { return other.names.count(name) != 0; });
}

const Folder& Folders::At(const std::wstring& fullPath) {
  const auto known = folders_.find(fullPath);
  if (known != folders_.end()) return known->second;

  Folder folder;
  FolderNumber number;
  Handle open(CreateFileW(Verbatim(fullPath).c_str(), FILE_READ_ATTRIBUTES,
                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  BY_HANDLE_FILE_INFORMATION info = {};
  if (open && GetFileInformationByHandle(open.get(), &info)) {
    folder.exists = (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    folder.isFile = !folder.exists;
    folder.path = FinalPath(open.get());
    if (folder.exists) {
      number = {info.dwVolumeSerialNumber,
                std::uint64_t{info.nFileIndexHigh} << 32 | info.nFileIndexLow};
      folder.isKnown = number.index != 0 || !folder.path.empty();
    }
    if (folder.exists && held_.size() < kMaxHeld) held_.push_back(std::move(open));
  } else {
    folder.error = MeansMissing(GetLastError()) ? 0 : GetLastError();
  }
  if (folder.path.empty()) folder.path = fullPath;
  const bool isRoot = IsRoot(folder.path);
  const std::wstring name = UpperCase(NameOf(folder.path));
  if (!isRoot) {
    const Folder& above = At(ParentOf(folder.path));
    folder.place = above.place;
    folder.keys = above.keys;
    if (!folder.exists && !folder.isFile)
      folder.path = WithSeparator(above.path) + NameOf(folder.path);
  }
  folder.place.levels.push_back({number, name});
  folder.keys.insert(folder.keys.begin(),
                     number.index != 0
                         ? std::to_wstring(number.volume) + L"/" + std::to_wstring(number.index)
                     : isRoot ? name
                              : folder.keys[0] + L"\\" + name);
  return folders_.emplace(fullPath, std::move(folder)).first->second;
}

// A short name is not among the names that are listed, and what may not be listed may be seen.
const Entry* Folders::Find(const std::wstring& fullPath) {
  Listing& listing = ListingOf(ParentOf(fullPath));
  const std::wstring name = UpperCase(NameOf(fullPath));
  const auto found = listing.entries.find(name);
  if (found != listing.entries.end()) return &found->second;
  if (listing.isWhole && name.find(L'~') == std::wstring::npos) return nullptr;

  Entry entry;
  const DWORD error = ForEachEntry(Verbatim(fullPath), [&](const WIN32_FIND_DATAW& data) {
    entry = EntryOf(data);
    return false;
  });
  if (MeansMissing(error)) return nullptr;
  entry.error = error;
  return &listing.entries.emplace(name, entry).first->second;
}

Folders::Listing& Folders::ListingOf(const std::wstring& folder) {
  const auto [listed, isNew] = listings_.try_emplace(folder);
  Listing& listing = listed->second;
  if (!isNew) return listing;
  const DWORD error =
      ForEachEntry(WithSeparator(Verbatim(folder)) + L"*", [&](const WIN32_FIND_DATAW& data) {
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
