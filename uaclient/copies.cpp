#include "uaclient/copies.h"

#include <windows.h>

#include <algorithm>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

#include "corekit/text.h"
#include "uaclient/content_compare.h"
#include "uaclient/file_access.h"
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
  Surveyor(std::vector<CopyItem> items, Origin origin, const Options& options)
      : items_(std::move(items)),
        isPlan_(origin == Origin::kPlan),
        options_(options),
        details_(items_.size()) {
    survey_.lastDeleted.resize(items_.size());
    survey_.steps.resize(items_.size());
  }

  Survey Make() {
    for (std::size_t i = 0; i < items_.size(); ++i) Locate(Select(i));
    for (std::size_t i = 0; i < items_.size(); ++i) AddItem(Select(i));
    for (std::size_t i = 0; i < items_.size(); ++i) CheckPlaces(Select(i));
    CheckTemporaryFolder();
    CheckSpace();
    for (std::size_t i = 0; i < items_.size(); ++i) Finish(Select(i));
    std::stable_sort(
        survey_.findings.begin(), survey_.findings.end(),
        [](const Finding& left, const Finding& right) { return left.item < right.item; });
    CheckCount();
    for (auto& [key, claim] : claims_) survey_.claims.push_back(std::move(claim));
    survey_.items = std::move(items_);
    return std::move(survey_);
  }

 private:
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
  const CopyItem& Item() const { return items_[at_]; }
  bool Copies(Kind kind) const { return Item().kind == kind; }
  std::wstring Source() const { return Quoted(Item().source.wstring()); }
  std::wstring Destination() const { return Quoted(Item().destination.wstring()); }

  void Doubt(std::wstring text) { Add(Severity::kWarning, std::move(text)); }
  // The item, or a part of it, does not arrive.
  void Fail(std::wstring text) {
    details_[at_].hasFailed = true;
    Add(isPlan_ ? Severity::kError : Severity::kWarning, std::move(text));
  }
  // It destroys what nobody asked to destroy, or what it destroys cannot be told.
  void Harm(std::wstring text) {
    details_[at_].hasFailed = true;
    Add(isPlan_ ? Severity::kError : Severity::kHarmful, std::move(text));
  }
  void Add(Severity severity, std::wstring text) {
    if (++details_[at_].findings > kMaxFindings && severity != Severity::kHarmful) return;
    survey_.findings.push_back({severity, std::move(text), {}, 0, at_});
  }

  // What all others are compared with is found out ahead of them.
  void Locate(Details& item) {
    item.source = CheckPath(Item().source.wstring(),
                            isPlan_ ? L"The item's source" : L"The attribute \"src\"");
    item.destination = CheckPath(Item().destination.wstring(),
                                 isPlan_ ? L"The item's destination" : L"The attribute \"dec\"");
    if (!item.source.empty()) {
      item.from = Look(item.source);
      item.fromSpot = SpotOf(item.source, item.from, true);
      sources_.try_emplace(item.fromSpot.Key(), at_);
    }
    if (item.destination.empty()) return;
    item.to = Look(item.destination);
    item.toSpot = SpotOf(item.destination, item.to, false);
    if (Copies(Kind::kReplaceFolder)) replaced_.try_emplace(item.toSpot.Key(), at_);
    if (Copies(Kind::kFolder)) added_.try_emplace(item.toSpot.Key(), at_);
  }

  // The full path; L"" when there is none to go on with. What is odd in a list the helper tries.
  std::wstring CheckPath(const std::wstring& path, const std::wstring& name) {
    const std::wstring fault = PathFault(path, name);
    const bool isTried = fault.empty() || (!isPlan_ && IsAbsolute(path));
    if (!fault.empty()) isTried || path.empty() ? Fail(fault) : Harm(fault);
    const std::wstring full = isTried ? FullPath(path) : std::wstring();
    if (full.empty()) return {};
    const auto [drive, isNew] = driveFaults_.try_emplace(full[0]);
    if (isNew) drive->second = DriveFault(full);
    if (!drive->second.empty()) Harm(Quoted(path) + L": " + drive->second);
    if (!Copies(Kind::kFile) || (path.back() != L'\\' && path.back() != L'/')) return full;
    Fail(Quoted(path) + L" ends like a folder, but the item copies a file. Write the file's name" +
         (isPlan_ ? L", or copy the folder." : L", or type=\"dir\"."));
    return isPlan_ ? std::wstring() : full;
  }

  const Entry* Look(const std::wstring& fullPath) {
    static const Entry kRoot = {FILE_ATTRIBUTE_DIRECTORY, true, false, {}, 0};
    if (!IsRoot(fullPath)) return folders_.Find(fullPath);
    return folders_.At(fullPath).exists ? &kRoot : nullptr;
  }

  // A source's link counts as what it leads to. A destination's does not: it goes, or is refused.
  Spot SpotOf(const std::wstring& fullPath, const Entry* entry, bool isSource) {
    const bool isItself = entry != nullptr && (entry->isFolder || entry->isLink);
    const bool isFollowed = isSource || (entry != nullptr && !entry->isLink);
    if (IsRoot(fullPath) || (isItself && isFollowed)) return {&folders_.At(fullPath), {}};
    return {&folders_.At(ParentOf(fullPath)), UpperCase(NameOf(fullPath))};
  }

  void AddItem(Details& item) {
    if (item.source.empty() || item.destination.empty()) return;
    item.goesFirst = !Copies(Kind::kReplaceFolder) && FindUpwards(replaced_, item.toSpot);
    Claim(item.fromSpot, false);
    Claim(item.toSpot, true);
    if (!CheckSource(item) || !CheckDestination(item)) return;
    switch (Item().kind) {
      case Kind::kFile:
        return AddFile(item);
      case Kind::kFolder:
        return AddFolder(item);
      case Kind::kReplaceFolder:
        return ReplaceFolder(item);
    }
  }

  void Claim(const Spot& spot, bool isWritten) {
    const bool isFile = Copies(Kind::kFile);
    const Folder& folder = *spot.folder;
    Claimed& claim = claims_[(isWritten ? L"w" : L"r") + std::wstring(isFile ? L"f" : L"a") +
                             (isFile ? folder.keys[0] : spot.Key())];
    claim.isWritten = isWritten;
    claim.folder = folder.place;
    if (spot.name.empty()) return;
    if (isFile) {
      claim.names.insert(spot.name);
    } else {
      claim.folder.levels.push_back({{}, spot.name});
    }
  }

  bool CheckSource(const Details& item) {
    const bool isFile = Copies(Kind::kFile);
    if (item.from == nullptr) {
      Fail(L"The source " + Source() + L" does not exist.");
    } else if (item.from->error != 0) {
      Fail(L"The source " + Source() + L" is not visible to this user: " +
           SystemMessage(item.from->error));
    } else if (item.from->isFolder == isFile) {
      Fail(L"The source " + Source() + L" is a " + (isFile ? L"folder" : L"file") +
           L", but the item copies a " + (isFile ? L"file." : L"folder.") +
           (isPlan_ ? L"" : L" Write type=\"dir\" for a folder and type=\"file\" for a file."));
    } else {
      return true;
    }
    return false;
  }

  bool CheckDestination(const Details& item) {
    const std::wstring name = L"The destination " + Destination();
    const bool isFile = Copies(Kind::kFile);
    const bool replaces = Copies(Kind::kReplaceFolder);
    if (item.to == nullptr || item.goesFirst) return true;
    if (item.to->error != 0) {
      const std::wstring text = name +
                                L" is not visible to this user, so it could not be checked: " +
                                SystemMessage(item.to->error);
      replaces ? Harm(text) : Doubt(text);
      return !replaces;
    }
    if (item.to->isLink && replaces) {
      Doubt(name + L" is a link. It is removed, and what it leads to stays.");
    } else if (item.to->isLink) {
      Fail(name + L" is a link. Write where it leads, or remove it.");
      return !isPlan_;
    } else if (item.to->isFolder == isFile) {
      FailForOther(name, isFile);
      return false;
    }
    return true;
  }

  void FailForOther(const std::wstring& path, bool isFile) {
    Fail(path +
         (isFile ? L" is a folder, and a file cannot replace it."
                 : L" is a file, and a folder cannot replace it.") +
         L" Remove it, or choose another name.");
  }

  void AddFile(Details& item) {
    survey_.steps[at_].kind = Step::Kind::kCopyFile;
    TreeEntry file;
    static_cast<Entry&>(file) = *item.from;
    if (file.isLink && !ReadFileState(item.source, file.state)) {
      return Fail(L"The source " + Source() + L" is a link that leads nowhere.");
    }
    const std::wstring fault = isPlan_ ? L"" : AccessFault(item.source, Access::kRead);
    if (!fault.empty()) Fail(L"The source " + Source() + fault);
    MakeFolders(ParentOf(item.destination), ParentOf(item.source));
    AddTarget(item, file, item.to);
  }

  void AddFolder(Details& item) {
    survey_.steps[at_].kind = Step::Kind::kAddFolder;
    MakeFolders(item.destination, item.source);
    for (const TreeEntry& entry : ListSource(item).entries) {
      AddTarget(item, entry, folders_.Find(WithSeparator(item.destination) + entry.path));
    }
  }

  TreeListing ListSource(const Details& item) {
    TreeListing tree = ListTree(item.source, Links::kFollowedOnce);
    const std::wstring folder = WithSeparator(item.source);
    for (const TreeListing::Fault& fault : tree.faults) {
      Fail(Quoted(folder + fault.path) +
           (fault.error == 0 ? L" is a link behind a link, which is not followed. Put the files "
                               L"themselves into the source."
                             : L" cannot be listed: " + SystemMessage(fault.error)));
    }
    for (const TreeEntry& entry : tree.entries) {
      if (!entry.isLink) continue;
      const Spot spot = {&folders_.At(folder + entry.path), {}};
      sources_.try_emplace(spot.Key(), at_);
      Claim(spot, false);
    }
    return tree;
  }

  void ReplaceFolder(Details& item) {
    Step& step = survey_.steps[at_];
    step.kind = Step::Kind::kReplaceFolder;
    step.deletes = item.to != nullptr;
    const bool isLink = item.to != nullptr && item.to->isLink;
    if (!isLink && !MayBeDeleted(item)) return;
    const TreeListing source = ListSource(item);
    const TreeListing gone =
        step.deletes && !isLink ? ListTree(item.destination, Links::kNotFollowed) : TreeListing();
    std::unordered_map<std::wstring, const Entry*> there;
    for (const TreeEntry& entry : gone.entries) {
      CheckDeletion(WithSeparator(item.destination) + entry.path, entry);
      there.emplace(UpperCase(entry.path), &entry);
    }
    for (const TreeListing::Fault& fault : gone.faults) {
      if (fault.error == ERROR_ACCESS_DENIED && !IsElevated())
        continue;  // the elevation is for this
      Fail(Quoted(WithSeparator(item.destination) + fault.path) +
           L" cannot be listed, and so not deleted: " + SystemMessage(fault.error));
    }
    Bring(item.toSpot.Key(), item.destination, true);
    Operate(WithSeparator(item.source), item.destination + L"\\", true);
    for (const TreeEntry& entry : source.entries) {
      const std::wstring path = WithSeparator(item.source) + entry.path;
      const std::wstring fault = entry.isFolder ? L"" : AccessFault(path, Access::kRead);
      if (!fault.empty()) Fail(Quoted(path) + fault);
      const auto old = there.find(UpperCase(entry.path));
      AddTarget(item, entry, old == there.end() ? nullptr : old->second);
    }
  }

  bool MayBeDeleted(const Details& item) {
    const Folder& folder = folders_.At(item.destination);
    if (!kept_) kept_.emplace(folders_, options_);
    const std::wstring why = kept_->WhyKept(folder);
    if (!why.empty()) {
      Harm(L"The destination " + Destination() + why +
           L". Replacing it would delete programs or user data. Choose a folder that holds only "
           L"what you copy.");
    } else if (folder.exists && !folder.isKnown) {
      Harm(L"The system does not say where " + Destination() +
           L" leads, so it is not known what would be deleted. Choose another destination.");
    } else {
      return true;
    }
    return false;
  }

  void CheckDeletion(const std::wstring& path, const TreeEntry& entry) {
    // The helper lists a folder by its path, a separator and a pattern of one character.
    if (path.size() > kMaxFilePath - (entry.isFolder ? 2 : 0)) {
      Fail(Quoted(path) +
           L" has too long a path to be deleted, so the folder would not be "
           L"replaced. Remove it first.");
    }
    if (entry.isLink) {
      return Doubt(Quoted(path) +
                   L" is a link in a folder that is replaced. The link goes, and "
                   L"what it leads to stays.");
    }
    if (entry.isFolder) {
      gone_.try_emplace(folders_.At(path).keys[0], at_);
      return;
    }
    ++survey_.steps[at_].deletedFiles;
    survey_.steps[at_].deletedBytes += entry.state.size;
    survey_.lastDeleted[at_] = path;
    const std::wstring fault = AccessFault(path, Access::kDelete);
    if (!fault.empty()) Fail(Quoted(path) + L" is to be deleted, but" + fault);
  }

  // Has the helper make the folder and what is missing above it, as far as it is not there when the
  // item's turn comes. `like` is any folder that exists.
  void MakeFolders(const std::wstring& folder, const std::wstring& like) {
    std::vector<std::wstring> missing;
    for (std::wstring path = folder; !IsRoot(path); path = ParentOf(path)) {
      const Folder& there = folders_.At(path);
      if (there.isFile && !details_[at_].goesFirst) {
        return Fail(L"Above the destination " + Destination() + L" there is a file, " +
                    Quoted(path) + L", where a folder would have to be.");
      }
      if (replaced_.count(there.keys[0]) != 0) break;
      if (there.exists && !FindUpwards(replaced_, {&there, {}})) break;
      missing.push_back(path);
    }
    if (!isPlan_ && missing.size() > 1) {
      return Fail(L"More than one folder above the destination " + Destination() +
                  L" is missing, and the helper makes only one for a file. Make them first, or "
                  L"copy a folder.");
    }
    for (auto path = missing.rbegin(); path != missing.rend(); ++path) MakeFolder(*path, like);
  }

  // The helper makes the folder above what it is to write. That a folder cannot be copied as a file
  // does not matter then: the item counts because the folder is there.
  void MakeFolder(const std::wstring& folder, const std::wstring& like) {
    if (!Bring(folders_.At(folder).keys[0], folder, true)) return;
    if (folder.size() <= kMaxFolderPath) return Operate(like, folder + L"\\", false);
    Fail(Quoted(folder) +
         L" is too long for a folder: Windows makes them with up to 247 "
         L"characters. Use shorter paths.");
  }

  void Operate(const std::wstring& source, const std::wstring& destination, bool isFolder) {
    if (!isPlan_) return;
    survey_.operations.push_back({WideToUtf8(source), WideToUtf8(destination), isFolder});
  }

  void AddTarget(Details& item, const TreeEntry& entry, const Entry* there) {
    Target target = {at_, entry.path, entry.isFolder, entry.state, false};
    const std::wstring source = PathOf(item.source, target);
    const std::wstring destination = PathOf(item.destination, target);
    if (!CheckLengths(source, destination, entry.isFolder)) return;
    const bool replaces = Copies(Kind::kReplaceFolder);
    const bool stays = there != nullptr && !replaces && !item.goesFirst;
    if (stays && Copies(Kind::kFolder)) {
      if (there->isLink) {
        return Fail(Quoted(destination) +
                    L" is a link at the destination. Write where it leads, or remove it.");
      }
      if (there->isFolder != entry.isFolder)
        return FailForOther(Quoted(destination), !entry.isFolder);
    }
    target.lookedDone = there != nullptr && there->state.Matches(entry.state);
    survey_.targets.push_back(std::move(target));
    if (!entry.isFolder) {
      AddFileTarget(item, source, destination, entry, stays ? there : nullptr);
    } else if (replaces || there != nullptr) {
      Bring(folders_.At(destination).keys[0], destination, true);
    } else {
      MakeFolder(destination, source);
    }
  }

  void AddFileTarget(Details& item, const std::wstring& source, const std::wstring& destination,
                     const Entry& entry, const Entry* overwritten) {
    ++survey_.steps[at_].files;
    survey_.steps[at_].bytes += entry.state.size;
    const Folder& folder = folders_.At(ParentOf(destination));
    Bring(folder.KeyBelow(UpperCase(NameOf(destination))), destination, false);
    Space& space = spaces_[RootOf(folder.path)];
    space.item = at_;
    space.needed += entry.state.size;
    if (overwritten != nullptr) {
      ++item.overwritten;
      space.freed += overwritten->state.size;
      if (!MayBeOverwritten(source, destination, *overwritten)) return;
    }
    if (!Copies(Kind::kReplaceFolder)) Operate(source, destination, false);
  }

  bool CheckLengths(const std::wstring& source, const std::wstring& destination, bool isFolder) {
    const std::size_t most = isFolder ? kMaxFolderPath : kMaxFilePath;
    if (source.back() == L'.' || source.back() == L' ' || !ListCarries(NameOf(source))) {
      Fail(Quoted(source) + L" has a name that Windows reads as another one. Rename it.");
    } else if (source.size() > kMaxFilePath || destination.size() > most) {
      Fail(Quoted(source.size() > kMaxFilePath ? source : destination) +
           L" is too long: a file's path may have 259 characters, a folder's 247. Use shorter "
           L"paths.");
    } else {
      return true;
    }
    return false;
  }

  // A protected file that is what it should be is left out.
  bool MayBeOverwritten(const std::wstring& source, const std::wstring& destination,
                        const Entry& there) {
    if (there.IsProtected()) {
      if (!isPlan_ || ContentComparer().Compare(source, destination) != Equality::kEqual) {
        Fail(Quoted(destination) +
             L" is read-only, hidden or a system file, and Windows does not overwrite those. "
             L"Clear the attribute first.");
      }
      return false;
    }
    const std::wstring fault = isPlan_ ? L"" : AccessFault(destination, Access::kOverwrite);
    if (!fault.empty()) Fail(Quoted(destination) + fault);
    return true;
  }

  // Notes what comes to a place. False when that is noted already, or nothing may come there.
  bool Bring(const std::wstring& key, const std::wstring& path, bool isFolder) {
    const auto source = sources_.find(key);
    if (source != sources_.end()) {
      Harm(Quoted(path) + L" would be written, but it is the source " +
           Quoted(items_[source->second].source.wstring()) + L". Choose another destination.");
      return false;
    }
    const auto [other, isNew] = brought_.try_emplace(key, Brought{at_, isFolder});
    const Brought& first = other->second;
    if (isNew || (isFolder && first.isFolder && first.item != at_)) return isNew;
    if (first.item == at_ && isFolder && Copies(Kind::kFile)) return false;
    Harm(Quoted(path) +
         (first.item == at_
              ? L" would be written twice: in the source, two names differ only in case. Rename "
                L"one of them."
              : (first.isFolder == isFolder ? L" would be written twice: another item copies "
                                            : L" would be both a file and a folder: another item "
                                              L"copies ") +
                    Quoted(items_[first.item].source.wstring()) +
                    L" there. Choose another destination."));
    return false;
  }

  // What is deleted, and what everything goes into, against all sources and destinations.
  void CheckPlaces(const Details& item) {
    const std::wstring name = L"The destination " + Destination();
    const bool replaces = Copies(Kind::kReplaceFolder);
    const auto source = FindUpwards(sources_, item.toSpot);
    if (source) {
      Harm(name + L" is or lies in the source " + Quoted(items_[*source].source.wstring()) +
           L". Choose another destination.");
    }
    for (const ItemsByKey* others : {&replaced_, &gone_, replaces ? &added_ : &replaced_}) {
      const auto other = FindUpwards(*others, item.toSpot, at_);
      if (!other || Copies(Kind::kFile)) continue;
      Harm(name + L" is or lies in " + Quoted(items_[*other].destination.wstring()) +
           (others == &added_ ? L", into which another item copies."
                              : L", which another item replaces.") +
           L" Choose another destination.");
      break;
    }
    for (const ItemsByKey* others : {&replaced_, &gone_}) {
      const auto other = FindUpwards(*others, item.fromSpot);
      if (!other) continue;
      const std::wstring lost = Source();
      Select(*other);
      Harm(L"The destination " + Destination() + L" is or holds the source " + lost +
           L", which would be deleted. Choose another destination.");
      break;
    }
  }

  // While the helper works its own files are there, and it would copy them along.
  void CheckTemporaryFolder() {
    const std::wstring temp = TempFolder();
    if (temp.empty()) return;
    for (const std::wstring& key : folders_.At(temp).keys) {
      const auto source = sources_.find(key);
      if (source == sources_.end()) continue;
      Select(source->second);
      if (!Copies(Kind::kReplaceFolder) || !isPlan_) continue;
      Fail(L"The source " + Source() + L" holds the folder for temporary files, " + Quoted(temp) +
           L", in which the helper's own files lie meanwhile. Copy it without replacing, or set "
           L"TMP to another folder.");
    }
  }

  void CheckSpace() {
    for (std::size_t i = 0; i < items_.size(); ++i) {
      const Details& item = Select(i);
      if (!Copies(Kind::kReplaceFolder) || item.destination.empty()) continue;
      Space& space = spaces_[RootOf(folders_.At(item.destination).path)];
      space.freed += survey_.steps[i].deletedBytes;
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
      const std::wstring text = L"The destination " + Destination() +
                                L" does not fit: the copies " + L"need " + BytesInWords(more) +
                                L" more on " + root + L", and " + BytesInWords(free.QuadPart) +
                                L" are free. Free some, or choose another place.";
      space.replaces ? Fail(text) : Doubt(text);
    }
  }

  void CheckCount() {
    if (survey_.operations.size() <= kMaxOperations) return;
    const std::wstring count = std::to_wstring(survey_.operations.size());
    survey_.findings.push_back({Severity::kError, L"The plan comes to " + count +
                                                      L" files and folders, and one run takes up "
                                                      L"to 200000. Split it into several."});
  }

  void Finish(Details& item) {
    if (item.findings > kMaxFindings) {
      survey_.findings.push_back({Severity::kWarning,
                                  L"There are " + std::to_wstring(item.findings - kMaxFindings) +
                                      L" more findings for " + Source() + L".",
                                  {},
                                  0,
                                  at_});
    }
    Step& step = survey_.steps[at_];
    step.text = StepText(step, item);
    step.source = item.source.empty() ? Item().source : std::filesystem::path(item.source);
    step.destination =
        item.destination.empty() ? Item().destination : std::filesystem::path(item.destination);
    const bool isUsable = !item.source.empty() && !item.destination.empty();
    items_[at_].source = isUsable ? item.source : std::wstring();
    items_[at_].destination = isUsable ? item.destination : std::wstring();
  }

  std::wstring StepText(const Step& step, const Details& item) const {
    const bool isFile = Copies(Kind::kFile);
    const std::wstring what = (isFile ? L"the file " : L"the folder ") + Source();
    const std::wstring deletion =
        L" after deleting what is there (" + InWords(step.deletedFiles, step.deletedBytes) + L")";
    if (item.hasFailed) {
      return L"would not copy " + what + L" to " + Destination() +
             L", or not all of it (see above)" + (step.deletes ? deletion : L"");
    }
    return (Copies(Kind::kFolder) ? L"adds " : L"copies ") + what + L" (" +
           InWords(step.files, step.bytes) + L") to " + Destination() +
           (step.deletes            ? deletion
            : item.overwritten == 0 ? L""
            : isFile                ? L", over the one that is there"
                                    : L", over " + FilesInWords(item.overwritten) + L" there");
  }

  std::vector<CopyItem> items_;
  const bool isPlan_;
  const Options& options_;
  std::vector<Details> details_;
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

Survey SurveyCopies(std::vector<CopyItem> items, Origin origin, const Options& options) {
  return Surveyor(std::move(items), origin, options).Make();
}

std::wstring PathOf(const std::filesystem::path& root, const Target& target) {
  return target.path.empty() ? root.wstring() : WithSeparator(root.wstring()) + target.path;
}

}  // namespace uaclient
