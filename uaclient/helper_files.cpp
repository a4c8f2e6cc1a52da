#include "uaclient/helper_files.h"

#include <sddl.h>

#include <cwchar>
#include <iterator>
#include <memory>
#include <random>
#include <utility>

#include "corekit/text.h"
#include "uaclient/check_path.h"
#include "uaclient/win32.h"

namespace uaclient {
namespace {

constexpr wchar_t kTaskName[] = L"task.ini";
constexpr wchar_t kListName[] = L"list.xml";

// Leaves space for the folder and the files in it within the 259 units that a path may have.
constexpr DWORD kMaxTempUnits = 200;

// The folder that TMP names, with a separator at its end. There is no second choice: files that
// decide what is done with raised rights do not go where nobody expects them.
bool FindTempFolder(std::wstring& folder, std::wstring& why) {
  wchar_t text[kMaxTempUnits + 1] = {};
  const DWORD length = GetEnvironmentVariableW(L"TMP", text, kMaxTempUnits);
  folder = text;
  if (length == 0) {
    why =
        L"The environment variable TMP is not set. It must name the user's folder for temporary "
        L"files, in which the helper's files are put.";
  } else if (length >= kMaxTempUnits) {
    why =
        L"The environment variable TMP is too long. It must name a folder in fewer than 200 "
        L"characters, in which the helper's files are put.";
  } else if (folder.size() < 3 || (folder.substr(1, 2) != L":\\" && folder.substr(1, 2) != L":/" &&
                                   folder.substr(0, 2) != L"\\\\")) {
    why = L"The environment variable TMP says " + Quoted(folder) +
          L". It must be a full path, such as C:\\Users\\Name\\AppData\\Local\\Temp.";
  } else if (!IsFolder(folder)) {
    why = L"The environment variable TMP names " + Quoted(folder) +
          L", which is no folder. Create it, or set TMP to a folder that exists.";
  }
  const std::wstring drive = why.empty() ? Places().DriveFault(FullPath(folder)) : std::wstring();
  if (!drive.empty()) why = L"The environment variable TMP says " + Quoted(folder) + L". " + drive;
  folder = WithSeparator(folder);
  return why.empty();
}

// The security descriptor that opens a folder and all in it to this user, administrators and the
// system, whatever the folder above it allows.
struct LocalMemory {
  void operator()(void* memory) const { LocalFree(memory); }
};
using SecurityDescriptor = std::unique_ptr<void, LocalMemory>;

SecurityDescriptor OwnAccessOnly() {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return nullptr;
  const Handle closer(token);
  alignas(TOKEN_USER) char user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  wchar_t* sid = nullptr;
  if (!GetTokenInformation(token, TokenUser, user, sizeof user, &size) ||
      !ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user)->User.Sid, &sid)) {
    return nullptr;
  }
  const std::wstring list =
      std::wstring(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;") + sid + L")";
  LocalFree(sid);
  void* descriptor = nullptr;
  ConvertStringSecurityDescriptorToSecurityDescriptorW(list.c_str(), SDDL_REVISION_1, &descriptor,
                                                       nullptr);
  return SecurityDescriptor(descriptor);
}

std::wstring UnforeseeableName() {
  std::random_device random;
  wchar_t name[64];
  std::swprintf(name, std::size(name), L"uactask-%08x%08x%08x%08x\\", random(), random(), random(),
                random());
  return name;
}

// Both as the value of a task file and as the name of one.
bool CodePageCarries(const std::wstring& path) {
  const std::string bytes = Utf8ToAnsi(WideToUtf8(path));
  return AnsiToWide(bytes) == path && FitsTaskFile(bytes);
}

bool WriteNewFile(const std::wstring& path, const std::string& bytes, std::wstring& why) {
  const Handle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  if (file &&
      WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
      written == bytes.size()) {
    return true;
  }
  why = L"The helper's file \"" + path + L"\" cannot be written: " + SystemMessage(GetLastError());
  return false;
}

void RemoveFiles(const std::wstring& folder) {
  // Something that looks at new files, a virus scanner for instance, may hold them for a moment.
  for (int attempt = 0; attempt < 20; ++attempt) {
    DeleteFileW((folder + kTaskName).c_str());
    DeleteFileW((folder + kListName).c_str());
    if (RemoveDirectoryW(folder.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND) return;
    Sleep(50);
  }
}

struct LeftBehind {
  std::wstring folder;
  HANDLE process;
  HANDLE wait;
};

void CALLBACK RemoveLeftBehind(void* parameter, BOOLEAN) {
  const std::unique_ptr<LeftBehind> left(static_cast<LeftBehind*>(parameter));
  RemoveFiles(left->folder);
  CloseHandle(left->process);
  UnregisterWaitEx(left->wait, nullptr);
}

}  // namespace

bool HelperFiles::CreateFolder(std::wstring& why) {
  std::wstring temp;
  if (!FindTempFolder(temp, why)) return false;

  const SecurityDescriptor access = OwnAccessOnly();
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, access.get(), FALSE};
  std::wstring folder = temp + UnforeseeableName();
  if (!access || !CreateDirectoryW(folder.c_str(), &attributes)) {
    why = L"No folder for the helper's files can be made in \"" + temp + L"\", which TMP names: " +
          SystemMessage(GetLastError());
    return false;
  }
  folder_ = std::move(folder);

  carried_ = folder_;
  if (!CodePageCarries(carried_)) {
    wchar_t brief[MAX_PATH] = {};
    GetShortPathNameW(folder_.c_str(), brief, MAX_PATH);
    carried_ = brief;
  }
  if (!carried_.empty() && CodePageCarries(carried_)) return true;
  why = L"The helper cannot read files in \"" + temp +
        L"\", which TMP names: the system's code page lacks characters of this name, or it holds a "
        L"\"[\", and the folder has no short name. Set TMP to a folder named in plain letters.";
  return false;
}

bool HelperFiles::WriteTask(std::int32_t type, const TaskParams& params, std::wstring& why) const {
  return WriteNewFile(folder_ + kTaskName, FormatTaskFile(type, params), why);
}

bool HelperFiles::WriteList(const std::vector<Operation>& operations, std::wstring& why) const {
  return WriteNewFile(folder_ + kListName, FormatOperationList(operations), why);
}

std::wstring HelperFiles::TaskPath() const { return carried_ + kTaskName; }

std::wstring HelperFiles::ListPath() const { return carried_ + kListName; }

void HelperFiles::LeaveTo(HANDLE process) {
  if (folder_.empty()) return;
  auto left = std::make_unique<LeftBehind>();
  left->folder = std::exchange(folder_, {});
  DuplicateHandle(GetCurrentProcess(), process, GetCurrentProcess(), &left->process, SYNCHRONIZE,
                  FALSE, 0);
  LeftBehind* const raw = left.release();
  RegisterWaitForSingleObject(&raw->wait, raw->process, RemoveLeftBehind, raw, INFINITE,
                              WT_EXECUTEONLYONCE | WT_EXECUTELONGFUNCTION);
}

void HelperFiles::Remove() {
  if (!folder_.empty()) RemoveFiles(folder_);
  folder_.clear();
}

}  // namespace uaclient
