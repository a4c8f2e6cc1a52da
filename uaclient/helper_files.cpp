#include "uaclient/helper_files.h"

#include <sddl.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <random>

#include "fileop/tree_walk.h"
#include "uaclient/file_access.h"
#include "uaclient/path.h"
#include "uaclient/words.h"
#include "uactask/task_file.h"
#include "uactask/task_file_op.h"

namespace uaclient {
namespace {

constexpr wchar_t kTaskName[] = L"\\task.ini";
constexpr wchar_t kListName[] = L"\\list.xml";

// What follows it in a folder's name: hex digits, so many that nobody can foresee them.
const std::wstring kPrefix = L"uactask-";
constexpr wchar_t kDigits[] = L"0123456789abcdef";
constexpr std::size_t kDigitCount = 32;

// Both as the value of a task file and as the name of one, with space for the folder and the files
// in it within the 259 units that a path may have.
bool HelperCanUse(const std::wstring& temp) {
  return temp.size() <= 200 && HelperReads(temp) && FitsTaskFile(ForHelper(temp));
}

[[noreturn]] void FailToMake(const std::wstring& path) {
  throw NotStarted{L"The helper needs " + Quoted(path) + L", which cannot be made: " +
                   SystemMessage(GetLastError()) + L" Set TMP to another folder."};
}

// A security descriptor for a folder and all in it. Null when the system fails.
std::shared_ptr<void> OwnAccessOnly() {
  alignas(TOKEN_USER) char user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = sizeof user;
  wchar_t* sid = nullptr;
  if (!GetTokenInformation(GetCurrentProcessToken(), TokenUser, user, size, &size) ||
      !ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user)->User.Sid, &sid)) {
    return nullptr;
  }
  const std::shared_ptr<void> freed(sid, LocalFree);
  const std::wstring list =
      std::wstring(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;") + sid + L")";
  void* descriptor = nullptr;
  ConvertStringSecurityDescriptorToSecurityDescriptorW(list.c_str(), SDDL_REVISION_1, &descriptor,
                                                       nullptr);
  return {descriptor, LocalFree};
}

}  // namespace

std::wstring TempFolder() {
  const std::wstring temp = TextFrom(
      [](wchar_t* text, DWORD size) { return GetEnvironmentVariableW(L"TMP", text, size); });
  return IsAbsolute(temp) ? FullPath(temp) : std::wstring();
}

// Something that looks at new files, a virus scanner for instance, may hold them for a moment.
bool RemoveHelperFolder(const std::wstring& path) {
  const std::wstring name = NameOf(path);
  if (name.size() != kPrefix.size() + kDigitCount || name.rfind(kPrefix, 0) != 0 ||
      name.find_first_not_of(kDigits, kPrefix.size()) != std::wstring::npos) {
    return true;
  }
  for (int attempt = 0; attempt < 20 && IsFolder(path); ++attempt) {
    if (attempt > 0) Sleep(50);
    fileop::RemoveTree(path + L"\\", 0);  // a link in its place goes, and nothing behind it
  }
  return !IsFolder(path);
}

// There is no second choice: files that decide what is done elevated do not go where nobody expects
// them.
HelperFiles::HelperFiles() {
  const std::wstring temp = TempFolder();
  folder_ = HelperCanUse(temp) ? temp : TextFrom([&](wchar_t* text, DWORD size) {
    return GetShortPathNameW(temp.c_str(), text, size);
  });
  const std::wstring fault =
      !IsFolder(temp) ? L"That is not the full path of a folder that exists."
      : !HelperCanUse(folder_)
          ? L"That has more than 200 characters, or a \"[\", or one that the code page lacks."
          : DriveFault(temp);
  if (!fault.empty()) {
    throw NotStarted{L"TMP names the folder for the helper's files, " + Quoted(temp) + L". " +
                     fault + L" Set TMP to another folder."};
  }
  folder_ = WithSeparator(folder_) + kPrefix;
  std::random_device random;
  std::generate_n(std::back_inserter(folder_), kDigitCount, [&] { return kDigits[random() % 16]; });
}

void HelperFiles::Create(const std::string& task, const std::string& list) {
  const std::shared_ptr<void> access = OwnAccessOnly();
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, access.get(), FALSE};
  if (!access || !CreateDirectoryW(folder_.c_str(), &attributes)) FailToMake(folder_);
  held_.push_back(Open(folder_, FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE));
  if (!held_.back()) FailToMake(folder_);

  constexpr DWORD kDeletable = FILE_SHARE_READ | FILE_SHARE_DELETE;  // by the helper
  if (list.empty()) return Write(kTaskName, task, kDeletable);
  Write(kListName, list, FILE_SHARE_READ);
  const TaskParams params = {{UACTaskFileOp::kXmlPath, ForHelper(folder_ + kListName)}};
  Write(kTaskName, FormatTaskFile(UACTaskFileOp::kType, params), kDeletable);
}

void HelperFiles::Write(const wchar_t* name, const std::string& bytes, DWORD share) {
  held_.push_back(Open(folder_ + name, GENERIC_WRITE, share, CREATE_NEW));
  if (!WriteAll(held_.back(), bytes)) FailToMake(folder_ + name);
}

std::wstring HelperFiles::TaskPath() const { return folder_ + kTaskName; }

}  // namespace uaclient
