#include "uaclient/jobs.h"

#include <comdef.h>
#include <taskschd.h>
#include <wrl/client.h>

#include <cstdio>
#include <cwchar>
#include <thread>
#include <vector>

#include "uaclient/kept_folders.h"
#include "uaclient/path.h"
#include "uaclient/win32.h"
#include "uaclient/words.h"
#include "uaclient/work.h"
#include "uactask/task_file.h"
#include "uactask/task_scheduler.h"

namespace uaclient {
namespace {

using Microsoft::WRL::ComPtr;
using Task = UACTaskScheduler;

std::int32_t KindOf(const Job& job) { return Task::kDaily + static_cast<std::int32_t>(job.every); }

std::wstring Fault(const std::wstring& what, const std::wstring& value, const wchar_t* why) {
  return Filled(L"{}, {}, {}", {what, Shown(value), why});
}

std::wstring TextFault(const std::wstring& what, const std::wstring& text) {
  if (HelperReads(text) && FitsTaskFile(ForHelper(text))) return {};
  return Fault(what, text,
               L"holds a \"[\", a control character, a final blank or what the code page lacks. "
               L"Leave it out: no task file can carry it.");
}

// Of text that the program is to find as it is. A variable is what stands between two "%".
std::wstring CommandFault(const std::wstring& what, const std::wstring& text) {
  const bool hasVariable = text.find_first_not_of(L'%', text.find(L'%')) < text.rfind(L'%');
  if (!hasVariable && text.find(L"$(") == std::wstring::npos) return TextFault(what, text);
  return Fault(what, text, L"holds $( or %name%, which the scheduler replaces. Remove it.");
}

std::wstring QuotedArgument(const std::wstring& argument) {
  if (!argument.empty() && argument.find_first_of(L" \t\"") == std::wstring::npos) return argument;
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;  // right before the current character
  for (const wchar_t c : argument) {
    if (c == L'"') quoted.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    quoted += c;
  }
  return quoted.append(backslashes, L'\\') + L"\"";
}

// From which a program takes exactly these arguments.
std::wstring CommandLine(const std::vector<std::wstring>& arguments) {
  std::wstring line;
  for (const std::wstring& argument : arguments) {
    line += (line.empty() ? L"" : L" ") + QuotedArgument(argument);
  }
  return line;
}

// From today on. A time that has passed does no harm: the job then starts on its next day. Without
// arguments the helper deletes the job; the numbers must be there all the same.
std::string TaskOf(const Job& job) {
  SYSTEMTIME today;
  GetLocalTime(&today);
  char start[64];
  std::snprintf(start, std::size(start), "%04d-%02d-%02dT%02d:%02d:00", today.wYear, today.wMonth,
                today.wDay, job.hour, job.minute);
  const std::string days = std::to_string(job.every == Job::Every::kDay ? 0 : job.days);
  return FormatTaskFile(Task::kType, {{Task::kTaskName, ForHelper(job.name)},
                                      {Task::kExePath, ForHelper(job.program.wstring())},
                                      {Task::kExeArguments, ForHelper(CommandLine(job.arguments))},
                                      {Task::kRuntime, start},
                                      {Task::kAuthorName, ForHelper(job.author)},
                                      {Task::kTimeType, std::to_string(KindOf(job))},
                                      {Task::kTimeWeekday, days},
                                      {Task::kTimeMonthday, days}});
}

Work WorkOn(const Job& job, const Step& step, std::initializer_list<std::wstring> faults) {
  Work work;
  for (const std::wstring& fault : faults) {
    if (!fault.empty()) work.result.report.findings.push_back({Severity::kError, fault, {}});
  }
  work.result.report.steps.push_back(step);
  work.task = TaskOf(job);
  return work;
}

JobState LookUp(const std::wstring& name) {
  const _variant_t none;
  ComPtr<ITaskService> service;
  ComPtr<ITaskFolder> rootFolder;
  ComPtr<IRegisteredTask> job;
  if (FAILED(CoCreateInstance(__uuidof(TaskScheduler), nullptr, CLSCTX_INPROC_SERVER,
                              IID_PPV_ARGS(&service))) ||
      FAILED(service->Connect(none, none, none, none)) ||
      FAILED(service->GetFolder(_bstr_t(L"\\"), &rootFolder))) {
    return JobState::kUnknown;
  }
  const HRESULT found = rootFolder->GetTask(_bstr_t(name.c_str()), &job);
  if (SUCCEEDED(found)) return JobState::kThere;
  const bool isMissing = found == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) ||
                         found == HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
  return isMissing && IsElevated() ? JobState::kNotThere : JobState::kUnknown;
}

}  // namespace

