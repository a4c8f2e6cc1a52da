// An application's use of the helper: copies files and schedules jobs with raised rights. Ends with
// 0 when that was done, 1 when it was not, 2 when the arguments are wrong.

#include <windows.h>

#include <exception>

#include "arguments.h"
#include "copy_check.h"
#include "elevate.h"
#include "task_folder.h"
#include "uactask/task_file_op.h"
#include "uactask/task_scheduler.h"

namespace {

constexpr wchar_t kUsage[] =
    L"usage: launcher [--dry-run] COMMAND\n"
    L"  copy SOURCE DESTINATION                       a file or a folder; a folder replaces the\n"
    L"                                                destination as a whole\n"
    L"  daily NAME HH:MM PROGRAM ARGUMENTS...         start a program every day,\n"
    L"  weekly NAME HH:MM DAYS PROGRAM ARGUMENTS...   on weekdays such as mon,wed,fri\n"
    L"  monthly NAME HH:MM DAYS PROGRAM ARGUMENTS...  or on days of the month such as 1,15,31;\n"
    L"                                                replaces the job of that name\n"
    L"  unschedule NAME                               delete a job\n"
    L"--dry-run writes the task file, prints its path and leaves the rest to you.\n";

using Words = std::vector<std::wstring>;

// To a console in its own characters, to anything else in UTF-8. Returns the code.
int Report(int code, const std::wstring& text) {
  const HANDLE output = GetStdHandle(code == 0 ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
  const std::wstring line = text + L"\n";
  const std::string bytes = WideToUtf8(line);
  DWORD done = 0;
  if (!WriteConsoleW(output, line.data(), static_cast<DWORD>(line.size()), &done, nullptr)) {
    WriteFile(output, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr);
  }
  return code;
}

// Says what the helper's exit code means; `failure` is the meaning of 1.
int Explain(unsigned long exitCode, const wchar_t* success, const wchar_t* failure) {
  if (exitCode == 0) return Report(0, success);
  if (exitCode == 1) return Report(1, failure);
  if (exitCode == 2) return Report(1, L"The helper found no task file at the path given to it.");
  return Report(1, L"The helper ended with the unknown code " + std::to_wstring(exitCode) + L".");
}

int RunCopy(const Words& words, bool dryRun) {
  const Copy copy = CheckedCopy(words[1], words[2]);
  TaskFolder folder;
  UACTaskFileOp task;
  folder.WriteTask(task, {{UACTaskFileOp::kXmlPath, folder.WriteOperationList(copy)}});
  if (dryRun) folder.Keep();
  if (dryRun) return Report(0, folder.TaskFile());

  const unsigned long exitCode = RunHelper(folder.TaskFile());
  // 0 means that the list was read and everything in it tried, not that it succeeded.
  if (exitCode == 0 && !WasCopied(copy)) return Report(1, L"Not everything could be copied.");
  return Explain(exitCode, L"Copied.", L"The helper could not read the list. Nothing was copied.");
}

int RunJob(const TaskParams& params, bool dryRun, const wchar_t* success, const wchar_t* failure) {
  TaskFolder folder;
  UACTaskScheduler task;
  folder.WriteTask(task, params);
  if (dryRun) folder.Keep();
  if (dryRun) return Report(0, folder.TaskFile());
  return Explain(RunHelper(folder.TaskFile()), success, failure);
}

// The kind of trigger is the scheduler's number: 2 daily, 3 weekly, 4 monthly.
int Schedule(int trigger, const Words& words, bool dryRun) {
  const std::size_t program = trigger == 2 ? 3 : 4;
  if (words.size() < program + 2) {
    throw BadArguments(L"A job needs its name, time, days unless it is daily, program, and at " +
                       std::wstring(L"least one argument: without any it would be deleted."));
  }
  return RunJob({{0, JobName(words[1])},
                 {1, ProgramPath(words[program])},
                 {2, CommandLine({words.begin() + static_cast<int>(program) + 1, words.end()})},
                 {3, StartBoundary(words[2])},
                 {4, "uactask example launcher"},
                 {5, std::to_string(trigger)},
                 {6, trigger == 3 ? WeekdayMask(words[3]) : "0"},
                 {7, trigger == 4 ? MonthDayMask(words[3]) : "0"}},
                dryRun, L"Scheduled.",
                L"The Task Scheduler refused the job. An older one of that name may be gone.");
}

// Empty arguments delete; the numbers must be there all the same.
int Unschedule(const Words& words, bool dryRun) {
  return RunJob(
      {{0, JobName(words[1])}, {1, ""}, {2, ""}, {3, ""}, {4, ""}, {5, "0"}, {6, "0"}, {7, "0"}},
      dryRun, L"Deleted.", L"There is no such job, or it could not be deleted.");
}

int Run(Words words) {
  const bool dryRun = !words.empty() && words[0] == L"--dry-run";
  if (dryRun) words.erase(words.begin());
  const std::wstring command = words.empty() ? L"" : words[0];
  if (command == L"copy" && words.size() == 3) return RunCopy(words, dryRun);
  if (command == L"daily") return Schedule(2, words, dryRun);
  if (command == L"weekly") return Schedule(3, words, dryRun);
  if (command == L"monthly") return Schedule(4, words, dryRun);
  if (command == L"unschedule" && words.size() == 2) return Unschedule(words, dryRun);
  throw BadArguments(L"That is no command with the arguments that it takes.");
}

}  // namespace

int wmain(int argumentCount, wchar_t* arguments[]) {
  try {
    return Run({arguments + 1, arguments + argumentCount});
  } catch (const BadArguments& problem) {
    return Report(2, Utf8ToWide(problem.what()) + L"\n\n" + kUsage);
  } catch (const std::exception& problem) {
    return Report(1, Utf8ToWide(problem.what()));
  }
}
