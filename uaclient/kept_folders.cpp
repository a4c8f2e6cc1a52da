#include "uaclient/kept_folders.h"

#include <windows.h>

#include <shlobj.h>
#include <wrl/client.h>

#include <thread>

#include "uaclient/helper_files.h"
#include "uaclient/helper_process.h"
#include "uaclient/path.h"

namespace uaclient {
namespace {

struct TaskMemory {
  void operator()(void* memory) const { CoTaskMemFree(memory); }
};
template <typename Type>
using TaskMemoryPointer = std::unique_ptr<Type, TaskMemory>;

// The folders of the system's list, for this user. On a thread of its own, because the caller's may
// be in any apartment.
std::vector<std::wstring> SystemsKnownFolders() {
  std::vector<std::wstring> paths;
  std::thread([&paths] {
    const HRESULT com = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    Microsoft::WRL::ComPtr<IKnownFolderManager> manager;
    KNOWNFOLDERID* list = nullptr;
    UINT count = 0;
    if (SUCCEEDED(CoCreateInstance(__uuidof(KnownFolderManager), nullptr, CLSCTX_INPROC_SERVER,
                                   IID_PPV_ARGS(&manager))) &&
        SUCCEEDED(manager->GetFolderIds(&list, &count))) {
      const TaskMemoryPointer<KNOWNFOLDERID> ids(list);
      for (UINT i = 0; i < count; ++i) {
        std::wstring path = KnownFolder(ids.get()[i]);
        if (!path.empty()) paths.push_back(std::move(path));
      }
    }
    manager.Reset();
    if (SUCCEEDED(com)) CoUninitialize();
  }).join();
  return paths;
}

}  // namespace

std::wstring KnownFolder(const KNOWNFOLDERID& id) {
  wchar_t* text = nullptr;
  const HRESULT found = SHGetKnownFolderPath(id, KF_FLAG_DONT_VERIFY, nullptr, &text);
  const TaskMemoryPointer<wchar_t> owner(text);
  return SUCCEEDED(found) && IsAbsolute(text) ? FullPath(text) : std::wstring();
}

KeptFolders::KeptFolders(Folders& folders, const Options& options) {
  std::vector<std::wstring> paths = SystemsKnownFolders();
  paths.insert(paths.end(), {OwnFolder(), ParentOf(HelperPath(options)), TempFolder()});
  std::wstring root = L"A:\\";
  for (DWORD drives = GetLogicalDrives(); drives != 0; drives >>= 1, ++root[0]) {
    if ((drives & 1) != 0 && GetDriveTypeW(root.c_str()) != DRIVE_REMOTE) paths.push_back(root);
  }
  for (const std::wstring& path : paths) {
    const std::wstring full = FullPath(path);
    if (!full.empty()) kept_.push_back(&folders.At(full));
  }
  wchar_t windows[MAX_PATH] = {};
  GetSystemWindowsDirectoryW(windows, MAX_PATH);
  windows_ = &folders.At(FullPath(windows));
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
  return folder.keys[1] == profiles_->keys[0] ? L" is a user's profile" : L"";
}

}  // namespace uaclient
