// Looks into the Task Scheduler, with the rights that this process has.
#pragma once

#include <string>

namespace uaclient {

enum class JobState { kThere, kNotThere, kUnknown };

// Whether the root folder holds a job of this name. The scheduler hides from ordinary users what
// they may not read, so that without raised rights a job that is not found is not known to be
// missing. Uses COM in a thread of its own; the caller's stays as it is.
JobState FindJob(const std::wstring& name);

}  // namespace uaclient
