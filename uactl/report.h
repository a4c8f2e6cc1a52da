// What the command says about what happened and what it found, and its exit code for that.
#pragma once

#include <filesystem>
#include <string>

#include "uaclient/uaclient.h"

// Of every command; those in brackets are of "check".
enum ExitCode {
  kExitDone = 0,     // (nothing to remark)
  kExitNotDone = 1,  // not or not all (the helper would run, but something is suspicious)
  kExitRefused = 2   // wrong arguments, a plan that does harm (the helper would fail)
};

struct Report {
  int exitCode = kExitDone;
  std::wstring output;  // for standard output, whole lines
  std::wstring errors;  // for standard error
};

// A line that names what is wrong.
std::wstring ErrorLine(const std::wstring& text);

// How far the helper is, in one line; "" for what has no files.
std::wstring ProgressText(const uaclient::Progress& progress);

// What became of a run.
Report ReportRun(const uaclient::Result& result);

// Of a plan that is not to be started.
Report ReportPlanCheck(const uaclient::Findings& findings);

// As compilers do: FILE:LINE: error: TEXT, then a line "plan: TEXT" for every step.
Report ReportCheck(const uaclient::TaskFileReport& report);

// The same as a JSON object:
//
//   file         the task file
//   exists       whether it is there
//   helperFails  whether the helper's exit code would not be 0
//   exit         the exit code of the check
//   findings  [{severity: "error" or "warning", harmful, file, line: from 1, 0 for none, text}]
//   steps     [{kind: "copyFolder", "copyFile", "registerJob" or "deleteJob", source, destination,
//               job, files, bytes, empties, emptiedFiles, emptiedBytes, text}], in the helper's
//               order
//
// Paths and names that a finding or a step does not have are "".
Report ReportCheckAsJson(const uaclient::TaskFileReport& report, const std::filesystem::path& file);
