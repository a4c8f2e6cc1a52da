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
  for (const std::wstring& path : SystemsKnownFolders()) Keep(folders, path);
  for (const std::wstring& path : {OwnFolder(), ParentOf(HelperPath(options)), TempFolder()}) {
    Keep(folders, path);
  }
  wchar_t windows[MAX_PATH] = {};
  GetSystemWindowsDirectoryW(windows, MAX_PATH);
  windows_ = folders.At(FullPath(windows)).place;
  profiles_ = folders.At(KnownFolder(FOLDERID_UserProfiles)).place;
  std::wstring root = L"A:\\";
  for (DWORD drives = GetLogicalDrives(); drives != 0; drives >>= 1, ++root[0]) {
    if ((drives & 1) != 0 && GetDriveTypeW(root.c_str()) != DRIVE_REMOTE) Keep(folders, root);
  }
}

void KeptFolders::Keep(Folders& folders, const std::wstring& path) {
  const std::wstring full = FullPath(path);
  if (!full.empty()) kept_.push_back({full, folders.At(full).place});
}

std::wstring KeptFolders::WhyKept(const Folder& folder) const {
  const Place& place = folder.place;
  if (IsRoot(folder.path)) return L" is a whole drive or share";
  const Relation toWindows = Relate(place, windows_);
  if (toWindows != Relation::kApart) {
    return toWindows == Relation::kInside ? L" lies in the Windows folder"
                                          : L" is or holds the Windows folder";
  }
  for (const Kept& kept : kept_) {
    const Relation relation = Relate(place, kept.place);
    if (relation == Relation::kSame)
      return L" is " + Quoted(kept.path) + L", which Windows or programs need";
    if (relation == Relation::kHolds) return L" holds " + Quoted(kept.path);
  }
  Place above = place;
  above.levels.pop_back();
  return Relate(above, profiles_) == Relation::kSame ? L" is a user's profile" : L"";
}

}  // namespace uaclient
