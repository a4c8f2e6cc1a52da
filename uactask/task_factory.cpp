#include "uactask/task_factory.h"

#include <boost/make_shared.hpp>

#include "uactask/task_file_op.h"
#include "uactask/task_scheduler.h"

bool CreateTask(std::int32_t type, boost::shared_ptr<IUACTask>& owner) {
  if (type == UACTaskScheduler::kType) owner = boost::make_shared<UACTaskScheduler>();
  if (type == UACTaskFileOp::kType) owner = boost::make_shared<UACTaskFileOp>();
  return owner != nullptr;
}
