#include <windows.h>

#include <algorithm>
#include <array>
#include <boost/lexical_cast.hpp>
#include <boost/shared_ptr.hpp>
#include <cctype>
#include <cstring>
#include <cwchar>
#include <functional>
#include <initializer_list>
#include <map>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "corekit/disk_file.h"
#include "corekit/text.h"
#include "fileop/file_system.h"
#include "inifile/ini_file.h"
#include "inifile/ini_parser.h"
#include "uaclient/check_job.h"
#include "uaclient/check_list.h"
#include "uaclient/uaclient.h"
#include "uaclient/win32.h"
#include "uactask/task_factory.h"
#include "uactask/task_file.h"
#include "uactask/task_file_op.h"
#include "uactask/task_scheduler.h"

namespace uaclient {
namespace {

using Task = UACTaskScheduler;

// So many odd lines tell that a file is no task file.
constexpr std::size_t kMaxLineFindings = 100;

std::wstring Shown(std::string_view ansi) {
  constexpr std::size_t kMaxShown = 200;
  std::wstring text = AnsiToWide(std::string(ansi.substr(0, kMaxShown)));
  for (wchar_t& c : text) {
    if (c < L' ') c = L'?';
  }
  return Quoted(ansi.size() > kMaxShown ? text + L"…" : text);
}

int Lower(char c) { return std::tolower(static_cast<unsigned char>(c)); }

// Whether a name is another one in other case, with blanks or quotes around it, or with up to two
// letters missing, added or wrong (one in a short name).
bool IsNearly(std::string_view text, std::string_view name) {
  text = corekit::Trimmed(text, " \t\"'", 0);
  if (text.size() > name.size() + 2 || name.size() > text.size() + 2) return false;
  std::vector<std::size_t> row(name.size() + 1);
  for (std::size_t j = 0; j <= name.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= text.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= name.size(); ++j) {
      const bool same = Lower(text[i - 1]) == Lower(name[j - 1]);
      const std::size_t cost = std::min({diagonal + (same ? 0 : 1), row[j] + 1, row[j - 1] + 1});
      diagonal = std::exchange(row[j], cost);
    }
  }
  return row.back() <= (name.size() < 5 ? 1U : 2U);
}

bool IsKnownKey(std::string_view key) {
  return key == kTypeKey ||
         std::find(kParamKeys.begin(), kParamKeys.end(), key) != kParamKeys.end();
}

const char* NearestKey(std::string_view key) {
  if (IsNearly(key, kTypeKey)) return kTypeKey;
  const auto found = std::find_if(kParamKeys.begin(), kParamKeys.end(),
                                  [&](const char* known) { return IsNearly(key, known); });
  return found == kParamKeys.end() ? nullptr : *found;
}

// YYYY-MM-DDThh:mm:ss and, perhaps, Z or an offset such as +01:00.
bool IsStartBoundary(const std::string& text) {
  constexpr std::string_view kForm = "dddd-dd-ddTdd:dd:dd";
  constexpr std::string_view kOffset = "dd:dd";
  const auto matches = [](std::string_view part, std::string_view form) {
    return part.size() == form.size() &&
           std::equal(part.begin(), part.end(), form.begin(), [](char c, char expected) {
             return expected == 'd' ? c >= '0' && c <= '9' : c == expected;
           });
  };
  const std::string_view whole = text;
  if (!matches(whole.substr(0, kForm.size()), kForm)) return false;
  const std::string_view zone = whole.substr(kForm.size());
  const bool hasOffset = !zone.empty() && (zone[0] == '+' || zone[0] == '-');
  if (!zone.empty() && zone != "Z" && !(hasOffset && matches(zone.substr(1), kOffset)))
    return false;
  const auto number = [&](std::size_t at, std::size_t size) {
    return static_cast<WORD>(std::stoi(text.substr(at, size)));
  };
  const SYSTEMTIME time = {number(0, 4),  number(5, 2),  0, number(8, 2), number(11, 2),
                           number(14, 2), number(17, 2), 0};
  FILETIME ignored;
  return SystemTimeToFileTime(&time, &ignored) != FALSE;
}

class TaskFileCheck {
 public:
  TaskFileCheck(const std::filesystem::path& path, TaskFileReport& report)
      : path_(path), helperPath_(WideToUtf8(path.native())), report_(report) {}

