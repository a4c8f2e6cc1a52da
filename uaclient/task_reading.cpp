#include <algorithm>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <boost/property_tree/ptree.hpp>
#include <cstdio>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "corekit/text.h"
#include "inifile/ini_parser.h"
#include "uaclient/file_access.h"
#include "uaclient/jobs.h"
#include "uaclient/path.h"
#include "uaclient/words.h"
#include "uaclient/work.h"
#include "uactask/operation_list.h"
#include "uactask/task_file.h"
#include "uactask/task_file_op.h"
#include "uactask/task_scheduler.h"
#include "xmlstore/document.h"
#include "xmlstore/nesting.h"
#include "xmlstore/xml_parse.h"

namespace uaclient {
namespace {

using namespace xmlstore;  // NOLINT
using boost::property_tree::ptree;
using Task = UACTaskScheduler;

// What is found in a file, on its way into the report.
struct FileFindings {
  // Line 0 means no line; an empty text is no finding. The helper fails because of an error.
  void Add(Severity severity, std::size_t line, std::wstring text) {
    if (text.empty()) return;
    report.helperFails |= severity == Severity::kError;
    report.findings.push_back({severity, std::move(text), file, line});
  }
  void Warn(std::size_t line, const std::wstring& text, Parts parts = {}) {
    Add(Severity::kWarning, line, Filled(text, parts));
  }
  void Fail(std::size_t line, const std::wstring& text, Parts parts = {}) {
    Add(Severity::kError, line, Filled(text, parts));
  }

  // What is relative, or on a drive of this user's own, may be another file for the helper.
  void CheckPath(std::size_t line, const std::wstring& path) {
    std::wstring full;
    const std::wstring fault = PathFault(path, {}, full);
    Add(full.empty() ? Severity::kHarmful : Severity::kWarning, line, fault);
    Add(Severity::kHarmful, line, DriveFault(full));
  }

