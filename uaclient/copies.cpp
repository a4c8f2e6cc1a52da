#include "uaclient/copies.h"

#include <windows.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <numeric>
#include <optional>
#include <unordered_map>
#include <utility>

#include "corekit/text.h"
#include "uaclient/content_compare.h"
#include "uaclient/file_access.h"
#include "uaclient/findings.h"
#include "uaclient/helper_files.h"
#include "uaclient/kept_folders.h"
#include "uaclient/path.h"
#include "uaclient/size_text.h"
#include "uaclient/win32.h"

namespace uaclient {
namespace {

using Kind = CopyItem::Kind;

constexpr std::size_t kMaxOperations = 200'000;

// So many findings on one item tell what is the matter with it.
constexpr std::size_t kMaxFindings = 20;

std::wstring InWords(std::uint64_t files, std::uint64_t bytes) {
  return FilesInWords(files) + L", " + BytesInWords(bytes);
}

// A file or folder as the file system tells it from others.
struct Spot {
  const Folder* folder = nullptr;  // itself, or what a file lies in
  std::wstring name;               // the file's, in upper case

  std::wstring Key() const { return name.empty() ? folder->keys[0] : folder->KeyBelow(name); }
};

using ItemsByKey = std::unordered_map<std::wstring, std::size_t>;

// The item at the spot or at a folder above it; not that one which is passed over.
std::optional<std::size_t> FindUpwards(const ItemsByKey& items, const Spot& spot,
                                       std::size_t passedOver = Finding::kNoItem) {
  if (items.empty() || spot.folder == nullptr) return std::nullopt;
  const auto at = [&](const std::wstring& key) -> std::optional<std::size_t> {
    const auto found = items.find(key);
    if (found == items.end() || found->second == passedOver) return std::nullopt;
    return found->second;
  };
  if (const auto itself = at(spot.Key())) return itself;
  for (const std::wstring& key : spot.folder->keys) {
    if (const auto above = at(key)) return above;
  }
  return std::nullopt;
}

class Surveyor {
 public:
  Surveyor(std::vector<Copy> items, Origin origin, const Options& options)
      : items_(std::move(items)),
        isPlan_(origin == Origin::kPlan),
        options_(options),
        details_(items_.size()),
        steps_(items_.size()) {
    survey_.lastDeleted.resize(items_.size());
    survey_.steps.reserve(items_.size());
  }

