// What a task file says, read once with the helper's own code, and what is wrong with it.
#pragma once

#include <cstdint>
#include <string>

#include "uaclient/copies.h"
#include "uaclient/uaclient.h"
#include "uaclient/win32.h"

namespace uaclient {

struct TaskReading {
  Report report;
  std::int32_t type = -1;  // UACTaskScheduler::kType, UACTaskFileOp::kType; -1 where there is none
  Handle file;             // the task file, held; see Hold
  std::string bytes;       // all of the task file
  std::string list;        // all of the operation list
  Survey survey;           // of the list's copies
  std::wstring job;
  bool isDeletion = false;
};

// kYes: while `file` is open nobody else can change or delete the task file, and it can be deleted
// through the handle. A file that cannot be opened so gets a finding that refuses it.
enum class Hold { kNo, kYes };

TaskReading ReadTask(const std::filesystem::path& taskFile, Hold hold, const Options& options);

}  // namespace uaclient
