#include "uaclient/copy_watch.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "uaclient/check_path.h"
#include "uaclient/win32.h"

namespace uaclient {
namespace {

// How many of an item's faults its reason names.
constexpr std::size_t kNamedFaults = 3;

// What keeps a file from being copied, as far as it shows afterwards; begins with ": ", or is "".
std::wstring LikelyCause(const std::wstring& source, const std::wstring& destination) {
  if (!OpenForReading(source))
    return L": its source cannot be read: " + SystemMessage(GetLastError());
  const DWORD attributes = GetFileAttributesW(destination.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return L".";
  if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    return L": it is read-only, and such a file is not replaced. Remove the attribute first.";
  }
  if ((attributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) != 0) {
    return L": it is a hidden or system file, and such a file is not replaced. Remove the "
           L"attribute first.";
  }
  const Handle writable(CreateFileW(destination.c_str(), GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, 0, nullptr));
  const DWORD error = writable ? ERROR_SUCCESS : GetLastError();
  if (error == ERROR_SHARING_VIOLATION) {
    return L": another program has it open. Close that program and try again.";
  }
  // Without raised rights many a file refuses to be written that the helper can write.
  if (error != ERROR_SUCCESS && IsElevated()) {
    return L": it cannot be written: " + SystemMessage(error);
  }
  return L": it could not be replaced. Look at its attributes and its access list.";
}

// A folder's faults as one text: the first ones in words, the others counted.
class Faults {
 public:
  void Add(const std::wstring& sentence) {
    if (++count_ <= kNamedFaults) text_ += (text_.empty() ? L"" : L" ") + sentence;
  }
  std::wstring Text() const {
    if (count_ <= kNamedFaults) return text_;
    return text_ + L" And " + std::to_wstring(count_ - kNamedFaults) + L" more.";
  }