  Survey Make() {
    std::vector<std::size_t> order(items_.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_partition(order.begin(), order.end(),
                          [this](std::size_t i) { return items_[i].kind == Kind::kReplaceFolder; });
    for (const std::size_t i : order) Locate(Select(i));
    for (const std::size_t i : order) AddItem(Select(i));
    for (const std::size_t i : order) CheckPlaces(Select(i));
    CheckTemporaryFolder();
    CheckSpace();
    for (const std::size_t i : order) Finish(Select(i));
    std::stable_sort(
        survey_.findings.begin(), survey_.findings.end(),
        [](const Finding& left, const Finding& right) { return left.item < right.item; });
    if (survey_.operations.size() > kMaxOperations) {
      survey_.findings.push_back(
          {Severity::kError,
           Filled(L"The plan comes to {} files and folders, and one run takes up "
                  L"to 200000. Split it into several.",
                  {std::to_wstring(survey_.operations.size())}),
           {}});
    }
    for (auto& [key, claim] : claims_) survey_.claims.push_back(std::move(claim));
    survey_.items = std::move(items_);
    return std::move(survey_);
  }

 private:
  using Parts = std::initializer_list<std::wstring>;

  // What is found out about an item.
  struct Details {
    std::wstring source;  // full paths; empty where there is none
    std::wstring destination;
    const Entry* from = nullptr;  // what is there
    const Entry* to = nullptr;
    Spot fromSpot;
    Spot toSpot;
    bool goesFirst = false;  // what is at the destination: another item replaces a folder above it
    bool hasFailed = false;
    std::size_t findings = 0;
    std::size_t overwritten = 0;
  };
  struct Brought {
    std::size_t item = 0;
    bool isFolder = false;
  };
  // What copies take from a drive or share.
  struct Space {
    std::uint64_t needed = 0;
    std::uint64_t freed = 0;
    std::size_t item = 0;  // the last one
    bool replaces = false;
  };

  Details& Select(std::size_t item) { return details_[at_ = item]; }
  bool Copies(Kind kind) const { return items_[at_].kind == kind; }
  std::wstring Source() const { return Quoted(items_[at_].source); }
  std::wstring Destination() const { return DestinationOf(at_); }
  std::wstring SourceOf(std::size_t item) const { return Quoted(items_[item].source); }
  std::wstring DestinationOf(std::size_t item) const { return Quoted(items_[item].destination); }

  void Doubt(const wchar_t* text, Parts parts) { Add(Severity::kWarning, text, parts); }
  // The item, or a part of it, does not arrive.
  void Fail(const wchar_t* text, Parts parts) {
    details_[at_].hasFailed = true;
    Add(isPlan_ ? Severity::kError : Severity::kWarning, text, parts);
  }
  // It destroys what nobody asked to destroy, or what it destroys cannot be told.
  void Harm(const wchar_t* text, Parts parts) {
    details_[at_].hasFailed = true;
    Add(isPlan_ ? Severity::kError : Severity::kHarmful, text, parts);
  }
  void Add(Severity severity, const wchar_t* text, Parts parts) {
    if (++details_[at_].findings > kMaxFindings && severity != Severity::kHarmful) return;
    survey_.findings.push_back({severity, Filled(text, parts), {}, 0, at_});
  }

  // What all others are compared with is found out ahead of them.
  void Locate(Details& item) {
    item.source = CheckPath(items_[at_].source, isPlan_ ? L"The source" : L"\"src\"");
    item.destination =
        CheckPath(items_[at_].destination, isPlan_ ? L"The destination" : L"\"dec\"");
    if (!item.source.empty()) {
      item.from = Look(item.source);
      item.fromSpot = SpotOf(item.source, item.from != nullptr && item.from->isLink);
      sources_.try_emplace(item.fromSpot.Key(), at_);
    }
    if (item.destination.empty()) return;
    item.to = Look(item.destination);
    // A link at the destination is not followed: it is replaced, or refused.
    const bool isLink = item.to != nullptr && item.to->isLink;
    item.toSpot =
        isLink ? Spot{&folders_.At(ParentOf(item.destination)), UpperCase(NameOf(item.destination))}
               : SpotOf(item.destination, false);
    if (Copies(Kind::kReplaceFolder)) replaced_.try_emplace(item.toSpot.Key(), at_);
    if (Copies(Kind::kFolder)) added_.try_emplace(item.toSpot.Key(), at_);
  }

  // The full path; L"" when there is none to go on with. What is odd in a list the helper tries.
  std::wstring CheckPath(const std::wstring& path, const wchar_t* name) {
    std::wstring full;
    const std::wstring fault = PathFault(path, name, full);
    if (!fault.empty() && !path.empty() && full.empty()) {
      Harm(L"{}", {fault});
    } else if (!fault.empty()) {
      Fail(L"{}", {fault});
      if (isPlan_) return {};
    }
    if (full.empty()) return {};
    CheckDrive(path, full);
    if (!Copies(Kind::kFile) || (path.back() != L'\\' && path.back() != L'/')) return full;
    Fail(L"{} ends like a folder, but the item copies a file. Write the file's name.",
         {Quoted(path)});
    return isPlan_ ? std::wstring() : full;
  }

  // What is wrong with a drive is said once.
  void CheckDrive(const std::wstring& path, const std::wstring& full) {
    const auto [drive, isNew] = driveFaults_.try_emplace(full[0]);
    if (isNew) drive->second = DriveFault(full);
    if (drive->second.empty()) return;
    details_[at_].hasFailed = true;
    if (isNew) Harm(L"{}: {}", {Quoted(path), drive->second});
  }

  const Entry* Look(const std::wstring& fullPath) {
    static const Entry kRoot = {FILE_ATTRIBUTE_DIRECTORY, true, false, {}, 0};
    if (!IsRoot(fullPath)) return folders_.Find(fullPath);
    return folders_.At(fullPath).exists ? &kRoot : nullptr;
  }

  Spot SpotOf(const std::wstring& fullPath, bool isFollowed) {
    if (!Copies(Kind::kFile) || isFollowed || IsRoot(fullPath)) return {&folders_.At(fullPath), {}};
    return {&folders_.At(ParentOf(fullPath)), UpperCase(NameOf(fullPath))};
  }

  void AddItem(Details& item) {
    constexpr Step::Kind kSteps[] = {Step::Kind::kCopyFile, Step::Kind::kAddFolder,
                                     Step::Kind::kReplaceFolder};
    steps_[at_].kind = kSteps[static_cast<std::size_t>(items_[at_].kind)];
    if (item.source.empty() || item.destination.empty()) return;
    item.goesFirst = !Copies(Kind::kReplaceFolder) && FindUpwards(replaced_, item.toSpot);
    Claim(item.fromSpot, false);
    Claim(item.toSpot, true);
    if (!CheckKinds(item)) return;
    if (Copies(Kind::kReplaceFolder)) return ReplaceFolder(item);
    MakeFolders(Copies(Kind::kFile) ? ParentOf(item.destination) : item.destination,
                Copies(Kind::kFile) ? ParentOf(item.source) : item.source);
    for (const TreeEntry& entry : ListSource(item)) {
      AddTarget(item, entry, Look(Below(item.destination, entry.path)));
    }
  }

  void Claim(const Spot& spot, bool isWritten) {
    const auto [found, isNew] =
        claims_.try_emplace((isWritten ? L"w" : L"r") +
                            std::wstring(spot.name.empty() ? L"" : L"*") + spot.folder->keys[0]);
    Claimed& claim = found->second;
    if (isNew) claim = {spot.folder->place, {}, isWritten};
    if (!spot.name.empty()) claim.names.insert(spot.name);
  }

  // Whether there is a file to copy over none or a file, or a folder over none or a folder.
  bool CheckKinds(const Details& item) {
    const bool isFile = Copies(Kind::kFile);
    if (item.from == nullptr) {
      Fail(L"The source {} does not exist.", {Source()});
    } else if (item.from->error != 0) {
      Fail(L"The source {} is not visible to this user: {}",
           {Source(), SystemMessage(item.from->error)});
    } else if (item.from->isFolder == isFile) {
      Fail(L"The source {} is a {}, but the item copies a {}.{}",
           {Source(), isFile ? L"folder" : L"file", isFile ? L"file" : L"folder",
            isPlan_ ? L"" : L" Write type=\"dir\" for a folder, else \"file\"."});
    } else {
      return item.to == nullptr || item.goesFirst || CheckDestination(*item.to);
    }
    return false;
  }

  bool CheckDestination(const Entry& there) {
    const bool isFile = Copies(Kind::kFile);
    const bool replaces = Copies(Kind::kReplaceFolder);
    if (there.error != 0) {
      constexpr wchar_t kText[] =
          L"The destination {} is not visible to this user, so it could not be checked: {}";
      const std::wstring error = SystemMessage(there.error);
      replaces ? Harm(kText, {Destination(), error}) : Doubt(kText, {Destination(), error});
      return !replaces;
    }
    if (there.isLink && replaces) {
      Doubt(L"The destination {} is a link. It is removed, and what it leads to stays.",
            {Destination()});
    } else if (there.isLink) {
      Fail(L"The destination {} is a link. Write where it leads, or remove it.", {Destination()});
      return !isPlan_;
    } else if (there.isFolder == isFile) {
      Fail(
          L"At the destination {} there is a {}, which a {} cannot replace. Remove it, or choose "
          L"another name.",
          {Destination(), isFile ? L"folder" : L"file", isFile ? L"file" : L"folder"});
      return false;
    }
    return true;
  }

  // The tree, or the file alone.
  std::vector<TreeEntry> ListSource(const Details& item) {
    TreeListing tree;
    if (Copies(Kind::kFile)) {
      tree.entries.emplace_back();
      static_cast<Entry&>(tree.entries[0]) = *item.from;
      if (item.from->isLink && !ReadFileState(item.source, tree.entries[0].state)) {
        tree.faults.push_back({{}, GetLastError()});
      }
    } else {
      tree = ListTree(item.source, Links::kFollowedOnce);
    }
    for (const TreeListing::Fault& fault : tree.faults) {
      Fail(fault.error == 0 ? L"{} is a link behind a link, which is not followed. Put the files "
                              L"themselves into the source."
                            : L"{} cannot be read: {}",
           {Quoted(Below(item.source, fault.path)), SystemMessage(fault.error)});
    }
    for (const TreeEntry& entry : tree.entries) {
      if (!entry.isLink || Copies(Kind::kFile)) continue;
      const Spot spot = {&folders_.At(Below(item.source, entry.path)), {}};
      sources_.try_emplace(spot.Key(), at_);
      Claim(spot, false);
    }
    return std::move(tree.entries);
  }

  void ReplaceFolder(Details& item) {
    const bool isLink = item.to != nullptr && item.to->isLink;
    steps_[at_].deletes = item.to != nullptr;
    if (!isLink && !MayBeDeleted(item)) return;
    const std::vector<TreeEntry> source = ListSource(item);
    std::unordered_map<std::wstring, Entry> there;
    if (steps_[at_].deletes && !isLink) {
      const TreeListing gone = ListTree(item.destination, Links::kNotFollowed);
      for (const TreeEntry& entry : gone.entries) {
        CheckDeletion(Below(item.destination, entry.path), entry);
        there.emplace(UpperCase(entry.path), entry);
      }
      for (const TreeListing::Fault& fault : gone.faults) {
        if (fault.error == ERROR_ACCESS_DENIED && !IsElevated()) continue;  // elevation is for this
        Fail(L"{} cannot be listed, and so not deleted: {}",
             {Quoted(Below(item.destination, fault.path)), SystemMessage(fault.error)});
      }
    }
    Bring(item.toSpot.Key(), item.destination, true);
    Operate(WithSeparator(item.source), item.destination + L"\\", true);
    for (const TreeEntry& entry : source) {
      const std::wstring path = Below(item.source, entry.path);
      const std::wstring fault = entry.isFolder ? L"" : ReadingFault(path);
      if (!fault.empty()) Fail(L"{}{}", {Quoted(path), fault});
      const auto old = there.find(UpperCase(entry.path));
      AddTarget(item, entry, old == there.end() ? nullptr : &old->second);
    }
  }

  bool MayBeDeleted(const Details& item) {
    const Folder& folder = folders_.At(item.destination);
    if (!kept_) kept_.emplace(folders_, options_);
    const std::wstring why = kept_->WhyKept(folder);
    if (!why.empty()) {
      Harm(
          L"The destination {}{}. Replacing it would delete programs or user data. Choose a folder "
          L"that holds only what you copy.",
          {Destination(), why});
    } else if (folder.exists && !folder.isKnown) {
      Harm(
          L"The system does not say where {} leads, so it is not known what would be deleted. "
          L"Choose another destination.",
          {Destination()});
    } else {
      return true;
    }
    return false;
  }

  void CheckDeletion(const std::wstring& path, const TreeEntry& entry) {
    // The helper lists a folder by its path, a separator and a pattern of one character.
    if (path.size() > kMaxFilePath - (entry.isFolder ? 2 : 0)) {
      Fail(L"{} is too long to be deleted, so the folder would not be replaced. Remove it first.",
           {Quoted(path)});
    }
    if (entry.isLink) {
      Doubt(
          L"{} is a link in a folder that is replaced. The link goes, and what it leads to stays.",
          {Quoted(path)});
    } else if (entry.isFolder) {
      gone_.try_emplace(folders_.At(path).keys[0], at_);
    } else {
      ++steps_[at_].deletedFiles;
      steps_[at_].deletedBytes += entry.state.size;
      survey_.lastDeleted[at_] = path;
      const std::wstring fault = DeletionFault(path);
      if (!fault.empty()) Fail(L"{} is to be deleted, but{}", {Quoted(path), fault});
    }
  }

  // Has the helper make the folder and what is missing above it, as far as it is not there when the
  // item's turn comes. `like` is any folder that exists.
  void MakeFolders(const std::wstring& folder, const std::wstring& like) {
    std::vector<std::wstring> missing;
    for (std::wstring path = folder; !IsRoot(path); path = ParentOf(path)) {
      const Folder& there = folders_.At(path);
      if (there.isFile && !details_[at_].goesFirst) {
        return Fail(
            L"Above the destination {} there is a file, {}, where a folder would have to be.",
            {Destination(), Quoted(path)});
      }
      if (replaced_.count(there.keys[0]) != 0) break;
      if (there.exists && !FindUpwards(replaced_, {&there, {}})) break;
      missing.push_back(path);
    }
    if (!isPlan_ && missing.size() > 1) {
      return Fail(
          L"More than one folder above the destination {} is missing, and the helper makes "
          L"only one for a file. Make them first, or copy a folder.",
          {Destination()});
    }
    for (auto path = missing.rbegin(); path != missing.rend(); ++path) MakeFolder(*path, like);
  }

  // The helper makes the folder above what it is to write. That a folder cannot be copied as a file
  // does not matter then: the item counts because the folder is there.
  void MakeFolder(const std::wstring& folder, const std::wstring& like) {
    if (!Bring(folders_.At(folder).keys[0], folder, true)) return;
    if (folder.size() <= kMaxFolderPath) return Operate(like, folder + L"\\", false);
    Fail(
        L"{} is too long for a folder: Windows makes them with up to 247 characters. Use shorter "
        L"paths.",
        {Quoted(folder)});
  }

  void Operate(const std::wstring& source, const std::wstring& destination, bool isFolder) {
    if (!isPlan_) return;
    survey_.operations.push_back({WideToUtf8(source), WideToUtf8(destination), isFolder});
  }

  // `there` is what is at the destination now.
  void AddTarget(Details& item, const TreeEntry& entry, const Entry* there) {
    const std::wstring source = Below(item.source, entry.path);
    const std::wstring destination = Below(item.destination, entry.path);
    if (!CheckNames(source, destination, entry.isFolder)) return;
    const bool replaces = Copies(Kind::kReplaceFolder);
    const bool stays = there != nullptr && !replaces && !item.goesFirst;
    if (stays && Copies(Kind::kFolder) && (there->isLink || there->isFolder != entry.isFolder)) {
      return Fail(L"{} exists at the destination and is {}. Remove it first.",
                  {Quoted(destination), there->isLink     ? L"a link"
                                        : there->isFolder ? L"not a file"
                                                          : L"not a folder"});
    }
    const bool looksDone = there != nullptr && there->state.Matches(entry.state);
    survey_.targets.push_back({at_, entry.path, entry.isFolder, entry.state, looksDone});
    if (!entry.isFolder) {
      AddFile(item, source, destination, entry, stays ? there : nullptr);
    } else if (replaces || there != nullptr) {
      Bring(folders_.At(destination).keys[0], destination, true);
    } else {
      MakeFolder(destination, source);
    }
  }

  void AddFile(Details& item, const std::wstring& source, const std::wstring& destination,
               const Entry& entry, const Entry* overwritten) {
    ++steps_[at_].files;
    steps_[at_].bytes += entry.state.size;
    const Folder& folder = folders_.At(ParentOf(destination));
    Bring(folder.KeyBelow(UpperCase(NameOf(destination))), destination, false);
    Space& space = spaces_[RootOf(folder.path)];
    space.item = at_;
    space.needed += entry.state.size;
    if (overwritten != nullptr) {
      ++item.overwritten;
      space.freed += overwritten->state.size;
    }
    if (overwritten != nullptr && overwritten->IsProtected()) {
      // One that is what it should be is left out.
      if (isPlan_ && ContentComparer().Compare(source, destination) == Equality::kEqual) return;
      Fail(
          L"{} is read-only, hidden or a system file, and Windows does not overwrite those. Clear "
          L"the attribute first.",
          {Quoted(destination)});
    }
    if (!Copies(Kind::kReplaceFolder)) Operate(source, destination, false);
  }

  bool CheckNames(const std::wstring& source, const std::wstring& destination, bool isFolder) {
    const std::size_t most = isFolder ? kMaxFolderPath : kMaxFilePath;
    if (source.back() == L'.' || source.back() == L' ' || !ListCarries(NameOf(source))) {
      Fail(L"{} has a name that Windows reads as another one. Rename it.", {Quoted(source)});
    } else if (source.size() > kMaxFilePath || destination.size() > most) {
      Fail(
          L"{} is too long: a file's path may have 259 characters, a folder's 247. Use shorter "
          L"paths.",
          {Quoted(source.size() > kMaxFilePath ? source : destination)});
    } else {
      return true;
    }
    return false;
  }

  // Notes what comes to a place. False when that is noted already, or nothing may come there.
  bool Bring(const std::wstring& key, const std::wstring& path, bool isFolder) {
    const auto source = sources_.find(key);
    if (source != sources_.end()) {
      Harm(L"{} would be written, but it is the source {}. Choose another destination.",
           {Quoted(path), SourceOf(source->second)});
      return false;
    }
    const auto [other, isNew] = brought_.try_emplace(key, Brought{at_, isFolder});
    const Brought& first = other->second;
    if (isNew || (isFolder && first.isFolder && (first.item != at_ || Copies(Kind::kFile)))) {
      return isNew;
    }
    Harm(first.item == at_ ? L"{} would be written twice: in the source, two names differ only in "
                             L"case. Rename one of them."
         : first.isFolder == isFolder
             ? L"{} would be written twice: another item copies {} there. Choose another "
               L"destination."
             : L"{} would be both a file and a folder: another item copies {} there. Choose "
               L"another destination.",
         {Quoted(path), SourceOf(first.item)});
    return false;
  }

  // What is deleted, and what everything goes into, against all sources and destinations.
  void CheckPlaces(const Details& item) {
    if (const auto source = FindUpwards(sources_, item.toSpot)) {
      Harm(L"The destination {} is or lies in the source {}. Choose another destination.",
           {Destination(), SourceOf(*source)});
    }
    const bool replaces = Copies(Kind::kReplaceFolder);
    for (const ItemsByKey* others : {&replaced_, &gone_, replaces ? &added_ : &replaced_}) {
      const auto other = FindUpwards(*others, item.toSpot, at_);
      if (!other || Copies(Kind::kFile)) continue;
      Harm(
          L"The destination {} is or lies in {}, {}. Choose another destination.",
          {Destination(), DestinationOf(*other),
           others == &added_ ? L"into which another item copies" : L"which another item replaces"});
      break;
    }
    for (const ItemsByKey* others : {&replaced_, &gone_}) {
      const auto other = FindUpwards(*others, item.fromSpot);
      if (!other) continue;
      const std::wstring lost = Source();
      Select(*other);
      return Harm(
          L"The destination {} is or holds the source {}, which would be deleted. Choose "
          L"another destination.",
          {Destination(), lost});
    }
  }

  // While the helper works its own files are there, and it would copy them along.
  void CheckTemporaryFolder() {
    const std::wstring temp = TempFolder();
    if (temp.empty() || !isPlan_) return;
    for (const std::wstring& key : folders_.At(temp).keys) {
      const auto source = sources_.find(key);
      if (source == sources_.end()) continue;
      Select(source->second);
      if (!Copies(Kind::kReplaceFolder)) continue;
      Fail(
          L"The source {} holds the folder for temporary files, {}, in which the helper's own "
          L"files lie meanwhile. Copy it without replacing, or set TMP to another folder.",
          {Source(), Quoted(temp)});
    }
  }

  void CheckSpace() {
    for (std::size_t i = 0; i < items_.size(); ++i) {
      const Details& item = Select(i);
      if (!Copies(Kind::kReplaceFolder) || item.destination.empty()) continue;
      Space& space = spaces_[RootOf(folders_.At(item.destination).path)];
      space.freed += steps_[i].deletedBytes;
      space.replaces = true;
    }
    for (const auto& [root, space] : spaces_) {
      ULARGE_INTEGER free = {};
      const std::uint64_t more = space.needed - std::min(space.needed, space.freed);
      if (!GetDiskFreeSpaceExW(WithSeparator(root).c_str(), &free, nullptr, nullptr) ||
          more <= free.QuadPart) {
        continue;
      }
      Select(space.item);
      constexpr wchar_t kText[] =
          L"The destination {} does not fit: the copies need {} more on {}, and {} are free. Free "
          L"some, or choose another place.";
      const Parts parts = {Destination(), BytesInWords(more), root, BytesInWords(free.QuadPart)};
      space.replaces ? Fail(kText, parts) : Doubt(kText, parts);
    }
  }

  void Finish(Details& item) {
    if (item.findings > kMaxFindings) {
      survey_.findings.push_back({Severity::kWarning,
                                  Filled(L"There are {} more findings for {}.",
                                         {std::to_wstring(item.findings - kMaxFindings), Source()}),
                                  {},
                                  0,
                                  at_});
    }
    Step& step = steps_[at_];
    step.text = StepText(step, item);
    const bool isUsable = !item.source.empty() && !item.destination.empty();
    Copy& copy = items_[at_];
    step.source = isUsable ? item.source : copy.source;
    step.destination = isUsable ? item.destination : copy.destination;
    copy.source = isUsable ? std::move(item.source) : L"";
    copy.destination = isUsable ? std::move(item.destination) : L"";
    survey_.steps.push_back(std::move(step));
  }

  std::wstring StepText(const Step& step, const Details& item) const {
    const bool isFile = Copies(Kind::kFile);
    const std::wstring what = (isFile ? L"the file " : L"the folder ") + Source();
    const std::wstring deletion = step.deletes
                                      ? L" after deleting what is there (" +
                                            InWords(step.deletedFiles, step.deletedBytes) + L")"
                                      : L"";
    if (item.hasFailed) {
      return L"would not copy " + what + L" to " + Destination() +
             L", or not all of it (see above)" + deletion;
    }
    return Filled(L"{} {} ({}) to {}{}",
                  {Copies(Kind::kFolder) ? L"adds" : L"copies", what,
                   InWords(step.files, step.bytes), Destination(),
                   step.deletes            ? deletion
                   : item.overwritten == 0 ? L""
                   : isFile                ? L", over the one that is there"
                            : L", over " + FilesInWords(item.overwritten) + L" there"});
  }

  std::vector<Copy> items_;
  const bool isPlan_;
  const Options& options_;
  std::vector<Details> details_;
  std::vector<Step> steps_;
  std::size_t at_ = 0;  // the item that is looked at
  Folders folders_;
  std::optional<KeptFolders> kept_;
  std::map<wchar_t, std::wstring> driveFaults_;
  ItemsByKey sources_;
  ItemsByKey replaced_;  // destinations that are replaced
  ItemsByKey gone_;      // the folders in them
  ItemsByKey added_;     // folders that are added to
  std::unordered_map<std::wstring, Brought> brought_;
  std::map<std::wstring, Claimed> claims_;
  std::map<std::wstring, Space> spaces_;  // by drive or share
  Survey survey_;
};

}  // namespace

Survey SurveyCopies(std::vector<Copy> items, Origin origin, const Options& options) {
  return Surveyor(std::move(items), origin, options).Make();
}

}  // namespace uaclient
