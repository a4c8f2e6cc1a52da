#include "uactl/arguments.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <deque>
#include <map>

#include "uaclient/path.h"
#include "uaclient/win32.h"

namespace {

using namespace uaclient;
using Words = std::vector<std::wstring>;

struct BadArguments {
  std::wstring text;
};

[[noreturn]] void Refuse(const std::wstring& argument, const std::wstring& why) {
  throw BadArguments{Quoted(argument) + L" " + why};
}

bool Exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}
bool IsFile(const std::wstring& path) { return Exists(path) && !IsFolder(path); }

// The words behind a command and its options, taken one after the other.
struct Operands {
  std::wstring hint;  // where to read more
  std::deque<std::wstring> words;

  void Expect(const std::wstring& name) const {
    if (words.empty()) throw BadArguments{name + L" is missing" + hint};
  }
  std::wstring Take(const std::wstring& name) {
    Expect(name);
    const std::wstring word = words.front();
    words.pop_front();
    const bool isSwitch = word[0] == L'/' && word.find_first_of(L"\\/", 1) == word.npos;
    if (isSwitch && !Exists(word)) {
      Refuse(word, L"is not an option. Options begin with \"--\"" + hint);
    }
    if (word.find(L'"') != word.npos) {
      Refuse(word,
             L"holds a quote: a \\ in front of a closing quote makes it part of the text. "
             L"Leave out that \\, or double it.");
    }
    return word;
  }
};

std::wstring TakePath(Operands& operands, const std::wstring& name) {
  const std::wstring operand = operands.Take(name);
  std::wstring path = FullPath(operand);
  if (path.empty()) Refuse(operand, L"is not the path of a file or folder on a drive or share.");
  if (path.find_first_of(L"*?") != path.npos) {
    Refuse(operand, L"has a wildcard, and those are not expanded. Name each file, or the folder.");
  }
  const std::wstring root = WithSeparator(RootOf(path));
  if (root[0] == L'\\' && !Exists(root) && GetLastError() != ERROR_ACCESS_DENIED) {
    const std::wstring reason = SystemMessage(GetLastError());
    Refuse(path, L"is on a share that cannot be reached, " + Quoted(root) + L": " + reason);
  }
  return path;
}

// "." and what else Windows reads as the current folder or one above it would be replaced without
// having been named.
void ExpectOwnName(const std::wstring& operand, const std::wstring& path) {
  const std::wstring typed = operand.substr(0, operand.find_last_not_of(L"\\/") + 1);
  const std::wstring name = typed.substr(typed.find_last_of(L"\\/:") + 1);
  if (IsRoot(path) || name == NameOf(path)) return;
  Refuse(operand, L"means " + Quoted(path) + L". Write that if it is to be replaced.");
}

void ReadCopy(Operands& operands, Arguments& arguments) {
  CopyPlan plan;
  do {
    const std::wstring source = TakePath(operands, L"SOURCE");
    const std::wstring typed = operands.words.empty() ? L"" : operands.words.front();
    std::wstring destination = TakePath(operands, L"The DESTINATION of " + Quoted(source));
    if (!IsFolder(source)) {
      const bool isInFolder =
          typed.back() == L'\\' || typed.back() == L'/' || IsFolder(destination);
      if (isInFolder) destination = WithSeparator(destination) + NameOf(source);
      plan.File(source, destination);
    } else if (arguments.replace) {
      ExpectOwnName(typed, destination);
      plan.ReplaceFolder(source, destination);
    } else {
      plan.Folder(source, destination);
    }
  } while (!operands.words.empty());
  arguments.task = plan;
}

// -1 for what is no number from `low` to `high`.
int Number(const std::wstring& digits, int low, int high) {
  const bool isNumber = digits.find_first_not_of(L"0123456789") == digits.npos;
  if (!isNumber || digits.empty() || digits.size() > 5) return -1;
  const int number = std::stoi(digits);
  return number >= low && number <= high ? number : -1;
}

bool SetTime(const std::wstring& time, Job& job) {
  if (time.size() != 5 || time[2] != L':') return false;
  job.hour = Number(time.substr(0, 2), 0, 23);
  job.minute = Number(time.substr(3), 0, 59);
  return job.hour >= 0 && job.minute >= 0;
}

