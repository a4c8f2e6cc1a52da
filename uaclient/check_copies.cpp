#include "uaclient/check_copies.h"

#include <windows.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <string_view>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "corekit/text.h"
#include "uaclient/check_tree.h"
#include "uaclient/helper_process.h"
#include "uaclient/kept_folders.h"
#include "uaclient/size_text.h"
#include "uaclient/win32.h"

namespace uaclient {
namespace {

std::wstring InWords(const TreeSize& size) {
  return FilesInWords(size.files) + L", " + BytesInWords(size.bytes);
}

// The helper looks at so many bytes of a folder's path.
constexpr std::size_t kMaxFolderBytes = 260;

constexpr wchar_t kUnseen[] =
    L" cannot be seen by this user, so that nothing is known of it ahead of the copy.";

bool EndsInSeparator(const std::wstring& path) {
  return !path.empty() && (path.back() == L'/' || path.back() == L'\\');
}

std::wstring ParentOf(const std::wstring& fullPath) {
  return FullPath(fullPath.substr(0, fullPath.rfind(L'\\') + 1));
}

// Of comparison keys.
bool LiesIn(const std::wstring& key, const std::wstring& folder) {
  return key.compare(0, folder.size(), folder) == 0;
}
const wchar_t* Relation(const std::wstring& key, const std::wstring& other) {
  return key == other ? L" is " : LiesIn(key, other) ? L" lies in " : L" holds ";
}

// Which file a path names, whatever names it has.
struct FileIdentity {
  explicit FileIdentity(const std::wstring& path) {
    BY_HANDLE_FILE_INFORMATION info = {};
    const Handle file(CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!file || !GetFileInformationByHandle(file.get(), &info)) return;
    names = info.nNumberOfLinks;
    volume = info.dwVolumeSerialNumber;
    index = std::uint64_t{info.nFileIndexHigh} << 32 | info.nFileIndexLow;
  }
  bool operator<(const FileIdentity& other) const {
    return std::tie(volume, index) < std::tie(other.volume, other.index);
  }

  DWORD names = 0;  // 0 when it cannot be looked at
  DWORD volume = 0;
  std::uint64_t index = 0;
};

// Goes through the items and remembers what those before have changed.
class Checker {
 public:
  Checker(std::vector<CopyItem> items, Origin origin,
          const std::vector<std::filesystem::path>& files)
      : items_(std::move(items)), origin_(origin) {
    for (const std::filesystem::path& file : files) {
      files_.push_back({file.native(), KeyOf(file.native())});
    }
    for (const std::wstring& program : {OwnFolder() + L"uactask.exe", OwnProgram()}) {
      programs_.push_back({program, KeyOf(program)});
    }
  }

  CopyCheck Check() {
    for (at_ = 0; at_ < items_.size(); ++at_) {
      const CopyItem& item = items_[at_];
      Step step;
      step.kind = item.isFolder ? Step::Kind::kCopyFolder : Step::Kind::kCopyFile;
      step.text = L"copies nothing to " + Quoted(item.destination.native());
      CheckItem(item, step);
      result_.steps.push_back(std::move(step));
    }
    CheckOverlaps();
    CheckFilesWithSeveralNames();
    CheckRoom();
    TellFailures();
    for (std::size_t i = 0; i < items_.size(); ++i) {
      result_.steps[i].source = std::move(items_[i].source);
      result_.steps[i].destination = std::move(items_[i].destination);
    }
    std::stable_sort(
        result_.remarks.begin(), result_.remarks.end(),
        [](const CopyRemark& left, const CopyRemark& right) { return left.item < right.item; });
    return std::move(result_);
  }

 private:
  // A path of the plan, for the comparison of each with all others.
  struct Role {
    std::wstring key;
    std::size_t item = 0;
    bool isDestination = false;
    bool isBehindLink = false;  // what a link in a source leads to
  };
  // A file that the run itself needs.
  struct NeededFile {
    std::wstring path;
    std::wstring key;
  };
  // What copies take from a drive or share.
  struct Space {
    std::uint64_t needed = 0;
    std::uint64_t freed = 0;
    std::size_t item = 0;  // the last one
  };

  std::wstring KeyOf(const std::wstring& path) {
    return ComparisonKey(places_.Look(FullPath(path)).real);
  }

  void Add(Weight weight, std::wstring text) {
    result_.remarks.push_back({at_, {weight, std::move(text)}});
  }
  void AddAll(Remarks remarks) {
    for (Remark& remark : remarks) Add(remark.weight, std::move(remark.text));
  }

