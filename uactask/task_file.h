// The task file's format: an INI file (inifile/ini_file.h) whose section "Task" holds the task's
// type and parameters under these keys. docs/formats.md has the details.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace uactask {

// A task's parameters by index, which is that of their key in kParamKeys.
using TaskParams = std::map<std::int32_t, std::string>;

constexpr char kTaskSection[] = "Task";
constexpr char kTypeKey[] = "type";

// The keys of the scheduler task's eight parameters (UACTaskScheduler::Param), then the key of the
// file-operation task's one (UACTaskFileOp::kXmlPath).
constexpr std::array<const char*, 9> kParamKeys = {"task_name",    "exe_path",      "exe_arguments",
                                                   "runtime",      "author_name",   "time_type",
                                                   "time_weekday", "time_monthday", "xml_path"};

// The entry with this index. Throws std::out_of_range when there is none.
const std::string& RequireEntry(const TaskParams& entries, std::int32_t index);

// All parameters in a task file's text, as the bytes stand there. Those that it lacks are "".
// Throws std::out_of_range for a header line without "]".
TaskParams ParseParams(std::string_view text);

// The same for a file (UTF-8 path), which is read once. All are "" when it cannot be read.
TaskParams ReadParams(const std::string& file);

// Sets one parameter in an existing file, as CIniFile::SetValue does.
bool WriteParam(std::int32_t index, const std::string& value, const std::string& file);

// The text of a whole task file. The parameters follow the type in the order of their indexes. The
// scheduler task's numbers come last, so a file that is cut off lacks one of them and fails. Values
// are not checked: see FitsTaskFile.
std::string FormatTaskFile(std::int32_t type, const TaskParams& params);

// Whether a value reads back as it was written. It must hold no control character, which could end
// its line; no "[", which would make the line a header; and no blank at its end, which would be
// trimmed.
bool FitsTaskFile(const std::string& value);

}  // namespace uactask
