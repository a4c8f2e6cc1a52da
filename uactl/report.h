// What the command says about what it found and what became of it: in words, as JSON, and as its
// exit code.
#pragma once

#include <string>

#include "uaclient/uaclient.h"

// The exit codes; those in brackets are of "check":
//
//   0  everything was done (nothing was found)
//   1  not, or not all, was done (the helper would run, but something is suspicious or left out)
//   2  wrong or harmful arguments, nothing was started (the helper would fail, or no such file)
//   3  the user refused the elevation
//   4  waiting was given up; the helper goes on
struct Outcome {
  int exitCode = 0;
  const char* status = "";
  bool isCheck = false;
  uaclient::Result result;  // of a check its report, and the reason why a run would be refused
};

// Of a run.
Outcome OutcomeOf(uaclient::Result result, bool ofTaskFile);

// Of a command that did not get as far as a report, as if a run had ended with this status.
Outcome Failure(uaclient::Status status, const std::wstring& reason);

// Of what is not to be started: "check" of a task file, or --dry-run.
Outcome OutcomeOf(uaclient::Report report, bool ofTaskFile);

struct Lines {
  std::wstring output;  // for standard output, whole lines
  std::wstring errors;  // for standard error
};

// Findings as compilers print them, FILE:LINE: error: TEXT, or uactl: error: TEXT where there is no
// file; "plan: TEXT" for each step; of a run a summary, and what failed.
Lines AsText(const Outcome& outcome);

// The same as an object in ASCII, with a line break behind it:
//
//   exit      the exit code
//   status    of a run "done", "incomplete", "invalid", "refused", "notStarted", "failed" or
//             "stillRunning", as uaclient::Status explains them; "invalid" also for wrong
//             arguments and for a check that memory does not suffice for. Of other checks and of
//             --dry-run "clean", "suspicious" (see the findings) or "fails" (the helper would, or
//             the plan is refused)
//   reason    why the status is not "done" or "clean"; may be ""
//   findings  [{severity: "error" or "warning", harmful: whether "uactl run" does not start the
//               task file because of it, file, line: from 1, 0 for none, item: of a plan, from 0,
//               or null, text}]
//   steps     [{kind: "copyFile", "addFolder", "replaceFolder", "registerJob" or "deleteJob",
//               source, destination, job, files, bytes, deletes, deletedFiles, deletedBytes,
//               text}],
//             what the helper does, in its order
//   items     [{source, destination, job, done, reason}], what became of it; of a run only
//
// Paths and names that something does not have are "".
std::string AsJson(const Outcome& outcome);

// What is to be known before the start: warnings, and what is going to be deleted.
std::wstring Announcement(const uaclient::Report& report);

// How far the helper is, in one line; "" for what has no files.
std::wstring ProgressText(const uaclient::Progress& progress);
