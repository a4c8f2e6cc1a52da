// The command line over the application's side: files, folders and jobs with elevation, task files
// that exist, and what is wrong with them.

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <sstream>

#include "corekit/text.h"
#include "uactl/arguments.h"
#include "uactl/console.h"
#include "uactl/report.h"

namespace {

using namespace uaclient;

std::atomic<bool> interrupted{false};

// Ctrl+C ends the waiting; the second time, where there is nothing to wait for, the command itself.
BOOL WINAPI OnConsoleEvent(DWORD event) {
  return (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) && !interrupted.exchange(true);
}

// What --help prints: the lines of help.txt.in below each line "% PAGE..." that names the page.
void PrintHelp(const std::string& page) {
  const HRSRC found = FindResourceW(nullptr, L"HELP_TEXT", MAKEINTRESOURCEW(10));  // RT_RCDATA
  const auto* bytes = static_cast<const char*>(LockResource(LoadResource(nullptr, found)));
  std::istringstream text(std::string(bytes, SizeofResource(nullptr, found)));
  bool isMeant = false;
  for (std::string line; std::getline(text, line);) {
    if (line[0] == '%') {
      isMeant = (line + " ").find(" " + page + " ") != line.npos;
    } else if (isMeant) {
      Print(Stream::kOutput, Line(Utf8ToWide(line)));
    }
  }
}

// Checks or runs the task. Says before the start what is going to be deleted, and meanwhile how far
// the helper is.
Outcome Carry(const Arguments& arguments) {
  if (!arguments.refusal.empty()) return Failure(Status::kInvalid, arguments.refusal);
  Options options = arguments.options;
  options.owner = GetConsoleWindow();
  options.confirm = [&](const Report& report) {
    Print(Stream::kErrors, Announcement({arguments.findings, {}}) + Announcement(report));
    return !interrupted;
  };
  options.progress = [](const Progress& progress) {
    ShowStatus(ProgressText(progress));
    return !interrupted;
  };
  const auto outcomeOf = [&](auto what) {
    Outcome outcome =
        OutcomeOf(std::move(what), std::holds_alternative<TaskFile>(arguments.request));
    Findings& findings = outcome.result.report.findings;
    findings.insert(findings.end(), arguments.findings.begin(), arguments.findings.end());
    return outcome;
  };
  if (arguments.onlyCheck) return outcomeOf(Check(arguments.request, options));
  SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
  return outcomeOf(Run(arguments.request, options));
}

int Tell(const Outcome& outcome, bool asJson) {
  const Lines lines = AsText(outcome);
  ShowStatus({});
  Print(Stream::kErrors, lines.errors);
  Print(Stream::kOutput, asJson ? Utf8ToWide(AsJson(outcome)) : lines.output);
  return outcome.exitCode;
}

}  // namespace

int wmain(int argumentCount, wchar_t* words[]) {
  std::set_terminate([] { std::_Exit(1); });  // abort ends with 3, which means something else
  // No DLL that lies beside the program or in the current directory may be loaded.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  // A drive without a disk is an error like others, not a dialog.
  SetErrorMode(SEM_FAILCRITICALERRORS);
  Arguments arguments;
  try {
    arguments = ReadArguments({words + 1, words + argumentCount});
    if (arguments.helpPage.empty()) return Tell(Carry(arguments), arguments.asJson);
    PrintHelp(WideToUtf8(arguments.helpPage));
    return 0;
  } catch (const std::exception&) {
    // What took the memory is gone by now, so that this can be said.
    const Status status = arguments.onlyCheck ? Status::kInvalid : Status::kFailed;
    return Tell(Failure(status, L"There is not enough memory."), arguments.asJson);
  }
}