  std::wstring file;
  Report& report;
};

std::wstring ShownUtf8(const std::string& text) { return Shown(Utf8ToWide(text)); }

// The lines in which the elements and comments of the first "task" of the first "root" begin.
std::vector<std::size_t> ItemLines(const char* text) {
  std::vector<std::size_t> lines;
  const char* counted = text;
  std::size_t line = 1;
  bool inRoot = false;
  bool inTask = false;
  NodeScanner scanner(text);
  for (XmlNode node; scanner.Next(node) && (!inTask || node.depth >= 3);) {
    line += static_cast<std::size_t>(std::count(counted, node.start, '\n'));
    counted = node.start;
    if (node.depth == 1) inRoot = node.name == kRootElement;
    if (node.depth == 2) inTask = inRoot && node.name == kTaskElement;
    if (node.depth == 3 && inTask) lines.push_back(line);
  }
  return lines;
}

void CheckAttributes(const ptree& attributes, std::size_t line, FileFindings& found) {
  const auto& names = OperationFieldNames();
  const auto isThere = [&](const auto& field) { return attributes.count(field.second) != 0; };
  if (attributes.size() != names.size() || !std::all_of(names.begin(), names.end(), isThere)) {
    std::wstring present;
    for (const auto& attribute : attributes) present += L" " + ShownUtf8(attribute.first);
    found.Warn(line,
               L"The item has these attributes:{}. The helper reads \"key\", \"src\", \"dec\" and "
               L"\"type\", and takes {} for one that is missing.",
               {present, ShownUtf8(kMissingField)});
  }
  const std::string type = attributes.get(names.at(kTypeField), std::string(kFileType));
  if (type != kFolderType && type != kFileType) {
    found.Warn(line, L"The type {} means a file. Write \"dir\" or \"file\".", {ShownUtf8(type)});
  }
}

// The lines of the items that count, by key.
using Items = std::map<std::string, std::size_t>;

Items ReadElements(const ptree& list, const std::vector<std::size_t>& lines, FileFindings& found) {
  Items items;
  auto next = lines.begin();
  for (const auto& [name, element] : list) {
    if (name == kAttributes) continue;
    const std::size_t line = next == lines.end() ? 0 : *next++;
    const auto attributes = element.get_child_optional(kAttributes);
    if (!attributes || name.find('.') != std::string::npos) {
      const std::wstring what = name == "<xmlcomment>" ? L"This is a comment"
                                : attributes           ? ShownUtf8(name) + L" has a dot in its name"
                                                       : ShownUtf8(name) + L" has no attributes";
      found.Fail(line, what + L", so the helper refuses the list. Change or remove it.");
      continue;
    }
    CheckAttributes(*attributes, line, found);
    if (element.size() > 1) {
      found.report.leavesOut = true;
      found.Warn(line, L"The helper leaves out what is inside the item. Put it after the item.");
    }
    const std::string key =
        attributes->get(OperationFieldNames().at(kKeyField), std::string(kMissingField));
    const auto [first, isNew] = items.try_emplace(key, line);
    if (isNew) continue;
    found.report.leavesOut = true;
    found.Warn(line, L"The key {} is in line {} already, so this item is left out. Change it.",
               {ShownUtf8(key), std::to_wstring(first->second)});
  }
  return items;
}

// Of keys that end in numbers, behind the same text, a larger one should not come first.
void CheckOrder(const Items& items, FileFindings& found) {
  std::string before;
  for (const auto& [key, line] : items) {
    constexpr const char* kDigits = "0123456789";
    const std::size_t start = key.find_last_not_of(kDigits) + 1;
    const bool areAlike = before.compare(0, start, key, 0, start) == 0 && start < key.size() &&
                          before.find_first_not_of(kDigits, start) == std::string::npos;
    if (areAlike && before.size() > key.size() && before[start] != '0') {
      return found.Warn(line, L"The key {} comes after {}, as text. Use keys of equal length.",
                        {ShownUtf8(key), ShownUtf8(before)});
    }
    before = key;
  }
}

// Reads the list in `work`, which stands in this file, and adds to the work.
void ReadList(const std::wstring& file, const Options& options, Work& work) {
  const char* const text = work.list.c_str();  // like the helper's, it ends at a NUL
  FileFindings found{file, work.result.report};
  XMLParse store;
  DocumentError why;
  if (!ParseDocument(text, store.GetTree(), &why)) {
    return found.Fail(why.line, L"The helper cannot read this: {}. Write well-formed XML in UTF-8.",
                      {Utf8ToWide(why.message)});
  }
  const std::size_t odd = LineOfMismatch(text);
  if (odd != 0) found.Warn(odd, L"This closing tag does not match its element. Correct it.");
  const ptree& document = store.GetTree();
  const auto list = document.get_child_optional(kOperationListPath);
  if (!list) {
    return found.Fail(0, L"There is no \"task\" in a \"root\". Write <root><task>…</task></root>.");
  }
  if (document.count(kRootElement) + document.get_child(kRootElement).count(kTaskElement) > 2) {
    found.report.leavesOut = true;
    found.Warn(0, L"Only the first \"task\" in the first \"root\" is read. Put all items there.");
  }
  const Items items = ReadElements(*list, ItemLines(text), found);
  const auto operations = ReadOperationList(store);
  if (!operations) return;  // because of what has been named
  if (items.empty()) found.Warn(0, L"The list is empty, so nothing is copied. Add an item.");
  CheckOrder(items, found);
  for (const auto& [key, line] : items) {
    const auto& [from, to, isFolder] = (*operations)[work.copies.size()];  // ordered alike
    const auto kind = isFolder ? Step::Kind::kReplaceFolder : Step::Kind::kCopyFile;
    work.copies.push_back({kind, Utf8ToWide(from), Utf8ToWide(to), line, {}, {}});
  }
  SurveyCopies(work, options, file);
}

constexpr std::int32_t kType = -1;  // beside the parameters

std::string KeyOf(std::int32_t param) {
  return param == kType ? kTypeKey : kParamKeys[static_cast<std::size_t>(param)];
}

std::wstring ShownBytes(std::string_view text) { return Shown(FromHelper(std::string(text))); }

// 2026-01-31T08:00:00 and, perhaps, Z or an offset such as +01:00.
bool IsStartBoundary(const std::string& text) {
  const std::string kForm = "0000-00-00T00:00:00";
  std::string form = text;
  std::replace_if(form.begin(), form.end(), [](char c) { return c >= '0' && c <= '9'; }, '0');
  const bool hasForm =
      form == kForm || form == kForm + "Z" || form == kForm + "+00:00" || form == kForm + "-00:00";
  SYSTEMTIME time = {};
  FILETIME ignored;
  unsigned offset[2] = {};
  std::sscanf(text.c_str(), "%4hu-%2hu-%2huT%2hu:%2hu:%2hu%*c%2u:%2u", &time.wYear, &time.wMonth,
              &time.wDay, &time.wHour, &time.wMinute, &time.wSecond, &offset[0], &offset[1]);
  return hasForm && SystemTimeToFileTime(&time, &ignored) && offset[0] < 15 && offset[1] < 60;
}

// Goes through a task file by the helper's own parser.
class TaskReader {
 public:
  TaskReader(FileFindings& found, Work& work) : found_(found), work_(work) {}

  void Read(const Options& options) {
    try {
      ReadLines();
    } catch (const std::out_of_range&) {
      return found_.Fail(line_, L"A line with \"[\" is a header. Add its \"]\", or leave it out.");
    }
    const auto type = Number(kType);
    if (type == Task::kType) return ReadJob();
    if (type == UACTaskFileOp::kType) return ReadListPath(options);
    const bool hasSection = (sections_ + ",").find(", [Task],") != std::string::npos;
    if (Must(kType, !hasSection, Severity::kError, L"0 for a job or 1 for a list of copies")) {
      found_.Fail(0, L"There is no section \"[Task]\"{}. Write it so, above the keys: case counts.",
                  {sections_.empty() ? L"" : L", but " + ShownBytes(sections_.substr(2))});
    }
  }

