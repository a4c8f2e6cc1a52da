// The task file's format: an INI file (inifile/ini_file.h) with one section, in which the type of
// the task and its parameters stand under these keys.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace uactask {

// A task's parameters by index; the indexes are those of kParamKeys.
using TaskParams = std::map<std::int32_t, std::string>;

constexpr char kTaskSection[] = "Task";
constexpr char kTypeKey[] = "type";

// The keys of the scheduler task's eight parameters (UACTaskScheduler::Param), then that of the
// file-operation task (UACTaskFileOp::kXmlPath).
constexpr std::array<const char*, 9> kParamKeys = {"task_name",    "exe_path",      "exe_arguments",
                                                   "runtime",      "author_name",   "time_type",
                                                   "time_weekday", "time_monthday", "xml_path"};

// The entry with this index. Throws std::out_of_range when there is none.
const std::string& RequireEntry(const TaskParams& entries, std::int32_t index);

// All parameters of a task file's text, byte for byte, those that it lacks as "". Throws
// std::out_of_range for a header line without "]".
TaskParams ParseParams(std::string_view text);

// The same of a file, which is read once; all are "" when that fails. `file` is UTF-8.
TaskParams ReadParams(const std::string& file);

// Sets a parameter in a file that exists, as CIniFile::SetValue does.
bool WriteParam(std::int32_t index, const std::string& value, const std::string& file);

// A whole task file. The parameters follow the type in the order of their indexes: the scheduler
// task's numbers come last, so that a file that was cut off lacks them, and fails. Values are taken
// as they stand; see FitsTaskFile.
std::string FormatTaskFile(std::int32_t type, const TaskParams& params);

// Whether a value reads back as it was written: no control character, which could end its line; no
// "[", which would make the line a header; no blank at its end, which would be trimmed.
bool FitsTaskFile(const std::string& value);

}  // namespace uactask
