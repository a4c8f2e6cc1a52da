// The files that the helper is given: a task file and, for copies, an operation list.
#pragma once

#include <string>
#include <vector>

#include "uaclient/win32.h"

namespace uaclient {

// The folder that the environment variable TMP names, as a full path; L"" where it names none.
std::wstring TempFolder();

// A path in it for the helper's files, which nobody can foresee. L"" when TMP does not do.
std::wstring NewHelperFolder(std::wstring& why);

// Whether a folder has such a name.
bool IsHelperFolder(const std::wstring& path);

// Removes the folder with the files that are put into it, and nothing else.
void RemoveHelperFolder(const std::wstring& path);

// The new folder is open to this user, administrators and the system alone: who can change these
// files decides what is done elevated. It goes with its files at the end of the scope.
class HelperFiles {
 public:
  HelperFiles() = default;
  ~HelperFiles();
  HelperFiles(const HelperFiles&) = delete;
  HelperFiles& operator=(const HelperFiles&) = delete;

  // These return whether they succeeded, and otherwise set `why`.
  bool CreateFolder(const std::wstring& path, std::wstring& why);
  bool WriteTask(const std::string& bytes, std::wstring& why);
  bool WriteList(const std::string& bytes, std::wstring& why);

  // Where they lie, for people.
  const std::wstring& Folder() const { return folder_; }

  // The names by which the helper finds them, in characters that the ANSI code page has.
  std::wstring TaskPath() const;
  std::wstring ListPath() const;

 private:
  bool Write(const wchar_t* name, const std::string& bytes, DWORD share, std::wstring& why);

  std::wstring folder_;    // empty: nothing to remove
  std::wstring readable_;  // the same folder by a name that the code page has
  // Open to the end: nobody can rename or replace the folder, nor write into the files.
  std::vector<Handle> held_;
};

}  // namespace uaclient