 private:
  // What the section holds for a key; line 0 where it does not have the key.
  struct Entry {
    std::size_t line = 0;
    std::string value;
  };

  const Entry& Get(std::int32_t param) { return entries_[KeyOf(param)]; }
  std::size_t Line(std::int32_t param) { return Get(param).line; }
  std::wstring Text(std::int32_t param) { return FromHelper(Get(param).value); }
  std::optional<std::int32_t> Number(std::int32_t param) {
    std::int32_t number = 0;
    const bool isNumber = boost::conversion::try_lexical_convert(Get(param).value, number);
    return isNumber ? std::optional(number) : std::nullopt;
  }

  // Names a value that is not right. Because of one that is no error the job is deleted.
  bool Must(std::int32_t param, bool isRight, Severity severity, const wchar_t* wanted) {
    if (isRight) return true;
    const auto& [line, value] = Get(param);
    const std::wstring is = line == 0 ? L"missing" : value.empty() ? L"empty" : ShownBytes(value);
    std::wstring text = ShownBytes(KeyOf(param)) + L" is " + is;
    if (severity != Severity::kError) text += L", so the helper only deletes the job";
    found_.Add(severity, line, text + L". Write " + wanted + L".");
    return false;
  }

  // Throws std::out_of_range where the helper cannot read the file.
  void ReadLines() {
    constexpr std::size_t kMaxNamed = 20;  // with so many odd lines it is no task file
    if (work_.task.find('\0') != std::string::npos) {
      found_.Warn(1, L"The file is in UTF-16 or holds NUL bytes. Save it in the code page.");
      oddLines_ = kMaxNamed + 1;
    }
    ForEachIniLine(IniText(work_.task), [&](const IniLine& line) {
      line_ = line.number;
      const std::wstring odd = ReadLine(line);
      if (odd.empty() || ++oddLines_ > kMaxNamed + 1) return;
      found_.Warn(line_, oddLines_ <= kMaxNamed ? odd : L"This line is odd, and others may be.");
    });
  }

  // What is odd about the line; L"" when nothing is.
  std::wstring ReadLine(const IniLine& line) {
    const std::string_view text = Trimmed(line.text, kIniBlanks, 0);
    if (text.empty()) return {};
    if (!line.ended) return L"The last line has no line break, so the helper skips it. Add one.";
    const auto record = parser_.Parse(text);
    if (text.substr(0, 3) == "\xEF\xBB\xBF") {
      return L"The helper takes the byte-order mark for text. Save the file without it.";
    }
    if (text.find('[') != std::string_view::npos) {
      const std::string header = "[" + std::string(record->Section) + "]";
      sections_ += ", " + header;
      if (text[0] == '[') return {};
      return L"A \"[\" makes the line a header, " + ShownBytes(header) + L". Leave it out.";
    }
    if (record && !record->Key.empty()) return ReadEntry(*record);
    if (IsIniCommentSign(text[0])) return {};
    return ShownBytes(text) + L" is no section, key or comment, so the helper skips it. Remove it.";
  }

  std::wstring ReadEntry(const IniRecord& record) {
    const std::wstring key = ShownBytes(record.Key);
    const bool isComment = record.Commented != ' ';
    const bool isInTask = record.Section == kTaskSection;
    const bool isKnown =
        record.Key == kTypeKey || std::count(kParamKeys.begin(), kParamKeys.end(), record.Key) != 0;
    if (!isInTask || !isKnown) {
      if (isComment || (!isInTask && !isKnown)) return {};
      std::wstring known = ShownBytes(kTypeKey);
      for (const char* param : kParamKeys) known += L", " + ShownBytes(param);
      return key + L" is an unknown key here. In \"[Task]\" the helper reads " + known +
             L", with no blank before the \"=\".";
    }
    auto& [first, value] = entries_[std::string(record.Key)];
    if (first != 0) {
      return key + L" is in line " + std::to_wstring(first) + L" too, which counts. Remove one.";
    }
    first = line_;
    value = record.Value;
    if (isComment) return key + L" is commented out but counts all the same. Remove the line.";
    if (value.find_first_of(" \t") == 0) {
      return key + L" has a blank behind the \"=\", which becomes part of the value. Remove it.";
    }
    const std::wstring asUtf8 = Utf8ToWide(value);
    if (asUtf8.empty() || asUtf8 == FromHelper(value)) return {};
    return key + L" is in UTF-8, which the helper does not read. Save the file in the code page.";
  }

