#include "arguments.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <iterator>
#include <sstream>

#include "copy_check.h"

namespace {

std::vector<std::wstring> Split(const std::wstring& text, wchar_t separator) {
  std::vector<std::wstring> parts;
  std::wistringstream stream(text + separator);
  for (std::wstring part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

// The text as it stands in a task file.
std::string Value(const std::wstring& text) {
  if (FitsTaskFile(text)) return Utf8ToAnsi(WideToUtf8(text));
  throw BadArguments(text,
                     "holds a character that the system's code page lacks, a control "
                     "character or a \"[\", or ends in a blank.");
}

int Number(const std::wstring& text, int low, int high) {
  const bool isShort = !text.empty() && text.size() <= 2;
  const bool isNumber = isShort && text.find_first_not_of(L"0123456789") == std::wstring::npos;
  const int number = isNumber ? std::stoi(text) : -1;
  if (number >= low && number <= high) return number;
  throw BadArguments(
      text, "is not a number from " + std::to_string(low) + " to " + std::to_string(high) + ".");
}

int Weekday(const std::wstring& day) {
  const wchar_t* const kNames[] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                                   L"Thursday", L"Friday", L"Saturday"};
  for (int i = 0; i < 7; ++i) {
    if (day.size() >= 3 && _wcsnicmp(kNames[i], day.c_str(), day.size()) == 0) return i;
  }
  throw BadArguments(day, "is not a weekday such as mon or Monday.");
}

std::wstring Quoted(const std::wstring& argument) {
  if (!argument.empty() && argument.find_first_of(L" \t\"") == std::wstring::npos) return argument;
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;  // right before the current character
  for (const wchar_t c : argument) {
    if (c == L'"') quoted.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    quoted += c;
  }
  return quoted.append(backslashes, L'\\') + L"\"";
}

}  // namespace

bool FitsTaskFile(const std::wstring& text) {
  // Bytes are tested, because a "[" can also be the second byte of a Chinese or Japanese character.
  const std::string bytes = Utf8ToAnsi(WideToUtf8(text));
  const auto breaksLine = [](unsigned char c) { return c < ' ' || c == '['; };
  return AnsiToWide(bytes) == text && std::none_of(bytes.begin(), bytes.end(), breaksLine) &&
         (bytes.empty() || bytes.back() != ' ');
}

std::string JobName(const std::wstring& name) {
  const bool hasSign = name.find_first_of(L"\\/:*?\"<>|") != std::wstring::npos;
  if (!name.empty() && !hasSign && name.front() != L' ' && name.back() != L'.') return Value(name);
  throw BadArguments(name,
                     "names no job: it is empty, holds one of \\ / : * ? \" < > |, begins with "
                     "a blank or ends in a dot.");
}

std::string ProgramPath(const std::wstring& program) {
  const std::wstring path = FullPath(program);
  // A missing file has all attributes.
  if ((GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY) == 0) return Value(path);
  throw BadArguments(path, "is no program.");
}

std::string CommandLine(const std::vector<std::wstring>& arguments) {
  std::wstring line;
  for (const std::wstring& argument : arguments) {
    line += (line.empty() ? L"" : L" ") + Quoted(argument);
  }
  return Value(line);
}

std::string StartBoundary(const std::wstring& time) {
  const std::vector<std::wstring> parts = Split(time, L':');
  if (parts.size() != 2) throw BadArguments(time, "is not a time such as 08:30.");
  // A time that has passed does no harm: the job starts on its next day.
  SYSTEMTIME today;
  GetLocalTime(&today);
  char text[32];
  std::snprintf(text, std::size(text), "%04d-%02d-%02dT%02d:%02d:00", today.wYear, today.wMonth,
                today.wDay, Number(parts[0], 0, 23), Number(parts[1], 0, 59));
  return text;
}

std::string WeekdayMask(const std::wstring& days) {
  int mask = 0;
  for (const std::wstring& day : Split(days, L',')) mask |= 1 << Weekday(day);
  return std::to_string(mask);
}

std::string MonthDayMask(const std::wstring& days) {
  int mask = 0;
  for (const std::wstring& day : Split(days, L',')) mask |= 1 << (Number(day, 1, 31) - 1);
  return std::to_string(mask);
}
