#include "uaclient/claims.h"

#include <shlobj.h>

#include <algorithm>
#include <cstdint>
#include <sstream>

#include "corekit/text.h"
#include "uaclient/file_access.h"
#include "uaclient/helper_files.h"
#include "uaclient/kept_folders.h"
#include "uaclient/path.h"
#include "uaclient/places.h"
#include "uaclient/words.h"

// A claim's file, in UTF-8:
//
//   C:\Users\me\AppData\Local\Temp\uactask-…   the folder of the helper's files
//   1234 133… 5678 133…                        ids and start times (0 where not known) of the run's
//                                              process and, once it is started, of the helper's
//   w|C:\out\skins|                            written ("r": read), a folder with all in it
//   w|C:\out|player.ini                        a file in a folder
namespace uaclient {
namespace {

constexpr wchar_t kSuffix[] = L".claim";

std::wstring ClaimsFolder() {
  const std::wstring folder = KnownFolder(FOLDERID_LocalAppData);
  return folder.empty() ? folder : folder + L"\\uactask";
}

// Held by one run of this user at a time, in whatever session and with whatever rights: a file that
// is open for one process alone. Empty when it does not come free.
Handle TakeLock() {
  const std::wstring file = ClaimsFolder() + L"\\lock";
  for (int attempt = 0; attempt < 500; ++attempt) {
    Handle lock(CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                            FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    if (lock || GetLastError() == ERROR_PATH_NOT_FOUND) return lock;
    Sleep(20);
  }
  return Handle();
}

std::uint64_t StartOf(HANDLE process) {
  FILETIME start = {};
  FILETIME other;
  GetProcessTimes(process, &start, &other, &other, &other);
  return std::uint64_t{start.dwHighDateTime} << 32 | start.dwLowDateTime;
}

std::wstring TextOf(HANDLE process) {
  return std::to_wstring(GetProcessId(process)) + L" " + std::to_wstring(StartOf(process)) + L" ";
}

bool Lives(DWORD id, std::uint64_t start) {
  const Handle now(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, id));
  if (!now) return GetLastError() != ERROR_INVALID_PARAMETER;
  const std::uint64_t startNow = StartOf(now.get());
  return WaitForSingleObject(now.get(), 0) != WAIT_OBJECT_0 &&
         (start == 0 || startNow == 0 || start == startNow);
}

struct Claim {
  std::wstring fault;  // why it cannot be read
  std::wstring helperFolder;
  DWORD process = 0;  // the last one of those that live
  std::vector<Claimed> places;
};

Claim ReadClaim(const std::wstring& file) {
  Claim claim;
  const WholeFile whole = ReadWhole(file, GENERIC_READ, kShareAll);
  claim.fault = whole.fault;
  std::wistringstream text(Utf8ToWide(whole.bytes));
  std::wstring line;
  std::getline(text, claim.helperFolder);
  std::getline(text, line);
  std::wistringstream processes(line);
  std::uint64_t start = 0;
  for (DWORD id = 0; processes >> id >> start;) {
    if (Lives(id, start)) claim.process = id;
  }
  while (std::getline(text, line)) {
    const std::size_t end = line.rfind(L'|');
    if (end == std::wstring::npos || end < 2) continue;
    const std::wstring folder = FullPath(line.substr(2, end - 2));
    if (!folder.empty()) claim.places.push_back({line[0] == L'w', folder, line.substr(end + 1)});
  }
  return claim;
}

// Whether one of them is, or lies in, what the others need.
bool AnyIn(const std::vector<Claimed>& ones, const std::vector<Claimed>& others, Folders& folders) {
  const auto spotOf = [&](const Claimed& place) {
    return Spot{&folders.At(place.folder), UpperCase(place.file)};
  };
  IndexByKey written;
  IndexByKey all;
  for (const Claimed& other : others) {
    const std::wstring key = spotOf(other).Key();
    all.emplace(key, 0);
    if (other.isWritten) written.emplace(key, 0);
  }
  return std::any_of(ones.begin(), ones.end(), [&](const Claimed& one) {
    return FindUpwards(one.isWritten ? all : written, spotOf(one)).has_value();
  });
}

}  // namespace

bool Meet(const std::vector<Claimed>& ones, const std::vector<Claimed>& others) {
  const auto meetNow = [&] {
    Folders folders;
    return AnyIn(ones, others, folders) || AnyIn(others, ones, folders);
  };
  // A folder that the other run's helper makes between two looks has other keys in the second one.
  return meetNow() || meetNow();
}

RunClaim::~RunClaim() {
  if (!file_.empty()) DeleteFileW(file_.c_str());
}

void RunClaim::Prepare() { CreateDirectoryW(ClaimsFolder().c_str(), nullptr); }

void RunClaim::Take(const std::vector<Claimed>& places, const std::wstring& helperFolder) {
  const std::wstring folder = ClaimsFolder();
  const Handle lock = folder.empty() ? Handle() : TakeLock();
  if (!lock) {
    throw NotStarted{
        L"It is not known whether another run is at work there, because no file can be made in " +
        Quoted(folder) + L". Try again."};
  }
  std::vector<std::wstring> files;
  ForEachEntry(folder + L"\\*" + kSuffix, [&](const WIN32_FIND_DATAW& entry) {
    files.push_back(folder + L"\\" + entry.cFileName);
    return true;
  });
  for (const std::wstring& file : files) {
    const Claim claim = ReadClaim(file);
    if (!claim.fault.empty() && GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES) {
      throw NotStarted{L"Another run's file " + Quoted(file) + claim.fault + L" Try again."};
    }
    if (claim.process == 0) {
      // Who could write such a file could not make this remove anything else.
      if (IsHelperFolder(claim.helperFolder)) RemoveHelperFolder(claim.helperFolder);
      DeleteFileW(file.c_str());
    } else if (Meet(places, claim.places)) {
      throw NotStarted{L"Another run is at work there (process " + std::to_wstring(claim.process) +
                       L"). Wait until it has ended."};
    }
  }
  file_ = folder + L"\\" + NameOf(helperFolder) + kSuffix;
  helperFolder_ = helperFolder;
  processes_ = TextOf(GetCurrentProcess());
  for (const Claimed& place : places) {
    places_ += (place.isWritten ? L"\nw|" : L"\nr|") + place.folder + L"|" + place.file;
  }
  if (Write()) return;
  throw NotStarted{L"The file " + Quoted(file_) + L" cannot be written: " +
                   SystemMessage(GetLastError())};
}

void RunClaim::AddHelper(HANDLE helper) { Rewrite(processes_ + TextOf(helper)); }

void RunClaim::LeaveTo(HANDLE helper) { Rewrite(TextOf(helper)); }

void RunClaim::Rewrite(const std::wstring& processes) {
  processes_ = processes;
  Write();
}

// Who reads it meanwhile must not find half of it.
bool RunClaim::Write() const {
  const std::wstring next = file_ + L".new";
  const bool isWritten = WriteAll(
      Handle(CreateFileW(next.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr)),
      WideToUtf8(helperFolder_ + L"\n" + processes_ + places_));
  return isWritten && MoveFileExW(next.c_str(), file_.c_str(), MOVEFILE_REPLACE_EXISTING);
}

}  // namespace uaclient
