// The task interface and what all tasks share. Both sides use these classes: the application fills
// a task with SetParams and writes it with SaveTaskInfos; the helper creates a task of the type
// that the task file names, and runs it with SetTaskFile and Run.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "uactask/task_file.h"

class IUACTask {
 public:
  // Sets the path (UTF-8) of the task file for Run. Always true; does not look at the file.
  virtual bool SetTaskFile(std::string path) = 0;

  // Carries out the task. True when it succeeded.
  virtual bool Run() = 0;

  // Writes the parameters and the type into an existing task file, which may be empty. False when
  // the file cannot be read or written, or the parameters are not this task's. Give an ASCII path:
  // corekit::CIniFile reads and writes other paths by different names.
  virtual bool SaveTaskInfos(std::string path) = 0;

  // Replaces the parameters. Always true.
  virtual bool SetParams(const std::map<std::int32_t, std::string>& params) = 0;

  // The task's type, as a task file holds it under "type".
  virtual std::int32_t GetType() = 0;

 protected:
  // Not virtual: the owner that the factory builds destroys a task as its own class.
  ~IUACTask() = default;
};

class UACTaskBase : public IUACTask {
 public:
  explicit UACTaskBase(std::int32_t type);

  bool SetTaskFile(std::string path) override;
  bool SaveTaskInfos(std::string path) override;
  bool SetParams(const std::map<std::int32_t, std::string>& params) override;
  std::int32_t GetType() override;

 protected:
  ~UACTaskBase() = default;

  std::string& TaskFilePath();
  uactask::TaskParams& Params();

 private:
  std::int32_t taskType;
  std::string taskFile;
  uactask::TaskParams params;
};
