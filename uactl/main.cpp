// The command line over the application's side: files, folders and jobs with raised rights, task
// files that exist, and what is wrong with them.

#include <windows.h>

#include <atomic>
#include <exception>
#include <variant>

#include "corekit/text.h"
#include "uaclient/uaclient.h"
#include "uactl/arguments.h"
#include "uactl/console.h"
#include "uactl/report.h"

namespace {

std::atomic<bool> interrupted{false};

// Ctrl+C ends the waiting; the second time, where there is nothing to wait for, the command itself.
BOOL WINAPI OnConsoleEvent(DWORD event) {
  return (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) && !interrupted.exchange(true);
}

// Runs a plan, a job, its deletion or a task file and shows meanwhile how far it is.
template <class Task>
uaclient::Result RunShowingProgress(const Task& task, uaclient::Options options) {
  StatusLine status;
  options.progress = [&status](const uaclient::Progress& progress) {
    status.Show(ProgressText(progress));
    return !interrupted;
  };
  SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
  uaclient::Result result = uaclient::Run(task, options);
  SetConsoleCtrlHandler(OnConsoleEvent, FALSE);
  return result;
}

// Carries out what was asked for.
struct Carrier {
  const uaclient::Options& options;

  Report operator()(const ShownText& shown) const { return {kExitDone, shown.text, L""}; }
  Report operator()(const uaclient::CopyPlan& plan) const {
    return ReportRun(RunShowingProgress(plan, options));
  }
  Report operator()(const PlanCheck& check) const { return ReportPlanCheck(check.plan.Check()); }
  Report operator()(const uaclient::Job& job) const {
    return ReportRun(RunShowingProgress(job, options));
  }
  Report operator()(const uaclient::JobRemoval& removal) const {
    return ReportRun(RunShowingProgress(removal, options));
  }
  Report operator()(const uaclient::TaskFile& task) const {
    Report report = ReportRun(RunShowingProgress(task, options));
    // The arguments were right; what is wrong stands in the file.
    if (report.exitCode == kExitRefused) report.exitCode = kExitNotDone;
    return report;
  }
  Report operator()(const TaskFileCheck& check) const {
    const uaclient::TaskFileReport found = uaclient::CheckTaskFile(check.file);
    return check.asJson ? ReportCheckAsJson(found, check.file) : ReportCheck(found);
  }
};

Report Carry(const std::vector<std::wstring>& words) {
  try {
    const Arguments arguments = ReadArguments(words);
    return std::visit(Carrier{arguments.options}, arguments.request);
  } catch (const BadArguments& bad) {
    return {kExitRefused, L"", ErrorLine(bad.text)};
  } catch (const std::exception& failure) {
    return {kExitNotDone, L"", ErrorLine(corekit::AnsiToWide(failure.what()))};
  }
}

}  // namespace

int wmain(int argumentCount, wchar_t* arguments[]) {
  // No DLL that lies beside the program or in the current directory may be loaded.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  // A drive without a disk is an error like others, not a dialog.
  SetErrorMode(SEM_FAILCRITICALERRORS);
  const Report report = Carry({arguments + 1, arguments + argumentCount});
  Print(Stream::kOutput, report.output);
  Print(Stream::kErrors, report.errors);
  return report.exitCode;
}
