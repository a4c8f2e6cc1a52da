#include "uaclient/end_state.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>

#include "uaclient/path.h"
#include "uaclient/places.h"
#include "uaclient/words.h"

namespace uaclient {
namespace {

// How many of an item's faults its reason names.
constexpr std::size_t kNamedFaults = 3;

constexpr wchar_t kChanged[] = L": the source has changed while the helper worked. Copy it again.";

// What is in the source, and what should be like it at the destination.
struct Pair {
  std::size_t item;
  std::wstring name;
  std::wstring source;
  std::wstring destination;
  std::uint64_t size;
  bool hasChanged;  // the source, since the check
  const Entry* there = nullptr;
  Equality result = Equality::kStopped;
};

// What has kept it from being copied, as far as it shows afterwards.
std::wstring LikelyCause(const Pair& pair) {
  if (pair.hasChanged) return kChanged;
  std::wstring fault = ReadingFault(pair.source);
  if (!fault.empty()) return L": the source" + fault;
  if (pair.there != nullptr) {
    fault = pair.there->IsProtected() ? kIsProtected : OverwritingFault(pair.destination);
  }
  if (!fault.empty()) return L": it" + fault;
  return L": it was not copied, or changed later. Its access list or the free space may be why.";
}

class Judge {
 public:
  Judge(const std::vector<Copy>& copies, Comparison comparison, const Tick& tick,
        Progress& progress, std::vector<Item>& items)
      : copies_(copies), comparison_(comparison), tick_(tick), progress_(progress), items_(items) {
    progress_.files = progress_.bytes = 0;
    progress_.comparing = true;
    progress_.current.clear();
    for (const Copy& copy : copies) {
      if (copy.kind != Step::Kind::kCopyFile || !copy.isUsable) continue;
      const Spot spot = folders_.SpotOf(copy.destination, true);
      brought_.insert(spot.Key());
      brought_.insert(spot.folder->keys.begin(), spot.folder->keys.end());
    }
  }

  void JudgeItems() {
    for (const Copy& copy : copies_) JudgeItem(copy);
    ComparePairs();
    for (const Copy& copy : copies_) {
      Item& item = items_[copy.item];
      const std::size_t faults = faults_[copy.item];
      item.done = faults == 0;
      if (faults > kNamedFaults) {
        item.reason += L" And " + std::to_wstring(faults - kNamedFaults) + L" more.";
      }
      const auto isGone = [&](const TreeEntry& old) {
        const Entry* const now = folders_.Find(Below(copy.destination, old.path));
        return now == nullptr || !(now->state == old.state);
      };
      if (!item.done && std::any_of(copy.deleted.begin(), copy.deleted.end(), isGone)) {
        item.reason += L" Old content of the folder is gone.";
      }
    }
  }

 private:
  bool NamesNext() const { return faults_[at_] < kNamedFaults; }
  void Fault(const wchar_t* text, Parts parts) {
    std::wstring& reason = items_[at_].reason;
    if (NamesNext()) reason += (reason.empty() ? L"" : L" ") + Filled(text, parts);
    ++faults_[at_];
  }
  void Fault(const wchar_t* text, const Pair& pair) {  // to find a cause takes long
    Fault(text, {pair.name, NamesNext() ? LikelyCause(pair) : L""});
  }

  void JudgeItem(const Copy& copy) {
    at_ = copy.item;
    const Entry* const from = copy.isUsable ? folders_.Find(copy.source) : nullptr;
    if (from == nullptr || from->error != 0) {
      return copy.targets.empty()
                 ? Fault(L"The source does not exist or is not visible, or a path is wrong.", {})
                 : Fault(L"The source was removed while the helper worked.", {});
    }
    const TreeListing now = ListTree(copy.source, *from, Links::kFollowedOnce);
    for (const auto& fault : now.faults) Fault(L"{}", {InWords(fault, copy.source)});
    if (copy.kind == Step::Kind::kReplaceFolder) JudgeLeftovers(copy, now);

    std::unordered_map<std::wstring, const Target*> before;  // by paths in upper case
    for (const Target& target : copy.targets) before.emplace(UpperCase(target.path), &target);
    for (const TreeEntry& entry : now.entries) {
      const auto was = before.find(UpperCase(entry.path));
      JudgeEntry(copy, entry, was == before.end() ? nullptr : was->second);
      if (was != before.end()) before.erase(was);
    }
    for (const auto& [path, target] : before) {
      Fault(L"{} is no longer in the source{}", {Quoted(target->path), kChanged});
    }
  }

