#include "uaclient/task_reading.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <cstdio>
#include <map>
#include <new>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "corekit/text.h"
#include "inifile/ini_parser.h"
#include "uaclient/check_job.h"
#include "uaclient/check_list.h"
#include "uaclient/code_page.h"
#include "uaclient/findings.h"
#include "uaclient/path.h"
#include "uaclient/whole_file.h"
#include "uactask/task_file.h"
#include "uactask/task_file_op.h"
#include "uactask/task_scheduler.h"

namespace uaclient {
namespace {

using Task = UACTaskScheduler;
using uactask::kParamKeys;
using uactask::kTaskSection;
using uactask::kTypeKey;

std::wstring ShownBytes(std::string_view text) { return Shown(FromHelper(std::string(text))); }

bool IsKnownKey(std::string_view key) {
  return key == kTypeKey ||
         std::find(kParamKeys.begin(), kParamKeys.end(), key) != kParamKeys.end();
}

std::wstring KnownKeys() {
  std::wstring keys = ShownBytes(kTypeKey);
  for (const char* const key : kParamKeys) keys += L", " + ShownBytes(key);
  return keys;
}

bool IsCommented(std::string_view text) { return corekit::IsIniCommentSign(text[0]); }

// Whether text in the code page was meant as UTF-8.
bool SeemsUtf8(const std::string& bytes) {
  const std::wstring text = Utf8ToWide(bytes);
  return text.size() != bytes.size() && !text.empty() && text != FromHelper(bytes);
}

// 2026-01-31T08:00:00 and, perhaps, Z or an offset such as +01:00.
bool IsStartBoundary(const std::string& text) {
  SYSTEMTIME time = {};
  FILETIME ignored;
  int size = 0;
  if (std::sscanf(text.c_str(), "%4hu-%2hu-%2huT%2hu:%2hu:%2hu%n", &time.wYear, &time.wMonth,
                  &time.wDay, &time.wHour, &time.wMinute, &time.wSecond, &size) != 6 ||
      size != 19 || !SystemTimeToFileTime(&time, &ignored)) {
    return false;
  }
  const std::string zone = text.substr(19);
  size = 0;
  std::sscanf(zone.c_str(), "%*1[+-]%*2u:%*2u%n", &size);
  return zone.empty() || zone == "Z" || (size == 6 && zone.size() == 6);
}

// The lines of a task file, each by the helper's own parser.
class TaskLines {
 public:
  // A key of the section that counts; line 0 and no value where there is none.
  struct Entry {
    std::size_t line = 0;
    std::string value;
  };

  explicit TaskLines(FileFindings& found) : found_(found) {}

  // False when the helper cannot read the file.
  bool Read(std::string_view text) {
    NameEncoding(text);
    // The helper opens the file as text, which ends there.
    const std::size_t end = text.find('\x1A');
    if (end != std::string_view::npos) {
      found_.Warn(0, L"The helper reads the file up to a Ctrl+Z character in it. Remove that.");
    }
    bool isReadable = true;
    corekit::IniParser parser;
    corekit::ForEachIniLine(text.substr(0, end), [&](const corekit::IniLine& line) {
      try {
        if (isReadable) ReadLine(line, parser);
      } catch (const std::out_of_range&) {
        isReadable = false;
        found_.Fail(line.number,
                    L"A line with \"[\" is a section's header, and this one has no \"]\", so the "
                    L"helper gives up. Write \"[Task]\", or leave the \"[\" out.");
      }
    });
    return isReadable;
  }

  Entry Get(const char* key) const {
    const auto found = entries_.find(key);
    return found == entries_.end() ? Entry{} : found->second;
  }
  Entry Get(std::size_t param) const { return Get(kParamKeys[param]); }

  std::wstring sections;  // in words, some of them
  bool hasTaskSection = false;
  std::size_t oddLines = 0;       // that are not what they seem
  std::size_t lostArguments = 0;  // a line that names the job's arguments without setting them

 private:
  void NameEncoding(std::string_view text) {
    if (text.substr(0, 3) == "\xEF\xBB\xBF") {
      found_.Warn(1,
                  L"The file begins with a byte-order mark, which the helper takes for a part of "
                  L"the first line. Save the file without it.");
      firstNamed_ = 2;
    }
    if (text.find('\0') != std::string_view::npos) {
      found_.Warn(1, L"The file is in UTF-16 or holds NUL bytes. Save it in the code page.");
      firstNamed_ = text.size();
    }
  }

