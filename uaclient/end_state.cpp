#include "uaclient/end_state.h"

#include <windows.h>

#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "uaclient/path.h"
#include "uaclient/win32.h"

namespace uaclient {
namespace {

using Kind = CopyItem::Kind;

// How many of an item's faults its reason names.
constexpr std::size_t kNamedFaults = 3;

constexpr wchar_t kChanged[] =
    L": the source has changed while the helper worked. Copy it again when it stays as it is.";

// What keeps a file from being copied, as far as it shows afterwards.
std::wstring LikelyCause(const std::wstring& source, const std::wstring& destination) {
  if (!OpenForReading(source)) {
    return L": the source cannot be read: " + SystemMessage(GetLastError());
  }
  const DWORD attributes = GetFileAttributesW(destination.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return L".";
  if ((attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) !=
      0) {
    return L": it is read-only, hidden or a system file, and Windows does not overwrite those. "
           L"Clear the attribute first.";
  }
  const Handle writable(CreateFileW(destination.c_str(), GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, 0, nullptr));
  const DWORD error = writable ? ERROR_SUCCESS : GetLastError();
  if (error == ERROR_SHARING_VIOLATION) {
    return L": another program has it open. Close that program and try again.";
  }
  // Many a file that this user cannot write the helper can.
  if (error != ERROR_SUCCESS && IsElevated())
    return L": it cannot be written: " + SystemMessage(error);
  return L": it could not be replaced. Look at its attributes and its access list.";
}

// An item's faults as one text: the first ones in words, the others counted.
class Faults {
 public:
  void Add(const std::wstring& sentence) {
    if (!sentence.empty() && ++count_ <= kNamedFaults)
      text_ += (text_.empty() ? L"" : L" ") + sentence;
  }
  std::wstring Text() const {
    if (count_ <= kNamedFaults) return text_;
    return text_ + L" And " + std::to_wstring(count_ - kNamedFaults) + L" more.";
  }

 private:
  std::size_t count_ = 0;
  std::wstring text_;
};

class Judge {
 public:
  Judge(const Survey& survey, Comparison comparison, const Tick& tick, Progress& progress)
      : survey_(survey), comparison_(comparison), tick_(tick), progress_(progress) {
    progress_.files = progress_.bytes = 0;
    progress_.comparing = true;
    progress_.current.clear();
    for (const CopyItem& item : survey_.items) {
      if (item.kind != Kind::kFile || item.destination.empty()) continue;
      const std::wstring path = item.destination.wstring();
      const Folder& folder = folders_.At(ParentOf(path));
      brought_.insert(folder.keys.begin(), folder.keys.end());
      brought_.insert(folder.KeyBelow(UpperCase(NameOf(path))));
    }
  }

  std::vector<Item> Items() {
    std::vector<Item> items;
    auto target = survey_.targets.begin();
    for (std::size_t i = 0; i < survey_.items.size(); ++i) {
      const CopyItem& copy = survey_.items[i];
      Before before;
      for (; target != survey_.targets.end() && target->item == i; ++target) {
        before.emplace(UpperCase(target->path), &*target);
      }
      Item item;
      item.source = survey_.steps[i].source;
      item.destination = survey_.steps[i].destination;
      item.reason = copy.source.empty()
                        ? L"Its source or its destination is no path that could be looked at."
                    : copy.kind == Kind::kFile ? JudgeFile(copy, before)
                                               : JudgeFolder(copy, before);
      item.done = item.reason.empty();
      items.push_back(std::move(item));
    }
    return items;
  }

 private:
  // What the item was to bring, by paths in upper case.
  using Before = std::unordered_map<std::wstring, const Target*>;

  std::wstring JudgeFile(const CopyItem& item, const Before& before) {
    const Entry* const there = folders_.Find(item.destination.wstring());
    FileState now;
    if (!ReadFileState(item.source.wstring(), now)) {
      return L"The source cannot be seen any more: " + SystemMessage(GetLastError());
    }
    return JudgeTarget(L"It", item.source.wstring(), item.destination.wstring(), now, there,
                       before.empty() ? nullptr : before.begin()->second);
  }

  std::wstring JudgeFolder(const CopyItem& item, Before& before) {
    Faults faults;
    const std::wstring source = WithSeparator(item.source.wstring());
    const std::wstring destination = WithSeparator(item.destination.wstring());
    if (!IsFolder(item.destination.wstring())) {
      return GetLastError() == ERROR_ACCESS_DENIED
                 ? L"The folder is not visible to this user, so it could not be compared."
                 : L"The folder is missing.";
    }
    const TreeListing now = ListTree(item.source.wstring(), Links::kFollowedOnce);
    for (const TreeListing::Fault& fault : now.faults) {
      faults.Add(Quoted(source + fault.path) +
                 (fault.error == 0 ? L" is a link behind a link, which is not followed."
                                   : L" cannot be listed: " + SystemMessage(fault.error)));
    }
    if (item.kind == Kind::kReplaceFolder) AddLeftovers(item.destination.wstring(), now, faults);
    for (const TreeEntry& entry : now.entries) {
      const auto was = before.find(UpperCase(entry.path));
      const Target* const target = was == before.end() ? nullptr : was->second;
      const Entry* const there = folders_.Find(destination + entry.path);
      if (entry.isFolder) {
        const bool isThere = there != nullptr && there->isFolder && !there->isLink;
        if (!isThere)
          faults.Add(L"The folder " + Quoted(entry.path) + L" is missing" +
                     (target == nullptr ? kChanged : L"."));
      } else {
        faults.Add(JudgeTarget(Quoted(entry.path), source + entry.path, destination + entry.path,
                               entry.state, there, target));
      }
      if (was != before.end()) before.erase(was);
    }
    for (const auto& [path, target] : before) {
      faults.Add(Quoted(target->path) + L" is no longer in the source" + kChanged);
    }
    return faults.Text();
  }

  // What could not be deleted, and what has come since.
  void AddLeftovers(const std::wstring& destination, const TreeListing& source, Faults& faults) {
    std::unordered_set<std::wstring> expected;
    for (const TreeEntry& entry : source.entries) expected.insert(UpperCase(entry.path));
    const TreeListing there = ListTree(destination, Links::kNotFollowed);
    for (const TreeListing::Fault& fault : there.faults) {
      faults.Add(Quoted(WithSeparator(destination) + fault.path) +
                 L" cannot be listed and compared: " + SystemMessage(fault.error));
    }
    for (const TreeEntry& entry : there.entries) {
      if (expected.count(UpperCase(entry.path)) != 0 ||
          IsBrought(WithSeparator(destination) + entry.path, entry))
        continue;
      faults.Add(
          Quoted(entry.path) +
          L" is not in the source: it could not be deleted, or another program put it there.");
    }
  }

  // Whether it is, or leads to, what a file item brings into a replaced folder.
  bool IsBrought(const std::wstring& path, const Entry& entry) {
    if (brought_.empty()) return false;
    const std::wstring key = entry.isFolder
                                 ? folders_.At(path).keys[0]
                                 : folders_.At(ParentOf(path)).KeyBelow(UpperCase(NameOf(path)));
    return brought_.count(key) != 0;
  }

  // "" when it has arrived.
  std::wstring JudgeTarget(const std::wstring& name, const std::wstring& source,
                           const std::wstring& destination, const FileState& now,
                           const Entry* there, const Target* before) {
    const bool hasChanged = before == nullptr || !(before->state == now);
    if (there == nullptr || there->isFolder) {
      return name + L" is missing" + (hasChanged ? kChanged : LikelyCause(source, destination));
    }
    const bool isFastEnough = comparison_ == Comparison::kSizeAndTime && !hasChanged &&
                              !before->lookedDone && there->state.Matches(now);
    const Equality equality =
        isFastEnough ? Equality::kEqual : comparer_.Compare(source, destination, tick_);
    switch (equality) {
      case Equality::kEqual:
        ++progress_.files;
        progress_.bytes += now.size;
        return {};
      case Equality::kStopped:
        return name + L" was not compared, because waiting was given up.";
      case Equality::kNotRead:
        return name + L" could not be compared" + LikelyCause(source, destination);
      case Equality::kDifferent:
        break;
    }
    return name + L" differs from its source" +
           (hasChanged ? kChanged : LikelyCause(source, destination));
  }

  const Survey& survey_;
  const Comparison comparison_;
  const Tick& tick_;
  Progress& progress_;
  Folders folders_;
  ContentComparer comparer_;
  std::unordered_set<std::wstring>
      brought_;  // keys of what file items bring, and of the folders above
};

}  // namespace

std::vector<Item> JudgeEndState(const Survey& survey, Comparison comparison, const Tick& tick,
                                Progress& progress) {
  return Judge(survey, comparison, tick, progress).Items();
}

}  // namespace uaclient
