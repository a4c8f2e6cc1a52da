#include "uaclient/job_task.h"

#include <windows.h>

#include <cstdio>
#include <iterator>

#include "uaclient/code_page.h"
#include "uactask/task_scheduler.h"

namespace uaclient {
namespace {

using Task = UACTaskScheduler;
using Every = Job::Every;

static_assert(Task::kDaily + static_cast<int>(Every::kWeek) == Task::kWeekly &&
              Task::kDaily + static_cast<int>(Every::kMonth) == Task::kMonthly);

std::wstring QuotedArgument(const std::wstring& argument) {
  if (!argument.empty() && argument.find_first_of(L" \t\"") == std::wstring::npos) return argument;
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;  // right before the current character
  for (const wchar_t c : argument) {
    if (c == L'"') quoted.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    quoted += c;
  }
  return quoted.append(backslashes, L'\\') + L"\"";
}

// Today at that time. One that has passed does no harm: the job then starts on its next day.
std::string StartBoundary(int hour, int minute) {
  SYSTEMTIME today;
  GetLocalTime(&today);
  char text[64];
  std::snprintf(text, std::size(text), "%04d-%02d-%02dT%02d:%02d:00", today.wYear, today.wMonth,
                today.wDay, hour, minute);
  return text;
}

}  // namespace

std::wstring CommandLine(const std::vector<std::wstring>& arguments) {
  std::wstring line;
  for (const std::wstring& argument : arguments) {
    line += (line.empty() ? L"" : L" ") + QuotedArgument(argument);
  }
  return line;
}

uactask::TaskParams RegistrationParams(const Job& job) {
  return {{Task::kTaskName, ForHelper(job.name)},
          {Task::kExePath, ForHelper(job.program.wstring())},
          {Task::kExeArguments, ForHelper(CommandLine(job.arguments))},
          {Task::kRuntime, StartBoundary(job.hour, job.minute)},
          {Task::kAuthorName, ForHelper(job.author)},
          {Task::kTimeType, std::to_string(Task::kDaily + static_cast<int>(job.every))},
          {Task::kTimeWeekday, std::to_string(job.every == Every::kWeek ? job.days : 0)},
          {Task::kTimeMonthday, std::to_string(job.every == Every::kMonth ? job.days : 0)}};
}

// Without arguments the helper deletes; the numbers must be there all the same.
uactask::TaskParams DeletionParams(const JobRemoval& removal) {
  return {{Task::kTaskName, ForHelper(removal.name)},
          {Task::kExeArguments, ""},
          {Task::kTimeType, "0"},
          {Task::kTimeWeekday, "0"},
          {Task::kTimeMonthday, "0"}};
}

}  // namespace uaclient