  void Check() {
    report_.exists = PathExists(helperPath_.c_str());
    if (!report_.exists) return Fail(0, L"There is no such file; write its whole path.");
    CheckName();
    if (!ReadLines()) return;
    const std::optional<std::int32_t> type = ReadType();
    if (type == Task::kType) CheckJob();
    if (type == UACTaskFileOp::kType) {
      const std::string list = ReadParams(helperPath_).at(UACTaskFileOp::kXmlPath);
      const std::size_t line = LineOf(kParamKeys[UACTaskFileOp::kXmlPath]);
      if (list.empty())
        return Fail(line, L"\"xml_path\" is missing or empty; write the list's path.");
      CheckOperationList(list, path_, line, report_);
    }
  }

  void Fail(std::size_t line, std::wstring text) {
    report_.helperFails = true;
    report_.findings.push_back({Severity::kError, false, path_, line, std::move(text)});
  }

 private:
  struct Entry {
    std::size_t line = 0;
    std::string value;
  };
  using Numbers = std::array<std::optional<std::int32_t>, Task::kParamCount>;

  void Warn(std::size_t line, std::wstring text, bool harmful = false) {
    report_.findings.push_back({Severity::kWarning, harmful, path_, line, std::move(text)});
  }
  void WarnOfLine(std::size_t line, std::wstring text) {
    if (++lineFindings_ <= kMaxLineFindings) return Warn(line, std::move(text));
    if (lineFindings_ == kMaxLineFindings + 1) Warn(line, L"Further such lines are not named.");
  }

  // The helper finds the file by its whole name, but reads it by the name in the code page.
  void CheckName() {
    const std::wstring read = AnsiToWide(Utf8ToAnsi(helperPath_));
    if (read == path_.native()) return;
    Warn(0,
         L"The file's name holds characters that the system's code page lacks, so the helper "
         L"reads " +
             Quoted(read) + L" in its place; use another name.");
  }

  bool ReadLines() {
    const std::optional<std::string> text = corekit::ReadIniText(helperPath_);
    if (!text) {
      Fail(0,
           L"The helper cannot read it: it is a folder or a device, or may not be opened, "
           L"or its name is not in the system's code page.");
      report_.findings.back().harmful = IsClosedToReaders(path_.native());
      return false;
    }
    if (text->compare(0, 3, "\xEF\xBB\xBF") == 0) {
      Warn(1,
           L"A byte-order mark is part of the first line, which so is none that it seems; save "
           L"the file without it.");
    }
    if (text->find('\0') != std::string::npos) {
      Warn(1, L"The file is in UTF-16, or holds NUL bytes; save it in the system's code page.");
    }
    if (EndsAtControlZ()) {
      Warn(0, L"The file holds a Ctrl+Z, and what follows it is not read; remove it.");
    }
    corekit::IniParser parser;
    bool isHeaderBroken = false;
    corekit::ForEachIniLine(*text, [&](const corekit::IniLine& line) {
      if (isHeaderBroken) return;
      try {
        CheckLine(line, parser);
      } catch (const std::out_of_range&) {
        isHeaderBroken = true;
        Fail(line.number,
             L"A line with \"[\" is a header, and this one has no \"]\", for which the "
             L"helper gives up; write \"[Task]\", or leave the \"[\" out.");
      }
    });
    return true;
  }

