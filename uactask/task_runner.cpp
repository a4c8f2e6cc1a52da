#include "uactask/task_runner.h"

#include <boost/lexical_cast.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <optional>

#include "corekit/trace.h"
#include "fileop/file_system.h"
#include "inifile/ini_file.h"
#include "uactask/task.h"
#include "uactask/task_factory.h"

namespace {

std::optional<std::int32_t> ReadTaskType(const std::string& path) {
  try {
    return boost::lexical_cast<std::int32_t>(
        corekit::CIniFile::GetValue(uactask::kTypeKey, uactask::kTaskSection, path));
  } catch (...) {
    corekit::Trace("uactask: no task type can be read from \"%s\"\n", path.c_str());
    return std::nullopt;
  }
}

}  // namespace

bool RunTaskFile(std::string path) {
  // The caller has just seen the file, so it has vanished since and nothing is left to do.
  if (!PathExists(path.c_str())) return true;

  const auto type = ReadTaskType(path);
  if (!type) return false;
  boost::shared_ptr<IUACTask> task;
  if (!CreateTask(*type, task)) {
    corekit::Trace("uactask: there is no task type %d\n", static_cast<int>(*type));
    return false;
  }
  return task->SetTaskFile(path) && task->Run();
}
