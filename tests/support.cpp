#include "support.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <winioctl.h>

#include <algorithm>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "corekit/text.h"
#include "fileop/file_system.h"

namespace {

// The links made, which must go while what they lead to is still there.
std::vector<std::string> folderLinks;

}  // namespace

Tree TreeOf(const std::string& entries) {
  Tree tree;
  for (std::size_t at = 0, end; at < entries.size(); at = end + 2) {
    end = std::min(entries.find(", ", at), entries.size());
    const std::size_t equals = std::min(entries.find('=', at), end);
    const std::string name = entries.substr(at, equals - at);
    for (std::size_t slash = 0; (slash = name.find('/', slash) + 1) != 0;) {
      tree[name.substr(0, slash)] = "";
    }
    const std::size_t bytes = std::min(equals + 1, end);
    tree[name] = entries.substr(bytes, end - bytes);
  }
  return tree;
}

TestFolder::TestFolder() {
  static int count = 0;
  // A test that was killed may have left folders of the same process number, with links in them.
  do {
    path_ = "t" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++count) + "/";
  } while (!CreateDirectoryW(Utf8ToWide(path_).c_str(), nullptr) &&
           GetLastError() == ERROR_ALREADY_EXISTS);
}

TestFolder::~TestFolder() { RemoveTreeForSure(path_); }

Tree TestFolder::Contents() const { return ReadTree(path_); }

void WriteFileBytes(const std::string& path, const std::string& bytes) {
  MakeFolders(path.substr(0, path.rfind('/') + 1));
  std::ofstream file(std::filesystem::path(Utf8ToWide(path)), std::ios::binary);
  file << bytes << std::flush;
  ASSERT_TRUE(file) << path;
}

bool Matches(const std::string& text, const std::string& pattern) {
  return std::regex_match(text, std::regex(pattern));
}

std::string ReplaceMatches(const std::string& text, const std::string& pattern,
                           const std::string& by) {
  return std::regex_replace(text, std::regex(pattern), by);
}

std::vector<std::vector<std::string>> MatchesIn(const std::string& text,
                                                const std::string& pattern) {
  const std::regex compiled(pattern);
  std::vector<std::vector<std::string>> matches;
  for (std::sregex_iterator at(text.begin(), text.end(), compiled), end; at != end; ++at) {
    matches.emplace_back(at->begin(), at->end());
  }
  return matches;
}

std::string ReadFileBytes(const std::string& path) {
  std::ifstream file(std::filesystem::path(Utf8ToWide(path)), std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

void MakeReadOnly(const std::string& path) {
  EXPECT_TRUE(SetFileAttributesW(Utf8ToWide(path).c_str(), FILE_ATTRIBUTE_READONLY)) << path;
}

void WriteSparseFile(const std::string& path, const std::string& bytes, std::int64_t size) {
  WriteFileBytes(path, bytes);
  const HANDLE file =
      CreateFileW(Utf8ToWide(path).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD returned = 0;
  DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
  CloseHandle(file);
  boost::filesystem::resize_file(Utf8ToWide(path), static_cast<std::uintmax_t>(size));
}

void MakeFolders(const std::string& path) {
  for (std::size_t at = path.find('/'); at != std::string::npos; at = path.find('/', at + 1)) {
    CreateDirectoryW(Utf8ToWide(path.substr(0, at)).c_str(), nullptr);
  }
}

void WriteTree(const std::string& folder, const Tree& tree) {
  MakeFolders(folder);
  for (const auto& [name, bytes] : tree) {
    MakeFolders(folder + name);
    if (name.back() != '/') WriteFileBytes(folder + name, bytes);
  }
}

Tree ReadTree(const std::string& folder) {
  Tree tree;
  boost::system::error_code noFolder;
  for (const auto& entry : boost::filesystem::directory_iterator(Utf8ToWide(folder), noFolder)) {
    const std::string name = WideToUtf8(entry.path().filename().wstring());
    const DWORD attributes = GetFileAttributesW(entry.path().c_str());
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      tree[name] = ReadFileBytes(folder + name);
      continue;
    }
    tree[name + "/"] = "";
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) continue;
    for (const auto& [below, bytes] : ReadTree(folder + name + "/")) {
      tree[name + "/" + below] = bytes;
    }
  }
  return tree;
}

void RemoveTreeForSure(const std::string& folder) {
  for (const std::string& link : folderLinks) {
    if (link.rfind(folder, 0) != 0 || !PathExists(link.c_str())) continue;
    RemoveDirectoryW(Utf8ToWide(link).c_str());
    if (OnWine()) RunUnixProgram("rm -f " + link, [&] { return !PathExists(link.c_str()); });
  }
  boost::system::error_code stillInUse;
  boost::filesystem::remove_all(Utf8ToWide(folder), stillInUse);
}

bool OnWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

void RunUnixProgram(const std::string& command, const std::function<bool()>& done) {
  std::wstring line = L"Z:\\bin\\" + Utf8ToWide(command);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                 &process);
  for (int i = 0; i < 500 && !done(); ++i) Sleep(10);
}

bool LongPathsWork() {
  using Enabled = BOOLEAN(NTAPI*)();
  const auto enabled = reinterpret_cast<Enabled>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlAreLongPathsEnabled")));
  return OnWine() || (enabled != nullptr && enabled());
}

bool IsElevated() {
  TOKEN_ELEVATION elevation = {};
  DWORD size = 0;
  GetTokenInformation(GetCurrentProcessToken(), TokenElevation, &elevation, sizeof elevation,
                      &size);
  return elevation.TokenIsElevated != 0;
}