void ReadTime(Operands& operands, Job& job) {
  const std::wstring time = operands.Take(L"HH:MM");
  if (SetTime(time, job)) return;
  for (const std::wstring& word : operands.words) {
    if (time.find(L':') != time.npos || !SetTime(word, job)) continue;
    Refuse(time, L"stands where HH:MM belongs. If it is part of NAME, put quotes around NAME.");
  }
  Refuse(time, L"is not a time from 00:00 to 23:59, with two digits each, such as 08:30.");
}

int Weekday(const std::wstring& day) {
  static const wchar_t* const kNames[] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                                          L"Thursday", L"Friday", L"Saturday"};
  for (int i = 0; i < 7; ++i) {
    if (day.size() >= 3 && _wcsnicmp(kNames[i], day.c_str(), day.size()) == 0) return i;
  }
  Refuse(day, L"is not a weekday, such as mon or Monday. Write several as mon,wed,fri.");
}

int MonthDay(const std::wstring& day) {
  const int number = Number(day, 1, 31);
  if (number > 0) return number - 1;
  Refuse(day, L"is not a day of a month, from 1 to 31. Write several as 1,15,31.");
}

std::uint32_t Days(const std::wstring& days, int (*bitOf)(const std::wstring&)) {
  std::uint32_t mask = 0;
  for (std::size_t begin = 0, end = 0; end != days.npos; begin = end + 1) {
    end = days.find(L',', begin);
    mask |= 1U << bitOf(days.substr(begin, end - begin));
  }
  return mask;
}

// Blanks without quotes have split the program, or quotes have joined it with its arguments.
void RefuseMisquotedProgram(const std::deque<std::wstring>& words) {
  if (words.empty() || IsFile(words.front())) return;
  std::wstring line;
  for (const std::wstring& word : words) line += word + L" ";
  line.erase(std::remove(line.begin(), line.end(), L'"'), line.end());
  for (std::size_t end = line.find(L' '); end != line.npos; end = line.find(L' ', end + 1)) {
    const std::wstring program = line.substr(0, end);
    if (!IsFile(program)) continue;
    Refuse(words.front(), L"is not a file, but " + Quoted(program) +
                              L" is: put quotes around that, and its arguments behind them.");
  }
}

template <Job::Every kEvery>
void ReadJob(Operands& operands, Arguments& arguments) {
  Job job;
  job.every = kEvery;
  job.name = operands.Take(L"NAME");
  ReadTime(operands, job);
  if (kEvery == Job::Every::kWeek) job.days = Days(operands.Take(L"DAYS"), Weekday);
  if (kEvery == Job::Every::kMonth) job.days = Days(operands.Take(L"DAYS"), MonthDay);
  RefuseMisquotedProgram(operands.words);
  job.program = TakePath(operands, L"PROGRAM");
  operands.Expect(L"An argument for the program (\"\" is an empty one, where it takes none)");
  job.arguments.assign(operands.words.begin(), operands.words.end());
  operands.words.clear();
  for (const std::wstring& argument : job.arguments) {
    if (std::count(argument.begin(), argument.end(), L'"') % 2 == 0) continue;
    arguments.warning = Quoted(argument) +
                        L" holds a single quote sign. Where that is not meant: "
                        L"a \\ in front of a closing quote has put it there.";
  }
  job.author = L"uactl";
  arguments.task = job;
}

void ReadRemoval(Operands& operands, Arguments& arguments) {
  arguments.task = JobRemoval{operands.Take(L"NAME")};
}

void ReadTaskFile(Operands& operands, Arguments& arguments) {
  arguments.task = TaskFile{TakePath(operands, L"TASKFILE")};
}

const std::map<std::wstring, bool Arguments::*> kFlags = {{L"--replace", &Arguments::replace},
                                                          {L"--dry-run", &Arguments::onlyCheck},
                                                          {L"--fast", &Arguments::fast},
                                                          {L"--json", &Arguments::asJson}};

struct Command {
  std::wstring name;
  std::wstring options;  // each between blanks
  void (*read)(Operands&, Arguments&);
  std::size_t ownOperands = 0;  // of a job; what stands behind them belongs to its program
  std::wstring otherNames;      // each between blanks: what is typed by habit
};

