#include <algorithm>
#include <initializer_list>
#include <optional>
#include <unordered_map>
#include <utility>

#include "corekit/text.h"
#include "uaclient/file_access.h"
#include "uaclient/helper_files.h"
#include "uaclient/kept_folders.h"
#include "uaclient/path.h"
#include "uaclient/places.h"
#include "uaclient/words.h"
#include "uaclient/work.h"
#include "uactask/operation_list.h"

namespace uaclient {
namespace {

using Kind = Step::Kind;

static_assert(static_cast<Kind>(CopyItem::Kind::kReplaceFolder) == Kind::kReplaceFolder);

constexpr std::size_t kMaxOperations = 200'000;

constexpr std::int64_t kUnlimited = INT64_MAX / 2;

std::wstring InWords(std::uint64_t files, std::uint64_t bytes) {
  return L"(" + FilesInWords(files) + L", " + BytesInWords(bytes) + L")";
}

class Surveyor {
 public:
  Surveyor(Work& work, const Options& options, const std::wstring& listFile)
      : work_(work), options_(options), listFile_(listFile) {}

  void Survey() {
    for (std::size_t i = 0; i < copies_.size(); ++i) copies_[i].item = i;
    std::stable_partition(copies_.begin(), copies_.end(),
                          [](const Copy& copy) { return copy.kind == Kind::kReplaceFolder; });
    report_.steps.resize(copies_.size());
    for (const auto look : {&Surveyor::Locate, &Surveyor::AddItem, &Surveyor::CheckPlaces,
                            &Surveyor::CheckSpace, &Surveyor::Claim, &Surveyor::Describe}) {
      for (at_ = 0; at_ < copies_.size(); ++at_) (this->*look)(details_[at_]);
    }
    if (operations_.size() > kMaxOperations) {
      report_.findings.push_back(
          {Severity::kError, L"The plan has more than 200000 files and folders. Split it.", {}});
    }
    if (!operations_.empty()) work_.list = FormatOperationList(operations_);
  }

 private:
  // What is found out about an item.
  struct Details {
    const Entry* from = nullptr;  // what is there
    const Entry* to = nullptr;
    std::vector<Spot> read;  // the source, and where links in it lead
    Spot toSpot;
    bool goesFirst = false;  // what is at the destination: another item replaces a folder above it
    bool hasFailed = false;
    std::uint64_t freedBytes = 0;  // by overwriting and deleting
  };
  struct Brought {
    std::size_t item = 0;
    bool isFolder = false;
  };

  Step& CurrentStep() { return report_.steps[at_]; }
  bool Copies(Kind kind) const { return copies_[at_].kind == kind; }
  const wchar_t* Own() const { return Copies(Kind::kCopyFile) ? L"file" : L"folder"; }
  const std::wstring& Source() const { return copies_[at_].source; }
  const std::wstring& Destination() const { return copies_[at_].destination; }

  // These return whether the item can go on.
  bool Doubt(const wchar_t* text, Parts parts) { return Add(Severity::kWarning, text, parts); }
  // The item, or a part of it, does not arrive.
  bool Fail(const wchar_t* text, Parts parts) {
    if (CurrentStep().deletes) return Harm(text, parts);  // and the old content would be gone
    return Add(isPlan_ ? Severity::kError : Severity::kWarning, text, parts, true);
  }
  // It may succeed all the same, but is not tried where old content goes for it.
  bool Risk(const wchar_t* text, Parts parts) {
    return Copies(Kind::kReplaceFolder) ? Harm(text, parts) : Doubt(text, parts);
  }
  // It destroys what nobody asked to destroy, or what it destroys cannot be told.
  bool Harm(const wchar_t* text, Parts parts) {
    CurrentStep().deletes |= !isPlan_ && Copies(Kind::kReplaceFolder);
    return Add(isPlan_ ? Severity::kError : Severity::kHarmful, text, parts, true);
  }
  bool Add(Severity severity, const wchar_t* text, Parts parts, bool hasFailed = false) {
    details_[at_].hasFailed |= hasFailed;
    report_.findings.push_back({severity, Filled(text, parts), listFile_, copies_[at_].line,
                                isPlan_ ? copies_[at_].item : Finding::kNoItem});
    return !hasFailed;
  }

