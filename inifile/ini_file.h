// Reader and writer of task files, which are INI files with rules of their own: docs/formats.md
// lists them under "The task file". Names and values are bytes; no encoding is interpreted.
//
// Every call works on the file's current content; nothing is cached and nothing is locked. For
// reading, `file` is UTF-8 and converted to the ANSI code page. For writing, its bytes are the name
// in the ANSI code page as they stand. Outside ASCII these are two different files.
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

  // The value of the first such key, commented out or not. Returns "" when the section or the key
  // is missing, or the file cannot be read to its end. Throws std::out_of_range for a header
  // without "]".
  static std::string GetValue(std::string key, std::string section, std::string file);

  // Sets the value of the first such key, commented out or not. A missing section is added at the
  // end of the file, a missing key directly below its section's header. The whole file is written
  // anew: blank lines, comments at its end and a last line without a line break are lost, a line
  // that is neither header nor key nor comment becomes "[]", and a line "=x" becomes a header.
  //
  // Returns false when the file is missing, cannot be opened, cannot be read to its end, or is not
  // on a disk. It is unchanged then. Errors while writing go unnoticed. Throws as GetValue does,
  // before anything is written.
  static bool SetValue(std::string key, std::string value, std::string section, std::string file);

  // The first record with this key and section, or none. Throws as GetValue does.
  static std::vector<Record> GetRecord(std::string key, std::string section, std::string file);

  // Reads all records. Each holds a copy of its section's name, so `list` can grow far larger than
  // the file. Returns false, with `list` untouched, when the file cannot be opened, cannot be read
  // to its end, or is not on a disk. Throws as GetValue does.
  static bool Load(std::string file, std::vector<Record>& list);

  // Replaces the file's content by these records, or creates the file. Returns false when it cannot
  // be opened. Errors while writing go unnoticed.
  static bool Save(std::string file, const std::vector<Record>& list);

  // Removes the bytes of `set` from `text`: mode 0 at both ends, 1 at the left end, 2 at the right.
  static void Trim(std::string& text, const std::string& set, int mode);
};

}  // namespace corekit
