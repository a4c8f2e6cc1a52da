#include "uaclient/task_reading.h"

#include <windows.h>

#include <algorithm>
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

const char* KeyOf(std::int32_t param) { return kParamKeys[static_cast<std::size_t>(param)]; }

std::wstring ShownBytes(std::string_view text) { return Shown(FromHelper(std::string(text))); }

std::wstring KnownKeys() {
  std::wstring keys = ShownBytes(kTypeKey);
  for (const char* const key : kParamKeys) keys += L", " + ShownBytes(key);
  return keys;
}

bool IsKnown(std::string_view key) {
  return key == kTypeKey || std::count(kParamKeys.begin(), kParamKeys.end(), key) != 0;
}

// Whether text in the code page was meant as UTF-8.
bool SeemsUtf8(const std::string& bytes) {
  const std::wstring text = Utf8ToWide(bytes);
  return !text.empty() && text.size() != bytes.size() && text != FromHelper(bytes);
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
    CheckEncoding(text);
    // The helper opens the file as text, which ends there.
    text = text.substr(0, text.find('\x1A'));
    bool isReadable = true;
    corekit::IniParser parser;
    corekit::ForEachIniLine(text, [&](const corekit::IniLine& line) {
      try {
        if (isReadable) ReadLine(line, parser);
      } catch (const std::out_of_range&) {
        isReadable = false;
        found_.Fail(line.number,
                    L"A \"[\" makes the line a section's header, and without a \"]\" the helper "
                    L"gives up. Write \"[Task]\", or leave the \"[\" out.");
      }
    });
    return isReadable;
  }

  Entry Get(const char* key) const {
    const auto found = entries_.find(key);
    return found == entries_.end() ? Entry{} : found->second;
  }
  Entry Get(std::int32_t param) const { return Get(KeyOf(param)); }

  std::wstring sections;  // the names of the first few
  bool hasTaskSection = false;
  std::size_t oddLines = 0;       // that are not what they seem
  std::size_t lostArguments = 0;  // a line that names the job's arguments without setting them

 private:
  void CheckEncoding(std::string_view text) {
    if (text.substr(0, 3) == "\xEF\xBB\xBF") {
      found_.Warn(1, L"The helper takes the byte-order mark for text. Save the file without it.");
      firstChecked_ = 2;
    }
    if (text.find('\0') != std::string_view::npos) {
      found_.Warn(1, L"The file is in UTF-16 or holds NUL bytes. Save it in the code page.");
      firstChecked_ = text.size();
    }
    if (text.find('\x1A') != std::string_view::npos) {
      found_.Warn(0, L"The helper reads the file up to the Ctrl+Z in it. Remove that.");
    }
  }

  void Odd(std::size_t line, const wchar_t* text, FileFindings::Parts parts = {}) {
    constexpr std::size_t kMaxNamed = 100;  // with so many it is no task file
    if (++oddLines > kMaxNamed + 1 || line < firstChecked_) return;
    if (oddLines <= kMaxNamed) return found_.Warn(line, text, parts);
    found_.Warn(line, L"There are more such lines, which are not named.");
  }

  void ReadLine(const corekit::IniLine& line, corekit::IniParser& parser) {
    const std::string_view text = corekit::Trimmed(line.text, corekit::kIniBlanks, 0);
    if (text.empty()) return;
    const bool isComment = corekit::IsIniCommentSign(text[0]);
    const auto record = line.ended ? parser.Parse(text) : std::nullopt;
    if (!line.ended) {
      Odd(line.number, L"The last line has no line break, so the helper skips it. Add one.");
    } else if (text.find('[') != std::string_view::npos) {
      ReadHeader(line.number, text, record->Section);
    } else if (record && !record->Key.empty()) {
      ReadEntry(line.number, *record);
    } else if (!isComment) {
      Odd(line.number, L"{} is no section, key or comment, so the helper skips it. Remove it.",
          {ShownBytes(text)});
    }
    const char* const arguments = KeyOf(Task::kExeArguments);
    const bool namesArguments = !isComment && text.find(arguments) != std::string_view::npos;
    if (namesArguments && Get(arguments).line != line.number) lostArguments = line.number;
  }

  void ReadHeader(std::size_t line, std::string_view text, std::string_view section) {
    constexpr std::size_t kMaxNamed = 300;
    const std::wstring shown = ShownBytes("[" + std::string(section) + "]");
    hasTaskSection |= section == kTaskSection;
    if (sections.size() < kMaxNamed) sections += (sections.empty() ? L"" : L", ") + shown;
    if (text[0] == '[') return;
    Odd(line,
        L"A \"[\" anywhere makes the whole line a section's header, here {}. Leave the \"[\" out.",
        {shown});
  }

  void ReadEntry(std::size_t line, const corekit::IniRecord& record) {
    const std::string key(record.Key);
    const std::wstring shown = ShownBytes(key);
    const Entry entry = {line, std::string(record.Value)};
    const bool isCommented = record.Commented != ' ';
    if (isCommented && !IsKnown(key)) return;
    if (record.Section.empty() && IsKnown(key)) {
      return Odd(line, L"{} is above the first section. Write \"[Task]\" above it.", {shown});
    }
    if (record.Section != kTaskSection) return;
    if (!IsKnown(key)) {
      return Odd(line,
                 L"The key {} is unknown. The helper reads {}, in lower case and without a blank "
                 L"before the \"=\".",
                 {shown, KnownKeys()});
    }
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
      Odd(line, L"{} is in UTF-8, and the helper reads it as {}. Save the file in the code page.",
          {shown, ShownBytes(entry.value)});
    }
  }

  FileFindings& found_;
  std::map<std::string, Entry> entries_;  // by key
  std::size_t firstChecked_ = 1;          // of the lines before it enough has been said
};