  // What all others are compared with is found out ahead of them.
  void Locate(Details& item) {
    Copy& copy = copies_[at_];
    const bool hasSource = CheckPath(
        copy.source, isPlan_ ? L"The source is empty." : L"\"src\" is empty or not UTF-8.");
    const bool hasDestination =
        CheckPath(copy.destination,
                  isPlan_ ? L"The destination is empty." : L"\"dec\" is empty or not UTF-8.");
    copy.isUsable = hasSource && hasDestination && !(isPlan_ && item.hasFailed);
    if (!copy.isUsable) return;
    const bool isFile = Copies(Kind::kCopyFile);
    Spot from = folders_.SpotOf(copy.source, true);
    item.from = folders_.Find(copy.source, from, isFile);
    // A link in the place of the source is followed.
    const bool isFollowed = item.from != nullptr && item.from->isLink;
    if (isFollowed || !isFile) from = folders_.SpotOf(copy.source, false);
    item.toSpot = folders_.SpotOf(copy.destination, true);
    item.to = folders_.Find(copy.destination, item.toSpot, isFile);
    // One at the destination is not: it is replaced, or refused.
    const bool isLink = item.to != nullptr && item.to->isLink;
    if (!isLink && !isFile) item.toSpot = folders_.SpotOf(copy.destination, false);
    item.read.push_back(std::move(from));
    sources_.try_emplace(item.read[0].Key(), at_);
    if (Copies(Kind::kReplaceFolder)) deleted_.try_emplace(item.toSpot.Key(), at_);
    if (Copies(Kind::kAddFolder)) added_.try_emplace(item.toSpot.Key(), at_);
  }

  // Makes it the full path; false when there is none. What is odd in a list the helper tries.
  bool CheckPath(std::wstring& path, const wchar_t* ifEmpty) {
    std::wstring full;
    const std::wstring fault = PathFault(path, ifEmpty, full);
    if (full.empty()) return path.empty() ? Fail(L"{}", {fault}) : Harm(L"{}", {fault});
    // The helper takes no folder whose name is "." or "..". Other names with a final dot are not
    // told from these.
    const bool isRefused = isPlan_ || path[path.find_last_not_of(L"\\/ ")] == L'.';
    if (!fault.empty()) isRefused ? Fail(L"{}", {fault}) : Doubt(L"{}", {fault});
    CheckDrive(path, full);
    if (Copies(Kind::kCopyFile) && (path.back() == L'\\' || path.back() == L'/')) {
      Fail(L"\"{}\" ends like a folder, but the item copies a file. Add the file's name.", {path});
    }
    path = full;
    return true;
  }

  // What is wrong with a drive is said once.
  void CheckDrive(const std::wstring& path, const std::wstring& full) {
    const auto [drive, isNew] = driveFaults_.try_emplace(full[0]);
    if (isNew) drive->second = DriveFault(full);
    if (drive->second.empty()) return;
    details_[at_].hasFailed = true;
    if (isNew) Harm(L"\"{}\": {}", {path, drive->second});
  }

  void AddItem(Details& item) {
    if (!copies_[at_].isUsable) return;
    item.goesFirst = !Copies(Kind::kReplaceFolder) && FindUpwards(deleted_, item.toSpot);
    // Before it looks at the source: what this user does not see, the elevated helper may.
    if (Copies(Kind::kReplaceFolder) && !CheckIsNotKept(item)) return;
    if (!CheckSource(item) || !CheckDestination(item)) return;
    if (Copies(Kind::kReplaceFolder)) ReplaceFolder(item);
    if (!MakeFolders(ParentOf(Destination()), ParentOf(Source()))) return;
    for (const TreeEntry& entry : ListSource(item)) AddTarget(item, entry);
  }

