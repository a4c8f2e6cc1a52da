// An application's use of the helper: copies files and schedules jobs with raised rights. Ends with
// 0 when that was done, 1 when it was not, 2 when the arguments are wrong.

#include <cstdio>
#include <exception>

#include "arguments.h"
#include "copy_check.h"
#include "elevate.h"
#include "task_folder.h"
#include "uactask/task_file_op.h"
#include "uactask/task_scheduler.h"

namespace {

constexpr char kUsage[] =
    "usage: launcher [--dry-run] COMMAND\n"
    "  copy SOURCE DESTINATION                       a file or a folder; a folder replaces the\n"
    "                                                destination as a whole\n"
    "  daily NAME HH:MM PROGRAM ARGUMENTS...         start a program every day,\n"
    "  weekly NAME HH:MM DAYS PROGRAM ARGUMENTS...   on weekdays such as mon,wed,fri\n"
    "  monthly NAME HH:MM DAYS PROGRAM ARGUMENTS...  or on days of the month such as 1,15,31;\n"
    "                                                replaces the job of that name\n"
    "  unschedule NAME                               delete a job\n"
    "--dry-run writes the task file, prints its path and leaves the rest to you.\n";

using Words = std::vector<std::wstring>;

// Returns the code. `text` is UTF-8.
int Report(int code, const std::string& text) {
  std::fputs((text + "\n").c_str(), code == 0 ? stdout : stderr);
  return code;
}

// Runs the helper on the task that was written and says what its exit code means: 1 means
// `failure`. A dry run leaves that to the user.
int Finish(TaskFolder& folder, bool dryRun, const char* success, const char* failure) {
  if (dryRun) {
    folder.Keep();
    return Report(0, WideToUtf8(folder.TaskFile()));
  }
  const unsigned long code = RunHelper(folder.TaskFile());
  if (code == 0) return Report(0, success);
  if (code == 1) return Report(1, failure);
  if (code == 2) return Report(1, "The helper found no task file at the path given to it.");
  return Report(1, "The helper ended abnormally, with code " + std::to_string(code) + ".");
}

int RunCopy(const Words& words, bool dryRun) {
  const Copy copy = CheckedCopy(words[1], words[2]);
  TaskFolder folder;
  UACTaskFileOp task;
  folder.WriteTask(task, {{UACTaskFileOp::kXmlPath, folder.WriteOperationList(copy)}});
  const int result = Finish(folder, dryRun, "The helper has gone through the list.",
                            "The helper could not read the list. Nothing was copied.");
  // Whether a copy succeeded shows at its destination alone.
  if (result != 0 || dryRun || WasCopied(copy)) return result;
  return Report(1, "Not everything could be copied.");
}

int RunJob(const TaskParams& params, bool dryRun, const char* success, const char* failure) {
  TaskFolder folder;
  UACTaskScheduler task;
  folder.WriteTask(task, params);
  return Finish(folder, dryRun, success, failure);
}

using Job = UACTaskScheduler;

int Schedule(Job::TriggerKind kind, const Words& words, bool dryRun) {
  const std::size_t program = kind == Job::kDaily ? 3 : 4;
  if (words.size() < program + 2) {
    throw BadArguments(
        "A job needs its name, time, days unless it is daily, program, and at "
        "least one argument: without any it would be deleted.");
  }
  const Words arguments(words.begin() + static_cast<int>(program) + 1, words.end());
  return RunJob({{Job::kTaskName, JobName(words[1])},
                 {Job::kExePath, ProgramPath(words[program])},
                 {Job::kExeArguments, CommandLine(arguments)},
                 {Job::kRuntime, StartBoundary(words[2])},
                 {Job::kAuthorName, "uactask example launcher"},
                 {Job::kTimeType, std::to_string(kind)},
                 {Job::kTimeWeekday, kind == Job::kWeekly ? WeekdayMask(words[3]) : "0"},
                 {Job::kTimeMonthday, kind == Job::kMonthly ? MonthDayMask(words[3]) : "0"}},
                dryRun, "Scheduled.",
                "The Task Scheduler refused the job. An older one of that name may be gone.");
}

int Unschedule(const Words& words, bool dryRun) {
  TaskParams params;
  for (std::int32_t index = 0; index < Job::kParamCount; ++index) params[index] = "";
  params[Job::kTaskName] = JobName(words[1]);
  // Empty arguments delete; the numbers must be there all the same.
  for (const auto number : {Job::kTimeType, Job::kTimeWeekday, Job::kTimeMonthday}) {
    params[number] = "0";
  }
  return RunJob(params, dryRun, "Deleted.", "There is no such job, or it could not be deleted.");
}

int Run(Words words) {
  const bool dryRun = !words.empty() && words[0] == L"--dry-run";
  if (dryRun) words.erase(words.begin());
  const std::wstring command = words.empty() ? L"" : words[0];
  if (command == L"copy" && words.size() == 3) return RunCopy(words, dryRun);
  if (command == L"daily") return Schedule(Job::kDaily, words, dryRun);
  if (command == L"weekly") return Schedule(Job::kWeekly, words, dryRun);
  if (command == L"monthly") return Schedule(Job::kMonthly, words, dryRun);
  if (command == L"unschedule" && words.size() == 2) return Unschedule(words, dryRun);
  throw BadArguments("That is no command with the arguments that it takes.");
}

}  // namespace

int wmain(int argumentCount, wchar_t* arguments[]) {
  try {
    return Run({arguments + 1, arguments + argumentCount});
  } catch (const BadArguments& problem) {
    return Report(2, std::string(problem.what()) + "\n\n" + kUsage);
  } catch (const std::exception& problem) {
    return Report(1, problem.what());
  }
}