// -1 when the helper knows no such type.
std::int32_t ReadType(const TaskLines& lines, FileFindings& found) {
  const TaskLines::Entry entry = lines.Get(kTypeKey);
  std::int32_t type = -1;
  if (boost::conversion::try_lexical_convert(entry.value, type) &&
      (type == Task::kType || type == UACTaskFileOp::kType)) {
    return type;
  }
  if (!lines.hasTaskSection) {
    found.Fail(0,
               L"There is no section \"[Task]\"{}. Write \"[Task]\" above the keys, with a capital "
               L"T.",
               {lines.sections.empty() ? L"" : L", but " + lines.sections});
  } else {
    found.Fail(entry.line,
               L"\"type\" is {}. Write \"type=0\" for a job or \"type=1\" for a list of copies.",
               {entry.line == 0 ? L"missing" : ShownBytes(entry.value)});
  }
  return -1;
}

// What the helper would do with a job's task file.
class JobReader {
 public:
  JobReader(const TaskLines& lines, FileFindings& found) : lines_(lines), found_(found) {}

  void Read(TaskReading& reading) {
    name_ = reading.job = Text(Task::kTaskName);
    reading.isDeletion = Text(Task::kExeArguments).empty();
    WarnIf(Task::kTaskName, JobNameFault(L"\"task_name\"", name_));
    ReadNumbers();
    const Step step = reading.isDeletion ? ReadDeletion() : ReadRegistration();
    if (areNumbers_) reading.report.steps.push_back(step);  // or the helper fails before it
  }

 private:
  std::wstring Text(Task::Param param) const { return FromHelper(lines_.Get(param).value); }
  std::size_t Line(Task::Param param) const { return lines_.Get(param).line; }
  void WarnIf(Task::Param param, const std::wstring& fault) {
    if (!fault.empty()) found_.Warn(Line(param), L"{}", {fault});
  }

  void ReadNumbers() {
    for (const auto param : {Task::kTimeType, Task::kTimeWeekday, Task::kTimeMonthday}) {
      const TaskLines::Entry entry = lines_.Get(param);
      if (boost::conversion::try_lexical_convert(entry.value, numbers_[param])) continue;
      areNumbers_ = false;
      found_.Fail(
          entry.line,
          L"{} must be a number but is {}. Deletions need it, too. Write 0 if in doubt.",
          {ShownBytes(KeyOf(param)), entry.line == 0 ? L"missing" : ShownBytes(entry.value)});
    }
  }

  // It is meant when the key is there, no program is, and no line is odd that may have been the
  // arguments.
  Step ReadDeletion() {
    const std::size_t line = Line(Task::kExeArguments);
    const std::size_t lost = lines_.lostArguments;
    const bool isOdd = lost != 0 || lines_.oddLines != 0;
    const bool isJob = Line(Task::kExePath) + Line(Task::kRuntime) + Line(Task::kAuthorName) != 0;
    if (line == 0 || !Text(Task::kExePath).empty() || isOdd) {
      found_.Add(
          isJob || isOdd ? Severity::kHarmful : Severity::kWarning, line != 0 ? line : lost,
          Filled(L"\"exe_arguments\" is {}, which means: delete the job {}. If so, write "
                 L"\"exe_arguments=\" and no \"exe_path\". If not, give the program an argument.",
                 {line != 0 ? L"empty" : L"missing", Shown(name_)}));
    }
    return DeletionStep(name_);
  }

