#include "uaclient/claims.h"

#include <shlobj.h>

#include <algorithm>
#include <sstream>

#include "corekit/text.h"
#include "uaclient/helper_files.h"
#include "uaclient/kept_folders.h"
#include "uaclient/path.h"
#include "uaclient/private_folder.h"
#include "uaclient/win32.h"

// A claim's file, in UTF-8:
//
//   C:\Users\me\AppData\Local\Temp\uactask-…   the folder of the helper's files
//   1234 133… 5678 133…                        ids and start times of the run's process and the
//                                              helper's; 0 where there is none or it is not known
//   w|12 34 C:\|12 56 OUT|0 0 NEW*A.TXT*B.TXT  written ("r": read), a folder from its root down,
//                                              with each level's volume, number and name; then
//                                              the names of files, unless it is all of the folder
//
// No name holds "|" or "*".
namespace uaclient {
namespace {

constexpr wchar_t kSuffix[] = L".claim";

std::wstring ClaimsFolder() {
  const std::wstring folder = KnownFolder(FOLDERID_LocalAppData);
  return folder.empty() ? folder : folder + L"\\uactask";
}

std::wstring TextOf(const Claimed& claimed) {
  std::wstring text = claimed.isWritten ? L"w" : L"r";
  for (const Place::Level& level : claimed.folder.levels) {
    text += L"|" + std::to_wstring(level.number.volume) + L" " +
            std::to_wstring(level.number.index) + L" " + level.name;
  }
  for (const std::wstring& name : claimed.names) text += L"*" + name;
  return text + L"\n";
}

Claimed ClaimedOf(const std::wstring& line) {
  Claimed claimed;
  claimed.isWritten = line[0] == L'w';
  std::wistringstream names(line.substr(std::min(line.find(L'*'), line.size())));
  std::wistringstream levels(line.substr(0, line.find(L'*')));
  std::wstring text;
  std::getline(levels, text, L'|');
  while (std::getline(levels, text, L'|')) {
    Place::Level level;
    std::wistringstream parts(text);
    parts >> level.number.volume >> level.number.index;
    parts.get();
    std::getline(parts, level.name);
    claimed.folder.levels.push_back(level);
  }
  std::getline(names, text, L'*');
  while (std::getline(names, text, L'*')) claimed.names.insert(text);
  return claimed;
}

bool AnyMeet(const std::vector<Claimed>& ones, const std::vector<Claimed>& others) {
  return std::any_of(ones.begin(), ones.end(), [&](const Claimed& one) {
    return std::any_of(others.begin(), others.end(), [&](const Claimed& other) {
      return (one.isWritten || other.isWritten) && Meet(one, other);
    });
  });
}

// Of this user, in whatever session and with whatever rights.
class Lock {
 public:
  Lock() {
    const SecurityDescriptor access = OwnAccessOnly();
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, access.get(), FALSE};
    mutex_ = Handle(CreateMutexW(&attributes, FALSE, (L"Global\\uactask-" + UserSid()).c_str()));
    const DWORD waited = mutex_ ? WaitForSingleObject(mutex_.get(), 10'000) : WAIT_FAILED;
    isHeld_ = waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED;
  }
  ~Lock() {
    if (isHeld_) ReleaseMutex(mutex_.get());
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  bool IsHeld() const { return isHeld_; }

 private:
  Handle mutex_;
  bool isHeld_ = false;
};

}  // namespace

struct RunClaim::Claim {
  std::wstring helperFolder;
  Process owner;
  Process helper;
  std::vector<Claimed> places;
};

RunClaim::~RunClaim() {
  if (!file_.empty()) DeleteFileW(file_.c_str());
}

void RunClaim::Prepare() { CreateDirectoryW(ClaimsFolder().c_str(), nullptr); }

bool RunClaim::Take(const std::vector<Claimed>& places, const std::wstring& helperFolder,
                    std::wstring& why) {
  const std::wstring folder = ClaimsFolder();
  const Lock lock;
  if (!lock.IsHeld() || !IsFolder(folder)) {
    why =
        L"It cannot be made sure that no other run is at work at the same place, for lack of the "
        L"folder " +
        Quoted(folder) + L" or a lock. Try again.";
    return false;
  }
  std::vector<std::wstring> files;
  ForEachEntry(folder + L"\\*" + kSuffix, [&](const WIN32_FIND_DATAW& entry) {
    files.push_back(folder + L"\\" + entry.cFileName);
    return true;
  });
  for (const std::wstring& file : files) {
    Claim claim;
    const bool isRead = Read(file, claim);
    if (isRead && (Lives(claim.owner) || Lives(claim.helper))) {
      if (!AnyMeet(places, claim.places)) continue;
      why = L"Another run is at work there (process " +
            std::to_wstring(claim.helper.id != 0 ? claim.helper.id : claim.owner.id) +
            L"). Wait until it has ended.";
      return false;
    }
    // Who could write such a file could not make this remove anything else.
    if (isRead && IsHelperFolder(claim.helperFolder)) RemoveHelperFolder(claim.helperFolder);
    DeleteFileW(file.c_str());
  }
  helperFolder_ = helperFolder;
  owner_ = Describe(GetCurrentProcessId(), GetCurrentProcess());
  for (const Claimed& claimed : places) places_ += TextOf(claimed);
  file_ = folder + L"\\" + NameOf(helperFolder) + kSuffix;
  if (Write()) return true;
  why = L"The file " + Quoted(file_) + L" cannot be written: " + SystemMessage(GetLastError());
  return false;
}

void RunClaim::AddHelper(HANDLE helper) {
  helper_ = Describe(GetProcessId(helper), helper);
  Write();
}

void RunClaim::LeaveToHelper() {
  owner_ = {};
  Write();
}

RunClaim::Process RunClaim::Describe(DWORD id, HANDLE process) {
  FILETIME start = {};
  FILETIME other;
  GetProcessTimes(process, &start, &other, &other, &other);
  return {id, std::uint64_t{start.dwHighDateTime} << 32 | start.dwLowDateTime};
}

bool RunClaim::Lives(const Process& process) {
  if (process.id == 0) return false;
  const auto id = static_cast<DWORD>(process.id);
  const Handle now(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, id));
  if (!now) return GetLastError() != ERROR_INVALID_PARAMETER;
  const std::uint64_t start = Describe(id, now.get()).start;
  return WaitForSingleObject(now.get(), 0) != WAIT_OBJECT_0 &&
         (start == 0 || process.start == 0 || start == process.start);
}

bool RunClaim::Read(const std::wstring& file, Claim& claim) {
  const Handle open = OpenForReading(file);
  LARGE_INTEGER size = {};
  if (!open || !GetFileSizeEx(open.get(), &size)) return false;
  std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
  DWORD length = 0;
  if (!ReadFile(open.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &length, nullptr)) {
    return false;
  }
  bytes.resize(length);
  std::wistringstream text(Utf8ToWide(bytes));
  std::wstring line;
  std::getline(text, claim.helperFolder);
  text >> claim.owner.id >> claim.owner.start >> claim.helper.id >> claim.helper.start;
  if (!std::getline(text, line)) return false;
  while (std::getline(text, line)) claim.places.push_back(ClaimedOf(line));
  return true;
}

bool RunClaim::Write() const {
  const Handle file(CreateFileW(file_.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  std::wostringstream text;
  text << helperFolder_ << L'\n' << owner_.id << L' ' << owner_.start << L' ' << helper_.id << L' '
       << helper_.start << L'\n' << places_;
  const std::string bytes = WideToUtf8(text.str());
  DWORD written = 0;
  return file &&
         WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
         written == bytes.size();
}

}  // namespace uaclient
