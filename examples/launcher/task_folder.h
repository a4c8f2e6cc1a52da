// Writes the files that the helper reads: the task file and, for a copy, the operation list.
#pragma once

#include <string>

#include "copy_check.h"
#include "uactask/task.h"

// A new folder for one task's files, in the user's own temporary folder and under a name that
// nobody can foresee: who can change these files decides what is done with raised rights. It goes
// with its files at the end, because the helper leaves the list, and after a failure both.
//
// It is the current directory for its lifetime. Failures are std::runtime_error.
class TaskFolder {
 public:
  TaskFolder();
  ~TaskFolder();
  TaskFolder(const TaskFolder&) = delete;
  TaskFolder& operator=(const TaskFolder&) = delete;

  void WriteTask(IUACTask& task, const TaskParams& params) const;

  // Returns the list's path as the task takes it.
  std::string WriteOperationList(const Copy& copy) const;

  std::wstring TaskFile() const;
  void Keep() { isKept_ = true; }

 private:
  std::wstring path_;
  bool isKept_ = false;
};
