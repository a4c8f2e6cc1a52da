#include "uaclient/check_path.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <iterator>
#include <string_view>
#include <utility>

#include "corekit/text.h"
#include "uaclient/win32.h"

namespace uaclient {
namespace {

// The system's own form of what Windows otherwise writes with two separators and one "?".
constexpr wchar_t kKernelPrefix[] = L"\\??\\";

constexpr DWORD kMaxUnits = 32768;

// Of what is longer than anything that the helper can reach only the existence is looked up, so
// that a path of thousands of folders costs no more than another.
constexpr std::size_t kMaxLookedAt = 1040;

// A folder in which many files are looked up is cheaper to list, unless it is huge.
constexpr std::size_t kLooksBeforeListing = 50;
constexpr std::size_t kMaxListed = 1'000'000;

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool IsLetter(wchar_t c) { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z'); }

bool HasDrive(const std::wstring& path) {
  return path.size() >= 2 && IsLetter(path[0]) && path[1] == L':';
}

bool IsNetworkPath(const std::wstring& path) {
  return path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1]);
}

bool HasLoneSurrogate(const std::wstring& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (IS_HIGH_SURROGATE(text[i]) && i + 1 < text.size() && IS_LOW_SURROGATE(text[i + 1])) {
      ++i;
    } else if (text[i] >= HIGH_SURROGATE_START && text[i] <= LOW_SURROGATE_END) {
      return true;
    }
  }
  return false;
}

// CON, NUL, COM1 and so on, with or without an extension.
bool IsDeviceName(std::wstring_view name) {
  // "#" is a digit.
  constexpr std::array<std::wstring_view, 8> kDevices = {L"CON",    L"PRN",     L"AUX",  L"NUL",
                                                         L"CONIN$", L"CONOUT$", L"COM#", L"LPT#"};
  name = name.substr(0, name.find(L'.'));
  name = name.substr(0, name.find_last_not_of(L' ') + 1);
  const auto matches = [](wchar_t c, wchar_t device) {
    constexpr std::wstring_view kDigits = L"0123456789\u00B9\u00B2\u00B3";
    if (device == L'#') return kDigits.find(c) != std::wstring_view::npos;
    return c == device || (c >= L'a' && c <= L'z' && c - L'a' + L'A' == device);
  };
  return std::any_of(kDevices.begin(), kDevices.end(), [&](std::wstring_view device) {
    return name.size() == device.size() &&
           std::equal(name.begin(), name.end(), device.begin(), matches);
  });
}

// Asks the system where an existing path leads; L"" when it cannot say.
std::wstring FinalPath(const std::wstring& fullPath) {
  constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const Handle file(CreateFileW(Verbatim(fullPath).c_str(), 0, kShare, nullptr, OPEN_EXISTING,
                                FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!file) return {};
  std::wstring path(MAX_PATH, L'\0');
  DWORD size = GetFinalPathNameByHandleW(file.get(), path.data(), MAX_PATH, VOLUME_NAME_DOS);
  if (size > MAX_PATH) {
    path.resize(size);
    size = GetFinalPathNameByHandleW(file.get(), path.data(), size, VOLUME_NAME_DOS);
  }
  if (size > path.size()) return {};
  path.resize(size);
  if (path.rfind(L"\\\\?\\UNC\\", 0) == 0) return L"\\" + path.substr(7);
  if (path.rfind(L"\\\\?\\", 0) == 0) path.erase(0, 4);
  return path;
}

std::wstring Joined(const std::wstring& folder, const std::wstring& name) {
  return folder.empty() || folder.back() == L'\\' ? folder + name : folder + L"\\" + name;
}

template <typename Data>
void SetData(Place& place, const Data& data) {
  place.exists = true;
  place.attributes = data.dwFileAttributes;
  place.isFolder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (!place.isFolder) place.size = std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
}

// Every other error leaves open what is there.
bool MeansMissing(DWORD error) {
  constexpr DWORD kMissing[] = {
      ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND,       ERROR_INVALID_NAME, ERROR_BAD_PATHNAME,
      ERROR_DIRECTORY,      ERROR_FILENAME_EXCED_RANGE, ERROR_INVALID_DRIVE};
  return std::find(std::begin(kMissing), std::end(kMissing), error) != std::end(kMissing);
}

// Looks at the path itself; what lies above it has led to `composed`.
Place Describe(const std::wstring& fullPath, std::wstring composed) {
  Place place;
  place.real = std::move(composed);
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(Verbatim(fullPath).c_str(), GetFileExInfoStandard, &data)) {
    place.isUnseen = !MeansMissing(GetLastError());
    return place;
  }
  SetData(place, data);
  // The folder above tells where it is, unless its own name is a link or a short one. A drive can
  // stand for a folder of another one.
  if (IsRoot(fullPath) || (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ||
      fullPath.find(L'~') != std::wstring::npos) {
    std::wstring real = FinalPath(fullPath);
    if (!real.empty()) place.real = std::move(real);
  }
  return place;
}

// With what kernel32 has: user32 takes as long to load as the rest of a check.
std::wstring UpperCase(std::wstring text) {
  const int length = static_cast<int>(text.size());
  LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, text.data(), length, text.data(), length,
                nullptr, nullptr, 0);
  return text;
}

}  // namespace

