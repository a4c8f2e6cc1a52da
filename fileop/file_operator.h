// The file operator: queues copies of files and of directory trees, then carries them out in one
// batch, directories before files.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tk {

// Paths are UTF-8. An item with a null path is queued, but fails with nothing touched.
class IFileOperator {
 public:
  virtual ~IFileOperator() = default;

  // Queues the copy of one file. At most one of the directories above the destination may be
  // missing; it is created. The item succeeds when the destination exists afterwards, even if only
  // as an older file. Always true.
  virtual bool AddFileCopy(const char* source, const char* destination) = 0;

  // Queues the copy of a directory tree. A destination that exists is replaced as a whole, never
  // merged into. A missing separator at the end of either path is added. Always true.
  //
  // The item fails with nothing touched when
  // - the source cannot be listed or is an empty drive;
  // - the destination is empty, not UTF-8, a drive without a separator, or ends in a name of dots
  //   and blanks only ("..", "C:/x/.");
  // - the destination exists but cannot be opened, such as while another program removes it;
  // - the destination is or holds the source, by whatever path. This cannot be found out where the
  //   file system does not number its directories. On a volume that has no drive letter and is
  //   mounted nowhere, only the directories that the source's path names are compared.
  // Links in the source are not among what is compared: one that leads into the destination leads
  // to what has been deleted by the time it is followed.
  virtual bool AddDirectoryCopy(const char* source, const char* destination) = 0;

  // Empties the queue. Always true.
  virtual bool ClearOperations() = 0;

  // Carries out every queued item, even after one has failed, and keeps the queue. True when every
  // item succeeded.
  virtual bool Execute() = 0;
};

}  // namespace tk

class FileOperatorNomal : public tk::IFileOperator {
 public:
  // Receives one line, ending in "\n", for each file copy and for each failed directory copy.
  using DiagnosticSink = std::function<void(const std::string& line)>;

  // Without a sink the lines are dropped.
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
