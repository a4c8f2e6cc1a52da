// Jobs of the Task Scheduler: what is wrong with one and what it would do, what the helper is given
// for it, and whether it is there. A fault is a sentence that names what is wrong, by its path or
// by `what`; L"" when nothing is.
#pragma once

#include <cstdint>
#include <string>

#include "uaclient/claims.h"
#include "uaclient/uaclient.h"

namespace uaclient {

std::wstring JobNameFault(const std::wstring& what, const std::wstring& name);

// The program as the scheduler starts it, which knows environment variables and quotes.
std::wstring Expanded(const std::wstring& program);

// Whether the scheduler would find the program.
std::wstring ProgramFault(const std::wstring& what, const std::wstring& program);

// How often a job of this trigger kind starts, in words; L"" when `days` are none of its days.
std::wstring Rhythm(std::int32_t kind, std::uint32_t days);

Step RegistrationStep(const std::wstring& name, const std::wstring& program,
                      const std::wstring& arguments, const std::wstring& when);
Step DeletionStep(const std::wstring& name, const wchar_t* remark = L"");

// What a run of the job claims: the file in which the scheduler keeps it.
Claimed PlaceOf(const std::wstring& job);

enum class JobState { kThere, kNotThere, kUnknown };

// Whether there is a job of this name; a "\" in it separates folders. The scheduler hides from
// ordinary users what they may not read, so a job that an unelevated process does not find may be
// there. Uses COM in a thread of its own; the caller's stays as it is.
JobState FindJob(const std::wstring& name);

}  // namespace uaclient
