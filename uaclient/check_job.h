// What jobs and the task files of jobs have in common.
#pragma once

#include <string>

namespace uaclient {

// What is wrong with a job's name in the scheduler's root folder; L"" when nothing is.
std::wstring JobNameFault(const std::wstring& name);

// Why the scheduler would not find the program of a job; L"" when it would.
std::wstring ProgramFault(const std::wstring& program);

}  // namespace uaclient