  bool EndsAtControlZ() const {
    const auto stream = corekit::OpenDiskFile(Utf8ToAnsi(helperPath_).c_str(), "rb");
    if (!stream) return false;
    char block[1 << 14];
    while (const std::size_t size = std::fread(block, 1, sizeof block, stream.get())) {
      if (std::memchr(block, '\x1A', size) != nullptr) return true;
    }
    return false;
  }

  void CheckLine(const corekit::IniLine& line, corekit::IniParser& parser) {
    std::string_view text = corekit::Trimmed(line.text, corekit::kIniBlanks, 0);
    if (text.empty()) return;
    if (!line.ended) {
      lostArguments_ = line.number;
      lostWhy_ = HoldsArguments(text) ? L"has no line break"
                                      : L"is missing, and the last line was perhaps cut off";
      return WarnOfLine(line.number,
                        L"The last line has no line break and so is not read; end it.");
    }
    const auto record = parser.Parse(line.text);
    hasSection_ |= record && record->Section == kTaskSection;
    const bool isCommented = corekit::IsIniCommentSign(text[0]);
    if (isCommented) text = corekit::Trimmed(text.substr(1), corekit::kIniBlanks, 0);
    if (text.find('[') != std::string_view::npos) {
      CheckHeader(line.number, text, record->Section, isCommented);
    } else if (record && !record->Key.empty()) {
      CheckEntry(line.number, *record);
    } else if (!isCommented) {
      WarnOfLine(line.number, Shown(text) +
                                  L" is no header, key or comment and is passed over; "
                                  L"remove it, or write \"key=value\".");
    }
    if (record && record->Section == kTaskSection && IsKnownKey(record->Key)) {
      entries_.try_emplace(std::string(record->Key),
                           Entry{line.number, std::string(record->Value)});
    }
  }

  static bool HoldsArguments(std::string_view text) {
    return text.find(kParamKeys[Task::kExeArguments]) != std::string_view::npos;
  }

  void NoteLostArguments(std::size_t line, std::string_view text, const wchar_t* why) {
    seemsRegistration_ |= text.find(kParamKeys[Task::kExePath]) != std::string_view::npos;
    if (!HoldsArguments(text)) return;
    lostArguments_ = line;
    lostWhy_ = why;
  }

  void CheckHeader(std::size_t line, std::string_view text, std::string_view section,
                   bool isCommented) {
    if (isCommented) {
      WarnOfLine(line,
                 L"A \"[\" makes even a comment a header: what follows belongs to the section " +
                     Shown(section) + L". Leave the \"[\" out.");
    } else if (text[0] != '[') {
      NoteLostArguments(line, text, L"holds a \"[\"");
      WarnOfLine(line,
                 L"A \"[\" makes the whole line a header: it sets nothing, and what follows "
                 L"belongs to the section " +
                     Shown(section) + L". Leave the \"[\" out.");
    } else if (section != kTaskSection && IsNearly(section, kTaskSection)) {
      WarnOfLine(line, L"The section " + Shown(section) +
                           L" is not \"Task\", in just these letters; write \"[Task]\".");
    }
  }

