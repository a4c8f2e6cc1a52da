#include "uaclient/end_state.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "uaclient/file_access.h"
#include "uaclient/path.h"
#include "uaclient/places.h"
#include "uaclient/win32.h"
#include "uaclient/words.h"

namespace uaclient {
namespace {

using Kind = CopyItem::Kind;

// How many of an item's faults its reason names.
constexpr std::size_t kNamedFaults = 3;

constexpr wchar_t kChanged[] = L": the source has changed while the helper worked. Copy it again.";

// What keeps a file from being copied, as far as it shows afterwards.
std::wstring LikelyCause(const std::wstring& source, const std::wstring& destination) {
  if (IsFolder(source)) return L".";
  std::wstring fault = ReadingFault(source);
  if (!fault.empty()) return L": the source" + fault;
  WIN32_FIND_DATAW there = {};
  there.dwFileAttributes = GetFileAttributesW(destination.c_str());
  if (there.dwFileAttributes == INVALID_FILE_ATTRIBUTES) return L".";
  fault = EntryOf(there).IsProtected() ? kIsProtected : OverwritingFault(destination);
  return fault.empty() ? L": it could not be replaced. Look at its attributes and its access list."
                       : L": it" + fault;
}

// A file whose content is compared with its source's.
struct Pair {
  std::size_t item;
  std::wstring name;
  std::wstring source;
  std::wstring destination;
  std::uint64_t size;
  bool hasChanged;  // the source, since the check
  Equality result = Equality::kStopped;
};

class Judge {
 public:
  Judge(const std::vector<Copy>& copies, Comparison comparison, const Tick& tick,
        Progress& progress)
      : copies_(copies), comparison_(comparison), tick_(tick), progress_(progress) {
    progress_.files = progress_.bytes = 0;
    progress_.comparing = true;
    progress_.current.clear();
    for (const Copy& item : copies) {
      if (item.kind != Kind::kFile || !item.isUsable) continue;
      const Spot spot = folders_.FileAt(item.destination);
      brought_.insert(spot.Key());
      brought_.insert(spot.folder->keys.begin(), spot.folder->keys.end());
    }
  }

  void JudgeItems(std::vector<Item>& items) {
    for (at_ = 0; at_ < copies_.size(); ++at_) JudgeItem(copies_[at_]);
    ComparePairs();
    for (std::size_t i = 0; i < copies_.size(); ++i) {
      const std::vector<std::wstring>& faults = faults_[i];
      items[i].done = faults.empty();
      if (faults.empty()) continue;
      std::wstring& reason = items[i].reason = faults[0];
      for (std::size_t k = 1; k < std::min(faults.size(), kNamedFaults); ++k) {
        reason += L" " + faults[k];
      }
      if (faults.size() > kNamedFaults) {
        reason += L" And " + std::to_wstring(faults.size() - kNamedFaults) + L" more.";
      }
      if (copies_[i].losesFiles) reason += L" The folder's old content is gone.";
    }
  }

 private:
  void Fault(const wchar_t* text, Parts parts) { faults_[at_].push_back(Filled(text, parts)); }
  void Fault(const wchar_t* text, const Pair& pair) {
    const bool isNamed = faults_[at_].size() < kNamedFaults;  // to find a cause takes long
    Fault(text, {pair.name, pair.hasChanged ? kChanged
                            : isNamed       ? LikelyCause(pair.source, pair.destination)
                                            : L""});
  }

  void JudgeItem(const Copy& item) {
    const Entry* const from = item.isUsable ? folders_.Find(item.source) : nullptr;
    if (from == nullptr || from->error != 0) {
      return Fault(item.isUsable ? L"The source cannot be seen any more."
                                 : L"Its source or destination is no path that could be looked at.",
                   {});
    }
    const TreeListing now = ListTree(item.source, *from, Links::kFollowedOnce);
    JudgeListing(item.source, now);
    if (item.kind == Kind::kReplaceFolder) JudgeLeftovers(item.destination, now);

    std::unordered_map<std::wstring, const Target*> before;  // by paths in upper case
    for (const Target& target : item.targets) before.emplace(UpperCase(target.path), &target);
    for (const TreeEntry& entry : now.entries) {
      const auto was = before.find(UpperCase(entry.path));
      JudgeEntry(item, entry, was == before.end() ? nullptr : was->second);
      if (was != before.end()) before.erase(was);
    }
    for (const auto& [path, target] : before) {
      Fault(L"{} is no longer in the source{}", {Quoted(target->path), kChanged});
    }
  }

  void JudgeListing(const std::wstring& root, const TreeListing& tree) {
    for (const TreeListing::Fault& fault : tree.faults) Fault(L"{}", {InWords(fault, root)});
  }

  // What could not be deleted, and what has come since.
  void JudgeLeftovers(const std::wstring& destination, const TreeListing& source) {
    const Entry* const root = folders_.Find(destination);
    if (root == nullptr || !root->isFolder) return;
    std::unordered_set<std::wstring> expected;
    for (const TreeEntry& entry : source.entries) expected.insert(UpperCase(entry.path));
    const TreeListing there = ListTree(destination, *root, Links::kNotFollowed);
    JudgeListing(destination, there);
    for (const TreeEntry& entry : there.entries) {
      if (expected.count(UpperCase(entry.path)) != 0) continue;
      const std::wstring path = Below(destination, entry.path);
      const bool isBrought =
          !brought_.empty() && brought_.count(entry.isFolder ? folders_.At(path).keys[0]
                                                             : folders_.FileAt(path).Key()) != 0;
      if (isBrought) continue;
      Fault(L"{} is not in the source: it could not be deleted, or another program put it there.",
            {Quoted(entry.path)});
    }
  }

  void JudgeEntry(const Copy& item, const TreeEntry& now, const Target* before) {
    const std::wstring name = (now.isFolder ? L"The folder " : L"") + Quoted(now.path);
    const Pair pair = {at_,
                       !now.path.empty() ? name
                       : now.isFolder    ? L"The folder"
                                         : L"It",
                       Below(item.source, now.path),
                       Below(item.destination, now.path),
                       now.state.size,
                       before == nullptr || !(before->state == now.state)};
    const Entry* const there = folders_.Find(pair.destination);
    if (there != nullptr && there->error != 0) {
      return Fault(L"{} is not visible to this user, so it could not be compared.", {pair.name});
    }
    if (there == nullptr || there->isFolder != now.isFolder || (there->isFolder && there->isLink)) {
      return Fault(L"{} is missing{}", pair);
    }
    if (now.isFolder) return;
    if (comparison_ == Comparison::kSizeAndTime && !pair.hasChanged && !before->lookedDone &&
        there->state.Matches(now.state)) {
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
  std::size_t at_ = 0;                                             // the item that is looked at
  std::vector<std::vector<std::wstring>> faults_{copies_.size()};  // by item
  std::vector<Pair> pairs_;
  Folders folders_;
  // Keys of what file items bring, and of the folders above.
  std::unordered_set<std::wstring> brought_;
};

}  // namespace

void JudgeEndState(const std::vector<Copy>& copies, Comparison comparison, const Tick& tick,
                   Progress& progress, std::vector<Item>& items) {
  Judge(copies, comparison, tick, progress).JudgeItems(items);
}

}  // namespace uaclient
