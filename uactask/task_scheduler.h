// The scheduler task: registers a job with the Windows Task Scheduler, or deletes one.
#pragma once

#include <cstdint>
#include <string>

#include "uactask/task.h"

// All texts are in the ANSI code page. A task file must hold the three numbers even if it deletes a
// job. A job runs as the user who registered it, and only while that user is logged on.
//
// Each step that fails prints a line with its status on standard output, and each success prints
// one as well. Two failures leave something behind, on purpose. A trigger kind that the scheduler
// knows and this task does not fails silently, with COM left initialised and its objects not
// released. A definition that gives no registration information leaves COM initialised.
class UACTaskScheduler : public UACTaskBase {
 public:
  static constexpr std::int32_t kType = 0;

  // The parameters by index, with their keys in the task file.
  enum Param : std::int32_t {
    kTaskName,      // task_name: the job's name in the scheduler's root folder
    kExePath,       // exe_path: the program that it starts
    kExeArguments,  // exe_arguments: the program's arguments; if empty, the job is deleted
    kRuntime,       // runtime: when the trigger starts, such as 2026-01-31T08:00:00
    kAuthorName,    // author_name
    kTimeType,      // time_type: a TriggerKind
    kTimeWeekday,   // time_weekday: days of a weekly trigger, added up: 1 Sunday … 64 Saturday
    kTimeMonthday,  // time_monthday: days of a monthly trigger: bit 0 is day 1, bit 30 day 31
    kParamCount
  };
  enum TriggerKind : std::int32_t { kDaily = 2, kWeekly = 3, kMonthly = 4 };

  UACTaskScheduler() : UACTaskBase(kType) {}

  // True when the job was registered or deleted. Throws boost::bad_lexical_cast, before anything is
  // done, when the task file cannot be read or one of the three numbers is not a 32-bit decimal
  // number (digits with an optional sign).
  bool Run() override;

  // False, with nothing written, unless there are exactly eight parameters. Throws
  // std::out_of_range when these are not those from 0 to 7.
  bool SaveTaskInfos(std::string path) override;

  // Creates the job. One of the same name is deleted first, even when a later step fails. Returns
  // 0, or 1 when a step failed; a trigger ID or start that the scheduler refuses does not count.
  // Throws _com_error when a string cannot be allocated.
  std::int32_t RegisterScheduleTask(const std::string& taskName, const std::string& exePath,
                                    const std::string& exeArguments, const std::string& runtime,
                                    const std::string& authorName, std::int32_t timeType,
                                    std::uint16_t daysOfWeek, std::int32_t daysOfMonth);

  // Deletes the job. Returns 0, or 1 when a step failed or there is no such job. Throws _com_error
  // when a string cannot be allocated.
  std::int32_t DeleteScheduleTask(const std::string& taskName);
};

// Initialises COM for this thread as a single-threaded apartment, and COM's security for the
// process unless it is set already. Returns 0; otherwise prints what failed, leaves COM as it was
// and returns E_FAIL.
std::int32_t InitTaskSchedulerCom();
