#include "uaclient/helper_files.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <iterator>
#include <random>

#include "uaclient/code_page.h"
#include "uaclient/path.h"
#include "uaclient/private_folder.h"
#include "uactask/task_file.h"

namespace uaclient {
namespace {

constexpr wchar_t kTaskName[] = L"\\task.ini";
constexpr wchar_t kListName[] = L"\\list.xml";

constexpr wchar_t kFolderPrefix[] = L"uactask-";
constexpr std::size_t kFolderDigits = 32;

// Leaves space for the folder and the files in it within the 259 units that a path may have.
constexpr std::size_t kMaxTempUnits = 200;

// Both as the value of a task file and as the name of one.
bool HelperCanUse(const std::wstring& path) {
  return HelperReads(path) && FitsTaskFile(ForHelper(path));
}

}  // namespace

std::wstring TempFolder() {
  std::wstring text(GetEnvironmentVariableW(L"TMP", nullptr, 0), L'\0');
  text.resize(GetEnvironmentVariableW(L"TMP", text.data(), static_cast<DWORD>(text.size())));
  return IsAbsolute(text) ? FullPath(text) : std::wstring();
}

// There is no second choice: files that decide what is done elevated do not go where nobody expects
// them.
std::wstring NewHelperFolder(std::wstring& why) {
  const std::wstring temp = TempFolder();
  const std::wstring drive = DriveFault(temp);
  if (temp.empty() || !IsFolder(temp)) {
    why =
        L"The environment variable TMP does not name a folder that exists, and the helper's files "
        L"are put there. Set it to a full path, such as C:\\Users\\Name\\AppData\\Local\\Temp.";
  } else if (temp.size() > kMaxTempUnits) {
    why =
        L"The environment variable TMP names a folder with more than 200 characters. Set it to a "
        L"shorter path; the helper's files are put there.";
  } else if (!drive.empty()) {
    why = L"The environment variable TMP says " + Quoted(temp) + L". " + drive;
  }
  if (!why.empty()) return {};
  std::random_device random;
  wchar_t digits[kFolderDigits + 1];
  std::swprintf(digits, std::size(digits), L"%08x%08x%08x%08x", random(), random(), random(),
                random());
  return WithSeparator(temp) + kFolderPrefix + digits;
}

bool IsHelperFolder(const std::wstring& path) {
  const std::wstring name = NameOf(path);
  const std::size_t prefix = std::wcslen(kFolderPrefix);
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

HelperFiles::~HelperFiles() {
  held_.clear();
  if (!folder_.empty()) RemoveHelperFolder(folder_);
}

bool HelperFiles::CreateFolder(const std::wstring& path, std::wstring& why) {
  const std::wstring temp = Quoted(ParentOf(path));
  Handle held = MakePrivateFolder(path, why);
  if (!held) {
    why = L"The helper's files cannot be put into " + temp + L", which TMP names: " + why;
    return false;
  }
  held_.push_back(std::move(held));
  readable_ = folder_ = path;
  if (!HelperCanUse(readable_)) {
    wchar_t brief[MAX_PATH] = {};
    GetShortPathNameW(folder_.c_str(), brief, MAX_PATH);
    readable_ = brief;
  }
  if (!readable_.empty() && HelperCanUse(readable_)) return true;
  why = L"The helper cannot read files in " + temp +
        L", which TMP names: the system's code page lacks characters of this name, or it holds a "
        L"\"[\", and the folder has no short name. Set TMP to a folder with a plain name.";
  return false;
}

// The helper deletes it.
bool HelperFiles::WriteTask(const std::string& bytes, std::wstring& why) {
  return Write(kTaskName, bytes, FILE_SHARE_READ | FILE_SHARE_DELETE, why);
}

bool HelperFiles::WriteList(const std::string& bytes, std::wstring& why) {
  return Write(kListName, bytes, FILE_SHARE_READ, why);
}

bool HelperFiles::Write(const wchar_t* name, const std::string& bytes, DWORD share,
                        std::wstring& why) {
  const std::wstring path = folder_ + name;
  Handle file(CreateFileW(path.c_str(), GENERIC_WRITE, share, nullptr, CREATE_NEW,
                          FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  const auto size = static_cast<DWORD>(bytes.size());
  if (file && WriteFile(file.get(), bytes.data(), size, &written, nullptr) && written == size) {
    held_.push_back(std::move(file));
    return true;
  }
  why = L"The helper's file " + Quoted(path) + L" cannot be written: " +
        SystemMessage(GetLastError());
  return false;
}

std::wstring HelperFiles::TaskPath() const { return readable_ + kTaskName; }

std::wstring HelperFiles::ListPath() const { return readable_ + kListName; }

}  // namespace uaclient