  // What could not be deleted, and what has come since.
  void JudgeLeftovers(const Copy& copy, const TreeListing& source) {
    const Entry* const root = folders_.Find(copy.destination);
    if (root == nullptr || !root->isFolder) return;
    std::unordered_set<std::wstring> expected;
    for (const TreeEntry& entry : source.entries) expected.insert(UpperCase(entry.path));
    for (const TreeEntry& entry : copy.targets) expected.insert(UpperCase(entry.path));
    const TreeListing there = ListTree(copy.destination, *root, Links::kNotFollowed);
    for (const auto& fault : there.faults) Fault(L"{}", {InWords(fault, copy.destination)});
    for (const TreeEntry& entry : there.entries) {
      if (expected.count(UpperCase(entry.path)) != 0) continue;
      const std::wstring path = Below(copy.destination, entry.path);
      if (brought_.count(folders_.SpotOf(path, !entry.isFolder).Key()) != 0) continue;
      Fault(L"{} is not in the source: it could not be deleted, or another program put it there.",
            {Quoted(entry.path)});
    }
  }

  void JudgeEntry(const Copy& copy, const TreeEntry& now, const Target* before) {
    std::wstring name = now.isFolder ? L"The folder" : L"It";
    if (!now.path.empty()) name = (now.isFolder ? L"The folder " : L"") + Quoted(now.path);
    Pair pair = {at_,
                 name,
                 Below(copy.source, now.path),
                 Below(copy.destination, now.path),
                 now.state.size,
                 before != nullptr ? !(before->state == now.state) : !copy.targets.empty()};
    const Entry* const there = pair.there = folders_.Find(pair.destination);
    if (there != nullptr && there->error != 0) {
      return Fault(L"{} is not visible to this user, so it could not be compared.", {pair.name});
    }
    if (there == nullptr) return Fault(L"{} is missing{}", pair);
    if (there->isFolder != now.isFolder || (there->isFolder && there->isLink)) {
      return Fault(L"{} is missing: something else is in its place. Remove that.", {pair.name});
    }
    if (now.isFolder) return;
    const bool isTrusted = comparison_ == Comparison::kSizeAndTime && !pair.hasChanged;
    if (isTrusted && before != nullptr && !before->lookedDone && there->state.Matches(now.state)) {
      ++progress_.files;
      progress_.bytes += now.state.size;
    } else {
      pairs_.push_back(pair);
    }
  }

  void ComparePairs() {
    std::atomic<std::uint64_t> files{progress_.files};
    std::atomic<std::uint64_t> bytes{progress_.bytes};
    const auto compare = [&](std::size_t i, const Tick& tick) {
      Pair& pair = pairs_[i];
      pair.result = Compare(pair.source, pair.destination, tick);
      if (pair.result != Equality::kEqual) return;
      ++files;
      bytes += pair.size;
    };
    const auto showProgress = [&] {
      progress_.files = files;
      progress_.bytes = bytes;
      return tick_();
    };
    InParallel(pairs_.size(), compare, showProgress);
    showProgress();
    for (const Pair& pair : pairs_) {
      at_ = pair.item;
      if (pair.result == Equality::kStopped) {
        Fault(L"{} was not compared, because waiting was given up.", {pair.name});
      } else if (pair.result != Equality::kEqual) {
        Fault(pair.result == Equality::kDifferent ? L"{} differs from its source{}"
                                                  : L"{} could not be compared{}",
              pair);
      }
    }
  }

  const std::vector<Copy>& copies_;
  const Comparison comparison_;
  const Tick& tick_;
  Progress& progress_;
  std::vector<Item>& items_;
  std::size_t at_ = 0;  // the item that is looked at
  std::vector<std::size_t> faults_ = std::vector<std::size_t>(items_.size());  // how many, by item
  std::vector<Pair> pairs_;
  Folders folders_;
  // Keys of what file items bring, and of the folders above.
  std::unordered_set<std::wstring> brought_;
};

}  // namespace

void JudgeEndState(const std::vector<Copy>& copies, Comparison comparison, const Tick& tick,
                   Progress& progress, std::vector<Item>& items) {
  Judge(copies, comparison, tick, progress, items).JudgeItems();
}

}  // namespace uaclient
