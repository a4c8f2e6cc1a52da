#include "uaclient/check_job.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <utility>

#include "uaclient/code_page.h"
#include "uaclient/job_task.h"
#include "uaclient/path.h"
#include "uaclient/scheduled_jobs.h"
#include "uaclient/win32.h"
#include "uactask/task_file.h"

namespace uaclient {
namespace {

using Every = Job::Every;

constexpr wchar_t kNameHere[] = L"The job's name";

void AddError(std::wstring text, Report& report) {
  if (!text.empty()) report.findings.push_back({Severity::kError, std::move(text)});
}

// Bytes are what a task file must carry.
std::wstring TextFault(const std::wstring& what, const std::wstring& text) {
  if (!HelperReads(text)) {
    return what + L", " + Quoted(text) +
           L", holds a character that the system's code page lacks, so a task file cannot carry "
           L"it. Use other characters.";
  }
  if (uactask::FitsTaskFile(ForHelper(text))) return {};
  return what + L", " + Quoted(text) +
         L", holds a control character or a \"[\", or ends in a blank, which a task file cannot "
         L"carry. Leave that out.";
}

std::wstring NameFault(const std::wstring& name) {
  const std::wstring fault = JobNameFault(kNameHere, name);
  return fault.empty() ? TextFault(kNameHere, name) : fault;
}

// Whether the scheduler puts something else in for a part of the text.
bool IsExpanded(const std::wstring& text) {
  if (text.find(L"$(") != std::wstring::npos) return true;
  for (std::size_t at = text.find(L'%'); at != std::wstring::npos; at = text.find(L'%', at + 1)) {
    const std::size_t next = text.find(L'%', at + 1);
    if (next != std::wstring::npos && next > at + 1) return true;
  }
  return false;
}

// Of text that the program is to find as it is.
std::wstring CommandFault(const std::wstring& what, const std::wstring& text) {
  if (!IsExpanded(text)) return TextFault(what, text);
  return what + L", " + Quoted(text) +
         L", holds \"$(\" or a name between two \"%\". The scheduler puts something else in for "
         L"those when it starts the program. Leave them out.";
}

// `days` has a bit for each of `count` days.
std::wstring DaysFault(std::uint32_t days, unsigned count) {
  if (days == 0) return L"No day is given. Name at least one.";
  if (days >> count == 0) return {};
  return L"A day is given that does not exist. Use the lowest " + std::to_wstring(count) + L" bits.";
}

bool IsNamePart(const std::wstring& part) {
  return !part.empty() && part.find_first_of(L"/:*?\"<>|") == std::wstring::npos &&
         part.front() != L' ' && part.back() != L' ' && part.back() != L'.';
}

// With the values of environment variables, as the scheduler starts it; it may be in quotes.
std::wstring Expanded(const std::wstring& program) {
  std::wstring text(32768, L'\0');
  text.resize(ExpandEnvironmentStringsW(program.c_str(), text.data(), 32768));
  text = text.c_str();
  const bool isQuoted = text.size() > 1 && text.front() == L'"' && text.back() == L'"';
  return isQuoted ? text.substr(1, text.size() - 2) : text;
}

bool IsFile(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES && !IsFolder(path);
}

// How often it starts, with the days in words.
std::wstring Rhythm(const Job& job) {
  constexpr const wchar_t* kWeekdays[] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                                          L"Thursday", L"Friday", L"Saturday"};
  if (job.every == Every::kDay) return L"daily";
  const bool isWeekly = job.every == Every::kWeek;
  std::wstring days;
  for (std::size_t day = 0; day < (isWeekly ? std::size(kWeekdays) : 31); ++day) {
    if ((job.days >> day & 1U) == 0) continue;
    days += (days.empty() ? L" " : L", ") + (isWeekly ? kWeekdays[day] : std::to_wstring(day + 1));
  }
  return (isWeekly ? L"weekly on" : L"monthly on day") + days;
}

std::wstring TimeText(const Job& job) {
  wchar_t text[32];
  std::swprintf(text, std::size(text), L"at %02d:%02d", job.hour, job.minute);
  return text;
}

const wchar_t* Replacement(JobState older) {
  switch (older) {
    case JobState::kThere:
      return L"; replaces the job of that name";
    case JobState::kUnknown:
      return L"; in place of one of that name, if there is one";
    case JobState::kNotThere:
      break;
  }
  return L"";
}

Step JobStep(Step::Kind kind, const std::wstring& name, std::wstring text) {
  Step step;
  step.kind = kind;
  step.job = name;
  step.deletes = kind == Step::Kind::kDeleteJob;
  step.text = std::move(text);
  return step;
}

}  // namespace