  void CheckEntry(std::size_t line, const corekit::IniRecord& record) {
    const std::string_view key = record.Key;
    const bool inTask = record.Section == kTaskSection;
    if (!inTask) NoteLostArguments(line, key, L"stands in no section \"[Task]\"");
    if (!inTask && !record.Section.empty()) return;
    if (!IsKnownKey(key)) {
      const char* const meant = NearestKey(key);
      if (meant == nullptr) return;
      NoteLostArguments(line, meant, L"is misspelt");
      return WarnOfLine(line, Shown(key) + L" is not the key " + Shown(meant) +
                                  L", in just these letters and without blanks around the \"=\".");
    }
    if (!inTask) {
      return WarnOfLine(line, Shown(key) +
                                  L" stands before any header and so in no section; write "
                                  L"\"[Task]\" above it.");
    }
    const auto first = entries_.find(std::string(key));
    if (first != entries_.end()) {
      seemsRegistration_ |= HoldsArguments(key) && !record.Value.empty();
      return WarnOfLine(line, Shown(key) + L" stands in line " +
                                  std::to_wstring(first->second.line) +
                                  L" already, and the first one counts; remove one.");
    }
    if (record.Commented != ' ') {
      WarnOfLine(line, Shown(key) + L" is commented out but counts all the same; remove the line.");
    }
    if (!record.Value.empty() && std::strchr(corekit::kIniBlanks, record.Value[0]) != nullptr) {
      WarnOfLine(line, L"The blank behind \"" + Utf8ToWide(std::string(key)) +
                           L"=\" belongs to the value; write none.");
    }
    const std::string value(record.Value);
    CheckValueEnds(line, key, value);
    const bool isAscii = std::all_of(value.begin(), value.end(),
                                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (!isAscii && GetACP() != CP_UTF8 && !Utf8ToWide(value).empty()) {
      WarnOfLine(line,
                 L"The value seems to be in UTF-8; the helper reads it in the system's code "
                 L"page, as " +
                     Shown(value) + L". Save the file in that.");
    }
  }

  // Other dialects take quotes off and know comments behind a value. Names and arguments may well
  // hold both, and the scheduler starts a program in quotes.
  void CheckValueEnds(std::size_t line, std::string_view key, const std::string& value) {
    const auto isOneOf = [&](std::initializer_list<std::size_t> params) {
      return std::any_of(params.begin(), params.end(),
                         [&](std::size_t param) { return key == kParamKeys[param]; });
    };
    const bool isQuoted = value.size() > 1 && value.front() == '"' && value.back() == '"';
    if (isQuoted && !isOneOf({Task::kExePath, Task::kExeArguments, Task::kAuthorName})) {
      WarnOfLine(line, L"The quotes around " + Shown(value) +
                           L" belong to the value; write it without them.");
    }
    const std::size_t comment = std::min(value.find(" #"), value.find(" ;"));
    if (comment != std::string::npos &&
        !isOneOf({Task::kTaskName, Task::kExeArguments, Task::kAuthorName}) &&
        !PathExists(WideToUtf8(AnsiToWide(value)).c_str())) {
      WarnOfLine(line, Shown(std::string_view(value).substr(comment + 1)) +
                           L" is no comment there but belongs to the value; remove it.");
    }
  }

  // 0 when there is no such key.
  std::size_t LineOf(const char* key) const {
    const auto found = entries_.find(key);
    return found == entries_.end() ? 0 : found->second.line;
  }

  // The helper's own reading. None when it gives up there.
  std::optional<std::int32_t> ReadType() {
    std::string text;
    try {
      text = corekit::CIniFile::GetValue(kTypeKey, kTaskSection, helperPath_);
    } catch (const std::out_of_range&) {
      report_.helperFails = true;  // a header without its end, which has been named
      return std::nullopt;
    }
    const std::size_t line = LineOf(kTypeKey);
    constexpr wchar_t kTypes[] = L" Write \"type=0\" for a job or \"type=1\" for a list of copies.";
    if (line == 0) {
      Fail(0, std::wstring(hasSection_ ? L"In the section \"[Task]\" there is no \"type\"."
                                       : L"There is no section \"[Task]\"; write \"[Task]\" in a "
                                         L"line above the keys.") +
                  kTypes);
      return std::nullopt;
    }
    const std::optional<std::int32_t> type = Number(text);
    boost::shared_ptr<IUACTask> task;
    if (type && CreateTask(*type, task)) return type;
    Fail(line, L"The type " + Shown(text) + L" is unknown." + kTypes);
    return std::nullopt;
  }

  static std::optional<std::int32_t> Number(const std::string& text) {
    try {
      return boost::lexical_cast<std::int32_t>(text);
    } catch (const boost::bad_lexical_cast&) {
      return std::nullopt;
    }
  }

  void CheckJob() {
    for (std::int32_t i = 0; i < Task::kParamCount; ++i) {
      values_[static_cast<std::size_t>(i)] = ReadParams(helperPath_).at(i);
    }
    Numbers numbers;
    for (std::size_t i = Task::kTimeType; i <= Task::kTimeMonthday; ++i) {
      numbers[i] = Number(values_[i]);
      if (numbers[i]) continue;
      areNumbers_ = false;
      const std::size_t line = LineOf(kParamKeys[i]);
      Fail(line, Shown(kParamKeys[i]) +
                     (line == 0 ? L" is missing" : L" is " + Shown(values_[i]) + L", no number") +
                     L"; all three numbers must be there, with digits alone, in a deletion too. "
                     L"Write 0 where none is needed.");
    }

    job_ = AnsiToWide(values_[Task::kTaskName]);
    const std::wstring fault = JobNameFault(job_);
    if (!fault.empty()) Warn(LineOf(kParamKeys[Task::kTaskName]), fault);
    if (values_[Task::kExeArguments].empty()) {
      CheckDeletion();
    } else {
      CheckRegistration(numbers);
    }
  }

  void AddStep(Step::Kind kind, std::wstring text) {
    Step step;
    step.kind = kind;
    step.job = job_;
    step.text = std::move(text);
    report_.steps.push_back(std::move(step));
  }

  // Empty arguments delete. That is meant when the key is there and no program is; everything else
  // looks like a registration that has lost its arguments.
  void CheckDeletion() {
    AddStep(Step::Kind::kDeleteJob, L"deletes the job " + Quoted(job_));
    const std::size_t line = LineOf(kParamKeys[Task::kExeArguments]);
    const bool hasProgram = !values_[Task::kExePath].empty();
    const bool registers = LineOf(kParamKeys[Task::kExePath]) != 0 ||
                           LineOf(kParamKeys[Task::kRuntime]) != 0 ||
                           LineOf(kParamKeys[Task::kAuthorName]) != 0;
    if (line != 0 && !hasProgram && !seemsRegistration_) return;
    const std::wstring why = line != 0             ? L"is empty"
                             : lostArguments_ != 0 ? lostWhy_
                                                   : L"is missing";
    Warn(std::max(line, lostArguments_),
         std::wstring(areNumbers_ ? L"This file" : L"With its numbers put right this file") +
             L" deletes the job " + Quoted(job_) + L", because \"exe_arguments\" " + why +
             L". If that is meant, write \"exe_arguments=\" and leave \"exe_path\" out; if not, "
             L"give "
             L"the program an argument.",
         areNumbers_ && (hasProgram || registers || seemsRegistration_ || lostArguments_ != 0));
  }

  // What goes wrong behind the numbers goes wrong when an older job has been deleted.
  void CheckRegistration(const Numbers& numbers) {
    const auto kind = numbers[Task::kTimeType];
    if (kind && (*kind < Task::kDaily || *kind > Task::kMonthly)) {
      Fail(LineOf(kParamKeys[Task::kTimeType]),
           L"The kind of trigger " + std::to_wstring(*kind) +
               L" is none of 2 (daily), 3 (weekly) and 4 (monthly)" + OldJobLost());
      report_.findings.back().harmful = areNumbers_;
      if (areNumbers_) AddStep(Step::Kind::kDeleteJob, L"deletes the job " + Quoted(job_));
      return;
    }
    const std::wstring program = AnsiToWide(values_[Task::kExePath]);
    const std::wstring fault = ProgramFault(program);
    if (!fault.empty())
      Warn(LineOf(kParamKeys[Task::kExePath]), L"The job would start nothing: " + fault);
    if (!IsStartBoundary(values_[Task::kRuntime])) {
      Warn(LineOf(kParamKeys[Task::kRuntime]),
           L"The start \"runtime\", " + Shown(values_[Task::kRuntime]) +
               L", is no date and time such as 2026-01-31T08:00:00" + OldJobLost(),
           areNumbers_);
    }
    CheckDays(kind, numbers[Task::kTimeWeekday], numbers[Task::kTimeMonthday]);
    if (std::any_of(report_.findings.begin(), report_.findings.end(),
                    [](const Finding& finding) { return finding.harmful; })) {
      return AddStep(Step::Kind::kRegisterJob, L"deletes the job " + Quoted(job_) +
                                                   L" and does not register it again, see above");
    }
    const wchar_t* const every = kind == Task::kDaily    ? L"daily"
                                 : kind == Task::kWeekly ? L"weekly"
                                                         : L"monthly";
    AddStep(Step::Kind::kRegisterJob,
            L"registers the job " + Quoted(job_) + L", in place of an older one: starts " +
                Quoted(program) + L" with the arguments " +
                Quoted(AnsiToWide(values_[Task::kExeArguments])) + L" " + every + L" from " +
                AnsiToWide(values_[Task::kRuntime]) + L" on");
  }

  std::wstring OldJobLost() const {
    if (!areNumbers_) return L".";
    return L": the job is refused, and an older job " + Quoted(job_) +
           L" has been deleted by then.";
  }

  void CheckDays(std::optional<std::int32_t> kind, std::optional<std::int32_t> weekdays,
                 std::optional<std::int32_t> monthDays) {
    if (kind == Task::kWeekly && weekdays && (*weekdays <= 0 || *weekdays > 0x7F)) {
      Warn(LineOf(kParamKeys[Task::kTimeWeekday]),
           L"A weekly job needs its days in \"time_weekday\": 1 for Sunday, 2 for Monday to 64 for "
           L"Saturday, added up; " +
               std::to_wstring(*weekdays) + L" is no such sum" + OldJobLost(),
           areNumbers_);
    }
    if (kind == Task::kMonthly && monthDays && *monthDays <= 0) {
      Warn(
          LineOf(kParamKeys[Task::kTimeMonthday]),
          L"A monthly job needs its days in \"time_monthday\": 1 for day 1, 2 for day 2, 4 for day "
          L"3 and so on, added up; " +
              std::to_wstring(*monthDays) + L" is no such sum" + OldJobLost(),
          areNumbers_);
    }
  }

  const std::filesystem::path& path_;
  const std::string helperPath_;  // UTF-8
  TaskFileReport& report_;
  std::map<std::string, Entry> entries_;  // of the keys that the helper knows, those that count
  std::size_t lineFindings_ = 0;
  // The line that seems to have been meant for "exe_arguments", and what is wrong with it.
  std::size_t lostArguments_ = 0;
  std::wstring lostWhy_;
  bool hasSection_ = false;
  bool seemsRegistration_ = false;  // by a program or arguments that do not count
  std::array<std::string, Task::kParamCount> values_;
  bool areNumbers_ = true;  // or the helper gives up before it changes anything
  std::wstring job_;
};

}  // namespace

TaskFileReport CheckTaskFile(const std::filesystem::path& taskFile) {
  TaskFileReport report;
  TaskFileCheck check(taskFile, report);
  try {
    check.Check();
  } catch (const std::bad_alloc&) {
    // The helper, too, answers 1 then.
    check.Fail(0, L"It takes more memory than there is; use smaller files.");
  }
  if (report.helperFails) {
    const auto isDone = [](const Step& step) { return step.kind == Step::Kind::kDeleteJob; };
    report.steps.erase(
        std::remove_if(report.steps.begin(), report.steps.end(), std::not_fn(isDone)),
        report.steps.end());
  }
  // The task file's first, each file's by line.
  Findings& findings = report.findings;
  const auto list = std::stable_partition(findings.begin(), findings.end(),
                                          [&](const Finding& one) { return one.file == taskFile; });
  const auto isBefore = [](const Finding& left, const Finding& right) {
    return left.line < right.line;
  };
  std::stable_sort(findings.begin(), list, isBefore);
  std::stable_sort(list, findings.end(), isBefore);
  return report;
}

}  // namespace uaclient