  bool CheckSource(const Details& item) {
    if (item.from == nullptr) return Fail(L"The source \"{}\" does not exist.", {Source()});
    if (item.from->error != 0) {
      return Fail(L"The source \"{}\" is not visible to this user: {}",
                  {Source(), SystemMessage(item.from->error)});
    }
    if (item.from->isFolder != Copies(Kind::kCopyFile)) return true;
    return Fail(L"The source \"{}\" is a {}, but the item copies a {}. Use another item.",
                {Source(), item.from->isFolder ? L"folder" : L"file", Own()});
  }

  bool CheckDestination(const Details& item) {
    if (item.to == nullptr || item.goesFirst) return true;
    if (item.to->error != 0) {
      return Risk(L"The destination \"{}\" is not visible to this user: {}",
                  {Destination(), SystemMessage(item.to->error)});
    }
    if (item.to->isLink && Copies(Kind::kReplaceFolder)) return true;  // it is removed
    return !IsInTheWay(Destination(), *item.to, !Copies(Kind::kCopyFile));
  }

  // A link at or below a destination is not followed.
  bool IsInTheWay(const std::wstring& path, const Entry& there, bool isFolder) {
    if (!there.isLink && there.isFolder == isFolder) return false;
    const wchar_t* const kind = there.isLink ? L"link" : there.isFolder ? L"folder" : L"file";
    return !Fail(L"\"{}\" is in the way: it is a {}. Remove it, or copy elsewhere.", {path, kind});
  }

  std::vector<TreeEntry> ListSource(Details& item) {
    TreeListing tree = ListTree(Source(), *item.from, Links::kFollowedOnce);
    for (const TreeListing::Fault& fault : tree.faults) {
      Fail(L"{}", {InWords(fault, Source())});
    }
    if (Copies(Kind::kReplaceFolder)) CheckFiles(Source(), tree.entries, ReadingFault, L"");
    for (const TreeEntry& entry : tree.entries) {
      if (!entry.isLink || entry.path.empty()) continue;
      const Spot spot = folders_.SpotOf(Below(Source(), entry.path), false);
      sources_.try_emplace(spot.Key(), at_);
      item.read.push_back(spot);
    }
    return std::move(tree.entries);
  }

  void ReplaceFolder(Details& item) {
    constexpr std::size_t kMaxBytes = 260;  // of a folder that the helper recognises as one
    CurrentStep().deletes = item.to != nullptr;
    CheckTemporaryFolder(item);
    for (const std::wstring& path : {Source(), Destination()}) {
      if (WideToUtf8(path).size() <= kMaxBytes) continue;
      Fail(L"\"{}\" takes more than 260 bytes in UTF-8. Use a shorter path.", {path});
    }
    if (CurrentStep().deletes) ListWhatGoes(item);
    Operate(WithSeparator(Source()), WithSeparator(Destination()), true);
  }

  void CheckFiles(const std::wstring& folder, const std::vector<TreeEntry>& entries,
                  std::wstring (*faultOf)(const std::wstring&), const wchar_t* what) {
    std::vector<std::wstring> faults(entries.size());
    InParallel(entries.size(), [&](std::size_t i, const Tick&) {
      const TreeEntry& entry = entries[i];
      const bool isMeant =
          faultOf == ReadingFault ? !entry.isFolder : !entry.isLink && !entry.path.empty();
      if (isMeant) faults[i] = faultOf(Below(folder, entry.path));
    });
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (faults[i].empty()) continue;
      Fail(L"\"{}\"{}{}", {Below(folder, entries[i].path), what, faults[i]});
    }
  }

  bool CheckIsNotKept(const Details& item) {
    if (item.to != nullptr && item.to->isLink) return true;  // it goes alone
    if (!kept_) kept_.emplace(folders_, options_);
    const std::wstring why = kept_->WhyKept(*item.toSpot.folder);
    if (why.empty()) return true;
    return Harm(L"\"{}\"{}. Replacing it could delete programs or data. Choose another folder.",
                {Destination(), why});
  }

