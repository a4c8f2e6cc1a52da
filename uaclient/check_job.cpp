#include "uaclient/check_job.h"

#include <windows.h>

#include "uaclient/check_path.h"
#include "uaclient/code_page.h"
#include "uaclient/job_task.h"
#include "uaclient/uaclient.h"
#include "uaclient/win32.h"
#include "uactask/task_file.h"

namespace uaclient {
namespace {

void AddError(Findings& findings, std::wstring text) {
  findings.push_back({Severity::kError, false, {}, 0, std::move(text)});
}

// Texts of task files are in the code page; its bytes are what must fit.
void CheckText(const std::wstring& what, const std::wstring& text, Findings& findings) {
  if (!HelperReads(text)) {
    AddError(findings,
             what + L" " + Quoted(text) +
                 L" holds a character that this system's code page lacks, and with it the "
                 L"task file; use other characters.");
  } else if (!FitsTaskFile(ForHelper(text))) {
    AddError(findings, what + L" " + Quoted(text) +
                           L" holds a control character or a \"[\", or ends in a blank, which a "
                           L"task file cannot carry; leave that out.");
  }
}

// The scheduler puts the values of environment variables, and what starts a job, into its program
// and arguments.
bool IsExpanded(const std::wstring& text) {
  if (text.find(L"$(") != std::wstring::npos) return true;
  std::size_t percent = text.find(L'%');
  while (percent != std::wstring::npos) {
    const std::size_t next = text.find(L'%', percent + 1);
    if (next != std::wstring::npos && next > percent + 1) return true;
    percent = next;
  }
  return false;
}

// Text that the program is to find as it is.
void CheckCommand(const std::wstring& what, const std::wstring& text, Findings& findings) {
  CheckText(what, text, findings);
  if (!IsExpanded(text)) return;
  AddError(findings, what + L" " + Quoted(text) +
                         L" holds \"$(\" or a name between \"%\", for which the scheduler puts "
                         L"in something else when it starts the program; leave that out.");
}

void CheckName(const std::wstring& name, Findings& findings) {
  const std::wstring fault = JobNameFault(name);
  if (!fault.empty()) AddError(findings, fault);
  CheckText(L"The job's name", name, findings);
}

// `days` has a bit for each of `count` days.
void CheckDays(std::uint32_t days, unsigned count, Findings& findings) {
  if (days == 0) AddError(findings, L"No day is given; name at least one.");
  if ((days >> count) != 0) {
    AddError(findings, L"A day is given that there is not; there are " + std::to_wstring(count) +
                           L", from bit 0 on.");
  }
}

}  // namespace

std::wstring JobNameFault(const std::wstring& name) {
  if (name.empty()) return L"The job has no name; give it one.";
  const bool hasSign = name.find_first_of(L"\\/:*?\"<>|") != std::wstring::npos;
  if (!hasSign && name.front() != L' ' && name.back() != L' ' && name.back() != L'.') return {};
  return L"The job's name " + Quoted(name) +
         L" holds one of \\ / : * ? \" < > |, begins with a blank, or ends in a blank or a dot: "
         L"the "
         L"scheduler refuses it or takes it for another one; use another name.";
}

std::wstring ProgramFault(const std::wstring& program) {
  if (program.empty()) return L"The program is missing; write its whole path.";
  std::wstring expanded(32768, L'\0');
  expanded.resize(ExpandEnvironmentStringsW(program.c_str(), expanded.data(), 32768));
  while (!expanded.empty() && expanded.back() == L'\0') expanded.pop_back();
  if (expanded.size() > 1 && expanded.front() == L'"' && expanded.back() == L'"') {
    expanded = expanded.substr(1, expanded.size() - 2);
  }
  const Remarks remarks = CheckPathText(expanded);
  if (!remarks.empty()) return remarks.front().text;
  Places places;
  const Place place = places.Look(FullPath(expanded));
  if (!place.exists) return L"There is no program " + Quoted(program) + L"; write its whole path.";
  if (place.isFolder) return Quoted(program) + L" is a folder; write the program's path.";
  return {};
}

Findings Job::Check() const {
  Findings findings;
  CheckName(name, findings);
  CheckText(L"The author", author, findings);
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59) {
    AddError(findings, L"The time is none of a day; hours go from 0 to 23, minutes to 59.");
  }
  if (every == Every::kWeek) CheckDays(days, 7, findings);
  if (every == Every::kMonth) CheckDays(days, 31, findings);
  const std::wstring fault = ProgramFault(program.native());
  if (!fault.empty()) AddError(findings, fault);
  CheckCommand(L"The program", program.native(), findings);
  if (arguments.empty()) {
    AddError(findings,
             L"There are no arguments; a job needs at least one, because a task file "
             L"without them deletes the job.");
  }
  CheckCommand(L"The command line", CommandLine(arguments), findings);
  return findings;
}

Findings JobRemoval::Check() const {
  Findings findings;
  CheckName(name, findings);
  return findings;
}

}  // namespace uaclient