const std::wstring kJobOptions = L" --dry-run --timeout --json ";
const Command kCommands[] = {
    {L"copy", L" --replace --dry-run --fast --timeout --json ", ReadCopy, 0,
     L" cp xcopy robocopy "},
    {L"daily", kJobOptions, ReadJob<Job::Every::kDay>, 3, L" schedule schtasks "},
    {L"weekly", kJobOptions, ReadJob<Job::Every::kWeek>, 4, {}},
    {L"monthly", kJobOptions, ReadJob<Job::Every::kMonth>, 4, {}},
    {L"unschedule", kJobOptions, ReadRemoval, 0, L" delete "},
    {L"run", L" --fast --timeout --json ", ReadTaskFile, 0, {}},
    {L"check", L" --json ", ReadTaskFile, 0, {}}};

const Command& FindCommand(const std::wstring& word) {
  std::wstring name = word;
  std::transform(name.begin(), name.end(), name.begin(), std::towlower);
  for (const Command& command : kCommands) {
    if (word == command.name) return command;
    if (name == command.name || command.otherNames.find(L" " + name + L" ") != name.npos) {
      Refuse(word, L"is not a command: did you mean " + Quoted(command.name) + L"?");
    }
  }
  Refuse(word, L"is not a command. Options stand behind the command; see \"uactl --help\".");
}

bool AsksForHelp(const std::wstring& word) {
  return word == L"--help" || word == L"-h" || word == L"/?";
}

// Puts the options into `arguments` and returns the other words.
Operands TakeOptions(const Command& command, const Words& words, Arguments& arguments) {
  Operands operands = {L": see \"uactl help " + command.name + L"\".", {}};
  const bool isJob = command.ownOperands > 0;
  bool areOver = false;
  for (std::size_t i = 1; i < words.size(); ++i) {
    const std::wstring& word = words[i];
    const bool isOption = (word.size() > 1 && word[0] == L'-') || word == L"/?";
    areOver |= isJob && operands.words.size() >= command.ownOperands;
    if (areOver || !isOption) {
      operands.words.push_back(word);
      continue;
    }
    const std::size_t nameSize = std::min(word.find(L'='), word.size());
    const std::wstring name = word.substr(0, nameSize);
    const bool isKnown = command.options.find(L" " + name + L" ") != name.npos;
    if (AsksForHelp(word)) {
      arguments.helpPage = command.name;
    } else if (isJob && !operands.words.empty()) {
      Refuse(word, L"stands behind NAME, but options come before it" + operands.hint);
    } else if (word == L"--") {
      areOver = true;
    } else if (isKnown && name == L"--timeout") {
      const bool isNext = word == name && i + 1 < words.size();
      const std::wstring value = isNext ? words[++i] : word.substr(nameSize).erase(0, 1);
      const int seconds = Number(value, 1, 86400);
      if (seconds < 0) Refuse(value, L"is not a number of seconds from 1 to 86400.");
      arguments.options.timeout = std::chrono::seconds(seconds);
    } else if (isKnown && word == name) {
      arguments.*(kFlags.at(name)) = true;
    } else {
      Refuse(word,
             L"is not an option here; write a path of that name as .\\" + word + operands.hint);
    }
  }
  return operands;
}

void Read(const Words& words, Arguments& arguments) {
  if (words.empty()) throw BadArguments{L"A command is missing: see \"uactl --help\"."};
  if (words[0] == L"help" && words.size() > 1) return Read({words[1], L"--help"}, arguments);
  if (words[0] == L"help" || AsksForHelp(words[0])) arguments.helpPage = L"uactl";
  if (words[0] == L"--version") arguments.helpPage = words[0];
  if (!arguments.helpPage.empty()) return;
  const Command& command = FindCommand(words[0]);
  Operands operands = TakeOptions(command, words, arguments);
  if (!arguments.helpPage.empty()) return;
  command.read(operands, arguments);
  arguments.onlyCheck |= command.name == L"check";
  if (!operands.words.empty()) {
    Refuse(operands.words.front(), L"is one argument too many" + operands.hint);
  }
}

}  // namespace

Arguments ReadArguments(const std::vector<std::wstring>& words) {
  Arguments arguments;
  try {
    Read(words, arguments);
  } catch (const BadArguments& bad) {
    arguments.refusal = bad.text;
    arguments.asJson = std::count(words.begin(), words.end(), L"--json") > 0;
  }
  if (arguments.fast) arguments.options.comparison = Comparison::kSizeAndTime;
  return arguments;
}
