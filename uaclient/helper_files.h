// The files that the helper is given: a task file and, for copies, an operation list.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "uaclient/win32.h"
#include "uactask/operation_list.h"
#include "uactask/task_file.h"

namespace uaclient {

// A new folder for them, in the user's own temporary folder, under a name that nobody can foresee
// and open to this user, administrators and the system alone: who can change these files decides
// what is done with raised rights. It goes with its files at the end of the scope.
class HelperFiles {
 public:
  HelperFiles() = default;
  ~HelperFiles() { Remove(); }
  HelperFiles(const HelperFiles&) = delete;
  HelperFiles& operator=(const HelperFiles&) = delete;

  // These return whether they succeeded, and otherwise set `why`.
  bool CreateFolder(std::wstring& why);
  bool WriteTask(std::int32_t type, const TaskParams& params, std::wstring& why);
  bool WriteList(const std::vector<Operation>& operations, std::wstring& why);

  // Where they lie, for people.
  const std::wstring& Folder() const { return folder_; }

  // The names by which the helper finds them, in characters that the ANSI code page has.
  std::wstring TaskPath() const;
  std::wstring ListPath() const;

  // Leaves the files to a process that still reads them: they go when it has ended, if this one
  // lives that long.
  void LeaveTo(HANDLE process);

 private:
  void Remove();

  std::wstring folder_;   // with a separator at its end; empty: nothing to remove
  std::wstring carried_;  // the same folder by a name that the code page has
  // Open to the end: nobody can rename or replace the folder, nor write into the files.
  std::vector<Handle> held_;
};

}  // namespace uaclient
