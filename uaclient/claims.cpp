#include "uaclient/claims.h"

#include <shlobj.h>

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <sstream>

#include "corekit/text.h"
#include "uaclient/file_access.h"
#include "uaclient/helper_files.h"
#include "uaclient/kept_folders.h"
#include "uaclient/path.h"
#include "uaclient/places.h"
#include "uaclient/words.h"

// A claim's file, in UTF-8, one record a line:
//
//   h|C:\Users\me\AppData\Local\Temp\uactask-…|   the folder of the helper's files
//   p|1234|133…           id and start time of the run's process
//   r|C:\new\skins|       read: a folder with all in it
//   w|C:\out|player.ini   written: a file in a folder
//   p|5678|133…           the helper, once it is started
namespace uaclient {
namespace {

std::wstring ClaimsFolder() {
  const std::wstring folder = KnownFolder(FOLDERID_LocalAppData);
  return folder.empty() ? folder : folder + L"\\uactask";
}

std::wstring Record(wchar_t kind, const std::wstring& first, const std::wstring& second) {
  std::wstring record = std::wstring(1, kind) + L"|" + first + L"|" + second;
  std::replace(record.begin(), record.end(), L'\n', L'?');  // in a path of somebody's list
  return record + L"\n";
}

// "0" where that cannot be read.
std::wstring StartOf(HANDLE process) {
  FILETIME start = {};
  FILETIME other;
  GetProcessTimes(process, &start, &other, &other, &other);
  return std::to_wstring(std::uint64_t{start.dwHighDateTime} << 32 | start.dwLowDateTime);
}

std::wstring RecordOf(HANDLE process) {
  return Record(L'p', std::to_wstring(GetProcessId(process)), StartOf(process));
}

bool Lives(DWORD id, const std::wstring& start) {
  const Handle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, id));
  if (!process) return GetLastError() != ERROR_INVALID_PARAMETER;
  const std::wstring startNow = StartOf(process.get());
  return WaitForSingleObject(process.get(), 0) != WAIT_OBJECT_0 &&
         (start == L"0" || startNow == L"0" || start == startNow);
}

// Why a run at these places has to wait for the one with this claim; L"" when it need not. Removes
// a claim that holds no longer, with its helper's files.
std::wstring WhyWait(const std::wstring& file, const std::vector<Claimed>& places) {
  const WholeFile whole = ReadWhole(file, GENERIC_READ, kShareAll);
  if (!whole.fault.empty()) {
    if (!Exists(file)) return {};
    return L"Another run's file " + Quoted(file) + whole.fault + L" Delete it if none is at work.";
  }
  std::vector<Claimed> claimed;
  std::wstring helperFolder;
  std::wstring living;
  std::wistringstream text(Utf8ToWide(whole.bytes));
  for (std::wstring kind, first, second;
       std::getline(std::getline(std::getline(text, kind, L'|'), first, L'|'), second);) {
    if (kind == L"h") {
      helperFolder = first;
    } else if (kind == L"p") {
      if (Lives(std::wcstoul(first.c_str(), nullptr, 10), second)) living = first;
    } else if (const std::wstring folder = FullPath(first); !folder.empty()) {
      claimed.push_back({kind == L"w", folder, second});
    }
  }
  if (living.empty()) {
    if (RemoveHelperFolder(helperFolder)) DeleteFileW(file.c_str());
  } else if (const Claimed* const met = Meet(places, claimed)) {
    return Filled(L"Another run is at work at \"{}\" (process {}). Wait until it has ended.",
                  {Below(met->folder, met->file), living});
  }
  return {};
}

// The first that is, or lies in, what the others need; null when none does.
const Claimed* FirstIn(const std::vector<Claimed>& ones, const std::vector<Claimed>& others,
                       Folders& folders) {
  const auto spotOf = [&](const Claimed& place) {
    return Spot{&folders.At(place.folder), UpperCase(place.file)};
  };
  enum : std::size_t { kRead, kWritten, kNone };
  IndexByKey needed;
  for (const Claimed& other : others) {
    std::size_t& need = needed[spotOf(other).Key()];
    if (other.isWritten) need = kWritten;
  }
  const auto found = std::find_if(ones.begin(), ones.end(), [&](const Claimed& one) {
    return FindUpwards(needed, spotOf(one), one.isWritten ? kNone : kRead).has_value();
  });
  return found == ones.end() ? nullptr : &*found;
}

}  // namespace

const Claimed* Meet(const std::vector<Claimed>& ones, const std::vector<Claimed>& others) {
  const auto meetNow = [&] {
    Folders folders;
    const Claimed* const met = FirstIn(ones, others, folders);
    return met != nullptr ? met : FirstIn(others, ones, folders);
  };
  // A folder that the other run's helper makes between two looks has other keys in the second one.
  const Claimed* const met = meetNow();
  return met != nullptr ? met : meetNow();
}

// A folder that somebody holds open is left to the next run, by a claim that claims nothing.
RunClaim::~RunClaim() {
  if (file_.empty()) return;
  const std::string folder = WideToUtf8(Record(L'h', helperFolder_, L""));
  WriteAll(Open(file_, GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS), folder);
  if (RemoveHelperFolder(helperFolder_)) DeleteFileW(file_.c_str());
}

void RunClaim::Prepare() { CreateDirectoryW(ClaimsFolder().c_str(), nullptr); }

void RunClaim::Take(const std::vector<Claimed>& places, const std::wstring& helperFolder) {
  const std::wstring folder = ClaimsFolder();
  // One run of this user at a time reads and writes here, in whatever session and with whatever
  // rights: the file is open for one process alone.
  const Handle lock =
      folder.empty() ? Handle() : Open(folder + L"\\lock", GENERIC_WRITE, 0, OPEN_ALWAYS, 500);
  if (!lock) {
    throw NotStarted{
        L"It is unknown whether another run is at work, because nothing can be written in " +
        Quoted(folder) + L": " + SystemMessage(GetLastError()) + L" Try again."};
  }
  std::wstring why;
  ForEachEntry(folder + L"\\*.claim", [&](const WIN32_FIND_DATAW& entry) {
    why = WhyWait(folder + L"\\" + entry.cFileName, places);
    return why.empty();
  });
  if (!why.empty()) throw NotStarted{why};

  std::wstring text = Record(L'h', helperFolder, L"") + RecordOf(GetCurrentProcess());
  for (const Claimed& place : places) {
    text += Record(place.isWritten ? L'w' : L'r', place.folder, place.file);
  }
  helperFolder_ = helperFolder;
  file_ = folder + L"\\" + NameOf(helperFolder) + L".claim";
  if (WriteAll(Open(file_, GENERIC_WRITE, FILE_SHARE_READ, CREATE_NEW), WideToUtf8(text))) return;
  throw NotStarted{Quoted(file_) + L" cannot be written: " + SystemMessage(GetLastError())};
}

void RunClaim::AddHelper(HANDLE helper) {
  WriteAll(Open(file_, FILE_APPEND_DATA), WideToUtf8(RecordOf(helper)));
}

}  // namespace uaclient
