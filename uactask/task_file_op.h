// The file-operation task: copies the files and directory trees of an operation list.
#pragma once

#include <boost/exception/info.hpp>
#include <string>

#include "uactask/task.h"

// The call that failed and its arguments, in the exceptions of SaveTaskInfos.
using errinfo_func_and_args = boost::error_info<struct errinfo_func_and_args_tag, std::string>;

// Its one parameter is the path of the operation list (uactask/operation_list.h) in the ANSI code
// page. The items are carried out in the order of their keys, folders before files.
class UACTaskFileOp : public UACTaskBase {
 public:
  static constexpr std::int32_t kType = 1;
  static constexpr std::int32_t kXmlPath = 8;

  UACTaskFileOp() : UACTaskBase(kType) {}

  // True when the list could be read, whatever became of the copies. Otherwise nothing is copied.
  bool Run() override;

  // False, with nothing written, unless there is exactly one parameter. Throws std::out_of_range
  // when that is not kXmlPath, and for a task file with a header without "]". What it throws is a
  // boost::exception as well and holds errinfo_func_and_args.
  bool SaveTaskInfos(std::string path) override;
};