  // While the helper works its own files are there, and it would copy them along.
  void CheckTemporaryFolder(const Details& item) {
    const std::wstring temp = TempFolder();
    if (temp.empty() || !folders_.At(temp).IsInOrIs(*item.read[0].folder)) return;
    Harm(L"The source \"{}\" holds \"{}\", where the helper's files go. Set TMP to another folder.",
         {Source(), temp});
  }

  void ListWhatGoes(Details& item) {
    const TreeListing gone = ListTree(Destination(), *item.to, Links::kNotFollowed);
    CheckFiles(Destination(), gone.entries, DeletionFault, L" is to be deleted, but");
    for (const TreeEntry& entry : gone.entries) {
      const std::wstring path = Below(Destination(), entry.path);
      // The helper lists a folder by its path, a separator and a pattern of one character.
      CheckLength(path, kMaxFilePath - (entry.isFolder ? 2 : 0));
      if (entry.isLink) {
        Doubt(L"\"{}\" is a link. It is removed, and what it leads to stays.", {path});
      } else if (entry.isFolder) {
        deleted_.insert_or_assign(folders_.At(path).keys[0], at_);
      } else {
        copies_[at_].deleted.push_back(entry);
        ++CurrentStep().deletedFiles;
        CurrentStep().deletedBytes += entry.state.size;
        item.freedBytes += entry.state.size;
      }
    }
    for (const TreeListing::Fault& fault : gone.faults) {
      if (fault.error == ERROR_ACCESS_DENIED && !IsElevated()) continue;  // elevation is for this
      Fail(L"{}", {InWords(fault, Destination())});
    }
  }

  // Has the helper make the folder and what is missing above it, as far as it is not there when the
  // item's turn comes: it makes the folder above what it is to write. That a folder, `like` or any
  // that exists, cannot be copied as a file does not matter then: the item counts because the
  // folder is there.
  bool MakeFolders(const std::wstring& folder, const std::wstring& like) {
    std::vector<std::wstring> missing;
    for (std::wstring path = folder; !IsRoot(path); path = ParentOf(path)) {
      const Folder& there = folders_.At(path);
      if (there.isFile && !details_[at_].goesFirst) {
        return Fail(L"\"{}\", above the destination \"{}\", is a file. Choose another destination.",
                    {path, Destination()});
      }
      const auto brought = brought_.find(there.keys[0]);
      if (brought != brought_.end() && brought->second.isFolder) break;
      if (there.exists && !FindUpwards(deleted_, {&there, {}})) break;
      missing.push_back(path);
    }
    if (!isPlan_ && Copies(Kind::kCopyFile) && missing.size() > 1) {
      return Fail(L"Folders above \"{}\" are missing, and the helper makes only one. Make them.",
                  {Destination()});
    }
    for (auto path = missing.rbegin(); path != missing.rend(); ++path) {
      if (Bring(folders_.At(*path).keys[0], *path, true)) Operate(like, *path + L"\\", false);
    }
    return true;
  }

  // A replaced folder is one operation, with all that is in it and above it.
  void Operate(const std::wstring& source, const std::wstring& destination, bool isFolder) {
    if (!isPlan_ || isFolder != Copies(Kind::kReplaceFolder)) return;
    operations_.push_back({WideToUtf8(source), WideToUtf8(destination), isFolder});
  }