 private:
  std::size_t count_ = 0;
  std::wstring text_;
};

// As part of a longer path nothing would mean the whole drive.
bool HasPaths(const CopyItem& item) { return !item.source.empty() && !item.destination.empty(); }

}  // namespace

CopyWatch::CopyWatch(std::vector<CopyItem> items, Comparison comparison)
    : items_(std::move(items)),
      comparison_(comparison),
      before_(items_.size()),
      unlisted_(items_.size()) {
  for (std::size_t item = 0; item < items_.size(); ++item) {
    firstTarget_.push_back(targets_.size());
    items_[item].isFolder ? AddFolder(item) : AddFile(item);
  }
  firstTarget_.push_back(targets_.size());
}

void CopyWatch::AddFolder(std::size_t item) {
  if (!HasPaths(items_[item])) return;
  const std::wstring destination = WithSeparator(items_[item].destination.wstring());
  std::unordered_map<std::wstring, FileState> there;
  before_[item].wasThere = IsFolder(destination);
  if (before_[item].wasThere) {
    for (TreeEntry& entry : ListTree(destination, Links::kNotFollowed).entries) {
      if (entry.isFolder) continue;
      before_[item].lastFile = destination + entry.path;
      there.emplace(std::move(entry.path), entry.state);
    }
  }
  TreeListing source = ListTree(WithSeparator(items_[item].source.wstring()), Links::kFollowedOnce);
  unlisted_[item] = std::move(source.unlisted);
  for (TreeEntry& entry : source.entries) {
    Target target;
    target.item = item;
    const auto found = entry.isFolder ? there.end() : there.find(entry.path);
    target.lookedDone = found != there.end() && found->second.Matches(entry.state);
    target.entry = std::move(entry);
    AddTarget(std::move(target));
  }
}

void CopyWatch::AddFile(std::size_t item) {
  files_.insert(ComparisonKey(FullPath(items_[item].destination.wstring())));
  Target target;
  target.item = item;
  ReadFileState(items_[item].source.wstring(), target.entry.state);
  Before& before = before_[item];
  before.wasThere = ReadFileState(items_[item].destination.wstring(), before.state);
  target.lookedDone = before.wasThere && before.state.Matches(target.entry.state);
  AddTarget(std::move(target));
}

void CopyWatch::AddTarget(Target target) {
  target.filesBefore = progress_.allFiles;
  target.bytesBefore = progress_.allBytes;
  if (!target.entry.isFolder) {
    ++progress_.allFiles;
    progress_.allBytes += target.entry.state.size;
  }
  targets_.push_back(std::move(target));
}

std::wstring CopyWatch::SourceOf(const Target& target) const {
  const CopyItem& item = items_[target.item];
  return item.isFolder ? WithSeparator(item.source.wstring()) + target.entry.path
                       : item.source.wstring();
}

std::wstring CopyWatch::DestinationOf(const Target& target) const {
  const CopyItem& item = items_[target.item];
  return item.isFolder ? WithSeparator(item.destination.wstring()) + target.entry.path
                       : item.destination.wstring();
}

// Whether it is, or leads to, what a file item brings into a folder item's destination.
bool CopyWatch::IsOtherItems(const std::wstring& path) const {
  const std::wstring key = ComparisonKey(FullPath(path));
  const auto next = files_.lower_bound(key);
  return next != files_.end() && next->compare(0, key.size(), key) == 0;
}

// Whether what was in a folder has been deleted, so that what is there now is new.
bool CopyWatch::IsEmptied(std::size_t item) {
  std::wstring& lastFile = before_[item].lastFile;
  if (!lastFile.empty() && GetFileAttributesW(lastFile.c_str()) == INVALID_FILE_ATTRIBUTES) {
    lastFile.clear();
  }
  return lastFile.empty();
}

// Whether the helper has made it, or begun to; for a file also what it is by now.
bool CopyWatch::IsReached(const Target& target, FileState& now) {
  const bool inFolder = items_[target.item].isFolder;
  if (inFolder && !IsEmptied(target.item)) return false;
  const std::wstring destination = DestinationOf(target);
  if (target.entry.isFolder) return IsFolder(destination);
  if (!ReadFileState(destination, now)) return false;
  const Before& before = before_[target.item];
  const bool isOld = now.size == before.state.size && now.time == before.state.time;
  return inFolder || !before.wasThere || !isOld;
}

// Whether the helper is done with it: it sets a copy's time when the content is there.
bool CopyWatch::IsComplete(const Target& target) {
  FileState now;
  return IsReached(target, now) && (target.entry.isFolder || now.Matches(target.entry.state));
}

void CopyWatch::Advance() {
  FileState now;
  for (bool moved = true; moved;) {
    moved = false;
    while (cursor_ < targets_.size() && IsComplete(targets_[cursor_])) {
      ++cursor_;
      moved = true;
    }
    // What cannot be copied is never complete; that the helper is past it shows at what comes
    // later.
    std::size_t ahead = cursor_;
    for (std::size_t step = 1; cursor_ + step < targets_.size(); step *= 2) {
      if (IsReached(targets_[cursor_ + step], now)) ahead = cursor_ + step;
    }
    moved = moved || ahead > cursor_;
    cursor_ = ahead;
  }

  if (cursor_ == targets_.size()) {
    progress_.files = progress_.allFiles;
    progress_.bytes = progress_.allBytes;
    progress_.current.clear();
    return;
  }
  const Target& target = targets_[cursor_];
  const bool isBegun = IsReached(target, now) && !target.entry.isFolder;
  progress_.files = target.filesBefore;
  progress_.bytes =
      target.bytesBefore + (isBegun ? std::min(now.size, target.entry.state.size) : 0);
  progress_.current = DestinationOf(target);
}

void CopyWatch::CompareBehind(const Tick& tick) {
  if (comparison_ != Comparison::kContent) return;
  for (; compared_ < cursor_; ++compared_) {
    Target& target = targets_[compared_];
    if (target.entry.isFolder || !IsComplete(target)) continue;
    const std::wstring destination = DestinationOf(target);
    FileState state;
    ReadFileState(destination, state);
    const Equality found = comparer_.Compare(SourceOf(target), destination, tick);
    if (found == Equality::kEqual) target.equalState = state;
    if (found == Equality::kStopped || !tick()) return;
  }
}

std::wstring CopyWatch::WhyNotArrived(const Target& target, const FileState* there,
                                      const Tick& tick) {
  const std::wstring name = items_[target.item].isFolder ? Quoted(target.entry.path) : L"It";
  if (target.entry.isFolder)
    return there != nullptr ? L"" : L"The folder " + name + L" is missing.";
  if (there == nullptr) {
    return name + L" is missing" + LikelyCause(SourceOf(target), DestinationOf(target));
  }
  const bool looksSame = there->Matches(target.entry.state);
  const auto& equal = target.equalState;
  if (equal && equal->size == there->size && equal->time == there->time) return {};
  if (comparison_ == Comparison::kSizeAndTime && looksSame && !target.lookedDone) return {};

  switch (comparer_.Compare(SourceOf(target), DestinationOf(target), tick)) {
    case Equality::kEqual:
      return {};
    case Equality::kStopped:
      return name + L" was not compared, because waiting was given up.";
    case Equality::kNotRead:
      return name + L" could not be compared" +
             LikelyCause(SourceOf(target), DestinationOf(target));
    case Equality::kDifferent:
      break;
  }
  return name + L" is not what its source is" +
         LikelyCause(SourceOf(target), DestinationOf(target));
}

Item CopyWatch::FinishFile(const Target& target, const Tick& tick) {
  FileState now;
  const bool isThere = ReadFileState(DestinationOf(target), now);
  Item result;
  result.reason = WhyNotArrived(target, isThere ? &now : nullptr, tick);
  if (result.reason.empty()) {
    ++progress_.files;
    progress_.bytes += now.size;
  }
  return result;
}

Item CopyWatch::FinishFolder(std::size_t item, const Tick& tick) {
  Item result;
  if (!HasPaths(items_[item])) {
    result.reason = L"Its source or its destination is empty or not UTF-8; write the whole path.";
    return result;
  }
  const std::wstring destination = WithSeparator(items_[item].destination.wstring());
  if (!IsFolder(destination)) {
    result.reason =
        GetLastError() == ERROR_ACCESS_DENIED
            ? L"The folder could not be looked at: this user may not see it."
            : L"The folder is missing: it could not be made, or its source could not be "
              L"read.";
    return result;
  }

  Faults faults;
  for (const std::wstring& folder : unlisted_[item]) {
    faults.Add(L"The source's folder " + Quoted(folder) +
               L" cannot be read, or is a link behind a link, which is not followed.");
  }
  // What could not be deleted comes first: it is why the rest is missing.
  const TreeListing listing = ListTree(destination, Links::kNotFollowed);
  std::unordered_map<std::wstring, const TreeEntry*> there;
  for (const TreeEntry& entry : listing.entries) there.emplace(entry.path, &entry);
  for (const std::wstring& folder : listing.unlisted) {
    faults.Add(L"The folder " + Quoted(destination + folder) + L" cannot be read and compared.");
  }
  std::unordered_set<std::wstring> expected;
  const auto first = targets_.begin() + static_cast<std::ptrdiff_t>(firstTarget_[item]);
  const auto last = targets_.begin() + static_cast<std::ptrdiff_t>(firstTarget_[item + 1]);
  for (auto target = first; target != last; ++target) expected.insert(target->entry.path);
  for (const TreeEntry& entry : listing.entries) {
    if (expected.count(entry.path) != 0 || IsOtherItems(destination + entry.path)) continue;
    faults.Add(Quoted(entry.path) + L" is left over from before: it could not be deleted.");
  }

  for (auto target = first; target != last; ++target) {
    const auto found = there.find(target->entry.path);
    const TreeEntry* entry = found == there.end() ? nullptr : found->second;
    const bool sameKind =
        entry != nullptr && entry->isFolder == target->entry.isFolder && !entry->isLink;
    const std::wstring fault = WhyNotArrived(*target, sameKind ? &entry->state : nullptr, tick);
    if (!fault.empty()) {
      faults.Add(fault);
    } else if (!entry->isFolder) {
      ++progress_.files;
      progress_.bytes += entry->state.size;
    }
  }
  result.reason = faults.Text();
  return result;
}

std::vector<Item> CopyWatch::Finish(const Tick& tick) {
  progress_.comparing = true;
  progress_.files = 0;
  progress_.bytes = 0;
  progress_.current.clear();
  std::vector<Item> results;
  for (std::size_t item = 0; item < items_.size(); ++item) {
    Item result = items_[item].isFolder ? FinishFolder(item, tick)
                                        : FinishFile(targets_[firstTarget_[item]], tick);
    result.source = items_[item].source;
    result.destination = items_[item].destination;
    result.done = result.reason.empty();
    results.push_back(std::move(result));
  }
  return results;
}

}  // namespace uaclient