  void Odd(std::size_t line, const wchar_t* text, FileFindings::Parts parts = {}) {
    constexpr std::size_t kMaxNamed = 100;  // with so many it is no task file
    if (line < firstNamed_ || ++oddLines > kMaxNamed + 1) return;
    if (oddLines <= kMaxNamed) return found_.Warn(line, text, parts);
    found_.Warn(line, L"There are more such lines, which are not named.");
  }

  void ReadLine(const corekit::IniLine& line, corekit::IniParser& parser) {
    const std::string_view text = corekit::Trimmed(line.text, corekit::kIniBlanks, 0);
    if (text.empty()) return;
    if (!line.ended) {
      Odd(line.number,
          L"The last line has no line break, so the helper does not read it. End it with one.");
    } else {
      ReadRecord(line.number, text, parser.Parse(text));
    }
    const char* const arguments = kParamKeys[Task::kExeArguments];
    const bool namesArguments = text.find(arguments) != std::string_view::npos;
    if (namesArguments && !IsCommented(text) && Get(arguments).line != line.number) {
      lostArguments = line.number;
    }
  }

  void ReadRecord(std::size_t line, std::string_view text,
                  const std::optional<corekit::IniRecord>& record) {
    if (text.find('[') != std::string_view::npos) {
      ReadHeader(line, text, record->Section);
    } else if (record && !record->Key.empty()) {
      ReadEntry(line, *record);
    } else if (!IsCommented(text)) {
      Odd(line,
          L"{} is not a section, key or comment, so the helper passes over it. Write "
          L"\"key=value\", "
          L"or remove the line.",
          {ShownBytes(text)});
    }
  }

  void ReadHeader(std::size_t line, std::string_view text, std::string_view section) {
    constexpr std::size_t kMaxNamed = 300;
    hasTaskSection |= section == kTaskSection;
    if (sections.size() < kMaxNamed) {
      sections += (sections.empty() ? L"" : L", ") + ShownBytes("[" + std::string(section) + "]");
    }
    if (text[0] == '[') return;
    Odd(line,
        L"A \"[\" makes the whole line a section's header, even in a value or a comment. It sets "
        L"nothing, and the keys below it are in the section {}. Leave the \"[\" out.",
        {ShownBytes(section)});
  }

  void ReadEntry(std::size_t line, const corekit::IniRecord& record) {
    const std::string key(record.Key);
    const bool isCommented = record.Commented != ' ';
    const std::wstring shown = ShownBytes(key);
    if (record.Section != kTaskSection) {
      if (!record.Section.empty() || !IsKnownKey(key) || isCommented) return;
      return Odd(line, L"{} is above the first section. Write \"[Task]\" above it.", {shown});
    }
    if (!IsKnownKey(key)) {
      if (isCommented) return;
      return Odd(
          line,
          L"The key {} is unknown, so the helper does not read it. The keys are {}, in lower "
          L"case and without a blank before the \"=\".",
          {shown, KnownKeys()});
    }
    const Entry entry = {line, std::string(record.Value)};
    const auto [first, isNew] = entries_.try_emplace(key, entry);
    if (!isNew) {
      return Odd(line, L"{} is in line {} already, and the first one counts. Remove one of them.",
                 {shown, std::to_wstring(first->second.line)});
    }
    if (isCommented) {
      Odd(line, L"{} is commented out but counts all the same. Remove the line.", {shown});
    }
    if (entry.value.find_first_of(" \t") == 0) {
      Odd(line, L"The blank behind the \"=\" belongs to the value of {}. Remove it.", {shown});
    }
    if (SeemsUtf8(entry.value)) {
      Odd(line,
          L"The value of {} seems to be in UTF-8. The helper reads it in the system's code page, "
          L"as "
          L"{}. Save the file in that.",
          {shown, ShownBytes(entry.value)});
    }
  }

