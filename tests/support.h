// What the tests share: folders that remove themselves, whole files and trees as values, and
// programs run to their end. Paths and names are UTF-8.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

// Every file and folder below a folder, by path with "/", a folder's with "/" at its end. Files map
// to their bytes, folders to "".
using Tree = std::map<std::string, std::string>;

// A tree from its short form: "a.txt=bytes, empty/, s/b=" are two files, a folder, and the folder
// s/ above a file. Names may hold blanks, but neither names nor bytes ", ".
Tree TreeOf(const std::string& entries);

// A new, empty folder below the working directory, removed with everything in it at the end.
class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  // The folder itself with "/" at its end, relative to the working directory.
  const std::string& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + name; }

  Tree Contents() const;

 private:
  std::string path_;
};

// Creates the file and the folders above it.
void WriteFileBytes(const std::string& path, const std::string& bytes);

// The file's bytes; fails the test when it cannot be read.
std::string ReadFileBytes(const std::string& path);

void MakeReadOnly(const std::string& path);

// A file that begins with the bytes, in which nothing else is stored up to its size.
void WriteSparseFile(const std::string& path, const std::string& bytes, std::int64_t size);

void MakeFolders(const std::string& path);
void WriteTree(const std::string& folder, const Tree& tree);
Tree ReadTree(const std::string& folder);

// Whether a regular expression (as in ECMAScript) matches the whole text; the text with each match
// replaced, "$1" standing for its first group; and the groups of each match, the whole one first.
// Here alone <regex> is compiled, which takes longer than most of the tests' own code.
bool Matches(const std::string& text, const std::string& pattern);
std::string ReplaceMatches(const std::string& text, const std::string& pattern,
                           const std::string& by);
std::vector<std::vector<std::string>> MatchesIn(const std::string& text,
                                                const std::string& pattern);

// Also for what the library under test could not remove: long paths and read-only files.
void RemoveTreeForSure(const std::string& folder);

// Makes `link` a symbolic link to the folder `target`, which is relative to the link's own folder.
// False where that is not possible: Windows wants a right for it that tests may lack.
bool MakeFolderLink(const std::string& target, const std::string& link);

// Whether the tests run under Wine rather than on Windows.
bool OnWine();

// Under Wine, which neither makes nor removes links to folders nor has names that hold separators,
// but shows those of the system below and starts its programs: runs one (from /bin). Wine gives no
// handle to wait for, so this waits until the work shows.
void RunUnixProgram(const std::string& command, const std::function<bool()>& done);

// Whether full paths may be longer than 259 units, which Windows must be told.
bool LongPathsWork();

// Whether this process is elevated. Newer versions of Wine start programs unelevated, as Windows
// does; what they elevate runs without a prompt, but apart from them: its output and the
// scheduler's jobs are not seen.
bool IsElevated();

// Takes back what was left to the next restart: the deletion of a file with this in its path. False
// when there is none.
bool ForgetDeletionsAtRestart(const std::string& name);

struct ProgramResult {
  unsigned long exitCode;
  std::string output;  // standard output, byte for byte
  std::string errors;  // standard error
};

// The test program.
std::string OwnProgram();

// Runs a program that stands beside the test program and waits for it. Fails the test when it takes
// longer than five minutes, which only a hang does. `meanwhile` is called when it has been started.
ProgramResult RunProgram(const std::string& name, const std::vector<std::string>& arguments,
                         const std::function<void()>& meanwhile = {});

// While in scope, one function of the system succeeds so many times more, and then fails with
// `error`. Only calls that the program and its libraries make themselves are counted.
class SystemFailure {
 public:
  enum Function { kReadFile, kFindNextFile };
  SystemFailure(Function function, int successes, unsigned long error);
  ~SystemFailure();
  SystemFailure(const SystemFailure&) = delete;
  SystemFailure& operator=(const SystemFailure&) = delete;
};

// A file held open while in scope. Others may open it as `share` says (FILE_SHARE_…).
class FileLock {
 public:
  explicit FileLock(const std::string& path, unsigned long share = 0);

 private:
  std::unique_ptr<void, int (*)(void*)> handle_;
};
