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
#include <tuple>
#include <utility>

#include "corekit/text.h"
#include "inifile/ini_parser.h"
#include "uaclient/check_job.h"
#include "uaclient/check_list.h"
#include "uaclient/checked_file.h"
#include "uaclient/code_page.h"
#include "uaclient/path.h"
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
  constexpr int kSize = 19;
  constexpr int kOffsetSize = 6;
  SYSTEMTIME time = {};
  FILETIME ignored;
  int size = 0;
  if (std::sscanf(text.c_str(), "%4hu-%2hu-%2huT%2hu:%2hu:%2hu%n", &time.wYear, &time.wMonth,
                  &time.wDay, &time.wHour, &time.wMinute, &time.wSecond, &size) != 6 ||
      size != kSize || !SystemTimeToFileTime(&time, &ignored)) {
    return false;
  }
  const std::string zone = text.substr(kSize);
  size = 0;
  std::sscanf(zone.c_str(), "%*1[+-]%*2u:%*2u%n", &size);
  return zone.empty() || zone == "Z" || (size == kOffsetSize && zone.size() == kOffsetSize);
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
      found_.Warn(0, L"The file holds a Ctrl+Z character, and the helper reads up to it. Remove "
                     L"it.");
    }
    bool isReadable = true;
    corekit::IniParser parser;
    corekit::ForEachIniLine(text.substr(0, end), [&](const corekit::IniLine& line) {
      try {
        if (isReadable) ReadLine(line, parser);
      } catch (const std::out_of_range&) {
        isReadable = false;
        found_.Fail(line.number, L"A line with \"[\" is a section's header, and this one has no "
                                 L"\"]\", so the helper gives up. Write \"[Task]\", or leave the "
                                 L"\"[\" out.");
      }
    });
    return isReadable;
  }

  Entry Get(const char* key) const {
    const auto found = entries_.find(key);
    return found == entries_.end() ? Entry{} : found->second;
  }
  Entry Get(std::size_t param) const { return Get(kParamKeys[param]); }

  const std::wstring& Sections() const { return sections_; }
  bool HasTaskSection() const { return hasTaskSection_; }

  // Whether a line is not what it seems.
  bool HasOddLines() const { return oddLines_ != 0; }
  // A line that names the job's arguments without setting them; 0 when there is none.
  std::size_t LostArguments() const { return lostArguments_; }

 private:
  void NameEncoding(std::string_view text) {
    if (text.substr(0, 3) == "\xEF\xBB\xBF") {
      found_.Warn(1, L"The file begins with a byte-order mark, which the helper takes for a part "
                     L"of the first line. Save the file without it.");
      firstNamed_ = 2;
    }
    if (text.find('\0') != std::string_view::npos) {
      found_.Warn(1, L"The file is in UTF-16 or holds NUL bytes. Save it in the system's code "
                     L"page.");
      firstNamed_ = text.size();
    }
  }

  void Odd(std::size_t line, std::wstring text) {
    constexpr std::size_t kMaxNamed = 100;  // with so many it is no task file
    if (line < firstNamed_ || ++oddLines_ > kMaxNamed + 1) return;
    if (oddLines_ > kMaxNamed) text = L"There are more such lines, which are not named.";
    found_.Warn(line, std::move(text));
  }

  void ReadLine(const corekit::IniLine& line, corekit::IniParser& parser) {
    const std::string_view text = corekit::Trimmed(line.text, corekit::kIniBlanks, 0);
    if (text.empty()) return;
    if (!line.ended) {
      Odd(line.number, L"The last line has no line break, so the helper does not read it. End it "
                       L"with one.");
    } else {
      ReadRecord(line.number, text, parser.Parse(text));
    }
    const char* const arguments = kParamKeys[Task::kExeArguments];
    const bool namesArguments = text.find(arguments) != std::string_view::npos;
    if (namesArguments && !IsCommented(text) && Get(arguments).line != line.number) {
      lostArguments_ = line.number;
    }
  }

  void ReadRecord(std::size_t line, std::string_view text,
                  const std::optional<corekit::IniRecord>& record) {
    if (text.find('[') != std::string_view::npos) {
      ReadHeader(line, text, record->Section);
    } else if (record && !record->Key.empty()) {
      ReadEntry(line, *record);
    } else if (!IsCommented(text)) {
      Odd(line, ShownBytes(text) + L" is not a section, key or comment, so the helper passes over "
                                   L"it. Write \"key=value\", or remove the line.");
    }
  }

  void ReadHeader(std::size_t line, std::string_view text, std::string_view section) {
    constexpr std::size_t kMaxNamed = 300;
    hasTaskSection_ |= section == kTaskSection;
    if (sections_.size() < kMaxNamed) {
      sections_ += (sections_.empty() ? L"" : L", ") + ShownBytes("[" + std::string(section) + "]");
    }
    if (text[0] == '[') return;
    Odd(line, L"A \"[\" makes the whole line a section's header, even in a value or a comment. It "
              L"sets nothing, and the keys below it are in the section " +
                  ShownBytes(section) + L". Leave the \"[\" out.");
  }

  void ReadEntry(std::size_t line, const corekit::IniRecord& record) {
    const std::string key(record.Key);
    const bool isCommented = record.Commented != ' ';
    const std::wstring shown = ShownBytes(key);
    if (record.Section != kTaskSection) {
      if (!record.Section.empty() || !IsKnownKey(key) || isCommented) return;
      return Odd(line, shown + L" is above the first section. Write \"[Task]\" above it.");
    }
    if (!IsKnownKey(key)) {
      if (isCommented) return;
      return Odd(line, shown + L" is unknown, so the helper does not read it. The keys are " +
                           KnownKeys() + L", in lower case and without a blank before the \"=\".");
    }
    const Entry entry = {line, std::string(record.Value)};
    const auto [first, isNew] = entries_.try_emplace(key, entry);
    if (!isNew) {
      return Odd(line, shown + L" is in line " + std::to_wstring(first->second.line) +
                           L" already, and the first one counts. Remove one of them.");
    }
    if (isCommented) {
      Odd(line, shown + L" is commented out but counts all the same. Remove the line.");
    }
    if (entry.value.find_first_of(" \t") == 0) {
      Odd(line, L"The value of " + shown + L" begins with a blank, because what is behind the "
                                           L"\"=\" belongs to it. Remove the blank.");
    }
    if (SeemsUtf8(entry.value)) {
      Odd(line, L"The value of " + shown + L" seems to be in UTF-8. The helper reads it in the " +
                    L"system's code page, as " + ShownBytes(entry.value) + L". Save the file in that.");
    }
  }

  FileFindings& found_;
  std::map<std::string, Entry> entries_;  // by key
  std::wstring sections_;
  bool hasTaskSection_ = false;
  std::size_t firstNamed_ = 1;  // of the lines before it more has been said than they could tell
  std::size_t oddLines_ = 0;
  std::size_t lostArguments_ = 0;
};

