#include "fileop/file_operator.h"

#include "corekit/text.h"
#include "fileop/file_system.h"
#include "fileop/tree_walk.h"

namespace {

using fileop::Folder;
using fileop::PathText;

constexpr const char* kSeparators = "/\\";

// Windows passes paths with this prefix on as they stand: "/" does not separate in them.
bool IsVerbatim(const std::string& path) { return path.rfind(R"(\\?\)", 0) == 0; }

// The tree walks append names to a directory's path as it stands. Without the separator they would
// reach siblings whose names begin with the directory's name.
std::string WithSeparator(const std::string& directory) {
  if (directory.find_last_of(kSeparators) == directory.size() - 1) return directory;
  return directory + (IsVerbatim(directory) ? '\\' : '/');
}

// False for destinations that could mean a directory which nobody wants emptied. Text that is not a
// path, and a drive without a separator, would mean the current directory. A "." or ".." at the end
// means a directory that the path does not name. Windows drops longer runs of dots and blanks in
// some places and keeps them in others.
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

  // Stays open to the end: only a source that can be listed may cost a destination.
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
  // What counts is that the file is there, even if the copy failed and left an older one.
  return exists;
}

void FileOperatorNomal::Report(const std::string& line) const {
  if (sink) sink(line);
}
