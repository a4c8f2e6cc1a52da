#include "inifile/ini_file.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include "inifile/ini_parser.h"

namespace corekit {
namespace {

auto InSection(const std::string& section) {
  return [&section](const IniRecord& record) { return record.Section == section; };
}

auto Matching(const std::string& key, const std::string& section) {
  return [&key, &section](const IniRecord& record) {
    return record.Section == section && record.Key == key;
  };
}

CIniFile::Record Copied(const IniRecord& record) {
  return {record.Comments, record.Commented, std::string(record.Section), std::string(record.Key),
          std::string(record.Value)};
}

template <typename Records>
bool WriteRecords(const std::string& file, const Records& list) {
  std::ofstream stream(file);
  if (!stream) return false;

  for (const auto& record : list) {
    stream << record.Comments;
    if (record.Commented != ' ') stream << record.Commented;
    if (record.Key.empty()) {
      stream << '[' << record.Section << ']';
    } else {
      stream << record.Key << '=' << record.Value;
    }
    stream << std::endl;
  }
  return true;
}

}  // namespace

std::string CIniFile::GetValue(std::string key, std::string section, std::string file) {
  const auto found = GetRecord(std::move(key), std::move(section), std::move(file));
  return found.empty() ? std::string() : found.front().Value;
}

bool CIniFile::SetValue(std::string key, std::string value, std::string section, std::string file) {
  const auto text = ReadIniText(file);
  if (!text) return false;
  std::vector<IniRecord> list;
  ForEachIniRecord(*text, [&](IniRecord record) { list.push_back(std::move(record)); });

  const auto entry = std::find_if(list.begin(), list.end(), Matching(key, section));
  const auto header = std::find_if(list.begin(), list.end(), InSection(section));
  if (header == list.end()) {
    list.push_back({"", ' ', section, "", ""});
    list.push_back({"", ' ', section, key, value});
  } else if (entry == list.end()) {
    list.insert(std::next(header), {"", ' ', section, key, value});
  } else {
    entry->Value = value;
  }
  return WriteRecords(file, list);
}

std::vector<CIniFile::Record> CIniFile::GetRecord(std::string key, std::string section,
                                                  std::string file) {
  std::vector<Record> found;
  const auto matches = Matching(key, section);
  // Reads on after a match: a header without "]" is an error wherever it stands.
  ForEachIniRecord(ReadIniText(file).value_or(""), [&](const IniRecord& record) {
    if (found.empty() && matches(record)) found.push_back(Copied(record));
  });
  return found;
}

bool CIniFile::Load(std::string file, std::vector<Record>& list) {
  const auto text = ReadIniText(file);
  if (!text) return false;
  list.clear();
  ForEachIniRecord(*text, [&](const IniRecord& record) { list.push_back(Copied(record)); });
  return true;
}

bool CIniFile::Save(std::string file, const std::vector<Record>& list) {
  return WriteRecords(file, list);
}

void CIniFile::Trim(std::string& text, const std::string& set, int mode) {
  text = std::string(Trimmed(text, set, mode));
}

}  // namespace corekit
