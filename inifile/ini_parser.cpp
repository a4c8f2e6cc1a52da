#include "inifile/ini_parser.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "corekit/disk_file.h"
#include "corekit/text.h"

namespace corekit {
namespace {

constexpr char kEndOfText = '\x1A';  // Ctrl+Z

bool Contains(std::string_view text, char c) { return text.find(c) != std::string_view::npos; }

// The section's name in a header line. The first character is dropped, whatever it is: "x[y]" names
// the section "[y".
std::string_view HeaderName(std::string_view line) {
  line.remove_prefix(1);
  const std::size_t end = line.find(']');
  if (end == std::string_view::npos) throw std::out_of_range("invalid string position");
  return line.substr(0, end);
}

}  // namespace

std::optional<IniRecord> IniParser::Parse(std::string_view line) {
  line = Trimmed(line, kIniBlanks, 0);
  if (line.empty()) return std::nullopt;

  IniRecord record;
  if (IsIniCommentSign(line.front())) {
    if (!Contains(line, '[') && !Contains(line, '=')) {
      pendingComments_.append(line) += '\n';
      return std::nullopt;
    }
    record.Commented = line.front();
    line = Trimmed(line.substr(1), kIniBlanks, 0);
  }

  if (Contains(line, '[')) {
    section_ = line = HeaderName(line);
    TakeComments(record);
  }
  // A header whose name holds "=" becomes a key of the section that it opens.
  const std::size_t equals = line.find('=');
  if (equals != std::string_view::npos) {
    TakeComments(record);
    record.Key = line.substr(0, equals);
    record.Value = line.substr(equals + 1);
  }
  // Headers and keys have taken the pending comments. Any other line becomes an empty record, but
  // only when no comments are pending.
  if (!pendingComments_.empty()) return std::nullopt;
  return record;
}

void IniParser::TakeComments(IniRecord& record) {
  record.Comments = std::exchange(pendingComments_, {});
  record.Section = section_;
}

std::string IniText(std::string_view bytes) {
  bytes = bytes.substr(0, bytes.find(kEndOfText));
  std::string text;
  text.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const bool isBeforeLineFeed = bytes[i] == '\r' && bytes.substr(i + 1, 1) == "\n";
    if (!isBeforeLineFeed) text += bytes[i];
  }
  return text;
}

std::optional<std::string> ReadIniText(const std::string& file) {
  const auto bytes = ReadDiskFile(AnsiToWide(Utf8ToAnsi(file)));
  if (!bytes) return std::nullopt;
  return IniText(*bytes);
}

std::string_view Trimmed(std::string_view text, std::string_view set, int mode) {
  if (mode == 0 || mode == 2) text = text.substr(0, text.find_last_not_of(set) + 1);
  if (mode == 0 || mode == 1) {
    text.remove_prefix(std::min(text.find_first_not_of(set), text.size()));
  }
  return text;
}

}  // namespace corekit
