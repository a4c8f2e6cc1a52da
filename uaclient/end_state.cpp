#include "uaclient/end_state.h"

#include <windows.h>

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

constexpr wchar_t kChanged[] =
    L": the source has changed while the helper worked. Copy it again when it stays as it is.";

// What keeps a file from being copied, as far as it shows afterwards.
std::wstring LikelyCause(const std::wstring& source, const std::wstring& destination) {
  std::wstring fault = ReadingFault(source);
  if (!fault.empty()) return L": the source" + fault;
  WIN32_FIND_DATAW there = {};
  there.dwFileAttributes = GetFileAttributesW(destination.c_str());
  if (there.dwFileAttributes == INVALID_FILE_ATTRIBUTES) return L".";
  fault = EntryOf(there).IsProtected() ? kIsProtected : OverwritingFault(destination);
  return fault.empty() ? L": it could not be replaced. Look at its attributes and its access list."
                       : L": it" + fault;
}

// An item's faults as one text: the first ones in words, the others counted.
class Faults {
 public:
  void Add(const wchar_t* text, std::initializer_list<std::wstring> parts) {
    if (++count_ <= kNamedFaults) text_ += (text_.empty() ? L"" : L" ") + Filled(text, parts);
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
  Judge(const std::vector<Copy>& copies, Comparison comparison, const Tick& tick,
        Progress& progress)
      : comparison_(comparison), tick_(tick), progress_(progress) {
    progress_.files = progress_.bytes = 0;
    progress_.comparing = true;
    progress_.current.clear();
    for (const Copy& item : copies) {
      if (item.kind != Kind::kFile || !item.isUsable) continue;
      std::wstring path = item.destination;
      while (brought_.insert(UpperCase(path)).second && !IsRoot(path)) path = ParentOf(path);
    }
  }

  void JudgeItem(const Copy& item, Item& result) {
    Faults faults;
    if (!item.isUsable) {
      faults.Add(L"Its source or its destination is no path that could be looked at.", {});
    } else if (item.kind == Kind::kFile) {
      JudgeFile(item, faults);
    } else {
      JudgeFolder(item, faults);
    }
    result.reason = faults.Text();
    result.done = result.reason.empty();
    if (!result.done && !item.lastDeleted.empty()) {
      result.reason += L" The folder's old content is gone.";
    }
  }

 private:
  void JudgeFile(const Copy& item, Faults& faults) {
    FileState now;
    if (!ReadFileState(item.source, now)) {
      return faults.Add(L"The source cannot be seen any more: {}", {SystemMessage(GetLastError())});
    }
    JudgeTarget(L"It", item.source, item.destination, now,
                item.targets.empty() ? nullptr : &item.targets[0], faults);
  }

  void JudgeFolder(const Copy& item, Faults& faults) {
    const std::wstring& source = item.source;
    const std::wstring& destination = item.destination;
    if (!IsFolder(destination)) {
      return faults.Add(
          GetLastError() == ERROR_ACCESS_DENIED
              ? L"The folder is not visible to this user, so it could not be compared."
              : L"The folder is missing.",
          {});
    }
    std::unordered_map<std::wstring, const Target*> before;  // by paths in upper case
    for (const Target& target : item.targets) before.emplace(UpperCase(target.path), &target);
    const TreeListing now = ListTree(source, Links::kFollowedOnce);
    AddFaults(source, now, faults);
    if (item.kind == Kind::kReplaceFolder) AddLeftovers(destination, now, faults);
    for (const TreeEntry& entry : now.entries) {
      const auto was = before.find(UpperCase(entry.path));
      const Target* const target = was == before.end() ? nullptr : was->second;
      if (was != before.end()) before.erase(was);
      const std::wstring path = Below(destination, entry.path);
      if (!entry.isFolder) {
        JudgeTarget(Quoted(entry.path), Below(source, entry.path), path, entry.state, target,
                    faults);
      } else if (const Entry* const there = folders_.Find(path);
                 there == nullptr || !there->isFolder || there->isLink) {
        faults.Add(L"The folder {} is missing{}", {Quoted(entry.path), target ? L"." : kChanged});
      }
    }
    for (const auto& [path, target] : before) {
      faults.Add(L"{} is no longer in the source{}", {Quoted(target->path), kChanged});
    }
  }

  static void AddFaults(const std::wstring& folder, const TreeListing& tree, Faults& faults) {
    for (const TreeListing::Fault& fault : tree.faults) {
      faults.Add(fault.error == 0 ? L"{} is a link behind a link, which is not followed."
                                  : L"{} cannot be listed: {}",
                 {Quoted(Below(folder, fault.path)), SystemMessage(fault.error)});
    }
  }

  // What could not be deleted, and what has come since.
  void AddLeftovers(const std::wstring& destination, const TreeListing& source, Faults& faults) {
    std::unordered_set<std::wstring> expected;
    for (const TreeEntry& entry : source.entries) expected.insert(UpperCase(entry.path));
    const TreeListing there = ListTree(destination, Links::kNotFollowed);
    AddFaults(destination, there, faults);
    for (const TreeEntry& entry : there.entries) {
      if (expected.count(UpperCase(entry.path)) != 0 ||
          brought_.count(UpperCase(Below(destination, entry.path))) != 0) {
        continue;
      }
      faults.Add(
          L"{} is not in the source: it could not be deleted, or another program put it there.",
          {Quoted(entry.path)});
    }
  }

  void JudgeTarget(const std::wstring& name, const std::wstring& source,
                   const std::wstring& destination, const FileState& now, const Target* before,
                   Faults& faults) {
    const Entry* const there = folders_.Find(destination);
    const bool hasChanged = before == nullptr || !(before->state == now);
    const auto cause = [&] { return hasChanged ? kChanged : LikelyCause(source, destination); };
    if (there == nullptr || there->isFolder) return faults.Add(L"{} is missing{}", {name, cause()});
    const bool isFastEnough = comparison_ == Comparison::kSizeAndTime && !hasChanged &&
                              !before->lookedDone && there->state.Matches(now);
    switch (isFastEnough ? Equality::kEqual : comparer_.Compare(source, destination, tick_)) {
      case Equality::kEqual:
        ++progress_.files;
        progress_.bytes += now.size;
        return;
      case Equality::kStopped:
        return faults.Add(L"{} was not compared, because waiting was given up.", {name});
      case Equality::kNotRead:
        return faults.Add(L"{} could not be compared{}", {name, LikelyCause(source, destination)});
      case Equality::kDifferent:
        return faults.Add(L"{} differs from its source{}", {name, cause()});
    }
  }

  const Comparison comparison_;
  const Tick& tick_;
  Progress& progress_;
  Folders folders_;
  ContentComparer comparer_;
  // What file items bring, and the folders above: full paths in upper case.
  std::unordered_set<std::wstring> brought_;
};

}  // namespace

void JudgeEndState(const std::vector<Copy>& copies, Comparison comparison, const Tick& tick,
                   Progress& progress, std::vector<Item>& items) {
  Judge judge(copies, comparison, tick, progress);
  for (std::size_t i = 0; i < items.size(); ++i) judge.JudgeItem(copies[i], items[i]);
}

}  // namespace uaclient
