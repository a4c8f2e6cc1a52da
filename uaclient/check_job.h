// What the checks of jobs and of jobs' task files have in common. A fault is a sentence that begins
// with `what`, the name of what is wrong; L"" when nothing is.
#pragma once

#include <string>

#include "uaclient/uaclient.h"

namespace uaclient {

std::wstring JobNameFault(const std::wstring& what, const std::wstring& name);

// Whether the scheduler would find the program.
std::wstring ProgramFault(const std::wstring& what, const std::wstring& program);

// `from` says when it begins. Asks the scheduler for an older job of the name.
Step RegistrationStep(const Job& job, const std::wstring& commandLine, const std::wstring& from);
Step DeletionStep(const std::wstring& name);

}  // namespace uaclient
