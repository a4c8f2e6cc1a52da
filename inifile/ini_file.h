// Reader and writer of task files: a plain INI dialect with rules of its own.
//
// - A line counts only if a line break follows it: a last line without one is never seen.
// - Lines lose blanks, tabs and carriage returns at both ends; empty lines are skipped.
// - A line with "[" is a header. Its first character is dropped, the text up to the first "]" is
//   the section's name; a header without "]" throws std::out_of_range.
// - Any other line with "=" is a key: everything before the first "=" is the key, everything after
//   it the value. Blanks around "=" belong to them. A header whose name holds "=" is a key as well.
// - "#" or ";" starts a comment, unless the line also holds "[" or "=": then it is an entry that
//   was commented out, which is found and changed like an active one.
// - Names are compared byte for byte; no encoding and no byte-order mark is interpreted.
//
// Every call works on the file's current content; nothing is cached and nothing is locked.
#pragma once

#include <string>
#include <vector>

namespace corekit {

class CIniFile {
 public:
  // One kept line. A header has an empty key and value.
  struct Record {
    std::string Comments;  // the comment lines above this one, each ending in "\n"
    char Commented = ' ';  // ' ', or the "#" or ";" that comments this line out
    std::string Section;
    std::string Key;
    std::string Value;
  };

  virtual ~CIniFile() = default;

  // The value of the first such key, or "" when the section or the key is missing, or the file
  // cannot be read to its end.
  // Throws std::out_of_range for a header line without "]".
  static std::string GetValue(std::string key, std::string section, std::string file);

  // Sets the value of the first such key. A missing section is added at the end of the file, a
  // missing key directly below its section's header. Rewriting normalises the file: blank lines,
  // comments at its end and a last line without a line break vanish, any other line that is no
  // entry becomes "[]", and a line "=x" a header without its value.
  // Returns false, with the file as it was, when it cannot be opened, cannot be read to its end or
  // is no file on a disk; it is never created. But for a name outside ASCII, which Save takes for
  // another one: then a file of that name is. A write that fails after that is not noticed. Throws
  // std::out_of_range for a header line without
  // "]".
  static bool SetValue(std::string key, std::string value, std::string section, std::string file);

  // The first record with this key and section (both compared byte for byte), or none.
  static std::vector<Record> GetRecord(std::string key, std::string section, std::string file);

  // Reads all records, each with a copy of its section's name: only this list can grow faster than
  // the file does. `file` is UTF-8, converted to the ANSI code page before it is opened.
  // Returns false, with `list` untouched, when it cannot be opened, cannot be read to its end or is
  // no file on a disk.
  static bool Load(std::string file, std::vector<Record>& list);

  // Replaces the file by these records. The bytes of `file` are the name in the ANSI code page
  // as they stand: for names outside ASCII this is not the file that Load opens.
  // Returns false when it cannot be opened.
  static bool Save(std::string file, const std::vector<Record>& list);

  // Removes the bytes of `set` from the ends of `text`: mode 0 both ends, 1 the left, 2 the right.
  static void Trim(std::string& text, const std::string& set, int mode);
};

}  // namespace corekit
