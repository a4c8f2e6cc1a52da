#include "uaclient/helper_files.h"

#include <sddl.h>

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <iterator>
#include <random>
#include <utility>

#include "uaclient/file_access.h"
#include "uaclient/path.h"
#include "uaclient/words.h"
#include "uactask/task_file.h"
#include "uactask/task_file_op.h"

namespace uaclient {
namespace {

struct LocalMemory {
  void operator()(void* memory) const { LocalFree(memory); }
};

constexpr wchar_t kTaskName[] = L"\\task.ini";
constexpr wchar_t kListName[] = L"\\list.xml";

const std::wstring kFolderPrefix = L"uactask-";
constexpr std::size_t kFolderDigits = 32;

// Leaves space for the folder and the files in it within the 259 units that a path may have.
constexpr std::size_t kMaxTempUnits = 200;

// Both as the value of a task file and as the name of one.
bool HelperCanUse(const std::wstring& path) {
  return !path.empty() && HelperReads(path) && FitsTaskFile(ForHelper(path));
}

// A security descriptor for a folder and all in it. Null when the system fails.
using Access = std::unique_ptr<void, LocalMemory>;

Access OwnAccessOnly() {
  HANDLE opened = nullptr;
  OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened);
  const Handle token(opened);
  alignas(TOKEN_USER) char user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  wchar_t* sid = nullptr;
  if (!GetTokenInformation(token.get(), TokenUser, user, sizeof user, &size) ||
      !ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user)->User.Sid, &sid)) {
    return nullptr;
  }
  const std::unique_ptr<wchar_t, LocalMemory> owner(sid);
  const std::wstring list =
      std::wstring(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;") + sid + L")";
  void* descriptor = nullptr;
  ConvertStringSecurityDescriptorToSecurityDescriptorW(list.c_str(), SDDL_REVISION_1, &descriptor,
                                                       nullptr);
  return Access(descriptor);
}

}  // namespace

std::wstring TempFolder() {
  std::wstring text(GetEnvironmentVariableW(L"TMP", nullptr, 0), L'\0');
  text.resize(GetEnvironmentVariableW(L"TMP", text.data(), static_cast<DWORD>(text.size())));
  return IsAbsolute(text) ? FullPath(text) : std::wstring();
}

bool IsHelperFolder(const std::wstring& path) {
  const std::wstring name = NameOf(path);
  const std::size_t prefix = kFolderPrefix.size();
  return name.size() == prefix + kFolderDigits && name.compare(0, prefix, kFolderPrefix) == 0 &&
         std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix), name.end(),
                     std::iswxdigit);
}

// Something that looks at new files, a virus scanner for instance, may hold them for a moment.
void RemoveHelperFolder(const std::wstring& path) {
  constexpr int kAttempts = 20;
  for (int i = 0; i < kAttempts; ++i) {
    if (i > 0) Sleep(50);
    DeleteFileW((path + kTaskName).c_str());
    DeleteFileW((path + kListName).c_str());
    if (RemoveDirectoryW(path.c_str())) return;
    const DWORD error = GetLastError();
    if (error != ERROR_SHARING_VIOLATION && error != ERROR_DIR_NOT_EMPTY) return;
  }
}

// There is no second choice: files that decide what is done elevated do not go where nobody expects
// them.
HelperFiles::HelperFiles() {
  const std::wstring temp = TempFolder();
  const std::wstring fault = temp.empty() || !IsFolder(temp)
                                 ? L"That is not the full path of a folder that exists."
                             : temp.size() > kMaxTempUnits ? L"That is longer than 200 characters."
                                                           : DriveFault(temp);
  if (!fault.empty()) {
    throw NotStarted{
        L"The helper's files go into the folder that the environment variable TMP "
        L"names, but " +
        Quoted(temp) + L" " + fault + L" Set TMP to another folder."};
  }
  std::random_device random;
  wchar_t digits[kFolderDigits + 1];
  std::swprintf(digits, std::size(digits), L"%08x%08x%08x%08x", random(), random(), random(),
                random());
  folder_ = WithSeparator(temp) + kFolderPrefix + digits;
}

HelperFiles::~HelperFiles() {
  if (held_.empty()) return;
  held_.clear();
  RemoveHelperFolder(folder_);
}

void HelperFiles::CreateFolder() {
  const std::wstring begin = L"The helper's files cannot be put into " + Quoted(ParentOf(folder_)) +
                             L", which TMP names: ";
  const Access access = OwnAccessOnly();
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, access.get(), FALSE};
  if (!access || !CreateDirectoryW(folder_.c_str(), &attributes)) {
    throw NotStarted{begin + SystemMessage(GetLastError())};
  }
  held_.emplace_back(CreateFileW(folder_.c_str(), FILE_LIST_DIRECTORY,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!held_.back()) throw NotStarted{begin + SystemMessage(GetLastError())};
  readable_ = folder_;
  if (!HelperCanUse(readable_)) {
    wchar_t brief[MAX_PATH] = {};
    GetShortPathNameW(folder_.c_str(), brief, MAX_PATH);
    readable_ = brief;
  }
  if (HelperCanUse(readable_)) return;
  throw NotStarted{begin +
                   L"the system's code page lacks characters of this name, or it holds a \"[\", "
                   L"and the folder has no short name. Set TMP to a folder with a plain name."};
}

void HelperFiles::Create(const std::string& task, const std::string& list) {
  constexpr DWORD kDeletable = FILE_SHARE_READ | FILE_SHARE_DELETE;  // by the helper
  CreateFolder();
  if (list.empty()) return Write(kTaskName, task, kDeletable);
  Write(kListName, list, FILE_SHARE_READ);
  const TaskParams params = {{UACTaskFileOp::kXmlPath, ForHelper(readable_ + kListName)}};
  Write(kTaskName, FormatTaskFile(UACTaskFileOp::kType, params), kDeletable);
}

void HelperFiles::Write(const wchar_t* name, const std::string& bytes, DWORD share) {
  const std::wstring path = folder_ + name;
  held_.emplace_back(CreateFileW(path.c_str(), GENERIC_WRITE, share, nullptr, CREATE_NEW,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
  if (WriteAll(held_.back(), bytes)) return;
  throw NotStarted{L"The helper's file " + Quoted(path) + L" cannot be written: " +
                   SystemMessage(GetLastError())};
}

std::wstring HelperFiles::TaskPath() const { return readable_ + kTaskName; }

}  // namespace uaclient
