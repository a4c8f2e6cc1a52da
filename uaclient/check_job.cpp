#include "uaclient/check_job.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <utility>

#include "uaclient/code_page.h"
#include "uaclient/findings.h"
#include "uaclient/job_task.h"
#include "uaclient/path.h"
#include "uaclient/scheduled_jobs.h"
#include "uaclient/win32.h"
#include "uactask/task_file.h"

namespace uaclient {
namespace {

using Every = Job::Every;

std::wstring Fault(const std::wstring& what, const std::wstring& value, const wchar_t* why) {
  return Filled(L"{}, {}, {}", {what, Shown(value), why});
}

std::wstring TextFault(const std::wstring& what, const std::wstring& text) {
  if (HelperReads(text) && uactask::FitsTaskFile(ForHelper(text))) return {};
  return Fault(what, text,
               L"holds what a task file cannot carry: a character that the system's code page "
               L"lacks, a control character, a \"[\", or a blank at its end. Leave that out.");
}

// Of text that the program is to find as it is.
std::wstring CommandFault(const std::wstring& what, const std::wstring& text) {
  bool isExpanded = text.find(L"$(") != std::wstring::npos;
  for (std::size_t at = text.find(L'%'); at != std::wstring::npos; at = text.find(L'%', at + 1)) {
    const std::size_t next = text.find(L'%', at + 1);
    isExpanded |= next != std::wstring::npos && next > at + 1;
  }
  if (!isExpanded) return TextFault(what, text);
  return Fault(
      what, text,
      L"holds \"$(\" or a name between two \"%\". The scheduler puts something else in for "
      L"those when it starts the program. Leave them out.");
}

std::wstring NameFault(const std::wstring& name) {
  constexpr wchar_t kWhat[] = L"The job's name";
  const std::wstring fault = JobNameFault(kWhat, name);
  return fault.empty() ? TextFault(kWhat, name) : fault;
}

// `days` has a bit for each of `count` days.
std::wstring DaysFault(std::uint32_t days, unsigned count) {
  if (days == 0) return L"No day is given. Name at least one.";
  if (days >> count == 0) return {};
  return Filled(L"There is no such day. Only the lowest {} bits stand for days.",
                {std::to_wstring(count)});
}

bool IsNamePart(const std::wstring& part) {
  return !part.empty() && part.find_first_of(L"/:*?\"<>|") == std::wstring::npos &&
         part.front() != L' ' && part.back() != L' ' && part.back() != L'.';
}

// As the scheduler starts it, which knows environment variables and quotes.
std::wstring Expanded(const std::wstring& program) {
  std::wstring text(32768, L'\0');
  ExpandEnvironmentStringsW(program.c_str(), text.data(), 32768);
  text.resize(std::wcslen(text.c_str()));
  const bool isQuoted = text.size() > 1 && text.front() == L'"' && text.back() == L'"';
  return isQuoted ? text.substr(1, text.size() - 2) : text;
}

bool IsFile(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES && !IsFolder(path);
}

// How often the job starts, in words.
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

Step JobStep(Step::Kind kind, const std::wstring& name, std::wstring text) {
  Step step;
  step.kind = kind;
  step.job = name;
  step.deletes = kind == Step::Kind::kDeleteJob;
  step.text = std::move(text);
  return step;
}

void Refuse(const std::wstring& fault, Report& report) {
  if (!fault.empty()) report.findings.push_back({Severity::kError, fault, {}});
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
  return Fault(
      what, name,
      L"holds one of / : * ? \" < > |, or a part between \"\\\" that is empty, begins with "
      L"a blank, or ends in a blank or a dot. The scheduler refuses it, or takes it for "
      L"another name. Use another one.");
}

std::wstring ProgramFault(const std::wstring& what, const std::wstring& program) {
  const std::wstring path = Expanded(program);
  if (path.empty()) return what + L" is missing or empty. Write the program's whole path.";
  std::wstring full;
  const std::wstring fault = PathFault(path, what, full);
  if (!fault.empty()) return what + L": " + fault;
  if (IsFile(path)) return {};
  if (IsFolder(path)) return Fault(what, path, L"is a folder. Write the program's path.");
  for (std::size_t at = 0; (at = path.find(L' ', at + 1)) != std::wstring::npos;) {
    if (!IsFile(path.substr(0, at))) continue;
    return Fault(what, path, L"holds arguments, too. Write the arguments apart from the program.");
  }
  return Fault(what, path, L"does not exist. Write the program's whole path.");
}

Step RegistrationStep(const Job& job, const std::wstring& commandLine, const std::wstring& from) {
  std::wstring text = Filled(
      L"registers the job {}: starts {} with the arguments {} {} {}",
      {Quoted(job.name), Quoted(job.program.wstring()), Quoted(commandLine), Rhythm(job), from});
  const JobState older = FindJob(job.name);
  if (older == JobState::kThere) text += L"; replaces the job of that name";
  if (older == JobState::kUnknown) text += L"; in place of one of that name, if there is one";
  return JobStep(Step::Kind::kRegisterJob, job.name, text);
}

Step DeletionStep(const std::wstring& name) {
  return JobStep(Step::Kind::kDeleteJob, name, L"deletes the job " + Quoted(name));
}

Report Check(const Job& job, const Options&) {
  constexpr wchar_t kProgram[] = L"The program";
  Report report;
  Refuse(NameFault(job.name), report);
  Refuse(TextFault(L"The author", job.author), report);
  const bool isTime = job.hour >= 0 && job.hour < 24 && job.minute >= 0 && job.minute < 60;
  if (!isTime) Refuse(L"The time must be between 00:00 and 23:59.", report);
  if (job.every == Every::kWeek) Refuse(DaysFault(job.days, 7), report);
  if (job.every == Every::kMonth) Refuse(DaysFault(job.days, 31), report);
  const std::wstring program = job.program.wstring();
  const std::wstring programFault = ProgramFault(kProgram, program);
  Refuse(programFault.empty() ? CommandFault(kProgram, program) : programFault, report);
  const std::wstring commandLine = CommandLine(job.arguments);
  Refuse(CommandFault(L"The command line", commandLine), report);
  if (job.arguments.empty()) {
    Refuse(
        L"There are no arguments. A job needs at least one, because a task file without them "
        L"deletes the job. An empty one, \"\", counts.",
        report);
  }
  wchar_t time[32];
  std::swprintf(time, std::size(time), L"at %02d:%02d", job.hour, job.minute);
  report.steps.push_back(RegistrationStep(job, commandLine, time));
  return report;
}

Report Check(const JobRemoval& removal, const Options&) {
  Report report;
  Refuse(NameFault(removal.name), report);
  report.steps.push_back(DeletionStep(removal.name));
  return report;
}

}  // namespace uaclient
