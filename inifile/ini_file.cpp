#include "inifile/ini_file.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

#include "corekit/text.h"

namespace corekit {
namespace {

using Record = CIniFile::Record;
using Records = std::vector<Record>;

constexpr char kBlanks[] = " \t\n\r";

bool IsCommentSign(char c) { return c == '#' || c == ';'; }

bool Contains(const std::string& text, char c) { return text.find(c) != std::string::npos; }

// The name in a header line. The first character goes whichever it is, so "x[y]" names "[y".
std::string HeaderName(std::string line) {
  line.erase(0, 1);
  const std::size_t end = line.find(']');
  if (end == std::string::npos) throw std::out_of_range("invalid string position");
  line.resize(end);
  return line;
}

// Turns lines into records; knows the section it is in and the comment lines that wait for the
// next entry.
class Parser {
 public:
  // Takes a trimmed line that is not empty. Returns no record for a line that is not kept.
  std::optional<Record> Parse(std::string line) {
    Record record;
    if (IsCommentSign(line.front())) {
      if (!Contains(line, '[') && !Contains(line, '=')) {
        pendingComments_ += line + "\n";
        return std::nullopt;
      }
      record.Commented = line.front();
      line.erase(0, 1);
      CIniFile::Trim(line, kBlanks, 0);
    }

    if (Contains(line, '[')) {
      line = HeaderName(std::move(line));
      section_ = line;
      TakeComments(record);
    }
    // A header whose name holds "=" becomes a key of the section that it opens.
    const std::size_t equals = line.find('=');
    if (equals != std::string::npos) {
      TakeComments(record);
      record.Key = line.substr(0, equals);
      record.Value = line.substr(equals + 1);
    }
    // Headers and keys have taken the comments; any other line is kept, as an empty record, only
    // when there were none.
    if (!pendingComments_.empty()) return std::nullopt;
    return record;
  }

 private:
  void TakeComments(Record& record) {
    record.Comments = std::exchange(pendingComments_, {});
    record.Section = section_;
  }

  std::string pendingComments_;
  std::string section_;
};

auto InSection(const std::string& section) {
  return [&section](const Record& record) { return record.Section == section; };
}

auto Matching(const std::string& key, const std::string& section) {
  return [&key, &section](const Record& record) {
    return record.Section == section && record.Key == key;
  };
}

Record MakeRecord(const std::string& section, const std::string& key, const std::string& value) {
  Record record;
  record.Section = section;
  record.Key = key;
  record.Value = value;
  return record;
}

}  // namespace

std::string CIniFile::GetValue(std::string key, std::string section, std::string file) {
  const Records found = GetRecord(std::move(key), std::move(section), std::move(file));
  return found.empty() ? std::string() : found.front().Value;
}

bool CIniFile::SetValue(std::string key, std::string value, std::string section, std::string file) {
  Records list;
  if (!Load(file, list)) return false;

  const auto entry = std::find_if(list.begin(), list.end(), Matching(key, section));
  const auto header = std::find_if(list.begin(), list.end(), InSection(section));
  if (header == list.end()) {
    list.push_back(MakeRecord(section, "", ""));
    list.push_back(MakeRecord(section, key, value));
  } else if (entry == list.end()) {
    list.insert(std::next(header), MakeRecord(section, key, value));
  } else {
    entry->Value = value;
  }
  return Save(file, list);
}

Records CIniFile::GetRecord(std::string key, std::string section, std::string file) {
  Records list;
  Load(std::move(file), list);
  const auto found = std::find_if(list.begin(), list.end(), Matching(key, section));
  if (found == list.end()) return {};
  return {std::move(*found)};
}

bool CIniFile::Load(std::string file, Records& list) {
  std::ifstream stream(Utf8ToAnsi(file));
  if (!stream) return false;

  list.clear();
  Parser parser;
  // Reading that ran into the end of the file has found a line without a line break.
  for (std::string line; std::getline(stream, line) && !stream.eof();) {
    Trim(line, kBlanks, 0);
    if (line.empty()) continue;
    if (auto record = parser.Parse(line)) list.push_back(std::move(*record));
  }
  return true;
}

bool CIniFile::Save(std::string file, const Records& list) {
  std::ofstream stream(file);
  if (!stream) return false;

  for (const Record& record : list) {
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

void CIniFile::Trim(std::string& text, const std::string& set, int mode) {
  if (mode == 0 || mode == 2) text.erase(text.find_last_not_of(set) + 1);
  if (mode == 0 || mode == 1) text.erase(0, text.find_first_not_of(set));
}

}  // namespace corekit