bool IsPlainName(std::wstring_view name) {
  constexpr std::wstring_view kSigns = L"<>:\"/\\|?*";
  const auto isSign = [&](wchar_t c) {
    return c < L' ' || (c < 0x80 && kSigns.find(c) != std::wstring_view::npos);
  };
  return !name.empty() && std::none_of(name.begin(), name.end(), isSign) && name.back() != L' ' &&
         name.back() != L'.' && !IsDeviceName(name);
}

bool IsAbsolute(const std::wstring& path) {
  return IsNetworkPath(path) || (HasDrive(path) && path.size() > 2 && IsSeparator(path[2]));
}

Remarks CheckPathText(const std::wstring& path) {
  const auto fails = [&path](const std::wstring& text) {
    return Remarks{{Weight::kFails, Quoted(path) + text}};
  };
  if (path.empty()) return {{Weight::kFails, L"The path is empty; write where it leads."}};
  if (std::any_of(path.begin(), path.end(), [](wchar_t c) { return c < L' '; }) ||
      HasLoneSurrogate(path)) {
    return fails(
        L" holds a control character or half of a surrogate pair, which no list can carry; give "
        L"the file another name.");
  }
  const bool isDevices = IsNetworkPath(path) && path.size() > 3 &&
                         (path[2] == L'?' || path[2] == L'.') && IsSeparator(path[3]);
  if (isDevices || path.rfind(kKernelPrefix, 0) == 0) {
    return fails(
        L" names a device, or is a path that Windows takes as it stands, and what it leads to "
        L"cannot be compared with other paths. Write it from its drive on.");
  }
  if (!IsAbsolute(path)) {
    return fails(
        L" is relative to whatever folder the helper is started in; write the whole path from its "
        L"drive on.");
  }

  bool isDoubled = false;
  for (std::size_t at = 2; at < path.size();) {
    const auto end =
        std::find_if(path.begin() + static_cast<std::ptrdiff_t>(at), path.end(), IsSeparator);
    const auto next = static_cast<std::size_t>(end - path.begin());
    const std::wstring_view name = std::wstring_view(path).substr(at, next - at);
    if (name.empty()) {
      isDoubled |= at > 2;
    } else if (name == L"." || name == L"..") {
      return fails(L" holds " + Quoted(std::wstring(name)) + L"; write the path out.");
    } else if (!IsPlainName(name)) {
      return fails(
          L" holds " + Quoted(std::wstring(name)) +
          L", which names something else than it says: < > : \" | ? * have meanings of their own, "
          L"blanks and dots at the end are dropped, and some names are devices. Use another name.");
    }
    at = next + 1;
  }
  if (!isDoubled) return {};
  return {{Weight::kDoubt, Quoted(path) + L" holds two separators in a row; write one."}};
}

std::wstring FullPath(const std::wstring& path, bool isPlain) {
  if (!isPlain) return FullPath(path);
  std::wstring full = path;
  std::replace(full.begin(), full.end(), L'/', L'\\');
  if (full.size() > 3 && full.back() == L'\\') full.pop_back();
  return full;
}

std::wstring FullPath(const std::wstring& path) {
  if (path.empty() || path.size() >= kMaxUnits) return {};
  if (path.rfind(kKernelPrefix, 0) == 0) return FullPath(L"\\\\" + path.substr(2));
  std::wstring full(path.size() + MAX_PATH, L'\0');
  DWORD size =
      GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  if (size > full.size()) {
    full.resize(size);
    size = GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
  }
  full.resize(std::min<std::size_t>(size, full.size()));
  if (full.rfind(L"\\\\.\\", 0) == 0) full[2] = L'?';
  if (full.rfind(L"\\\\?\\UNC\\", 0) == 0) full.replace(0, 7, L"\\");
  if (full.rfind(L"\\\\?\\", 0) == 0) full.erase(0, 4);
  while (full.size() > 3 && full.back() == L'\\') full.pop_back();
  return IsAbsolute(full) ? full : std::wstring();
}

std::size_t RootSize(const std::wstring& fullPath) {
  if (!IsNetworkPath(fullPath)) return 3;
  const std::size_t share = fullPath.find(L'\\', 2);
  return share == std::wstring::npos ? fullPath.size()
                                     : std::min(fullPath.find(L'\\', share + 1), fullPath.size());
}

bool IsRoot(const std::wstring& fullPath) { return fullPath.size() <= RootSize(fullPath); }

std::wstring Verbatim(const std::wstring& fullPath) {
  return IsNetworkPath(fullPath) ? L"\\\\?\\UNC" + fullPath.substr(1) : L"\\\\?\\" + fullPath;
}

