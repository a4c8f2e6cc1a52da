// Creates the task object for the type in a task file.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>

#include "uactask/task.h"

// Puts a new task into `owner`: type 0 gives a UACTaskScheduler, type 1 a UACTaskFileOp. For any
// other type `owner` is left alone. Returns whether `owner` holds a task afterwards.
bool CreateTask(std::int32_t type, boost::shared_ptr<IUACTask>& owner);
