#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "corekit/text.h"
#include "corekit/trace.h"
#include "fileop/file_operator.h"
#include "fileop/file_system.h"
#include "fileop/jfile.h"
#include "inifile/ini_file.h"
#include "uaclient/uaclient.h"
#include "uactask/exit_codes.h"
#include "uactask/operation_list.h"
#include "uactask/task.h"
#include "uactask/task_factory.h"
#include "uactask/task_file.h"
#include "uactask/task_file_op.h"
#include "uactask/task_runner.h"
#include "uactask/task_scheduler.h"
#include "xmlstore/keyed_records.h"
#include "xmlstore/xml_parse.h"

// Writes a task file with the helper's own classes, reads it back, and has the helper copy it.
int main() {
  JFile file;
  if (!file.Open("consumer.ini", JFile::OpenWrite)) return 1;
  file.Close();
  UACTaskScheduler task;
  std::map<std::int32_t, std::string> params;
  for (std::int32_t index = 0; index < 8; ++index) params[index] = std::to_string(index);
  task.SetParams(params);
  const bool written = task.SaveTaskInfos("consumer.ini");
  const std::string author = corekit::CIniFile::GetValue("author_name", "Task", "consumer.ini");
  char checked[8] = {};
  std::memcpy(checked, author.c_str(), author.size());  // hardened builds check its size

  const std::filesystem::path here = std::filesystem::current_path();
  uaclient::CopyPlan plan;
  plan.File(here / L"consumer.ini", here / L"copy.ini");
  const bool copied = uaclient::Run(plan).status == uaclient::Status::kDone;

  boost::shared_ptr<IXMLParse> store;
  const bool removed =
      DeleteFileOrSchedule("consumer.ini") == 0 && DeleteFileOrSchedule("copy.ini") == 0;
  return written && checked[0] == '4' && copied && removed && CreateXMLParse(store) == 0 ? 0 : 1;
}