Place Places::Look(const std::wstring& fullPath) {
  if (IsRoot(fullPath) || fullPath.size() > kMaxLookedAt) return Describe(fullPath, fullPath);

  // Down from the root to the folder above, as far as there is anything.
  const std::size_t last = fullPath.rfind(L'\\');
  std::size_t at = RootSize(fullPath);
  KnownFolder* above = Known(fullPath.substr(0, last));
  if (above != nullptr) {
    at = last;
  } else {
    const std::wstring root = fullPath.substr(0, at);
    above = &Folder(root, nullptr);
  }
  while (above->place.isFolder && at < last) {
    at = std::min(fullPath.find(L'\\', at + 1), last);
    above = &Folder(fullPath.substr(0, at), above);
  }
  const std::size_t rest = fullPath[at] == L'\\' ? at + 1 : at;
  std::wstring composed = Joined(above->place.real, fullPath.substr(rest));
  if (above->place.isFolder) return LookIn(*above, fullPath, std::move(composed));
  // One may be allowed to look into a folder that lies in one into which one is not.
  if (above->place.isUnseen) return Describe(fullPath, std::move(composed));
  Place missing;
  missing.real = std::move(composed);
  return missing;
}

Places::KnownFolder* Places::Known(const std::wstring& fullPath) {
  const auto known = folders_.find(fullPath);
  return known == folders_.end() ? nullptr : &known->second;
}

Places::KnownFolder& Places::Folder(const std::wstring& fullPath, const KnownFolder* above) {
  if (KnownFolder* const known = Known(fullPath)) return *known;
  std::wstring composed =
      above == nullptr ? fullPath
                       : Joined(above->place.real, fullPath.substr(fullPath.rfind(L'\\') + 1));
  return folders_
      .emplace(fullPath, KnownFolder{Describe(fullPath, std::move(composed)), 0, false, {}})
      .first->second;
}

Place Places::LookIn(KnownFolder& folder, const std::wstring& fullPath, std::wstring composed) {
  if (folder.looks == kLooksBeforeListing) folder.isListed = List(folder, fullPath);
  ++folder.looks;
  if (!folder.isListed || fullPath.find(L'~') != std::wstring::npos) {
    return Describe(fullPath, std::move(composed));
  }
  const auto found = folder.files.find(UpperCase(fullPath.substr(fullPath.rfind(L'\\') + 1)));
  if (found != folder.files.end() && !found->second.exists) {
    return Describe(fullPath, std::move(composed));
  }
  Place place = found == folder.files.end() ? Place() : found->second;
  place.real = std::move(composed);
  return place;
}

bool Places::List(KnownFolder& folder, const std::wstring& fullPath) {
  const std::wstring pattern = Verbatim(fullPath.substr(0, fullPath.rfind(L'\\') + 1)) + L"*";
  WIN32_FIND_DATAW data;
  const HANDLE find = FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &data,
                                       FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
  if (find == INVALID_HANDLE_VALUE) return false;
  bool isWhole = true;
  do {
    Place place;
    constexpr DWORD kLookedAtItself = FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY;
    if ((data.dwFileAttributes & kLookedAtItself) == 0) SetData(place, data);
    folder.files.emplace(UpperCase(data.cFileName), place);
    isWhole = folder.files.size() <= kMaxListed;
  } while (isWhole && FindNextFileW(find, &data));
  FindClose(find);
  if (!isWhole) folder.files.clear();
  return isWhole;
}

std::wstring Places::DriveFault(const std::wstring& fullPath) {
  if (!HasDrive(fullPath)) return {};
  const auto [known, isNew] = driveFaults_.try_emplace(fullPath[0]);
  if (!isNew) return known->second;

  const std::wstring drive = fullPath.substr(0, 2);
  const bool isElevated = IsElevated();  // the helper is so too, and sees the same drives
  const UINT type = GetDriveTypeW((drive + L"\\").c_str());
  wchar_t device[MAX_PATH] = {};
  QueryDosDeviceW(drive.c_str(), device, MAX_PATH);
  const bool isSubstituted = std::wcsncmp(device, L"\\??\\", 4) == 0;
  std::wstring& fault = known->second;
  if (!isElevated && (isSubstituted || type == DRIVE_REMOTE)) {
    std::wstring real = FinalPath(drive + L"\\");
    if (real.empty())
      real = isSubstituted ? device + 4 : L"the share's own path, \\\\server\\share";
    fault = L"The drive " + drive +
            L" is this user's own; the helper with its raised rights does not see it. Write " +
            real + L" instead.";
  } else if (type == DRIVE_NO_ROOT_DIR) {
    fault = L"There is no drive " + drive + L"; write one that there is.";
  }
  return fault;
}

std::wstring ComparisonKey(const std::wstring& real) {
  std::wstring key = UpperCase(real);
  if (key.empty() || key.back() != L'\\') key += L'\\';
  std::replace(key.begin(), key.end(), L'\\', kKeySeparator);
  return key;
}

}  // namespace uaclient