// -1 when the helper knows no such type.
std::int32_t ReadType(const TaskLines& lines, FileFindings& found) {
  constexpr wchar_t kTypes[] = L"Write \"type=0\" for a job or \"type=1\" for a list of copies.";
  const TaskLines::Entry entry = lines.Get(kTypeKey);
  std::int32_t type = -1;
  if (entry.line == 0 && lines.HasTaskSection()) {
    found.Fail(0, std::wstring(L"\"type\" is missing in the section \"[Task]\". ") + kTypes);
  } else if (entry.line == 0) {
    found.Fail(0, L"There is no section \"[Task]\"" +
                      (lines.Sections().empty() ? L"" : L", but there is " + lines.Sections()) +
                      L". Section names are case-sensitive: write \"[Task]\" above the keys.");
  } else if (!boost::conversion::try_lexical_convert(entry.value, type) ||
             (type != Task::kType && type != UACTaskFileOp::kType)) {
    found.Fail(entry.line, L"\"type\" is " + ShownBytes(entry.value) + L". " + kTypes);
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
    if (!fault.empty()) found_.Warn(Line(Task::kTaskName), fault);
    const bool areNumbers = ReadNumbers();
    const Step step = reading_.isDeletion ? ReadDeletion() : ReadRegistration();
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
      found_.Fail(entry.line,
                  ShownBytes(kParamKeys[param]) +
                      (entry.line == 0 ? std::wstring(L" is missing.")
                                       : L" is " + ShownBytes(entry.value) + L", not a number.") +
                      L" All three numbers must be there, in digits, even where a job is deleted. "
                      L"Write 0 where none is needed.");
    }
    return areNumbers;
  }

  // It is meant when the key is there, no program is, and no line is odd that may have been the
  // arguments.
  Step ReadDeletion() {
    const std::size_t line = Line(Task::kExeArguments);
    const std::size_t lost = lines_.LostArguments();
    const bool hasRest = Line(Task::kExePath) + Line(Task::kRuntime) + Line(Task::kAuthorName) != 0;
    const bool isOdd = lost != 0 || lines_.HasOddLines();
    if (line == 0 || !Text(Task::kExePath).empty() || isOdd) {
      const bool isHarmful = line != 0 || hasRest || isOdd;
      found_.Add(isHarmful ? Severity::kHarmful : Severity::kWarning, line != 0 ? line : lost,
                 std::wstring(L"\"exe_arguments\" is ") + (line != 0 ? L"empty" : L"missing") +
                     (lost == 0 ? L"" : L", and line " + std::to_wstring(lost) + L" does not set it") +
                     L". Without arguments the helper is to delete the job " +
                     Shown(reading_.job) +
                     L". If you mean that, write \"exe_arguments=\", leave \"exe_path\" out and "
                     L"correct the other lines named here. If not, give the program an argument.");
    }
    return DeletionStep(reading_.job);
  }

  Step ReadRegistration() {
    const std::int32_t kind = numbers_[Task::kTimeType];
    const std::wstring program = Text(Task::kExePath);
    const std::wstring fault = ProgramFault(L"\"exe_path\"", program);
    if (!fault.empty()) found_.Warn(Line(Task::kExePath), fault);
    if (kind != 0 && (kind < Task::kDaily || kind > Task::kMonthly)) {
      Lose(Severity::kError, Task::kTimeType, L"not 2 (daily), 3 (weekly) or 4 (monthly)");
    }
    if (!IsStartBoundary(lines_.Get(Task::kRuntime).value)) {
      Lose(Severity::kHarmful, Task::kRuntime, L"not a date and time such as 2026-01-31T08:00:00");
    }
    const std::int32_t weekdays = numbers_[Task::kTimeWeekday];
    if (kind == Task::kWeekly && (weekdays <= 0 || weekdays > 0x7F)) {
      Lose(Severity::kHarmful, Task::kTimeWeekday,
           L"not a sum of days: 1 for Sunday, 2 for Monday, up to 64 for Saturday");
    }
    const std::int32_t monthDays = numbers_[Task::kTimeMonthday];
    if (kind == Task::kMonthly && monthDays <= 0) {
      Lose(Severity::kHarmful, Task::kTimeMonthday,
           L"not a sum of days: 1 for day 1, 2 for day 2, 4 for day 3 and so on");
    }
    if (isLost_) {
      Step step = DeletionStep(reading_.job);
      step.text += L" and registers none";
      return step;
    }
    Job job;
    job.name = reading_.job;
    job.program = program;
    job.every = static_cast<Job::Every>(kind - Task::kDaily);
    job.days = static_cast<std::uint32_t>(kind == Task::kWeekly ? weekdays : monthDays);
    return RegistrationStep(job, Text(Task::kExeArguments),
                            L"from " + Text(Task::kRuntime) + L" on");
  }

  // The helper deletes an older job before the scheduler can refuse the new one.
  void Lose(Severity severity, Task::Param param, const std::wstring& why) {
    isLost_ = true;
    found_.Add(severity, Line(param),
               ShownBytes(kParamKeys[param]) + L" is " + Shown(Text(param)) + L", " + why +
                   L". The scheduler refuses such a job, and by then an existing one of that name "
                   L"is gone.");
  }

  const TaskLines& lines_;
  FileFindings& found_;
  TaskReading& reading_;
  std::array<std::int32_t, Task::kParamCount> numbers_ = {};
  bool isLost_ = false;
};

