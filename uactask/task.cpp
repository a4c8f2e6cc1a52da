#include "uactask/task.h"

#include <utility>

#include "inifile/ini_file.h"

UACTaskBase::UACTaskBase(std::int32_t type) : taskType(type) {}

bool UACTaskBase::SetTaskFile(std::string path) {
  taskFile = std::move(path);
  return true;
}

bool UACTaskBase::SaveTaskInfos(std::string path) {
  return corekit::CIniFile::SetValue(uactask::kTypeKey, std::to_string(taskType),
                                     uactask::kTaskSection, path);
}

bool UACTaskBase::SetParams(const std::map<std::int32_t, std::string>& newParams) {
  params = newParams;
  return true;
}

std::int32_t UACTaskBase::GetType() { return taskType; }

std::string& UACTaskBase::TaskFilePath() { return taskFile; }

uactask::TaskParams& UACTaskBase::Params() { return params; }
