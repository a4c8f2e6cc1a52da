#include "uaclient/kept_folders.h"

#include <windows.h>

#include <utility>

#include "uaclient/helper_process.h"

namespace uaclient {
namespace {

// A text of the registry's part on Windows itself, L"" when there is none.
std::wstring SystemSetting(const std::wstring& key, const wchar_t* name) {
  wchar_t text[MAX_PATH] = {};
  DWORD size = sizeof text;
  RegGetValueW(HKEY_LOCAL_MACHINE, (L"SOFTWARE\\Microsoft\\" + key).c_str(), name, RRF_RT_REG_SZ,
               nullptr, text, &size);
  return text;
}

}  // namespace

std::vector<KeptFolder> KeptFolders(Places& places) {
  std::vector<KeptFolder> folders;
  const auto add = [&](std::wstring name, const std::wstring& path, bool isKeptWhole) {
    const std::wstring full = IsAbsolute(path) ? FullPath(path) : std::wstring();
    if (full.empty()) return;
    folders.push_back({std::move(name), ComparisonKey(places.Look(full).real), isKeptWhole});
  };
  wchar_t path[MAX_PATH] = {};
  if (GetSystemWindowsDirectoryW(path, MAX_PATH) < MAX_PATH) add(L"Windows' folder", path, true);
  add(L"the calling program's folder", OwnFolder(), false);
  for (const wchar_t* const variable :
       {L"SystemRoot", L"ProgramFiles", L"ProgramFiles(x86)", L"ProgramW6432", L"ProgramData",
        L"PUBLIC", L"USERPROFILE", L"APPDATA", L"LOCALAPPDATA", L"TMP", L"TEMP"}) {
    std::wstring value(GetEnvironmentVariableW(variable, nullptr, 0), L'\0');
    value.resize(GetEnvironmentVariableW(variable, value.data(), static_cast<DWORD>(value.size())));
    add(L"the folder %" + std::wstring(variable) + L"%", value, false);
  }
  // Whoever started this process may have left those out.
  for (const wchar_t* const name : {L"ProgramFilesDir", L"ProgramFilesDir (x86)"}) {
    add(L"the folder of programs", SystemSetting(L"Windows\\CurrentVersion", name), false);
  }
  for (const wchar_t* const name : {L"ProfilesDirectory", L"ProgramData"}) {
    add(L"a folder of all users", SystemSetting(L"Windows NT\\CurrentVersion\\ProfileList", name),
        false);
  }
  return folders;
}

}  // namespace uaclient