std::wstring JobNameFault(const std::wstring& what, const std::wstring& name) {
  if (name.empty()) return what + L" is empty. Give the job a name.";
  bool isName = true;
  for (std::size_t at = 0, end = 0; at <= name.size(); at = end + 1) {
    end = std::min(name.find(L'\\', at), name.size());
    isName &= IsNamePart(name.substr(at, end - at));
  }
  if (isName) return {};
  return what + L", " + Quoted(name) +
         L", holds one of / : * ? \" < > |, or a part between \"\\\" that is empty, begins with a "
         L"blank, or ends in a blank or a dot. The scheduler refuses it, or takes it for another "
         L"name. Use another one.";
}

std::wstring ProgramFault(const std::wstring& what, const std::wstring& program) {
  const std::wstring path = Expanded(program);
  const std::wstring fault = PathFault(path, what);
  if (!fault.empty() || IsFile(path)) {
    return fault.empty() || path.empty() ? fault : what + L": " + fault;
  }
  if (IsFolder(path)) return what + L", " + Quoted(path) + L", is a folder. Write a program's path.";
  const std::wstring start = path.substr(0, path.find(L' ', path.find(L".exe")));
  if (start != path && IsFile(start)) {
    return what + L", " + Quoted(path) +
           L", holds arguments too. The program and its arguments are separate: write " +
           Quoted(start) + L" alone.";
  }
  return what + L", " + Quoted(path) + L", does not exist. Write the program's whole path.";
}

Step RegistrationStep(const Job& job, const std::wstring& commandLine, const std::wstring& from) {
  return JobStep(Step::Kind::kRegisterJob, job.name,
                 L"registers the job " + Quoted(job.name) + L": starts " +
                     Quoted(job.program.wstring()) + L" with the arguments " + Quoted(commandLine) +
                     L" " + Rhythm(job) + L" " + from + Replacement(FindJob(job.name)));
}

Step DeletionStep(const std::wstring& name) {
  return JobStep(Step::Kind::kDeleteJob, name, L"deletes the job " + Quoted(name));
}

Report Check(const Job& job, const Options&) {
  constexpr wchar_t kProgram[] = L"The program";
  Report report;
  AddError(NameFault(job.name), report);
  AddError(TextFault(L"The author", job.author), report);
  if (job.hour < 0 || job.hour > 23 || job.minute < 0 || job.minute > 59) {
    AddError(L"The time must be between 00:00 and 23:59.", report);
  }
  if (job.every == Every::kWeek) AddError(DaysFault(job.days, 7), report);
  if (job.every == Every::kMonth) AddError(DaysFault(job.days, 31), report);
  const std::wstring fault = ProgramFault(kProgram, job.program.wstring());
  AddError(fault.empty() ? CommandFault(kProgram, job.program.wstring()) : fault, report);
  if (job.arguments.empty()) {
    AddError(L"There are no arguments. A job needs at least one, because a task file without "
             L"arguments deletes the job. An empty one, \"\", counts.",
             report);
  }
  const std::wstring commandLine = CommandLine(job.arguments);
  AddError(CommandFault(L"The command line", commandLine), report);
  report.steps.push_back(RegistrationStep(job, commandLine, TimeText(job)));
  return report;
}

Report Check(const JobRemoval& removal, const Options&) {
  Report report;
  AddError(NameFault(removal.name), report);
  report.steps.push_back(DeletionStep(removal.name));
  return report;
}

}  // namespace uaclient
