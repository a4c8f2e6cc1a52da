#include "uaclient/kept_folders.h"

#include <objbase.h>

#include "uaclient/helper_files.h"
#include "uaclient/helper_process.h"
#include "uaclient/path.h"
#include "uaclient/words.h"

namespace uaclient {
namespace {

// The folders of the system's list, for this user.
std::vector<std::wstring> SystemsKnownFolders() {
  std::vector<std::wstring> paths;
  HKEY list = nullptr;
  RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\FolderDescriptions", 0,
                KEY_READ, &list);
  wchar_t name[64];
  for (DWORD i = 0; RegEnumKeyW(list, i, name, 64) == ERROR_SUCCESS; ++i) {
    KNOWNFOLDERID id;
    if (SUCCEEDED(IIDFromString(name, &id))) paths.push_back(KnownFolder(id));
  }
  RegCloseKey(list);
  return paths;
}

}  // namespace

std::wstring KnownFolder(const KNOWNFOLDERID& id) {
  wchar_t* text = nullptr;
  const HRESULT found = SHGetKnownFolderPath(id, KF_FLAG_DONT_VERIFY, nullptr, &text);
  const std::wstring path = SUCCEEDED(found) ? FullPath(text) : std::wstring();
  CoTaskMemFree(text);
  return path;
}

KeptFolders::KeptFolders(Folders& folders, const Options& options) {
  std::vector<std::wstring> paths = SystemsKnownFolders();
  paths.insert(paths.end(), {OwnFolder(), ParentOf(FullPath(HelperPath(options))), TempFolder()});
  std::wstring root = L"A:\\";
  for (DWORD drives = GetLogicalDrives(); drives != 0; drives >>= 1, ++root[0]) {
    if ((drives & 1) != 0 && GetDriveTypeW(root.c_str()) != DRIVE_REMOTE) paths.push_back(root);
  }
  for (const std::wstring& path : paths) {
    if (!path.empty()) kept_.push_back(&folders.At(path));
  }
  windows_ = &folders.At(
      TextFrom([](wchar_t* text, DWORD size) { return GetSystemWindowsDirectoryW(text, size); }));
  profiles_ = &folders.At(KnownFolder(FOLDERID_UserProfiles));
}

std::wstring KeptFolders::WhyKept(const Folder& folder) const {
  if (IsRoot(folder.path)) return L" is a whole drive or share";
  for (const Folder* const kept : kept_) {
    if (!kept->IsInOrIs(folder)) continue;
    return folder.IsInOrIs(*kept) ? L" is " + Quoted(kept->path) + L", which programs need"
                                  : L" holds " + Quoted(kept->path);
  }
  if (folder.IsInOrIs(*windows_)) return L" is in the Windows folder";
  if (folder.keys[1] == profiles_->keys[0]) return L" is a user's profile";
  if (folder.error == 0) return {};
  return L" cannot be looked up (error " + std::to_wstring(folder.error) + L")";
}

}  // namespace uaclient