void Read(const std::filesystem::path& path, Hold hold, const Options& options,
          FileFindings& found, TaskReading& reading) {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const std::wstring fault =
      hold == Hold::kYes
          ? ReadWhole(path, GENERIC_READ | DELETE, FILE_SHARE_READ, reading.file, reading.bytes)
          : ReadWhole(path, GENERIC_READ, kShareAll, reading.file, reading.bytes);
  reading.report.exists = GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
  if (!fault.empty()) return found.Fail(0, L"The task file" + fault);
  if (!HelperReads(path.native())) {
    return found.Fail(0, L"The file's path holds characters that the system's code page lacks, so "
                         L"the helper looks for " +
                             Shown(FromHelper(ForHelper(path.native()))) +
                             L". Use another name.");
  }
  const std::wstring drive = DriveFault(FullPath(path.native()));
  if (!drive.empty()) found.Harm(0, drive);

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
  FileFindings found(taskFile, reading.report);
  try {
    Read(taskFile, hold, options, found, reading);
  } catch (const std::bad_alloc&) {
    found.Fail(0, L"The check takes more memory than there is. Use smaller files.");
  }
  const auto place = [&](const Finding& finding) {
    return std::make_tuple(finding.file != taskFile, finding.line);
  };
  std::stable_sort(
      reading.report.findings.begin(), reading.report.findings.end(),
      [&](const Finding& left, const Finding& right) { return place(left) < place(right); });
  return reading;
}

Report Check(const TaskFile& task, const Options& options) {
  return ReadTask(task.path, Hold::kNo, options).report;
}

}  // namespace uaclient
