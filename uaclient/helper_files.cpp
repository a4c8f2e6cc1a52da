#include "uaclient/helper_files.h"

#include <cwchar>
#include <iterator>
#include <memory>
#include <random>
#include <utility>

#include "corekit/text.h"
#include "uaclient/check_path.h"
#include "uaclient/code_page.h"
#include "uaclient/private_folder.h"
#include "uaclient/tree_listing.h"
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
  } else if (folder.size() < 3 || (folder.substr(1, 2) != L":\\" && folder.substr(1, 2) != L":/")) {
    why = L"The environment variable TMP says " + Quoted(folder) +
          L". It must be a full path on a drive, such as C:\\Users\\Name\\AppData\\Local\\Temp.";
  } else if (!IsFolder(folder)) {
    why = L"The environment variable TMP names " + Quoted(folder) +
          L", which is no folder. Create it, or set TMP to a folder that exists.";
  }
  const std::wstring drive = why.empty() ? Places().DriveFault(FullPath(folder)) : std::wstring();
  if (!drive.empty()) why = L"The environment variable TMP says " + Quoted(folder) + L". " + drive;
  folder = WithSeparator(folder);
  return why.empty();
}

constexpr wchar_t kFolderName[] = L"uactask-%08x%08x%08x%08x\\";
constexpr wchar_t kFolderPattern[] = L"uactask-????????????????????????????????";

std::wstring UnforeseeableName() {
  std::random_device random;
  wchar_t name[64];
  std::swprintf(name, std::size(name), kFolderName, random(), random(), random(), random());
  return name;
}

// Both as the value of a task file and as the name of one.
bool CodePageCarries(const std::wstring& path) {
  return HelperReads(path) && FitsTaskFile(ForHelper(path));
}

// The new file stays open. Others may read it, and do to it what `share` says.
Handle WriteNewFile(const std::wstring& path, const std::string& bytes, DWORD share,
                    std::wstring& why) {
  Handle file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | share, nullptr, CREATE_NEW,
                          FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  const auto size = static_cast<DWORD>(bytes.size());
  if (file && WriteFile(file.get(), bytes.data(), size, &written, nullptr) && written == size) {
    return file;
  }
  why = L"The helper's file " + Quoted(path) + L" cannot be written: " +
        SystemMessage(GetLastError());
  return Handle();
}

// Something that looks at new files, a virus scanner for instance, may hold them for a moment.
constexpr int kAttempts = 20;

void RemoveFiles(const std::wstring& folder, int attempts) {
  for (int i = 0; i < attempts; ++i) {
    if (i > 0) Sleep(50);
    DeleteFileW((folder + kTaskName).c_str());
    DeleteFileW((folder + kListName).c_str());
    if (RemoveDirectoryW(folder.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND) return;
  }
}

// Folders whose application ended ahead of the helper. A day later no helper reads them any more.
void RemoveOldFolders(const std::wstring& temp) {
  constexpr std::uint64_t kDay = std::uint64_t{24} * 60 * 60 * 10'000'000;
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  const std::uint64_t today = std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
  WIN32_FIND_DATAW entry;
  const HANDLE find = FindFirstFileW((temp + kFolderPattern).c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) return;
  do {
    const FILETIME& written = entry.ftLastWriteTime;
    const std::uint64_t then = std::uint64_t{written.dwHighDateTime} << 32 | written.dwLowDateTime;
    if (then + kDay < today && !IsLink(entry)) RemoveFiles(temp + entry.cFileName + L'\\', 1);
  } while (FindNextFileW(find, &entry));
  FindClose(find);
}

struct LeftBehind {
  std::wstring folder;
  std::vector<Handle> held;
  Handle process;
};

void CALLBACK RemoveLeftBehind(PTP_CALLBACK_INSTANCE, void* context, PTP_WAIT wait,
                               TP_WAIT_RESULT) {
  const std::unique_ptr<LeftBehind> left(static_cast<LeftBehind*>(context));
  left->held.clear();
  RemoveFiles(left->folder, kAttempts);
  CloseThreadpoolWait(wait);
}

}  // namespace

bool HelperFiles::CreateFolder(std::wstring& why) {
  std::wstring temp;
  if (!FindTempFolder(temp, why)) return false;
  RemoveOldFolders(temp);

  std::wstring folder = temp + UnforeseeableName();
  Handle held = MakePrivateFolder(folder, why);
  if (!held) {
    why = L"The helper's files cannot be put into " + Quoted(temp) + L", which TMP names: " + why;
    return false;
  }
  held_.push_back(std::move(held));
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

// The helper deletes it.
bool HelperFiles::WriteTask(std::int32_t type, const TaskParams& params, std::wstring& why) {
  held_.push_back(
      WriteNewFile(folder_ + kTaskName, FormatTaskFile(type, params), FILE_SHARE_DELETE, why));
  return held_.back() != nullptr;
}

bool HelperFiles::WriteList(const std::vector<Operation>& operations, std::wstring& why) {
  held_.push_back(WriteNewFile(folder_ + kListName, FormatOperationList(operations), 0, why));
  return held_.back() != nullptr;
}

std::wstring HelperFiles::TaskPath() const { return carried_ + kTaskName; }

std::wstring HelperFiles::ListPath() const { return carried_ + kListName; }

void HelperFiles::LeaveTo(HANDLE process) {
  if (folder_.empty()) return;
  HANDLE own = nullptr;
  DuplicateHandle(GetCurrentProcess(), process, GetCurrentProcess(), &own, SYNCHRONIZE, FALSE, 0);
  auto left = std::make_unique<LeftBehind>();
  left->folder = std::exchange(folder_, {});
  left->held = std::move(held_);
  left->process = Handle(own);
  const PTP_WAIT wait = CreateThreadpoolWait(RemoveLeftBehind, left.get(), nullptr);
  if (wait != nullptr) SetThreadpoolWait(wait, left.release()->process.get(), nullptr);
}

void HelperFiles::Remove() {
  held_.clear();
  if (!folder_.empty()) RemoveFiles(folder_, kAttempts);
  folder_.clear();
}

}  // namespace uaclient