  // Checks what both paths of an item have in common. Returns the full path, L"" when there is
  // none.
  std::wstring CheckPath(const std::wstring& path, bool isFolder) {
    Remarks remarks = CheckPathText(path);
    const bool isPlain = remarks.empty();
    const bool isUsable = isPlain || remarks.front().weight < Weight::kFails;
    AddAll(std::move(remarks));
    // What somebody wrote into a list the helper tries; of a plan there is nothing more to know.
    std::wstring full =
        isUsable || origin_ == Origin::kList ? FullPath(path, isPlain) : std::wstring();
    if (full.empty()) {
      if (origin_ == Origin::kList && isFolder && !path.empty()) {
        Add(Weight::kHarms, L"Where " + Quoted(path) +
                                L" leads cannot be told, and so not what would be deleted for this "
                                L"copy; write the path from its drive on.");
      }
      return {};
    }
    if (IsRoot(full)) {
      Add(Weight::kHarms, Quoted(path) + L" is a whole drive or share; name a folder on it.");
      return {};
    }
    const std::wstring fault = places_.DriveFault(full);
    if (!fault.empty()) Add(Weight::kFails, Quoted(path) + L": " + fault);
    if (full[0] == L'\\') {
      Add(Weight::kDoubt, Quoted(path) +
                              L" is on another computer, which the helper with its raised rights "
                              L"may reach under another name, or not at all.");
    }
    if (!isFolder && EndsInSeparator(path)) {
      Add(Weight::kFails, Quoted(path) +
                              L" ends like a folder, but the item is a file's copy; give "
                              L"the file's name, or make it a folder's copy.");
    }
    const bool tooManyBytes =
        isFolder && WideToUtf8(path).size() + (EndsInSeparator(path) ? 0 : 1) > kMaxFolderBytes;
    if (tooManyBytes || full.size() > (isFolder ? kMaxFolderPath : kMaxFilePath)) {
      Add(Weight::kFails, Quoted(path) +
                              L" is too long: a file's path may have 259 units, a "
                              L"folder's 247 and 260 bytes of UTF-8.");
    }
    return full;
  }

