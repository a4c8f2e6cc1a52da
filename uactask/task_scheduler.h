// The scheduler task: registers a job with the Windows Task Scheduler, or deletes one.
#pragma once

#include <cstdint>
#include <string>

#include "uactask/task.h"

// Texts in its task file are in the ANSI code page. The three numbers must stand in every one, also
// in one that deletes.
//
// A step that fails prints a line on standard output with the failing status; so do the two
// successes. Silent is a trigger kind that the scheduler knows and this task does not: it fails
// with COM left initialised and its objects not released. A registration that gets no registration
// information leaves COM initialised too. The job runs as the user who registered it, and only
// while that user is logged on.
class UACTaskScheduler : public UACTaskBase {
 public:
  static constexpr std::int32_t kType = 0;

  // The parameters by index, with their keys in the task file.
  enum Param : std::int32_t {
    kTaskName,      // task_name: the job's name in the scheduler's root folder
    kExePath,       // exe_path: the program that it starts
    kExeArguments,  // exe_arguments: the program's arguments; empty means: delete that job
    kRuntime,       // runtime: start of the trigger, as the scheduler takes it: 2026-01-31T08:00:00
    kAuthorName,    // author_name
    kTimeType,      // time_type: a TriggerKind
    kTimeWeekday,   // time_weekday: days of a weekly trigger, added up: 1 Sunday … 64 Saturday
    kTimeMonthday,  // time_monthday: days of a monthly trigger: bit 0 is day 1, bit 30 day 31
    kParamCount
  };
  enum TriggerKind : std::int32_t { kDaily = 2, kWeekly = 3, kMonthly = 4 };

  UACTaskScheduler() : UACTaskBase(kType) {}

  // True when the job was registered or deleted. Throws boost::bad_lexical_cast, before anything is
  // done, when one of the three numbers is not a 32-bit decimal number (a sign and digits alone)
  // and when the task file cannot be read.
  bool Run() override;

  // False, with nothing written, unless there are exactly eight parameters; throws
  // std::out_of_range when they are not those from 0 to 7.
  bool SaveTaskInfos(std::string path) override;

  // Creates the job, replacing one of the same name, which is gone even when this fails. Returns 0,
  // or 1 when a step failed; a trigger start that the scheduler refuses does not count as failed.
  // Throws _com_error when a string cannot be allocated.
  std::int32_t RegisterScheduleTask(const std::string& taskName, const std::string& exePath,
                                    const std::string& exeArguments, const std::string& runtime,
                                    const std::string& authorName, std::int32_t timeType,
                                    std::uint16_t daysOfWeek, std::int32_t daysOfMonth);

  // Returns 0, or 1 when a step failed or there is no such job. Throws as above.
  std::int32_t DeleteScheduleTask(const std::string& taskName);
};

// Initialises COM for this thread, as a single-threaded apartment, and its security for the
// process, unless that was done before. Returns 0, or E_FAIL with COM as it was; prints what
// failed.
std::int32_t InitTaskSchedulerCom();
