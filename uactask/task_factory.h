// Turns the type in a task file into a task object.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>

#include "uactask/task.h"

// Puts a new task of the type into `owner`: 0 a UACTaskScheduler, 1 a UACTaskFileOp; for any other
// type the owner stays as it is. Returns whether the owner holds a task afterwards.
bool CreateTask(std::int32_t type, boost::shared_ptr<IUACTask>& owner);
