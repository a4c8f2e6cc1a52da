#include "uactask/task.h"

#include <stdexcept>
#include <utility>

#include "inifile/ini_file.h"

UACTaskBase::UACTaskBase(std::int32_t type) : taskType(type) {}

bool UACTaskBase::SetTaskFile(std::string path) {
  taskFile = std::move(path);
  return true;
}

bool UACTaskBase::SaveTaskInfos(std::string path) {
  return corekit::CIniFile::SetValue(kTypeKey, std::to_string(taskType), kTaskSection, path);
}

bool UACTaskBase::SetParams(const std::map<std::int32_t, std::string>& newParams) {
  params = newParams;
  return true;
}

std::int32_t UACTaskBase::GetType() { return taskType; }

std::string& UACTaskBase::TaskFilePath() { return taskFile; }

TaskParams& UACTaskBase::Params() { return params; }

const std::string& RequireEntry(const TaskParams& entries, std::int32_t index) {
  const auto found = entries.find(index);
  if (found == entries.end()) throw std::out_of_range("invalid map<K, T> key");
  return found->second;
}
