// Parses task-file text in memory. The records hold views into that text, so a section's name is
// never copied, however many records it has. For this library and for programs that show what it
// would read; everyone else uses CIniFile.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace corekit {

// The characters that are trimmed from both ends of a line, and those that begin a comment.
constexpr char kIniBlanks[] = " \t\n\r";
constexpr bool IsIniCommentSign(char c) { return c == '#' || c == ';'; }

// Like CIniFile::Record. The views are valid as long as the parsed text.
struct IniRecord {
  std::string Comments;
  char Commented = ' ';
  std::string_view Section;
  std::string_view Key;
  std::string_view Value;
};

// Turns lines into records. Keeps track of the current section, and of the comment lines that wait
// for the next header or key.
class IniParser {
 public:
  // Takes the lines in file order, each without its line break. Returns no record for an empty
  // line, for a comment, and for a line below a comment that is neither header nor key. Throws
  // std::out_of_range for a header without "]".
  std::optional<IniRecord> Parse(std::string_view line);

 private:
  void TakeComments(IniRecord& record);

  std::string pendingComments_;
  std::string_view section_;
};

struct IniLine {
  std::size_t number;  // from 1
  std::string_view text;
  bool ended;  // by a line break; a last line without one does not count
};

// Calls visit(IniLine) for each line of the text.
template <typename Visit>
void ForEachIniLine(std::string_view text, Visit visit) {
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    const bool ended = end != std::string_view::npos;
    visit(IniLine{number, text.substr(0, end), ended});
    text.remove_prefix(ended ? end + 1 : text.size());
  }
}

// Calls visit(IniRecord) for each record of the text. Throws as IniParser::Parse does, when it
// reaches the line.
template <typename Visit>
void ForEachIniRecord(std::string_view text, Visit visit) {
  IniParser parser;
  ForEachIniLine(text, [&](const IniLine& line) {
    if (!line.ended) return;
    if (auto record = parser.Parse(line.text)) visit(std::move(*record));
  });
}

// The text in a file's bytes: CR LF becomes "\n", and the text ends at the first Ctrl+Z (0x1A).
std::string IniText(std::string_view bytes);

// The text of the file whose UTF-8 name is `file`, converted to the ANSI code page. None when the
// file cannot be opened, cannot be read to its end, or is not on a disk.
std::optional<std::string> ReadIniText(const std::string& file);

// `text` without the bytes of `set` at its ends. For `mode` see CIniFile::Trim.
std::string_view Trimmed(std::string_view text, std::string_view set, int mode);

}  // namespace corekit
