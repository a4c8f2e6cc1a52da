// The file operator: copies of files and of directory trees are queued first and then carried out
// in one batch, directories before files.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tk {

// Paths are UTF-8. A null path is no path: it is queued, and its item fails with nothing touched.
class IFileOperator {
 public:
  virtual ~IFileOperator() = default;

  // Queues the copy of one file. Of the folders above the destination one may be missing. The item
  // succeeds when a file is there afterwards, also an older one. Always true.
  virtual bool AddFileCopy(const char* source, const char* destination) = 0;

  // Queues the copy of a directory tree. A destination that exists is replaced as a whole, never
  // merged into. Both should end in a separator, which is added where it is missing. With nothing
  // touched fail a source that cannot be listed, and a destination that is empty, not UTF-8, a
  // drive without a separator, or ends in a name of nothing but dots and blanks ("..", "C:/x/.");
  // so does one that is or holds the source, by whatever name, where the file system numbers its
  // folders. Always true.
  virtual bool AddDirectoryCopy(const char* source, const char* destination) = 0;

  // Forgets what is queued. Always true.
  virtual bool ClearOperations() = 0;

  // Carries out everything that is queued, each item whatever became of those before it, and keeps
  // the queue. True when every item succeeded.
  virtual bool Execute() = 0;
};

}  // namespace tk

class FileOperatorNomal : public tk::IFileOperator {
 public:
  // Receives the diagnostic lines about file copies and failed directory copies, each ending in
  // "\n".
  using DiagnosticSink = std::function<void(const std::string& line)>;

  // Without a sink the diagnostic lines are dropped.
  explicit FileOperatorNomal(DiagnosticSink diagnosticSink = nullptr);

  bool AddFileCopy(const char* source, const char* destination) override;
  bool AddDirectoryCopy(const char* source, const char* destination) override;
  bool ClearOperations() override;
  bool Execute() override;

 private:
  bool CopyDirectoryItem(const std::string& source, const std::string& destination) const;
  bool CopyFileItem(const std::string& source, const std::string& destination) const;
  void Report(const std::string& line) const;

  using Copy = std::pair<std::string, std::string>;  // source, destination
  std::vector<Copy> fileCopies;
  std::vector<Copy> dirCopies;
  DiagnosticSink sink;
};