  FileFindings& found_;
  std::map<std::string, Entry> entries_;  // by key
  std::size_t firstNamed_ = 1;  // of the lines before it more has been said than they could tell
};

// -1 when the helper knows no such type.
std::int32_t ReadType(const TaskLines& lines, FileFindings& found) {
  const TaskLines::Entry entry = lines.Get(kTypeKey);
  std::int32_t type = -1;
  if (entry.line == 0 && lines.hasTaskSection) {
    found.Fail(0,
               L"\"type\" is missing in the section \"[Task]\". Write \"type=0\" for a job or "
               L"\"type=1\" for a list of copies.");
  } else if (entry.line == 0) {
    found.Fail(0,
               L"There is no section \"[Task]\" but {}. Section names are case-sensitive: write "
               L"\"[Task]\" above the keys.",
               {lines.sections.empty() ? L"none at all" : lines.sections});
  } else if (!boost::conversion::try_lexical_convert(entry.value, type) ||
             (type != Task::kType && type != UACTaskFileOp::kType)) {
    found.Fail(entry.line,
               L"\"type\" is {}. Write \"type=0\" for a job or \"type=1\" for a list of copies.",
               {ShownBytes(entry.value)});
    return -1;
  }
  return type;
}

// A job's task file: what the helper would do with it.
class JobReader {
 public:
  JobReader(const TaskLines& lines, FileFindings& found, TaskReading& reading)
      : lines_(lines), found_(found), reading_(reading) {}

  void Read() {
    reading_.job = Text(Task::kTaskName);
    reading_.isDeletion = lines_.Get(Task::kExeArguments).value.empty();
    const std::wstring fault = JobNameFault(L"\"task_name\"", reading_.job);
    if (!fault.empty()) found_.Warn(Line(Task::kTaskName), L"{}", {fault});
    const bool areNumbers = ReadNumbers();
    const Step step = reading_.isDeletion ? ReadDeletion() : ReadRegistration(areNumbers);
    if (areNumbers) reading_.report.steps.push_back(step);  // or the helper fails before it
  }

 private:
  std::wstring Text(Task::Param param) const { return FromHelper(lines_.Get(param).value); }
  std::size_t Line(Task::Param param) const { return lines_.Get(param).line; }

  bool ReadNumbers() {
    bool areNumbers = true;
    for (const auto param : {Task::kTimeType, Task::kTimeWeekday, Task::kTimeMonthday}) {
      const TaskLines::Entry entry = lines_.Get(param);
      if (boost::conversion::try_lexical_convert(entry.value, numbers_[param])) continue;
      areNumbers = false;
      found_.Fail(
          entry.line,
          L"{} is {}, not a number. All three numbers must be there, in digits, also where a "
          L"job is deleted. Write 0 where none is needed.",
          {ShownBytes(kParamKeys[param]), entry.line == 0 ? L"missing" : ShownBytes(entry.value)});
    }
    return areNumbers;
  }

  // It is meant when the key is there, no program is, and no line is odd that may have been the
  // arguments.
  Step ReadDeletion() {
    const std::size_t line = Line(Task::kExeArguments);
    const std::size_t lost = lines_.lostArguments;
    const bool isOdd = lost != 0 || lines_.oddLines != 0;
    if (line != 0 && Text(Task::kExePath).empty() && !isOdd) return DeletionStep(reading_.job);
    const bool seemsJob =
        Line(Task::kExePath) + Line(Task::kRuntime) + Line(Task::kAuthorName) != 0;
    found_.Add(
        seemsJob || isOdd ? Severity::kHarmful : Severity::kWarning, line != 0 ? line : lost,
        L"\"exe_arguments\" is {}{}. Without arguments the helper is to delete the job {}. If you "
        L"mean that, write \"exe_arguments=\" and leave \"exe_path\" out. If not, give the program "
        L"an argument.",
        {line != 0 ? L"empty" : L"missing",
         lost == 0 ? L"" : L", and line " + std::to_wstring(lost) + L" does not set it",
         Shown(reading_.job)});
    return DeletionStep(reading_.job);
  }