  // False when nothing new comes to the destination.
  bool AddTarget(Details& item, const TreeEntry& entry) {
    const std::wstring source = Below(Source(), entry.path);
    const std::wstring destination = Below(Destination(), entry.path);
    const bool isRoot = entry.path.empty();
    const Spot spot = isRoot ? item.toSpot : folders_.SpotOf(destination, true);
    const Entry* const there = isRoot ? item.to : folders_.Find(destination, spot);
    const bool looksDone = there != nullptr && there->state.Matches(entry.state);
    copies_[at_].targets.push_back({entry, looksDone});
    std::wstring full;
    const std::wstring fault = PathFault(source, {}, full);
    if (!fault.empty()) return Fail(L"{}", {fault});
    if (!CheckLength(source, kMaxFilePath)) return false;
    const bool stays = there != nullptr && !Copies(Kind::kReplaceFolder) && !item.goesFirst;
    if (stays && IsInTheWay(destination, *there, entry.isFolder)) return false;
    const std::wstring key =
        (isRoot || !entry.isFolder ? spot : folders_.SpotOf(destination, false)).Key();
    if (const auto read = sources_.find(key); read != sources_.end() && !isRoot) {
      return Harm(L"\"{}\" would be written, but it is the source \"{}\". Choose another place.",
                  {destination, copies_[read->second].source});
    }
    const bool isNew = Bring(key, destination, entry.isFolder);
    if (!entry.isFolder) {
      AddFile(item, source, destination, entry, stays ? there : nullptr);
    } else if (isNew && there == nullptr) {
      Operate(source, destination + L"\\", false);  // as in MakeFolders
    }
    return isNew;
  }

  void AddFile(Details& item, const std::wstring& source, const std::wstring& destination,
               const Entry& entry, const Entry* overwritten) {
    ++CurrentStep().files;
    CurrentStep().bytes += entry.state.size;
    if (overwritten != nullptr) item.freedBytes += overwritten->state.size;
    if (overwritten != nullptr && overwritten->IsProtected()) {
      // One that is what it should be is left out.
      if (isPlan_ && Compare(source, destination) == Equality::kEqual) return;
      Fail(L"\"{}\"{}", {destination, kIsProtected});
    }
    Operate(source, destination, false);
  }

  bool CheckLength(const std::wstring& path, std::size_t longest) {
    return path.size() <= longest ||
           Fail(L"\"{}\" is longer than the {} characters that Windows takes. Shorten it.",
                {path, std::to_wstring(longest)});
  }

  // Notes what comes to a place. False when that is noted already, or nothing may come there.
  bool Bring(const std::wstring& key, const std::wstring& path, bool isFolder) {
    const auto [other, isNew] = brought_.try_emplace(key, Brought{at_, isFolder});
    if (isNew) return CheckLength(path, isFolder ? kMaxFolderPath : kMaxFilePath);
    const Brought& first = other->second;
    if (isFolder && first.isFolder && (first.item != at_ || Copies(Kind::kCopyFile))) return false;
    return Harm(first.item == at_
                    ? L"\"{}\" would be written twice: names differ only in case. Rename one."
                    : L"\"{}\" would be written twice: \"{}\" is copied there, too. Leave one out.",
                {path, copies_[first.item].source});
  }

  // What is deleted, and what everything goes into, against all sources and destinations.
  void CheckPlaces(Details& item) {
    if (const auto source = FindUpwards(sources_, item.toSpot)) {
      Harm(L"The destination \"{}\" is or lies in the source \"{}\". Choose another destination.",
           {Destination(), copies_[*source].source});
    }
    auto other = FindUpwards(deleted_, item.toSpot, at_);
    if (!other && Copies(Kind::kReplaceFolder)) other = FindUpwards(added_, item.toSpot, at_);
    if (other && !Copies(Kind::kCopyFile)) {
      Harm(L"The destination \"{}\" is or lies in another item's, \"{}\". Choose another.",
           {Destination(), copies_[*other].destination});
    }
    for (const Spot& from : item.read) {
      other = FindUpwards(deleted_, from);
      if (!other) continue;
      Harm(L"The source \"{}\" is or lies in \"{}\", which is deleted first. Use another folder.",
           {Source(), copies_[*other].destination});
      return;
    }
  }

