// Looks into the Task Scheduler, with the rights that this process has.
#pragma once

#include <string>

namespace uaclient {

enum class JobState { kThere, kNotThere, kUnknown };

// Whether there is a job of this name; a "\" in it separates folders. The scheduler hides from
// ordinary users what they may not read, so a job that an unelevated process does not find may be
// there. Uses COM in a thread of its own; the caller's stays as it is.
JobState FindJob(const std::wstring& name);

}  // namespace uaclient
