// The dialect of task files, without the files: lines of text become records, whose texts are views
// into it, so that a section's name is never copied, however many records it has. For this library
// and for programs that show what it would read; everyone else uses CIniFile.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace corekit {

// What surrounds lines and their parts without belonging to them, and what begins a comment.
constexpr char kIniBlanks[] = " \t\n\r";
constexpr bool IsIniCommentSign(char c) { return c == '#' || c == ';'; }

// As CIniFile::Record. The views live as long as the text that was parsed.
struct IniRecord {
  std::string Comments;
  char Commented = ' ';
  std::string_view Section;
  std::string_view Key;
  std::string_view Value;
};

// Turns lines into records; knows the section it is in and the comment lines that wait for the
// next entry.
class IniParser {
 public:
  // Takes the lines in their order, each without its line break. Returns no record for a line that
  // is not kept: an empty one, a comment, or one that is no entry and stands below a comment.
  // Throws std::out_of_range for a header without "]".
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

// Calls visit(IniRecord) for each record of the text. Throws as IniParser does, at the fault.
template <typename Visit>
void ForEachIniRecord(std::string_view text, Visit visit) {
  IniParser parser;
  ForEachIniLine(text, [&](const IniLine& line) {
    if (!line.ended) return;
    if (auto record = parser.Parse(line.text)) visit(std::move(*record));
  });
}

// The text of a file's bytes, its line ends as "\n"; what follows a Ctrl+Z is not seen.
std::string IniText(std::string_view bytes);

// The file's text. `file` is UTF-8, converted to the ANSI code page before it is opened. None when
// it cannot be opened, cannot be read to its end, or is no file on a disk.
std::optional<std::string> ReadIniText(const std::string& file);

// `text` without the bytes of `set` at its ends, as CIniFile::Trim.
std::string_view Trimmed(std::string_view text, std::string_view set, int mode);

}  // namespace corekit
