#include "uaclient/check_path.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <string_view>
#include <utility>

#include "corekit/text.h"

namespace uaclient {
namespace {

constexpr wchar_t kSeparators[] = L"\\/";
constexpr DWORD kMaxUnits = 32768;

// Of what is longer than anything that the helper can reach only the existence is looked up, so
// that a path of thousands of folders costs no more than another.
constexpr std::size_t kMaxLookedAt = 4 * MAX_PATH;

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool IsLetter(wchar_t c) { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z'); }

bool HasDrive(const std::wstring& path) {
  return path.size() >= 2 && IsLetter(path[0]) && path[1] == L':';
}

bool IsNetworkPath(const std::wstring& path) {
  return path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1]);
}

// CON, NUL, COM1 and so on, with or without an extension.
bool IsDeviceName(const std::wstring& name) {
  constexpr std::array<std::wstring_view, 6> kNames = {L"CON", L"PRN",    L"AUX",
                                                       L"NUL", L"CONIN$", L"CONOUT$"};
  constexpr std::array<std::wstring_view, 2> kNumbered = {L"COM", L"LPT"};
  std::wstring stem = name.substr(0, name.find(L'.'));
  stem.erase(stem.find_last_not_of(L' ') + 1);
  const auto is = [&stem](std::wstring_view device, std::size_t size) {
    return stem.size() == size && _wcsnicmp(stem.c_str(), device.data(), device.size()) == 0;
  };
  return std::any_of(kNames.begin(), kNames.end(),
                     [&](std::wstring_view device) { return is(device, device.size()); }) ||
         std::any_of(kNumbered.begin(), kNumbered.end(), [&](std::wstring_view device) {
           return is(device, 4) && std::wcschr(L"0123456789\u00B9\u00B2\u00B3", stem[3]) != nullptr;
         });
}

class Handle {
 public:
  explicit Handle(HANDLE handle) : handle_(handle) {}
  ~Handle() {
    if (IsOpen()) CloseHandle(handle_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  bool IsOpen() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE Get() const { return handle_; }

 private:
  HANDLE handle_;
};

// Asks the system where an existing path leads; L"" when it cannot say.
std::wstring FinalPath(const std::wstring& fullPath) {
  constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const Handle file(CreateFileW(Verbatim(fullPath).c_str(), 0, kShare, nullptr, OPEN_EXISTING,
                                FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!file.IsOpen()) return {};
  std::wstring path(MAX_PATH, L'\0');
  DWORD size = GetFinalPathNameByHandleW(file.Get(), path.data(), MAX_PATH, VOLUME_NAME_DOS);
  if (size > MAX_PATH) {
    path.resize(size);
    size = GetFinalPathNameByHandleW(file.Get(), path.data(), size, VOLUME_NAME_DOS);
  }
  if (size > path.size()) return {};
  path.resize(size);
  if (path.rfind(L"\\\\?\\UNC\\", 0) == 0) return L"\\" + path.substr(7);
  if (path.rfind(L"\\\\?\\", 0) == 0) path.erase(0, 4);
  return path;
}

// Of a full path.
std::size_t RootSize(const std::wstring& fullPath) {
  if (!IsNetworkPath(fullPath)) return 3;
  const std::size_t share = fullPath.find(L'\\', 2);
  return share == std::wstring::npos ? fullPath.size()
                                     : std::min(fullPath.find(L'\\', share + 1), fullPath.size());
}

std::wstring Joined(const std::wstring& folder, const std::wstring& name) {
  return folder.empty() || folder.back() == L'\\' ? folder + name : folder + L"\\" + name;
}

// Looks at the path itself; what lies above it has led to `composed`.
Place Describe(const std::wstring& fullPath, std::wstring composed) {
  Place place;
  place.real = std::move(composed);
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(Verbatim(fullPath).c_str(), GetFileExInfoStandard, &data)) {
    return place;
  }
  place.exists = true;
  place.attributes = data.dwFileAttributes;
  place.isFolder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (!place.isFolder) place.size = std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
  // Of a file the folder above tells where it is, unless its own name is a link or a short one.
  if (place.isFolder || (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ||
      fullPath.find(L'~') != std::wstring::npos) {
    std::wstring real = FinalPath(fullPath);
    if (!real.empty()) place.real = std::move(real);
  }
  return place;
}

}  // namespace

bool IsPlainName(const std::wstring& name) {
  const auto isSign = [](wchar_t c) {
    return c < L' ' || std::wcschr(L"<>:\"/\\|?*", c) != nullptr;
  };
  return !name.empty() && std::none_of(name.begin(), name.end(), isSign) && name.back() != L' ' &&
         name.back() != L'.' && !IsDeviceName(name);
}

bool IsAbsolute(const std::wstring& path) {
  return IsNetworkPath(path) || (HasDrive(path) && path.size() > 2 && IsSeparator(path[2]));
}

Remarks CheckPathText(const std::wstring& path) {
  if (path.empty()) return {{Weight::kFails, L"The path is empty; write where it leads."}};
  const std::wstring shown = Quoted(path);
  if (std::any_of(path.begin(), path.end(), [](wchar_t c) { return c < L' '; }) ||
      Utf8ToWide(WideToUtf8(path)) != path) {
    return {{Weight::kFails, shown +
                                 L" holds a control character or half of a surrogate pair, which "
                                 L"no list can carry; give the file another name."}};
  }
  if (IsNetworkPath(path) && path.size() > 3 && (path[2] == L'?' || path[2] == L'.') &&
      IsSeparator(path[3])) {
    return {{Weight::kFails, shown + L" names a device, or is a path that Windows takes as it "
                                     L"stands; the helper cannot walk it. Write it without the "
                                     L"prefix."}};
  }
  if (!IsAbsolute(path)) {
    return {{Weight::kFails, shown + L" is relative to whatever folder the helper is started in; "
                                     L"write the whole path from its drive on."}};
  }

  Remarks remarks;
  bool doubled = false;
  for (std::size_t at = 2; at < path.size();) {
    const std::size_t end = std::min(path.find_first_of(kSeparators, at), path.size());
    const std::wstring name = path.substr(at, end - at);
    if (name.empty() && at > 2 && at < path.size()) doubled = true;
    if (name == L"." || name == L"..") {
      remarks.push_back(
          {Weight::kFails, shown + L" holds " + Quoted(name) + L"; write the path out."});
    } else if (!name.empty() && !IsPlainName(name)) {
      remarks.push_back(
          {Weight::kFails,
           shown + L" holds " + Quoted(name) +
               L", which names something else than it says: < > : \" | ? * have meanings of their "
               L"own, blanks and dots at the end are dropped, and some names are devices. Use "
               L"another name."});
    }
    at = end + 1;
  }
  if (doubled) {
    remarks.push_back({Weight::kDoubt, shown + L" holds two separators in a row; write one."});
  }
  return remarks;
}

std::wstring FullPath(const std::wstring& path) {
  if (path.empty() || path.size() >= kMaxUnits) return {};
  std::wstring full(path.size() + MAX_PATH, L'\0');
  DWORD size =
      GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  if (size > full.size()) {
    full.resize(size);
    size = GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
  }
  full.resize(std::min<std::size_t>(size, full.size()));
  if (full.rfind(L"\\\\?\\UNC\\", 0) == 0) full.replace(0, 7, L"\\");
  if (full.rfind(L"\\\\?\\", 0) == 0) full.erase(0, 4);
  while (full.size() > 3 && full.back() == L'\\') full.pop_back();
  return IsAbsolute(full) && full.rfind(L"\\\\.", 0) != 0 ? full : std::wstring();
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
  const std::wstring root = fullPath.substr(0, at);
  const Place* above = &Folder(root, root);
  while (above->isFolder && at < last) {
    const std::size_t end = std::min(fullPath.find(L'\\', at + 1), last);
    const std::size_t name = fullPath[at] == L'\\' ? at + 1 : at;
    above =
        &Folder(fullPath.substr(0, end), Joined(above->real, fullPath.substr(name, end - name)));
    at = end;
  }
  const std::size_t rest = fullPath[at] == L'\\' ? at + 1 : at;
  const std::wstring composed = Joined(above->real, fullPath.substr(rest));
  if (above->isFolder) return Describe(fullPath, composed);
  Place missing;
  missing.real = composed;
  return missing;
}

const Place& Places::Folder(const std::wstring& fullPath, const std::wstring& composed) {
  const auto known = folders_.find(fullPath);
  if (known != folders_.end()) return known->second;
  return folders_.emplace(fullPath, Describe(fullPath, composed)).first->second;
}

std::wstring Places::DriveFault(const std::wstring& fullPath) {
  if (!HasDrive(fullPath)) return {};
  const auto [known, isNew] = driveFaults_.try_emplace(fullPath[0]);
  if (!isNew) return known->second;

  const std::wstring drive = fullPath.substr(0, 2);
  const UINT type = GetDriveTypeW((drive + L"\\").c_str());
  wchar_t device[MAX_PATH] = {};
  QueryDosDeviceW(drive.c_str(), device, MAX_PATH);
  const bool isSubstituted = std::wcsncmp(device, L"\\??\\", 4) == 0;
  std::wstring& fault = known->second;
  if (isSubstituted || type == DRIVE_REMOTE) {
    std::wstring real = FinalPath(drive + L"\\");
    if (real.empty())
      real = isSubstituted ? device + 4 : L"the share's own path, \\\\server\\share";
    fault = L"The drive " + drive +
            L" is this user's own; the helper with its raised rights does not see it. Write " +
            real + L" instead.";
  } else if (type == DRIVE_NO_ROOT_DIR) {
    fault = L"There is no drive " + drive + L".";
  }
  return fault;
}

std::wstring ComparisonKey(const std::wstring& real) {
  std::wstring key = real;
  if (key.empty() || key.back() != L'\\') key += L'\\';
  CharUpperBuffW(key.data(), static_cast<DWORD>(key.size()));
  // Before every sign that a name can hold, so that nothing comes between a folder and its
  // contents.
  std::replace(key.begin(), key.end(), L'\\', L'\x01');
  return key;
}

}  // namespace uaclient