bool ForgetDeletionsAtRestart(const std::string& name) {
  const wchar_t* const key = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
  const wchar_t* const value = L"PendingFileRenameOperations";
  DWORD bytes = 0;
  RegGetValueW(HKEY_LOCAL_MACHINE, key, value, RRF_RT_ANY, nullptr, nullptr, &bytes);
  std::wstring list(bytes / sizeof(wchar_t), L'\0');
  RegGetValueW(HKEY_LOCAL_MACHINE, key, value, RRF_RT_ANY, nullptr, list.data(), &bytes);
  const std::size_t found = list.find(Utf8ToWide(name));
  if (found == std::wstring::npos) return false;
  // Of a deletion the list holds the path and an empty new name, each with its zero.
  const std::size_t start = list.rfind(L'\0', found) + 1;
  list.erase(start, list.find(L'\0', found) + 2 - start);
  const LSTATUS status =
      list[0] == L'\0' ? RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, value)
                       : RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, value, REG_MULTI_SZ, list.data(),
                                         static_cast<DWORD>(list.size() * sizeof(wchar_t)));
  return status == ERROR_SUCCESS;
}

bool MakeFolderLink(const std::string& target, const std::string& link) {
  folderLinks.push_back(link);
  if (OnWine()) {
    RunUnixProgram("ln -s " + target + " " + link, [&] { return PathExists(link.c_str()); });
  } else {
    const DWORD unprivileged = 0x2;  // SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE
    // What a link holds is not a path to be parsed: "/" is no separator there.
    std::wstring held = Utf8ToWide(target);
    std::replace(held.begin(), held.end(), L'/', L'\\');
    CreateSymbolicLinkW(Utf8ToWide(link).c_str(), held.c_str(),
                        SYMBOLIC_LINK_FLAG_DIRECTORY | unprivileged);
  }
  const DWORD attributes = GetFileAttributesW(Utf8ToWide(link).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

namespace {

using Handle = std::unique_ptr<void, decltype(&CloseHandle)>;

// A file for what a program prints, which goes with the handle: unlike a pipe's, its size has no
// end, and no process that the program leaves behind can keep it open.
Handle OpenCapture() {
  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
  static int count = 0;  // another process may still have the one before
  const std::wstring path =
      L"printed-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
  Handle file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_DELETE,
                          &inherit, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr),
              CloseHandle);
  EXPECT_NE(file.get(), INVALID_HANDLE_VALUE);
  return file;
}

std::string Captured(const Handle& file) {
  std::string text;
  char buffer[65536];
  SetFilePointer(file.get(), 0, nullptr, FILE_BEGIN);
  for (DWORD n = 0; ReadFile(file.get(), buffer, sizeof buffer, &n, nullptr) && n > 0;) {
    text.append(buffer, n);
  }
  return text;
}

}  // namespace

std::string OwnProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return WideToUtf8(path);
}

ProgramResult RunProgram(const std::string& name, const std::vector<std::string>& arguments,
                         const std::function<void()>& meanwhile) {
  const auto program =
      std::filesystem::path(Utf8ToWide(OwnProgram())).replace_filename(Utf8ToWide(name));
  std::wstring command = L"\"" + program.wstring() + L"\"";
  for (const std::string& argument : arguments) command += L" \"" + Utf8ToWide(argument) + L"\"";

  const Handle output = OpenCapture();
  const Handle errors = OpenCapture();
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = INVALID_HANDLE_VALUE;
  startup.hStdOutput = output.get();
  startup.hStdError = errors.get();
  PROCESS_INFORMATION process = {};
  EXPECT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                             &startup, &process))
      << "cannot start " << name << ": error " << GetLastError();
  if (meanwhile) meanwhile();
  if (WaitForSingleObject(process.hProcess, 300000) != WAIT_OBJECT_0) {
    ADD_FAILURE() << name << " hangs";
    TerminateProcess(process.hProcess, ~0U);
  }
  ProgramResult result = {~0UL, Captured(output), Captured(errors)};
  GetExitCodeProcess(process.hProcess, &result.exitCode);
  for (HANDLE handle : {process.hProcess, process.hThread}) CloseHandle(handle);
  return result;
}

namespace {

constexpr int kAlways = INT_MAX;
int successesLeft[] = {kAlways, kAlways};
DWORD failure;

template <typename Code>
Code SystemsOwn(const char* name) {
  return reinterpret_cast<Code>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name)));
}

bool Fails(SystemFailure::Function function) {
  if (successesLeft[function] > 0) {
    --successesLeft[function];
    return false;
  }
  SetLastError(failure);
  return true;
}

}  // namespace

// What programs call these functions through; were they not defined here, the linker would take the
// import library's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
decltype(&ReadFile) __imp_ReadFile = [](HANDLE file, void* buffer, DWORD size, DWORD* read,
                                        OVERLAPPED* overlapped) -> BOOL {
  static const auto own = SystemsOwn<decltype(&ReadFile)>("ReadFile");
  return !Fails(SystemFailure::kReadFile) && own(file, buffer, size, read, overlapped);
};
decltype(&FindNextFileW) __imp_FindNextFileW = [](HANDLE find, WIN32_FIND_DATAW* entry) -> BOOL {
  static const auto own = SystemsOwn<decltype(&FindNextFileW)>("FindNextFileW");
  return !Fails(SystemFailure::kFindNextFile) && own(find, entry);
};
}
// NOLINTEND(bugprone-reserved-identifier)

SystemFailure::SystemFailure(Function function, int successes, unsigned long error) {
  successesLeft[function] = successes;
  failure = error;
}

SystemFailure::~SystemFailure() {
  for (int& left : successesLeft) left = kAlways;
}

FileLock::FileLock(const std::string& path, unsigned long share)
    : handle_(CreateFileW(Utf8ToWide(path).c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0,
                          nullptr),
              CloseHandle) {
  EXPECT_NE(handle_.get(), INVALID_HANDLE_VALUE) << path;
}
