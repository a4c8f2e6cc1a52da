#include <cstdio>

#include "corekit/text.h"
#include "corekit/trace.h"
#include "fileop/file_operator.h"
#include "fileop/file_system.h"
#include "fileop/jfile.h"
#include "inifile/ini_file.h"
#include "uactask/task_factory.h"
#include "uactask/task_file_op.h"
#include "uactask/task_runner.h"
#include "uactask/task_scheduler.h"
#include "xmlstore/keyed_records.h"
#include "xmlstore/xml_parse.h"

// Writes a task file as an application does and reads it back.
int main() {
  JFile file;
  if (!file.Open("consumer.ini", JFile::OpenWrite)) return 1;
  file.Close();
  UACTaskScheduler task;
  TaskParams params;
  for (std::int32_t index = 0; index < 8; ++index) params[index] = std::to_string(index);
  task.SetParams(params);
  const bool written = task.SaveTaskInfos("consumer.ini");
  const std::string author = corekit::CIniFile::GetValue("author_name", "Task", "consumer.ini");
  boost::shared_ptr<IXMLParse> store;
  const bool removed = DeleteFileOrSchedule("consumer.ini") == 0;
  return written && author == "4" && removed && CreateXMLParse(store) == 0 ? 0 : 1;
}
