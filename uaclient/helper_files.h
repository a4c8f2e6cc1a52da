// The files that the helper is given: a task file and, for copies, an operation list.
#pragma once

#include <string>
#include <vector>

#include "uaclient/uaclient.h"
#include "uaclient/win32.h"

namespace uaclient {

// Thrown where nothing is started: kNotStarted or kRefused, and why.
struct NotStarted {
  std::wstring why;
  Status status = Status::kNotStarted;
};

// The folder that the environment variable TMP names, as a full path; L"" where it names none.
std::wstring TempFolder();

// Removes the folder with all in it, but nothing behind links. False when it is still there. Does
// nothing where the folder's name is none that this program gives.
bool RemoveHelperFolder(const std::wstring& path);

// The folder is open to this user, administrators and the system alone: who can change these files
// decides what is done elevated. It goes with the run's claim (claims.h).
class HelperFiles {
 public:
  // Chooses a path in TempFolder() that nobody can foresee. Throws NotStarted when TMP does not do.
  HelperFiles();

  // Where they lie, in characters that the ANSI code page has.
  const std::wstring& Folder() const { return folder_; }

  // Writes the list and a task file that names it, or without a list the task file as it is given.
  // Throws NotStarted.
  void Create(const std::string& task, const std::string& list);

  std::wstring TaskPath() const;

 private:
  void Write(const wchar_t* name, const std::string& bytes, DWORD share);

  std::wstring folder_;
  // Open to the end: nobody can rename or replace the folder, nor write into the files.
  std::vector<Handle> held_;
};

}  // namespace uaclient
