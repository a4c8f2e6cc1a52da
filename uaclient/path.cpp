#include "uaclient/path.h"

#include <algorithm>

#include "corekit/text.h"
#include "uaclient/win32.h"
#include "uaclient/words.h"

namespace uaclient {
namespace {

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool IsNetworkPath(const std::wstring& path) {
  return path.size() > 2 && IsSeparator(path[0]) && IsSeparator(path[1]) && !IsSeparator(path[2]) &&
         path[2] != L'?' && path[2] != L'.';
}

// How much of a full path is the drive's root or the share: "C:\", "\\server\share".
std::size_t RootSize(const std::wstring& fullPath) {
  if (!IsNetworkPath(fullPath)) return 3;
  const std::size_t share = fullPath.find(L'\\', 2);
  return share == std::wstring::npos ? fullPath.size()
                                     : std::min(fullPath.find(L'\\', share + 1), fullPath.size());
}

std::wstring Plain(std::wstring path) {
  std::replace(path.begin(), path.end(), L'/', L'\\');
  if (path.size() > RootSize(path) && path.back() == L'\\') path.pop_back();
  return path;
}

// `\\?\C:\x` and `\\?\UNC\server\share` as they are usually written; L"" for what is no full path.
std::wstring Usual(std::wstring path) {
  if (path.rfind(L"\\\\?\\UNC\\", 0) == 0) path.erase(1, 6);
  if (path.rfind(L"\\\\?\\", 0) == 0) path.erase(0, 4);
  return IsAbsolute(path) ? Plain(path) : std::wstring();
}

}  // namespace

bool IsAbsolute(const std::wstring& path) {
  const bool hasDrive =
      path.size() > 2 && path[1] == L':' && IsSeparator(path[2]) &&
      ((path[0] >= L'a' && path[0] <= L'z') || (path[0] >= L'A' && path[0] <= L'Z'));
  return hasDrive || IsNetworkPath(path);
}

// Half of a surrogate pair does not come back from UTF-8.
bool ListCarries(const std::wstring& text) {
  const auto isControl = [](wchar_t c) { return c < L' '; };
  const auto isHalf = [](wchar_t c) { return c >= 0xD800 && c <= 0xDFFF; };
  if (std::any_of(text.begin(), text.end(), isControl)) return false;
  return std::none_of(text.begin(), text.end(), isHalf) || Utf8ToWide(WideToUtf8(text)) == text;
}

std::wstring PathFault(const std::wstring& path, const std::wstring& ifEmpty, std::wstring& full) {
  full.clear();
  if (path.empty()) return ifEmpty + L" Write the whole path.";
  if (!IsAbsolute(path)) {
    return Quoted(path) + L" is relative, or begins with \\\\?\\ or \\\\.\\. Write the whole path.";
  }
  if (path.find_first_of(L"<>:\"|?*", 2) != std::wstring::npos || !ListCarries(path)) {
    return Quoted(path) +
           L" holds one of < > : \" | ? *, a control character or invalid UTF-16. Rename it.";
  }
  full = FullPath(path);
  if (full == Plain(path)) return {};
  if (full.empty())
    return Quoted(path) + L" is the name of a device, or far too long. Use another.";
  return Quoted(path) + L" is what Windows reads as " + Quoted(full) + L". Write that.";
}

std::wstring FullPath(const std::wstring& path) {
  return Usual(TextFrom([&](wchar_t* text, DWORD size) {
    return GetFullPathNameW(path.c_str(), size, text, nullptr);
  }));
}

bool IsRoot(const std::wstring& fullPath) { return fullPath.size() <= RootSize(fullPath); }

std::wstring ParentOf(const std::wstring& fullPath) {
  return fullPath.substr(0, std::max(RootSize(fullPath), fullPath.rfind(L'\\')));
}

std::wstring NameOf(const std::wstring& fullPath) {
  return fullPath.substr(IsRoot(fullPath) ? 0 : fullPath.rfind(L'\\') + 1);
}

std::wstring RootOf(const std::wstring& fullPath) { return fullPath.substr(0, RootSize(fullPath)); }

std::wstring WithSeparator(std::wstring folder) {
  if (folder.empty() || !IsSeparator(folder.back())) folder += L'\\';
  return folder;
}

std::wstring Below(const std::wstring& folder, const std::wstring& path) {
  return path.empty() ? folder : WithSeparator(folder) + path;
}

std::wstring Verbatim(const std::wstring& fullPath) {
  return IsNetworkPath(fullPath) ? L"\\\\?\\UNC" + fullPath.substr(1) : L"\\\\?\\" + fullPath;
}

std::wstring FinalPath(HANDLE file) {
  return Usual(TextFrom([&](wchar_t* text, DWORD size) {
    return GetFinalPathNameByHandleW(file, text, size, VOLUME_NAME_DOS);
  }));
}

std::wstring DriveFault(const std::wstring& fullPath) {
  if (fullPath.find(L':') != 1) return {};
  const std::wstring drive = fullPath.substr(0, 2);
  const UINT type = GetDriveTypeW((drive + L"\\").c_str());
  if (type == DRIVE_NO_ROOT_DIR) return L"There is no drive " + drive + L". Write one that exists.";
  if (IsElevated()) return {};  // the helper is so, too, and sees the same drives

  wchar_t device[MAX_PATH] = {};
  QueryDosDeviceW(drive.c_str(), device, MAX_PATH);
  const bool isSubstituted = std::wstring(device).rfind(L"\\??\\", 0) == 0;
  if (!isSubstituted && type != DRIVE_REMOTE) return {};
  std::wstring real = isSubstituted ? Usual(L"\\\\?\\" + std::wstring(device + 4))
                                    : FinalPath(Open(drive + L"\\", 0).get());
  if (real.empty()) real = L"\\\\server\\share";
  return L"The drive " + drive +
         L" is mapped for this user alone, and the helper does not see it. Write " +
         Quoted(Below(real, fullPath.substr(3))) + L" instead.";
}

}  // namespace uaclient
