// The command line over the application's side: files, folders and jobs with elevation, task files
// that exist, and what is wrong with them.

#include <windows.h>

#include <atomic>
#include <exception>

#include "uactl/arguments.h"
#include "uactl/console.h"
#include "uactl/report.h"

namespace {

std::atomic<bool> interrupted{false};

// Ctrl+C ends the waiting; the second time, where there is nothing to wait for, the command itself.
BOOL WINAPI OnConsoleEvent(DWORD event) {
  return (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) && !interrupted.exchange(true);
}

template <class Task>
Outcome CheckOnly(const Task& task, const uaclient::Options& options) {
  return OutcomeOf(uaclient::Check(task, options), std::is_same_v<Task, uaclient::TaskFile>);
}

// Shows before the start what is going to be deleted, and meanwhile how far it is.
template <class Task>
Outcome RunTask(const Task& task, uaclient::Options options) {
  StatusLine status;
  options.owner = GetConsoleWindow();
  options.confirm = [](const uaclient::Report& report) {
    // Whoever deletes a job has named it.
    if (!std::is_same_v<Task, uaclient::JobRemoval>) Print(Stream::kErrors, Announcement(report));
    return !interrupted;
  };
  options.progress = [&status](const uaclient::Progress& progress) {
    status.Show(ProgressText(progress));
    return !interrupted;
  };
  SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
  Outcome outcome = OutcomeOf(uaclient::Run(task, options));
  SetConsoleCtrlHandler(OnConsoleEvent, FALSE);
  // The argument was right; what is wrong stands in the file.
  if (std::is_same_v<Task, uaclient::TaskFile> && outcome.exitCode == kExitWrong &&
      outcome.result.report.exists) {
    outcome.exitCode = kExitNotDone;
  }
  return outcome;
}

Outcome Carry(const Arguments& arguments) {
  if (!arguments.refusal.empty()) {
    uaclient::Result result;
    result.status = uaclient::Status::kInvalid;
    result.reason = arguments.refusal;
    return OutcomeOf(result);
  }
  return std::visit(
      [&](const auto& task) {
        return arguments.onlyCheck ? CheckOnly(task, arguments.options)
                                   : RunTask(task, arguments.options);
      },
      arguments.task);
}

int Main(const Arguments& arguments) {
  if (!arguments.help.empty()) {
    Print(Stream::kOutput, arguments.help);
    return kExitDone;
  }
  if (!arguments.warning.empty()) {
    Print(Stream::kErrors, ErrorLine(L"warning: " + arguments.warning));
  }
  const Outcome outcome = Carry(arguments);
  const Lines text = AsText(outcome);
  Print(Stream::kErrors, text.errors);
  if (arguments.asJson) {
    PrintAscii(Stream::kOutput, AsJson(outcome));
  } else {
    Print(Stream::kOutput, text.output);
  }
  return outcome.exitCode;
}

}  // namespace

int wmain(int argumentCount, wchar_t* words[]) {
  // No DLL that lies beside the program or in the current directory may be loaded.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  // A drive without a disk is an error like others, not a dialog.
  SetErrorMode(SEM_FAILCRITICALERRORS);
  Arguments arguments;
  try {
    arguments = ReadArguments({words + 1, words + argumentCount});
    return Main(arguments);
  } catch (const std::exception&) {  // memory or threads are exhausted
    const bool isCheck = arguments.onlyCheck;
    PrintAscii(Stream::kErrors, "uactl: not enough memory\n");
    if (arguments.asJson) {
      PrintAscii(Stream::kOutput, isCheck ? R"({"exit": 2, "status": "fails")"
                                          : R"({"exit": 1, "status": "failed")");
      PrintAscii(Stream::kOutput,
                 R"(, "reason": "not enough memory", "findings": [], "steps": [], "items": []})");
    }
    return isCheck ? kExitWrong : kExitNotDone;
  }
}