  // In the helper's order, by volumes, one of which may be mounted in a folder. What is said of one
  // is not repeated.
  void CheckSpace(Details& item) {
    const auto more = static_cast<std::int64_t>(CurrentStep().bytes - item.freedBytes);
    if (more == 0) return;
    std::wstring path = item.toSpot.folder->path;
    while (!folders_.At(path).exists && !IsRoot(path)) path = ParentOf(path);
    const std::wstring& key = folders_.At(path).keys[0];  // begins with the volume's number
    const auto [volume, isNew] = freeSpaces_.try_emplace(key.substr(0, key.find(L'/')), kUnlimited);
    std::int64_t& free = volume->second;
    ULARGE_INTEGER now = {};
    if (isNew && GetDiskFreeSpaceExW(WithSeparator(path).c_str(), &now, nullptr, nullptr)) {
      free = static_cast<std::int64_t>(now.QuadPart);
    }
    free -= more;
    if (free >= 0) return;
    const std::wstring lack = BytesInWords(static_cast<std::uint64_t>(-free));
    Risk(L"\"{}\" does not fit: its volume lacks {}. Free some space.", {Destination(), lack});
    free = kUnlimited;
  }

  void Claim(Details& item) {
    if (item.read.empty() || !isClaimed_) return;
    for (const Spot& at : item.read) work_.claims.push_back({false, at.folder->path, at.name});
    work_.claims.push_back({true, item.toSpot.folder->path, item.toSpot.name});
  }

  void Describe(Details& item) {
    Step& step = CurrentStep();
    step.kind = copies_[at_].kind;
    step.text =
        item.hasFailed
            ? Filled(L"would not copy the {} \"{}\" to \"{}\", or not all of it (see above)",
                     {Own(), Source(), Destination()})
            : Filled(L"{} the {} \"{}\" {} to \"{}\"",
                     {Copies(Kind::kAddFolder) ? L"adds" : L"copies", Own(), Source(),
                      InWords(step.files, step.bytes), Destination()});
    const wchar_t* const when = item.hasFailed ? L"but may delete" : L"after deleting";
    if (step.deletes) step.text += Filled(L", {} what is there", {when});
    if (step.deletedFiles > 0) step.text += L" " + InWords(step.deletedFiles, step.deletedBytes);
    step.source = Source();
    step.destination = Destination();
  }

  Work& work_;
  std::vector<Copy>& copies_ = work_.copies;
  Report& report_ = work_.result.report;
  const Options& options_;
  const std::wstring& listFile_;
  const bool isPlan_ = listFile_.empty();
  const bool isClaimed_ = isPlan_ || work_.taskFile;  // a task file that is checked is not held
  std::vector<Details> details_{copies_.size()};
  std::size_t at_ = 0;  // the item that is looked at
  Folders folders_;
  std::optional<KeptFolders> kept_;
  std::unordered_map<wchar_t, std::wstring> driveFaults_;
  IndexByKey sources_;
  IndexByKey deleted_;  // folders that are replaced, and those in them
  IndexByKey added_;    // folders that are added to
  std::unordered_map<std::wstring, Brought> brought_;
  std::unordered_map<std::wstring, std::int64_t> freeSpaces_;  // by volume
  std::vector<Operation> operations_;
};

}  // namespace

void SurveyCopies(Work& work, const Options& options, const std::wstring& listFile) {
  Surveyor(work, options, listFile).Survey();
}

Work WorkOf(const CopyPlan& plan, const Options& options, Hold) {
  Work work;
  for (const CopyItem& item : plan.Items()) {
    work.copies.push_back({static_cast<Kind>(item.kind), item.source, item.destination, 0, {}, {}});
  }
  SurveyCopies(work, options);
  Findings& findings = work.result.report.findings;
  std::stable_sort(findings.begin(), findings.end(), [](const Finding& left, const Finding& right) {
    return left.item < right.item;
  });
  if (work.copies.empty()) {
    findings = {{Severity::kError, L"The plan is empty. Add a file or a folder.", {}}};
  }
  return work;
}

}  // namespace uaclient
