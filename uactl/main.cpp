// The command line over the application's side: files, folders and jobs with elevation, task files
// that exist, and what is wrong with them.

#include <windows.h>

#include <atomic>
#include <exception>
#include <sstream>

#include "corekit/text.h"
#include "uactl/arguments.h"
#include "uactl/console.h"
#include "uactl/report.h"

namespace {

std::atomic<bool> interrupted{false};

// Ctrl+C ends the waiting; the second time, where there is nothing to wait for, the command itself.
BOOL WINAPI OnConsoleEvent(DWORD event) {
  return (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) && !interrupted.exchange(true);
}

// All of help.txt.in that is for the command; "uactl" and "--version" count as some.
void PrintHelp(const std::string& command) {
  const HRSRC found = FindResourceW(nullptr, L"HELP_TEXT", MAKEINTRESOURCEW(10));  // RT_RCDATA
  const auto* bytes = static_cast<const char*>(LockResource(LoadResource(nullptr, found)));
  std::istringstream text(std::string(bytes, SizeofResource(nullptr, found)));
  bool isMeant = false;
  for (std::string line; std::getline(text, line);) {
    if (line[0] == '%') {
      isMeant = (line + " ").find(" " + command + " ") != line.npos;
    } else if (isMeant) {
      PrintAscii(Stream::kOutput, line + "\n");
    }
  }
}

// Checks or runs the task. Says before the start what is going to be deleted, and meanwhile how far
// the helper is.
Outcome Carry(const Arguments& arguments) {
  const bool ofTaskFile = std::holds_alternative<uaclient::TaskFile>(arguments.task);
  const bool namesDeletion = std::holds_alternative<uaclient::JobRemoval>(arguments.task);
  StatusLine status;
  uaclient::Options options = arguments.options;
  options.owner = GetConsoleWindow();
  options.confirm = [&](const uaclient::Report& report) {
    if (!namesDeletion) Print(Stream::kErrors, Announcement(report));
    return !interrupted;
  };
  options.progress = [&](const uaclient::Progress& progress) {
    status.Show(ProgressText(progress));
    return !interrupted;
  };
  const auto check = [&](const auto& task) { return uaclient::Check(task, options); };
  const auto run = [&](const auto& task) { return uaclient::Run(task, options); };
  if (arguments.onlyCheck) return OutcomeOf(std::visit(check, arguments.task), ofTaskFile);
  SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
  return OutcomeOf(std::visit(run, arguments.task), ofTaskFile);
}

// Does what was asked for and prints what is to be said about it.
int Answer(const Arguments& arguments) {
  if (!arguments.helpPage.empty()) {
    PrintHelp(WideToUtf8(arguments.helpPage));
    return 0;
  }
  if (!arguments.warning.empty()) Print(Stream::kErrors, WarningLine(arguments.warning));
  uaclient::Result refused;
  refused.status = uaclient::Status::kInvalid;
  refused.reason = arguments.refusal;
  const Outcome outcome = refused.reason.empty() ? Carry(arguments) : OutcomeOf(refused, false);
  const Lines lines = AsText(outcome);
  Print(Stream::kErrors, lines.errors);
  Print(Stream::kOutput, arguments.asJson ? Utf8ToWide(AsJson(outcome)) : lines.output);
  return outcome.exitCode;
}

}  // namespace

int wmain(int argumentCount, wchar_t* words[]) {
  // No DLL that lies beside the program or in the current directory may be loaded.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  // A drive without a disk is an error like others, not a dialog.
  SetErrorMode(SEM_FAILCRITICALERRORS);
  Arguments arguments;
  std::string exhausted;  // written ahead, while there is memory
  try {
    arguments = ReadArguments({words + 1, words + argumentCount});
    exhausted = AsJson(Exhausted(arguments.onlyCheck));
    return Answer(arguments);
  } catch (const std::exception&) {  // memory, or threads to compare with
    PrintAscii(Stream::kErrors, "uactl: not enough memory\n");
    if (arguments.asJson) PrintAscii(Stream::kOutput, exhausted);
    return arguments.onlyCheck ? 2 : 1;
  }
}