  void ReadJob() {
    const std::wstring name = Text(Task::kTaskName);
    const bool isDeletion = Text(Task::kExeArguments).empty();
    found_.Warn(Line(Task::kTaskName), JobNameFault(L"\"task_name\"", name));
    for (const auto param : {Task::kTimeType, Task::kTimeWeekday, Task::kTimeMonthday}) {
      Must(param, Number(param).has_value(), Severity::kError, L"a number, also to delete a job");
    }
    if (found_.report.helperFails) return;  // before it does anything
    found_.report.steps.push_back(isDeletion ? ReadDeletion(name) : ReadRegistration(name));
  }

  // It is meant when the key is there, no program is, and no line is odd that may have been the
  // arguments.
  Step ReadDeletion(const std::wstring& name) {
    const bool isEmpty = Line(Task::kExeArguments) != 0 && Text(Task::kExePath).empty();
    const bool isJob = Line(Task::kExePath) + Line(Task::kRuntime) + Line(Task::kAuthorName) != 0;
    Must(Task::kExeArguments, isEmpty && oddLines_ == 0,
         isJob || oddLines_ != 0 ? Severity::kHarmful : Severity::kWarning,
         L"an argument or, if that is meant, \"exe_arguments=\" and no \"exe_path\"");
    return DeletionStep(name);
  }

  Step ReadRegistration(const std::wstring& name) {
    const std::wstring program = Text(Task::kExePath);
    const std::int32_t kind = *Number(Task::kTimeType);
    const auto days = kind == Task::kWeekly ? Task::kTimeWeekday : Task::kTimeMonthday;
    const std::wstring rhythm = Rhythm(kind, static_cast<std::uint32_t>(*Number(days)));
    found_.Add(IsAbsolute(Expanded(program)) ? Severity::kWarning : Severity::kHarmful,
               Line(Task::kExePath), ProgramFault(L"\"exe_path\"", program));
    bool isGood = Must(Task::kTimeType, kind >= Task::kDaily && kind <= Task::kMonthly,
                       Severity::kError, L"2 (daily), 3 (weekly) or 4 (monthly)");
    isGood &= Must(days, !isGood || !rhythm.empty(), Severity::kHarmful,
                   L"a sum of days: 1 for Sunday or day 1, 2 for Monday or day 2, 4 and so on");
    isGood &= Must(Task::kRuntime, IsStartBoundary(Get(Task::kRuntime).value), Severity::kHarmful,
                   L"a date and time such as 2026-01-31T08:00:00");
    if (!isGood) return DeletionStep(name, L" and registers none");
    return RegistrationStep(name, program, Text(Task::kExeArguments),
                            rhythm + L" from " + Text(Task::kRuntime) + L" on");
  }

  void ReadListPath(const Options& options) {
    constexpr std::int32_t kPath = UACTaskFileOp::kXmlPath;
    const std::wstring path = Text(kPath);
    if (!Must(kPath, !path.empty(), Severity::kError, L"the list's whole path")) return;
    found_.CheckPath(Line(kPath), path);
    WholeFile file = ReadWhole(path, GENERIC_READ, kShareAll);
    if (!file.fault.empty()) {
      return found_.Fail(Line(kPath), L"The list {}{}", {Shown(path), file.fault});
    }
    work_.list = std::move(file.bytes);
    ReadList(path, options, work_);
  }

  FileFindings& found_;
  Work& work_;
  IniParser parser_;
  std::size_t line_ = 0;
  std::map<std::string, Entry> entries_;  // by key
  std::string sections_;                  // all headers
  std::size_t oddLines_ = 0;              // that are not what they seem
};

}  // namespace

Work WorkOf(const TaskFile& task, const Options& options, Hold hold) {
  const std::wstring path = task.path.wstring();
  Work work;
  Report& report = work.result.report;
  FileFindings found{path, report};
  WholeFile file = hold == Hold::kYes ? ReadWhole(path, GENERIC_READ | DELETE, FILE_SHARE_READ)
                                      : ReadWhole(path, GENERIC_READ, kShareAll);
  report.exists = Exists(path);
  if (hold == Hold::kYes) work.taskFile = std::move(file.handle);
  work.task = std::move(file.bytes);
  if (!file.fault.empty()) {
    found.Fail(0, L"The task file{}", {file.fault});
  } else if (!HelperReads(path)) {
    found.Fail(0, L"The code page lacks characters of the file's path. Use another name.");
  } else {
    found.CheckPath(0, path);
    TaskReader(found, work).Read(options);
  }
  const auto isBefore = [&](const Finding& left, const Finding& right) {
    return std::pair(left.file != path, left.line) < std::pair(right.file != path, right.line);
  };
  std::stable_sort(report.findings.begin(), report.findings.end(), isBefore);
  return work;
}

}  // namespace uaclient
