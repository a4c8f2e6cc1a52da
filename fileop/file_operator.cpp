#include "fileop/file_operator.h"

#include "corekit/text.h"
#include "fileop/file_system.h"

namespace {

// The tree walkers append names to a directory as it stands: without its separator they would
// reach the siblings whose names begin like it.
std::string WithSeparator(std::string directory) {
  if (directory.back() != '/' && directory.back() != '\\') directory += '/';
  return directory;
}

// Text that is no path would end up as the current directory, and so, on its drive, does a drive
// without a separator.
bool CanBeDirectory(const std::string& destination) {
  const bool isDriveAlone = destination.size() == 2 && destination[1] == ':';
  return !isDriveAlone && !Utf8ToWide(destination).empty();
}

}  // namespace

FileOperatorNomal::FileOperatorNomal(DiagnosticSink diagnosticSink)
    : sink(std::move(diagnosticSink)) {}

bool FileOperatorNomal::AddFileCopy(const char* source, const char* destination) {
  fileCopies.emplace_back(source, destination);
  return true;
}

bool FileOperatorNomal::AddDirectoryCopy(const char* source, const char* destination) {
  dirCopies.emplace_back(source, destination);
  return true;
}

bool FileOperatorNomal::ClearOperations() {
  fileCopies.clear();
  dirCopies.clear();
  return true;
}

bool FileOperatorNomal::Execute() {
  bool succeeded = true;
  for (const auto& [source, destination] : dirCopies) {
    succeeded &= CopyDirectoryItem(source, destination);
  }
  for (const auto& [source, destination] : fileCopies) {
    succeeded &= CopyFileItem(source, destination);
  }
  return succeeded;
}

bool FileOperatorNomal::CopyDirectoryItem(const std::string& source,
                                          const std::string& destination) const {
  if (!IsDirectory(source.c_str()) || !CanBeDirectory(destination)) return false;

  const std::string from = WithSeparator(source);
  const std::string to = WithSeparator(destination);
  if (IsDirectory(to.c_str()) && !RemoveDirectoryTree(to.c_str(), 0)) return false;
  if (!IsDirectory(to.c_str()) && !CreateDir(to.c_str())) CreateDirTree(to.c_str());
  return CopyDirectoryTree(from.c_str(), to.c_str(), 0);
}

bool FileOperatorNomal::CopyFileItem(const std::string& source,
                                     const std::string& destination) const {
  if (!PathExists(source.c_str())) {
    Report("Error File Copy Task : " + source + "\n");
    return false;
  }

  std::string parent;
  SplitPath(destination.c_str(), nullptr, &parent);
  if (!IsDirectory(parent.c_str())) CreateDir(parent.c_str());

  const bool copied = CopyFileTo(source.c_str(), destination.c_str(), 0);
  const bool exists = PathExists(destination.c_str());
  Report(std::string("File Copy Result : ") + (copied ? "Succeed" : "Failed") +
         ", File Exits : " + destination + (exists ? ", TRUE\n" : ", FALSE\n"));
  // What counts is that the file is there: one that a failed copy left in place is a success.
  return exists;
}

void FileOperatorNomal::Report(const std::string& line) const {
  if (sink) sink(line);
}
