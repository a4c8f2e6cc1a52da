// Turns everyday terms into the values of a task file. What cannot be turned is a BadArguments.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "corekit/text.h"

// Something that the user can put right by other arguments. what() is UTF-8.
struct BadArguments : std::runtime_error {
  using std::runtime_error::runtime_error;
  BadArguments(const std::wstring& argument, const std::string& problem)
      : std::runtime_error("\"" + WideToUtf8(argument) + "\" " + problem) {}
};

// True for text that the helper will read from a task file as it is.
bool FitsTaskFile(const std::wstring& text);

std::string JobName(const std::wstring& name);
std::string ProgramPath(const std::wstring& program);

// One command line that a program takes apart into these arguments again.
std::string CommandLine(const std::vector<std::wstring>& arguments);

// "8:30" is 08:30 of today, in the form of 2026-01-31T08:30:00.
std::string StartBoundary(const std::wstring& time);

// "mon,Wednesday" is 10: 1 for Sunday, 2 for Monday … 64 for Saturday, added up.
std::string WeekdayMask(const std::wstring& days);

// "1,15" is 16385: bit 0 for day 1 … bit 30 for day 31.
std::string MonthDayMask(const std::wstring& days);
