#include "uactask/task_file.h"

#include <algorithm>
#include <stdexcept>

#include "inifile/ini_file.h"
#include "inifile/ini_parser.h"

namespace uactask {
namespace {

std::string KeyOf(std::int32_t index) { return kParamKeys.at(static_cast<std::size_t>(index)); }

}  // namespace

const std::string& RequireEntry(const TaskParams& entries, std::int32_t index) {
  const auto found = entries.find(index);
  if (found == entries.end()) throw std::out_of_range("invalid map<K, T> key");
  return found->second;
}

TaskParams ParseParams(std::string_view text) {
  TaskParams params;
  corekit::ForEachIniRecord(text, [&params](const corekit::IniRecord& record) {
    const auto key = std::find(kParamKeys.begin(), kParamKeys.end(), record.Key);
    if (record.Section != kTaskSection || key == kParamKeys.end()) return;
    params.emplace(static_cast<std::int32_t>(key - kParamKeys.begin()), record.Value);
  });
  for (std::size_t i = 0; i < kParamKeys.size(); ++i) params[static_cast<std::int32_t>(i)];
  return params;
}

TaskParams ReadParams(const std::string& file) {
  return ParseParams(corekit::ReadIniText(file).value_or(""));
}

bool WriteParam(std::int32_t index, const std::string& value, const std::string& file) {
  return corekit::CIniFile::SetValue(KeyOf(index), value, kTaskSection, file);
}

std::string FormatTaskFile(std::int32_t type, const TaskParams& params) {
  std::string text = std::string("[") + kTaskSection + "]\r\n";
  text += std::string(kTypeKey) + "=" + std::to_string(type) + "\r\n";
  for (const auto& [index, value] : params) text += KeyOf(index) + "=" + value + "\r\n";
  return text;
}

// Looks at bytes, because "[" can be the second byte of a Chinese or Japanese character.
bool FitsTaskFile(const std::string& value) {
  const auto breaksLine = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '['; };
  return std::none_of(value.begin(), value.end(), breaksLine) &&
         (value.empty() || value.back() != ' ');
}

}  // namespace uactask