std::wstring JobNameFault(const std::wstring& what, const std::wstring& name) {
  const std::wstring path = L"\\" + name + L"\\";
  bool isOdd = name.find_first_of(L"/:*?\"<>|") != std::wstring::npos;
  for (const auto* odd : {L"\\\\", L"\\ ", L" \\", L".\\"}) isOdd |= path.find(odd) != path.npos;
  if (!isOdd) return TextFault(what, name);
  return Fault(what, name,
               L"holds one of / : * ? \" < > |, or a part of it is empty, begins with a blank, or "
               L"ends in a blank or a dot. Use another name.");
}

std::wstring Expanded(const std::wstring& program) {
  std::wstring text(32768, L'\0');
  ExpandEnvironmentStringsW(program.c_str(), text.data(), 32768);
  text.resize(std::wcslen(text.c_str()));
  const bool isQuoted = text.size() > 1 && text.front() == L'"' && text.back() == L'"';
  return isQuoted ? text.substr(1, text.size() - 2) : text;
}

std::wstring ProgramFault(const std::wstring& what, const std::wstring& program) {
  const std::wstring path = Expanded(program);
  std::wstring full;
  std::wstring fault = PathFault(path, what + L" is missing or empty.", full);
  if (!fault.empty() || (Exists(path) && !IsFolder(path))) return fault;
  return Fault(what, path, L"is not a file. Write its whole path, and the arguments apart.");
}

std::wstring Rhythm(std::int32_t kind, std::uint32_t days) {
  constexpr const wchar_t* kWeekdays[] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                                          L"Thursday", L"Friday", L"Saturday"};
  if (kind == Task::kDaily) return L"daily";
  const bool isWeekly = kind == Task::kWeekly;
  const std::size_t count = isWeekly ? std::size(kWeekdays) : 31;
  if (kind < Task::kDaily || kind > Task::kMonthly || days == 0 || days >> count != 0) return {};
  std::wstring text;
  for (std::size_t day = 0; day < count; ++day) {
    if ((days >> day & 1U) == 0) continue;
    text += (text.empty() ? L" " : L", ") + (isWeekly ? kWeekdays[day] : std::to_wstring(day + 1));
  }
  return (isWeekly ? L"weekly on" : L"monthly on day") + text;
}

Step RegistrationStep(const std::wstring& name, const std::wstring& program,
                      const std::wstring& arguments, const std::wstring& when) {
  const std::wstring text =
      Filled(L"registers the job {}: starts {} with the arguments {} {}, replacing any older one",
             {Quoted(name), Quoted(program), Quoted(arguments), when});
  return {Step::Kind::kRegisterJob, {}, {}, name, 0, 0, false, 0, 0, text};
}

Step DeletionStep(const std::wstring& name, const wchar_t* remark) {
  const std::wstring text = L"deletes the job " + Quoted(name) + remark;
  return {Step::Kind::kDeleteJob, {}, {}, name, 0, 0, true, 0, 0, text};
}

Work WorkOf(const Job& job, const Options&, Hold) {
  const std::wstring program = job.program.wstring();
  const std::wstring arguments = CommandLine(job.arguments);
  const std::wstring rhythm = Rhythm(KindOf(job), job.days);
  const bool isTime = job.hour >= 0 && job.hour < 24 && job.minute >= 0 && job.minute < 60;
  wchar_t time[32];
  std::swprintf(time, std::size(time), L" at %02d:%02d", job.hour, job.minute);
  return WorkOn(
      job, RegistrationStep(job.name, program, arguments, rhythm + time),
      {JobNameFault(L"The job's name", job.name), TextFault(L"The author", job.author),
       isTime ? L"" : L"The time must be between 00:00 and 23:59.",
       rhythm.empty() ? L"Name its days by the lowest 7 bits (weekly) or 31 (monthly)." : L"",
       ProgramFault(L"The program", program), CommandFault(L"The program", program),
       CommandFault(L"The command line", arguments),
       arguments.empty() ? L"Give an argument: without one the helper deletes the job." : L""});
}

Work WorkOf(const JobRemoval& removal, const Options&, Hold) {
  Job job;
  job.name = removal.name;
  return WorkOn(job, DeletionStep(job.name), {JobNameFault(L"The job's name", job.name)});
}

Claimed PlaceOf(const std::wstring& job) {
  const std::wstring path = KnownFolder(FOLDERID_System) + L"\\Tasks\\" + job;
  return {true, ParentOf(path), NameOf(path)};
}

JobState FindJob(const std::wstring& name) {
  JobState state = JobState::kUnknown;
  std::thread([&] {
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return;
    state = LookUp(name);
    CoUninitialize();
  }).join();
  return state;
}

}  // namespace uaclient
