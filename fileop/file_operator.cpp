#include "fileop/file_operator.h"

#include "corekit/text.h"
#include "fileop/file_system.h"
#include "fileop/tree_walk.h"

namespace {

using fileop::Folder;
using fileop::PathText;

constexpr const char* kSeparators = "/\\";

// Paths that begin so reach the file system as they stand: "/" does not separate in them.
bool IsVerbatim(const std::string& path) { return path.rfind(R"(\\?\)", 0) == 0; }

// The tree walkers append names to a directory as it stands: without its separator they would
// reach the siblings whose names begin like it.
std::string WithSeparator(const std::string& directory) {
  if (directory.find_last_of(kSeparators) == directory.size() - 1) return directory;
  return directory + (IsVerbatim(directory) ? '\\' : '/');
}

// Text that is no path would end up as the current directory, and so, on its drive, does a drive
// without a separator. "." and "..", also behind a path, are folders that somebody stands in or
// above; nobody means to have them emptied. Longer rows of dots and blanks are dropped, or are not,
// by what follows them.
bool CanBeDirectory(const std::string& destination) {
  if (Utf8ToWide(destination).empty() || destination.back() == ':') return false;
  if (IsVerbatim(destination) && destination.find('/') != std::string::npos) return false;
  const std::string path = destination.substr(0, destination.find_last_not_of(kSeparators) + 1);
  const std::string name = path.substr(path.find_last_of("/\\:") + 1);
  return name.empty() || name.find_first_not_of(". ") != std::string::npos;
}

}  // namespace

FileOperatorNomal::FileOperatorNomal(DiagnosticSink diagnosticSink)
    : sink(std::move(diagnosticSink)) {}

bool FileOperatorNomal::AddFileCopy(const char* source, const char* destination) {
  fileCopies.emplace_back(PathText(source), PathText(destination));
  return true;
}

bool FileOperatorNomal::AddDirectoryCopy(const char* source, const char* destination) {
  dirCopies.emplace_back(PathText(source), PathText(destination));
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
    const bool copied = CopyDirectoryItem(source, destination);
    if (!copied) Report("Directory Copy Failed : " + destination + "\n");
    succeeded &= copied;
  }
  for (const auto& [source, destination] : fileCopies) {
    succeeded &= CopyFileItem(source, destination);
  }
  return succeeded;
}

bool FileOperatorNomal::CopyDirectoryItem(const std::string& source,
                                          const std::string& destination) const {
  if (!IsDirectory(source.c_str()) || !CanBeDirectory(destination)) return false;

  // Open from here to the end: a destination goes only for a source that can be listed.
  fileop::Source from(Utf8ToWide(WithSeparator(source)));
  if (!from.IsOpen()) return false;
  const std::string path = WithSeparator(destination);
  const std::wstring widePath = Utf8ToWide(path);
  if (IsDirectory(path.c_str())) {
    const bool holdsSource = fileop::LiesIn(from.folder.Path(), Folder(widePath));
    if (holdsSource || !RemoveDirectoryTree(path.c_str(), 0)) return false;
  }
  if (!IsDirectory(path.c_str()) && !CreateDir(path.c_str())) CreateDirTree(path.c_str());
  const Folder to(widePath);
  return !to.IsLink() && fileop::CopyTree(from, to, true);
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
