// The scheduler task: registers a job with the Windows Task Scheduler, or deletes one.
#pragma once

#include <cstdint>
#include <string>

#include "uactask/task.h"

// Its eight parameters, by index and by key in section "Task" of the task file:
//
//   0 task_name      the job's name in the scheduler's root folder
//   1 exe_path       the program that it starts
//   2 exe_arguments  the program's arguments; empty means: delete the job of that name
//   3 runtime        start of the trigger, as the scheduler takes it: 2026-01-31T08:00:00
//   4 author_name
//   5 time_type      2 daily, 3 weekly, 4 monthly
//   6 time_weekday   days of a weekly trigger, added up: 1 Sunday, 2 Monday … 64 Saturday
//   7 time_monthday  days of a monthly trigger as a mask: bit 0 is day 1, bit 30 day 31
//
// Texts are in the ANSI code page. The three numbers must stand in every task file, also in one
// that deletes.
//
// Every step that fails prints a line on standard output with the failing status; so do the two
// successes. The job runs as the user who registered it, and only while that user is logged on.
class UACTaskScheduler : public UACTaskBase {
 public:
  static constexpr std::int32_t kType = 0;

  UACTaskScheduler() : UACTaskBase(kType) {}

  // True when the job was registered or deleted. Throws boost::bad_lexical_cast, before anything is
  // done, when one of the three numbers is not a 32-bit decimal number (a sign and digits alone).
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