  Step ReadRegistration(bool areNumbers) {
    const std::wstring fault = ProgramFault(L"\"exe_path\"", Text(Task::kExePath));
    if (!fault.empty()) found_.Warn(Line(Task::kExePath), L"{}", {fault});
    // Without the numbers it is open what else they are to be.
    const std::int32_t kind = areNumbers ? numbers_[Task::kTimeType] : Task::kDaily;
    const std::int32_t days =
        numbers_[kind == Task::kWeekly ? Task::kTimeWeekday : Task::kTimeMonthday];
    const struct {
      Task::Param param;
      bool isGood;
      const wchar_t* wanted;
    } kNeeds[] = {{Task::kTimeType, kind >= Task::kDaily && kind <= Task::kMonthly,
                   L"2 (daily), 3 (weekly) or 4 (monthly)"},
                  {Task::kRuntime, IsStartBoundary(lines_.Get(Task::kRuntime).value),
                   L"a date and time such as 2026-01-31T08:00:00"},
                  {Task::kTimeWeekday, kind != Task::kWeekly || (days > 0 && days < 0x80),
                   L"days added up: 1 for Sunday, 2 for Monday, up to 64 for Saturday"},
                  {Task::kTimeMonthday, kind != Task::kMonthly || days > 0,
                   L"days added up: 1 for day 1, 2 for day 2, 4 for day 3 and so on"}};
    bool isRefused = false;
    for (const auto& [param, isGood, wanted] : kNeeds) {
      if (isGood) continue;
      isRefused = true;
      // The helper itself fails for the kind alone.
      found_.Add(
          param == Task::kTimeType ? Severity::kError : Severity::kHarmful, Line(param),
          L"{} is {}, not {}. The scheduler refuses such a job, and an existing one of that name "
          L"is gone by then.",
          {ShownBytes(kParamKeys[param]), Shown(Text(param)), wanted});
    }
    if (isRefused) {
      Step step = DeletionStep(reading_.job);
      step.text += L" and registers none";
      return step;
    }
    Job job;
    job.name = reading_.job;
    job.program = Text(Task::kExePath);
    job.every = static_cast<Job::Every>(kind - Task::kDaily);
    job.days = static_cast<std::uint32_t>(days);
    return RegistrationStep(job, Text(Task::kExeArguments),
                            L"from " + Text(Task::kRuntime) + L" on");
  }

  const TaskLines& lines_;
  FileFindings& found_;
  TaskReading& reading_;
  std::array<std::int32_t, Task::kParamCount> numbers_ = {};
};

void Read(const std::filesystem::path& path, Hold hold, const Options& options, FileFindings& found,
          TaskReading& reading) {
  WholeFile file = hold == Hold::kYes ? ReadWhole(path, GENERIC_READ | DELETE, FILE_SHARE_READ)
                                      : ReadWhole(path, GENERIC_READ, kShareAll);
  reading.report.exists = GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
  if (!file.fault.empty()) return found.Fail(0, L"The task file{}", {file.fault});
  reading.file = std::move(file.handle);
  reading.bytes = std::move(file.bytes);
  if (!HelperReads(path.native())) {
    return found.Fail(0,
                      L"The file's path holds characters that the system's code page lacks, so the "
                      L"helper looks for {}. Use another name.",
                      {Shown(FromHelper(ForHelper(path.native())))});
  }
  const std::wstring drive = DriveFault(FullPath(path.native()));
  if (!drive.empty()) found.Harm(0, L"{}", {drive});

  TaskLines lines(found);
  if (!lines.Read(reading.bytes)) return;
  reading.type = ReadType(lines, found);
  if (reading.type == Task::kType) JobReader(lines, found, reading).Read();
  if (reading.type == UACTaskFileOp::kType) {
    const TaskLines::Entry list = lines.Get(UACTaskFileOp::kXmlPath);
    ReadList(FromHelper(list.value), list.line, found, options, reading);
  }
}

}  // namespace

TaskReading ReadTask(const std::filesystem::path& taskFile, Hold hold, const Options& options) {
  TaskReading reading;
  FileFindings found{taskFile, reading.report};
  try {
    Read(taskFile, hold, options, found, reading);
  } catch (const std::bad_alloc&) {
    found.Fail(0, L"The check takes more memory than there is. Use smaller files.");
  }
  const auto isBefore = [&](const Finding& left, const Finding& right) {
    return std::make_pair(left.file != taskFile, left.line) <
           std::make_pair(right.file != taskFile, right.line);
  };
  std::stable_sort(reading.report.findings.begin(), reading.report.findings.end(), isBefore);
  return reading;
}

Report Check(const TaskFile& task, const Options& options) {
  return ReadTask(task.path, Hold::kNo, options).report;
}

}  // namespace uaclient