  Step ReadRegistration() {
    WarnIf(Task::kExePath, ProgramFault(L"\"exe_path\"", Text(Task::kExePath)));
    // What the days must be is open without the kind.
    const std::int32_t kind = areNumbers_ ? numbers_[Task::kTimeType] : Task::kDaily;
    const bool isWeekly = kind == Task::kWeekly;
    const std::int32_t days = numbers_[isWeekly ? Task::kTimeWeekday : Task::kTimeMonthday];
    bool isGood = Need(Task::kTimeType, kind >= Task::kDaily && kind <= Task::kMonthly,
                       L"2 (daily), 3 (weekly) or 4 (monthly)");
    isGood &= Need(Task::kRuntime, IsStartBoundary(lines_.Get(Task::kRuntime).value),
                   L"a date and time such as 2026-01-31T08:00:00");
    isGood &= Need(Task::kTimeWeekday, !isWeekly || (days > 0 && days < 0x80),
                   L"a sum of days: 1 for Sunday, 2 for Monday, up to 64 for Saturday");
    isGood &= Need(Task::kTimeMonthday, kind != Task::kMonthly || days > 0,
                   L"a sum of days: 1 for day 1, 2 for day 2, 4 for day 3 and so on");
    if (!isGood) {
      Step step = DeletionStep(name_);
      step.text += L" and registers none";
      return step;
    }
    const auto every = static_cast<Job::Every>(kind - Task::kDaily);
    const Job job = {name_, every, 0, 0, static_cast<std::uint32_t>(days), Text(Task::kExePath),
                     {},    {}};
    return RegistrationStep(job, Text(Task::kExeArguments),
                            L"from " + Text(Task::kRuntime) + L" on");
  }

  // The helper deletes an older job before it learns that the scheduler refuses the new one.
  bool Need(Task::Param param, bool isGood, const wchar_t* wanted) {
    if (isGood) return true;
    found_.Add(param == Task::kTimeType ? Severity::kError : Severity::kHarmful, Line(param),
               Filled(L"{} is {}, not {}. {}",
                      {ShownBytes(KeyOf(param)), Shown(Text(param)), wanted,
                       areNumbers_ ? L"The helper would delete an existing job and register none."
                                   : L"The scheduler refuses such a job."}));
    return false;
  }

  const TaskLines& lines_;
  FileFindings& found_;
  std::wstring name_;
  std::map<std::int32_t, std::int32_t> numbers_;  // by parameter
  bool areNumbers_ = true;                        // or the helper fails before it changes anything
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
    return found.Fail(0, L"The code page lacks characters of the file's path. Use another name.");
  }
  const std::wstring drive = DriveFault(FullPath(path.native()));
  if (!drive.empty()) found.Harm(0, L"{}", {drive});

  TaskLines lines(found);
  if (!lines.Read(reading.bytes)) return;
  reading.type = ReadType(lines, found);
  if (reading.type == Task::kType) JobReader(lines, found).Read(reading);
  if (reading.type == UACTaskFileOp::kType) {
    const TaskLines::Entry list = lines.Get(UACTaskFileOp::kXmlPath);
    ReadList(FromHelper(list.value), list.line, found, options, reading);
  }
}

}  // namespace

TaskReading ReadTask(const std::filesystem::path& taskFile, Hold hold, const Options& options) {
  TaskReading reading;
  FileFindings found{taskFile.wstring(), reading.report};
  try {
    Read(taskFile, hold, options, found, reading);
  } catch (const std::bad_alloc&) {
    found.Fail(0, L"The check takes more memory than there is. Use smaller files.");
  }
  const auto isBefore = [&](const Finding& left, const Finding& right) {
    return std::make_pair(left.file != found.file, left.line) <
           std::make_pair(right.file != found.file, right.line);
  };
  std::stable_sort(reading.report.findings.begin(), reading.report.findings.end(), isBefore);
  return reading;
}

Report Check(const TaskFile& task, const Options& options) {
  return ReadTask(task.path, Hold::kNo, options).report;
}

}  // namespace uaclient
