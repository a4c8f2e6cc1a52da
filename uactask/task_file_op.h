// The file-operation task: copies the files and directory trees of an operation list.
#pragma once

#include <boost/exception/info.hpp>
#include <string>

#include "uactask/task.h"

// Tells which call failed, and with what arguments, in the exceptions of SaveTaskInfos.
using errinfo_func_and_args = boost::error_info<struct errinfo_func_and_args_tag, std::string>;

// Its one parameter, index 8, is the path of the operation list (uactask/operation_list.h). The
// operations are carried out in the list's order, folders before files.
class UACTaskFileOp : public UACTaskBase {
 public:
  static constexpr std::int32_t kType = 1;
  static constexpr std::int32_t kXmlPath = 8;

  UACTaskFileOp() : UACTaskBase(kType) {}

  // True when the list could be read, whatever became of the copies; nothing is copied otherwise.
  bool Run() override;

  // False, with nothing written, unless there is exactly one parameter. An exception (a parameter
  // other than kXmlPath; a task file with a header that lacks its "]") leaves as a copy of its own
  // type that is a boost::exception as well and holds errinfo_func_and_args.
  bool SaveTaskInfos(std::string path) override;
};
