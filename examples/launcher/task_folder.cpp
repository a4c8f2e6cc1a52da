#include "task_folder.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <random>
#include <stdexcept>
#include <vector>

#include "arguments.h"
#include "inifile/ini_file.h"
#include "xmlstore/xml_parse.h"

namespace {

// Relative to the folder and ASCII: a task opens its file by two different readings of the name,
// which agree on nothing else.
constexpr char kTaskFile[] = "task.ini";
constexpr char kOperationList[] = "list.xml";

// Neither a task nor the list creates its file as a new one, and one that somebody else has put
// there must not be used.
void CreateNew(const char* name) {
  const HANDLE file = CreateFileA(name, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("A file cannot be created.");
  CloseHandle(file);
}

// SaveTaskInfos puts the type first and below it the parameters from the last to the first. On a
// full disk the file is cut, and a job that lost its arguments would be deleted.
bool ReadsBack(const TaskParams& params) {
  std::vector<corekit::CIniFile::Record> lines;
  return corekit::CIniFile::Load(kTaskFile, lines) && lines.size() == params.size() + 2 &&
         std::equal(params.rbegin(), params.rend(), lines.begin() + 2,
                    [](const auto& param, const auto& line) { return param.second == line.Value; });
}

}  // namespace

TaskFolder::TaskFolder() {
  wchar_t temp[MAX_PATH + 1] = {};
  GetTempPathW(MAX_PATH + 1, temp);
  if (!FitsTaskFile(temp)) GetShortPathNameW(temp, temp, MAX_PATH + 1);
  if (!FitsTaskFile(temp)) throw std::runtime_error("The helper cannot read a temporary folder.");

  std::random_device random;
  wchar_t name[64];
  std::swprintf(name, std::size(name), L"launcher-%08x%08x%08x%08x\\", random(), random(), random(),
                random());
  path_ = std::wstring(temp) + name;
  if (!CreateDirectoryW(path_.c_str(), nullptr) || !SetCurrentDirectoryW(path_.c_str())) {
    throw std::runtime_error("The temporary folder cannot be written to.");
  }
}

TaskFolder::~TaskFolder() {
  SetCurrentDirectoryW(L"..");  // a current directory cannot be removed
  if (isKept_) return;
  DeleteFileW(TaskFile().c_str());
  DeleteFileW((path_ + Utf8ToWide(kOperationList)).c_str());
  RemoveDirectoryW(path_.c_str());
}

void TaskFolder::WriteTask(IUACTask& task, const TaskParams& params) const {
  CreateNew(kTaskFile);
  task.SetParams(params);
  if (!task.SaveTaskInfos(kTaskFile) || !ReadsBack(params)) {
    throw std::runtime_error("The task file cannot be written.");
  }
}

std::string TaskFolder::WriteOperationList(const Copy& copy) const {
  CreateNew(kOperationList);
  XMLParse list;  // more items may follow, each with a key of its own
  list.PutString("root.task.item.key", "1");
  list.PutString("root.task.item.src", WideToUtf8(copy.source));
  list.PutString("root.task.item.dec", WideToUtf8(copy.destination));
  list.PutString("root.task.item.type", copy.isFolder ? "dir" : "file");
  if (list.SaveAs(kOperationList) != 1) {
    throw std::runtime_error("The operation list cannot be written.");
  }
  return Utf8ToAnsi(WideToUtf8(path_)) + kOperationList;
}

std::wstring TaskFolder::TaskFile() const { return path_ + Utf8ToWide(kTaskFile); }