  void CheckItem(const CopyItem& item, Step& step) {
    const std::wstring source = CheckPath(item.source.native(), item.isFolder);
    const std::wstring destination = CheckPath(item.destination.native(), item.isFolder);
    if (source.empty()) return;
    const Place from = places_.Look(source);
    roles_.push_back({ComparisonKey(from.real), at_, false});
    if (from.isUnseen) {
      Add(Weight::kDoubt, L"The source " + Quoted(item.source.native()) + kUnseen);
    } else if (!from.exists) {
      Add(Weight::kFails, L"The source " + Quoted(item.source.native()) + L" does not exist.");
      return;
    } else if (from.isFolder != item.isFolder) {
      Add(Weight::kFails,
          L"The source " + Quoted(item.source.native()) +
              (from.isFolder ? L" is a folder, but the item is a file's copy"
                             : L" is a file, but the item is a folder's copy") +
              (origin_ == Origin::kList ? L"; write type=\"dir\" for a folder, \"file\" for a file."
                                        : L"."));
      return;
    }
    if (destination.empty()) return;

    const Place to = places_.Look(destination);
    roles_.push_back({ComparisonKey(to.real), at_, true});
    CheckNeededFiles(destination, roles_.back().key);
    if (to.exists && to.isFolder != item.isFolder) {
      Add(Weight::kFails, L"At the destination " + Quoted(item.destination.native()) +
                              (to.isFolder ? L" there is a folder" : L" there is a file") +
                              L" already, which a " + (to.isFolder ? L"file" : L"folder") +
                              L" cannot replace; remove it or choose another name.");
      return;
    }
    if (to.exists && (to.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
      Add(Weight::kDoubt, L"The destination " + Quoted(item.destination.native()) +
                              L" is a link; write where it leads, or remove it.");
    }
    if (to.isUnseen) {
      Add(Weight::kDoubt, L"The destination " + Quoted(item.destination.native()) + kUnseen);
    } else if (!to.exists) {
      CheckFoldersAbove(item, destination);
    } else if (item.isFolder && !IsAbsolute(item.destination.native())) {
      Add(Weight::kHarms, L"Of the destination " + Quoted(item.destination.native()) +
                              L" it depends on the folder that the helper is started in which one "
                              L"is emptied; write the whole path.");
    }

    if (item.isFolder) {
      CheckFolder(source, destination, to, step);
    } else {
      CheckFile(source, destination, from, to, step);
    }
    Space& space = spaces_[to.real.substr(0, RootSize(to.real))];
    space.needed += step.bytes;
    space.freed += step.emptiedBytes + to.size;
    space.item = at_;
  }

  void CheckNeededFiles(const std::wstring& destination, const std::wstring& key) {
    for (const NeededFile& file : files_) {
      if (!LiesIn(file.key, key)) continue;
      Add(Weight::kDoubt, L"The destination " + Quoted(destination) + Relation(key, file.key) +
                              Quoted(file.path) +
                              L", which tells the helper what to do and is lost in this; put that "
                              L"file elsewhere.");
    }
    for (const NeededFile& program : programs_) {
      if (program.key != key) continue;
      Add(Weight::kFails, L"The destination " + Quoted(destination) + L" is " +
                              Quoted(program.path) +
                              L", which runs meanwhile, and so cannot be replaced; have another "
                              L"program do that.");
    }
  }

  void CheckFolder(const std::wstring& source, const std::wstring& destination, const Place& to,
                   Step& step) {
    step.empties = to.exists || to.isUnseen;
    if (HitsKeptFolder(destination, to)) return;  // too much to be measured
    Remarks inSource;
    Remarks inEmptied;
    std::vector<std::wstring> links;
    const TreeSize size =
        MeasureSource(source, destination, origin_ == Origin::kList, inSource, links);
    for (const std::wstring& link : links) {
      roles_.push_back({ComparisonKey(places_.Look(link).real), at_, false, true});
    }
    step.files = size.files;
    step.bytes = size.bytes;
    step.text = L"copies the folder " + Quoted(source) + L" (" + InWords(size) + L") to " +
                Quoted(destination);
    if (to.exists) {
      const TreeSize emptied = MeasureEmptied(destination, inEmptied);
      step.emptiedFiles = emptied.files;
      step.emptiedBytes = emptied.bytes;
      step.text += L" after deleting what is there (" + InWords(emptied) + L")";
      if (emptied.files > 0) {
        Add(Weight::kEmpties,
            Quoted(destination) + L" is replaced: " + InWords(emptied) + L" in it are deleted.");
      }
    }
    if (to.isUnseen) step.text += L" after deleting what is there";
    AddAll(std::move(inSource));
    AddAll(std::move(inEmptied));
  }

  bool HitsKeptFolder(const std::wstring& destination, const Place& to) {
    const std::wstring key = ComparisonKey(to.real);
    const auto hit = std::find_if(kept_.begin(), kept_.end(), [&](const KeptFolder& kept) {
      return LiesIn(kept.key, key) || (kept.isKeptWhole && LiesIn(key, kept.key));
    });
    if (hit == kept_.end()) return false;
    Add(Weight::kHarms, L"The destination " + Quoted(destination) + Relation(key, hit->key) +
                            hit->name +
                            L", and all that is in a destination is deleted; choose a folder that "
                            L"belongs to what you install.");
    return true;
  }

  void CheckFile(const std::wstring& source, const std::wstring& destination, const Place& from,
                 const Place& to, Step& step) {
    step.files = 1;
    step.bytes = from.size;
    step.text = L"copies the file " + Quoted(source) + L" (" + InWords({1, from.size}) + L") to " +
                Quoted(destination) + (to.exists ? L", over the one that is there" : L"");
    if (origin_ == Origin::kList) {
      const std::wstring fault = AccessFault(source, Access::kRead);
      if (!fault.empty()) Add(Weight::kDoubt, L"The source " + Quoted(source) + L" " + fault);
      if ((from.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        Add(Weight::kDoubt, L"The source " + Quoted(source) + L" is a link; write where it leads.");
      }
    }
    if (!to.exists) return;
    const FileIdentity file(destination);
    if (file.names > 1) {
      linked_.emplace_back(at_, file);
      Add(Weight::kDoubt, L"The file at the destination " + Quoted(destination) +
                              L" has other names as well, and what these name changes with it; "
                              L"remove it first.");
    }
    constexpr DWORD kProtected =
        FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    if ((to.attributes & kProtected) != 0) {
      Add(Weight::kFails, L"The file at the destination " + Quoted(destination) +
                              L" is read-only, hidden or a system file, over which Windows copies "
                              L"nothing; clear that attribute.");
    }
    const std::wstring fault = AccessFault(destination, Access::kOverwrite);
    if (!fault.empty() && (to.attributes & kProtected) == 0) {
      Add(Weight::kDoubt, L"The file at the destination " + Quoted(destination) + L" " + fault);
    }
  }

  // Of a file's the helper makes one, of a folder's all.
  void CheckFoldersAbove(const CopyItem& item, const std::wstring& destination) {
    const std::wstring parent = ParentOf(destination);
    std::vector<std::wstring> missing;  // comparison keys
    Place place;
    for (std::wstring folder = parent;; folder = ParentOf(folder)) {
      place = places_.Look(folder);
      const std::wstring key = ComparisonKey(place.real);
      if (place.exists || made_.count(key) != 0) break;
      missing.push_back(key);
      if (IsRoot(folder)) break;
    }
    if (place.exists && !place.isFolder) {
      Add(Weight::kFails, L"Above the destination " + Quoted(destination) + L" there is a file, " +
                              Quoted(place.real) + L", where a folder would have to be.");
    } else if (!item.isFolder && !missing.empty() &&
               (parent.size() > kMaxFolderPath || WideToUtf8(parent).size() > kMaxFolderBytes)) {
      Add(Weight::kFails, L"The folder above the destination " + Quoted(destination) +
                              L" is missing, and its path too long for it to be made (247 units, "
                              L"260 bytes of UTF-8); use a shorter one.");
    } else if (!item.isFolder && missing.size() > 1) {
      Add(Weight::kFails, L"Of the folders above the destination " + Quoted(destination) +
                              L" more than one is missing, and for a file only one is made; make "
                              L"them first, or copy a folder.");
    } else if (item.isFolder && !missing.empty() && origin_ == Origin::kList) {
      // What is missing is made up to each "/", and up to each "\\" behind the last of these; a "/"
      // is put at an end without a separator.
      const std::wstring& text = item.destination.native();
      const std::size_t lastSlash = EndsInSeparator(text) ? text.rfind(L'/') : text.size();
      if (lastSlash != std::wstring::npos && text.find(L'\\') < lastSlash) {
        Add(Weight::kFails,
            Quoted(text) +
                L" mixes \"/\" and \"\\\", or ends in no separator, and folders above "
                L"it are missing, which are not all made then; write \"/\" "
                L"everywhere, at the end as well.");
      }
    }
    if (item.isFolder || missing.size() == 1) made_.insert(missing.begin(), missing.end());
    if (item.isFolder) made_.insert(roles_.back().key);
  }

  // Sorted, everything that lies in a folder follows it, so one look at each path and at the
  // folders that it is in finds all pairs.
  void CheckOverlaps() {
    std::sort(roles_.begin(), roles_.end(), [](const Role& left, const Role& right) {
      return std::tie(left.key, left.item, left.isDestination) <
             std::tie(right.key, right.item, right.isDestination);
    });
    struct Holder {
      const Role* role;
      const Role* source;       // this one or the nearest around it
      const Role* destination;  // the same
    };
    std::vector<Holder> around;
    for (const Role& role : roles_) {
      while (!around.empty() && !LiesIn(role.key, around.back().role->key)) {
        around.pop_back();
      }
      Holder now = {&role, nullptr, nullptr};
      if (!around.empty()) {
        now.source = around.back().source;
        now.destination = around.back().destination;
      }
      if (now.destination != nullptr) {
        if (role.isDestination) {
          if (!IsAddedTo(role, *now.destination)) AddOverlap(role, *now.destination);
        } else {
          AddSourceLost(*now.destination, role);
        }
      }
      if (now.source != nullptr && role.isDestination) AddSourceLost(role, *now.source);
      (role.isDestination ? now.destination : now.source) = &role;
      around.push_back(now);
    }
  }

  // Whether a file comes into a folder that has been replaced by then, and nothing that came with
  // that is in its way.
  bool IsAddedTo(const Role& file, const Role& folder) {
    if (items_[file.item].isFolder || !items_[folder.item].isFolder) return false;
    std::wstring below = file.key.substr(folder.key.size());
    if (below.empty()) return false;
    std::replace(below.begin(), below.end(), kKeySeparator, L'\\');
    const std::size_t name = below.rfind(L'\\', below.size() - 2) + 1;
    const std::wstring source = WithSeparator(FullPath(items_[folder.item].source.native()));
    return !places_.Look(source + below.substr(0, below.size() - 1)).exists &&
           (name == 0 || places_.Look(source + below.substr(0, name - 1)).isFolder);
  }

  void AddOverlap(const Role& one, const Role& other) {
    const Role& later = one.item > other.item ? one : other;
    const Role& earlier = one.item > other.item ? other : one;
    at_ = later.item;
    Add(Weight::kHarms, L"The destination " + Quoted(items_[later.item].destination.native()) +
                            Relation(later.key, earlier.key) + L"that of another item, " +
                            Quoted(items_[earlier.item].destination.native()) +
                            L", so that one destroys the other; choose destinations apart.");
  }
  void AddSourceLost(const Role& destination, const Role& source) {
    at_ = destination.item;
    Add(Weight::kHarms, L"The destination " +
                            Quoted(items_[destination.item].destination.native()) +
                            Relation(destination.key, source.key) +
                            (source.item == destination.item ? L"its own source, "
                                                             : L"the source of another item, ") +
                            Quoted(items_[source.item].source.native()) +
                            (source.isBehindLink ? L" (which a link in it leads to)" : L"") +
                            L", which would be changed or lost; choose another destination.");
  }

  // A copy over a file that has other names as well changes what these name. Which file it is only
  // the file itself can tell; each is asked once, however many there are.
  void CheckFilesWithSeveralNames() {
    if (linked_.empty()) return;
    std::map<FileIdentity, std::size_t> sources;
    std::map<FileIdentity, std::size_t> destinations;
    for (std::size_t item = 0; item < items_.size(); ++item) {
      if (items_[item].isFolder) continue;
      sources.try_emplace(FileIdentity(items_[item].source.native()), item);
    }
    for (const auto& [item, file] : linked_) {
      const auto source = sources.find(file);
      if (source != sources.end()) {
        AddOtherName(item, L"source ", items_[source->second].source.native());
      }
      const auto [earlier, isFirst] = destinations.try_emplace(file, item);
      if (!isFirst) {
        AddOtherName(item, L"destination ", items_[earlier->second].destination.native());
      }
    }
  }
  void AddOtherName(std::size_t item, const wchar_t* role, const std::wstring& path) {
    at_ = item;
    Add(Weight::kHarms, L"The destination " + Quoted(items_[item].destination.native()) +
                            L" is another name of the " + role + Quoted(path) +
                            L", which would be changed or lost; remove that name, or choose "
                            L"another destination.");
  }

  void CheckRoom() {
    for (const auto& [root, space] : spaces_) {
      ULARGE_INTEGER free = {};
      if (!GetDiskFreeSpaceExW(WithSeparator(root).c_str(), &free, nullptr, nullptr) ||
          space.needed <= free.QuadPart + space.freed) {
        continue;
      }
      at_ = space.item;
      Add(Weight::kDoubt, L"The destination " + Quoted(items_[at_].destination.native()) +
                              L" does not fit: on " + root + L" the copies need " +
                              BytesInWords(space.needed) + L", and there are " +
                              BytesInWords(free.QuadPart + space.freed) +
                              L" for them; free some, or choose another place.");
    }
  }

  // A step does not claim what will not happen.
  void TellFailures() {
    std::vector<Weight> worst(items_.size(), Weight::kEmpties);
    for (const CopyRemark& found : result_.remarks) {
      worst[found.item] = std::max(worst[found.item], found.remark.weight);
    }
    const auto replaceStart = [](std::wstring& text, std::wstring_view start, const wchar_t* by) {
      if (text.compare(0, start.size(), start) == 0) text.replace(0, start.size(), by);
    };
    for (std::size_t i = 0; i < items_.size(); ++i) {
      std::wstring& text = result_.steps[i].text;
      if (worst[i] == Weight::kHarms) {
        replaceStart(text, L"copies the ", L"does harm, see above, where it should copy the ");
        replaceStart(text, L"copies nothing to ",
                     L"does harm, see above, where it should copy to ");
      } else if (worst[i] == Weight::kFails) {
        replaceStart(text, L"copies the ",
                     items_[i].isFolder ? L"does not copy, or not wholly, see above, the "
                                        : L"does not copy, see above, the ");
      }
    }
  }

  std::vector<CopyItem> items_;
  const Origin origin_;
  std::size_t at_ = 0;  // the item that remarks are on
  Places places_;
  const std::vector<KeptFolder> kept_ = KeptFolders(places_);
  std::vector<NeededFile> files_;
  std::vector<NeededFile> programs_;
  std::vector<std::pair<std::size_t, FileIdentity>> linked_;  // destinations, by item
  std::vector<Role> roles_;
  std::unordered_set<std::wstring> made_;  // folders that will be there, as comparison keys
  std::map<std::wstring, Space> spaces_;   // by drive or share
  CopyCheck result_;
};

}  // namespace

CopyCheck CheckCopies(std::vector<CopyItem> items, Origin origin,
                      const std::vector<std::filesystem::path>& files) {
  return Checker(std::move(items), origin, files).Check();
}

std::vector<std::size_t> HelperOrder(const std::vector<CopyItem>& items) {
  std::vector<std::size_t> order(items.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_partition(order.begin(), order.end(),
                        [&](std::size_t item) { return items[item].isFolder; });
  return order;
}

}  // namespace uaclient
