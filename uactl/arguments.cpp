#include "uactl/arguments.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <deque>
#include <map>
#include <set>
#include <sstream>

#include "uaclient/path.h"
#include "uaclient/win32.h"
#include "uaclient/words.h"

namespace {

using namespace uaclient;

struct BadArguments {
  std::wstring text;
};

[[noreturn]] void Refuse(const std::wstring& word, const std::wstring& why) {
  throw BadArguments{Quoted(word) + L" " + why};
}

constexpr wchar_t kHoldsQuote[] =
    L"holds a quote, because Windows takes \\\" for one. Leave out that \\, or double it.";

constexpr wchar_t kIsNoOption[] =
    L"is not an option of this command. Options begin with \"--\", and a job's stand before its "
    L"NAME";

// A "/" may also begin a path, on the current drive.
bool LooksLikeOption(const std::wstring& word) {
  if (word[0] == L'/') return word.find_first_of(L"\\/", 1) == word.npos && !Exists(word);
  return word[0] == L'-' && word.size() > 1;
}

// The words behind a command, taken one after the other.
struct Operands {
  std::wstring hint;  // where to read more
  std::deque<std::wstring> words;
  bool areBehindDashes = false;

  std::wstring TakeAsIs(const std::wstring& name) {
    if (words.empty()) throw BadArguments{name + L" is missing" + hint};
    const std::wstring word = words.front();
    words.pop_front();
    return word;
  }
  std::wstring Take(const std::wstring& name) {
    const std::wstring word = TakeAsIs(name);
    if (LooksLikeOption(word) && !areBehindDashes) Refuse(word, kIsNoOption + hint);
    if (word.find(L'"') != word.npos) Refuse(word, kHoldsQuote);
    return word;
  }
};

std::wstring PathOf(const std::wstring& word) {
  const std::wstring path = FullPath(word);
  if (path.empty()) Refuse(word, L"is not the path of a file or folder on a drive or share.");
  if (word.find_first_of(L"*?") != word.npos) {  // also in "\\?\", where dots and blanks end names
    Refuse(word, L"holds * or ?, and wildcards are not expanded. Name each file, or the folder.");
  }
  const std::wstring root = WithSeparator(RootOf(path));
  if (root[0] == L'\\' && !Exists(root) && GetLastError() != ERROR_ACCESS_DENIED) {
    Refuse(word, L"is on a share that cannot be reached: " + SystemMessage(GetLastError()));
  }
  return path;
}

// Not by "." or "C:" or a final blank, which Windows reads as a folder that they do not name.
bool IsNamed(const std::wstring& folder) {
  const std::size_t nameEnd = folder.find_last_not_of(L"\\/. ") + 1;
  return folder.find_first_of(L". ", nameEnd) == folder.npos && folder.back() != L':';
}

void ReadCopy(Operands& operands, Arguments& arguments) {
  CopyPlan plan;
  do {
    const std::wstring source = PathOf(operands.Take(L"SOURCE"));
    const std::wstring typed = operands.Take(L"The DESTINATION of " + Quoted(source));
    const std::wstring destination = PathOf(typed);
    if (!IsFolder(source)) {
      const bool isIn = typed.back() == L'\\' || typed.back() == L'/' || IsFolder(destination);
      plan.File(source, isIn ? WithSeparator(destination) + NameOf(source) : destination);
    } else if (!arguments.replace) {
      plan.Folder(source, destination);
    } else if (IsNamed(typed)) {
      plan.ReplaceFolder(source, destination);
    } else {
      Refuse(typed, L"means " + Quoted(destination) + L". Write that if it is to be replaced.");
    }
  } while (!operands.words.empty());
  arguments.request = plan;
}

// -1 for what is no number from `low` to `high`.
int Number(const std::wstring& digits, int low, int high) {
  const bool isNumber = digits.find_first_not_of(L"0123456789") == digits.npos;
  if (!isNumber || digits.empty() || digits.size() > 5) return -1;
  const int number = std::stoi(digits);
  return number >= low && number <= high ? number : -1;
}

void ReadTime(const std::wstring& time, Job& job) {
  const bool hasForm = time.size() == 5 && time[2] == L':';
  job.hour = hasForm ? Number(time.substr(0, 2), 0, 23) : -1;
  job.minute = hasForm ? Number(time.substr(3), 0, 59) : -1;
  if (job.hour >= 0 && job.minute >= 0) return;
  Refuse(time, L"is not a time up to 23:59, such as 08:30. Put quotes around a NAME with blanks.");
}

std::uint32_t Weekday(const std::wstring& day) {
  static const wchar_t* const kNames[] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                                          L"Thursday", L"Friday", L"Saturday"};
  const std::size_t compared = std::max<std::size_t>(day.size(), 3);
  for (unsigned i = 0; i < 7; ++i) {
    if (_wcsnicmp(kNames[i], day.c_str(), compared) == 0) return 1U << i;
  }
  Refuse(day, L"is not a weekday, such as mon or Monday. Write several as mon,wed,fri.");
}

std::uint32_t MonthDay(const std::wstring& day) {
  const int number = Number(day, 1, 31);
  if (number < 0) Refuse(day, L"is not a day from 1 to 31. Write several as 1,15,31.");
  return Job::DayOfMonth(static_cast<unsigned>(number));
}

std::uint32_t Days(const std::wstring& days, std::uint32_t (*bitOf)(const std::wstring&)) {
  std::uint32_t mask = 0;
  std::wistringstream list(days + L",");  // so that an empty DAYS is refused, too
  for (std::wstring day; std::getline(list, day, L',');) mask |= bitOf(day);
  return mask;
}

template <Job::Every kEvery>
void ReadJob(Operands& operands, Arguments& arguments) {
  Job job;
  job.author = L"uactl";
  job.every = kEvery;
  job.name = operands.Take(L"NAME");
  ReadTime(operands.Take(L"HH:MM"), job);
  if (kEvery == Job::Every::kWeek) job.days = Days(operands.Take(L"DAYS"), Weekday);
  if (kEvery == Job::Every::kMonth) job.days = Days(operands.Take(L"DAYS"), MonthDay);
  const std::wstring program = operands.Take(L"PROGRAM");
  job.program = PathOf(program);
  if (!Exists(job.program) || IsFolder(job.program)) {
    Refuse(program, L"is not a file. Put quotes around its whole path, and arguments behind them.");
  }
  do {
    const std::wstring argument =
        operands.TakeAsIs(L"An argument for the program (\"\" where it takes none)");
    if (std::count(argument.begin(), argument.end(), L'"') % 2 != 0) {
      arguments.findings.push_back({Severity::kWarning, Quoted(argument) + L" " + kHoldsQuote, {}});
    }
    job.arguments.push_back(argument);
  } while (!operands.words.empty());
  arguments.request = job;
}

void ReadRemoval(Operands& operands, Arguments& arguments) {
  arguments.request = JobRemoval{operands.Take(L"NAME")};
}

void ReadTaskFile(Operands& operands, Arguments& arguments) {
  arguments.request = TaskFile{PathOf(operands.Take(L"TASKFILE"))};
}

const std::map<std::wstring, bool Arguments::*> kFlags = {{L"--replace", &Arguments::replace},
                                                          {L"--dry-run", &Arguments::onlyCheck},
                                                          {L"--fast", &Arguments::fast},
                                                          {L"--json", &Arguments::asJson}};

struct Command {
  std::wstring name;
  void (*read)(Operands&, Arguments&);
  std::set<std::wstring> options;
  bool startsWithOptions;   // what stands behind the first operand is no option
  std::wstring otherNames;  // each between blanks: what is typed by habit
};

const std::set<std::wstring> kCopyOptions = {L"--replace", L"--dry-run", L"--fast", L"--timeout",
                                             L"--json"};
const std::set<std::wstring> kJobOptions = {L"--dry-run", L"--timeout", L"--json"};
const Command kCommands[] = {
    {L"copy", ReadCopy, kCopyOptions, false, L" cp xcopy robocopy "},
    {L"daily", ReadJob<Job::Every::kDay>, kJobOptions, true, L" schedule schtasks "},
    {L"weekly", ReadJob<Job::Every::kWeek>, kJobOptions, true, {}},
    {L"monthly", ReadJob<Job::Every::kMonth>, kJobOptions, true, {}},
    {L"unschedule", ReadRemoval, kJobOptions, false, L" delete "},
    {L"run", ReadTaskFile, {L"--fast", L"--timeout", L"--json"}, false, {}},
    {L"check", ReadTaskFile, {L"--json"}, false, {}}};

const Command& FindCommand(const std::wstring& word) {
  std::wstring name = word;
  std::transform(name.begin(), name.end(), name.begin(), std::towlower);
  for (const Command& command : kCommands) {
    if (word == command.name) return command;
    if (name == command.name || command.otherNames.find(L" " + name + L" ") != name.npos) {
      Refuse(word, L"is not a command: did you mean " + Quoted(command.name) + L"?");
    }
  }
  Refuse(word, L"is not a command. Options come after the command; see \"uactl --help\".");
}

bool AsksForHelp(const std::wstring& word) {
  return word == L"--help" || word == L"-h" || word == L"/?";
}

// Puts the command's options into `arguments` and returns the other words.
Operands TakeOptions(const Command& command, Operands rest, Arguments& arguments) {
  Operands operands = {rest.hint, {}};
  while (!rest.words.empty()) {
    const std::wstring word = rest.TakeAsIs({});
    const bool areOver =
        operands.areBehindDashes || (command.startsWithOptions && !operands.words.empty());
    if (!areOver && AsksForHelp(word)) {
      arguments.helpPage = command.name;
    } else if (!areOver && word == L"--") {
      operands.areBehindDashes = true;
    } else if (areOver || command.options.count(word) == 0) {
      operands.words.push_back(word);
    } else if (word == L"--timeout") {
      const std::wstring value = rest.TakeAsIs(L"The number of seconds");
      const int seconds = Number(value, 1, 86400);
      if (seconds < 0) Refuse(value, L"is not a number of seconds from 1 to 86400.");
      arguments.options.timeout = std::chrono::seconds(seconds);
    } else {
      arguments.*(kFlags.at(word)) = true;
    }
  }
  return operands;
}

void Read(const std::vector<std::wstring>& words, Arguments& arguments) {
  if (words.empty()) throw BadArguments{L"A command is missing: see \"uactl --help\"."};
  if (words[0] == L"help" && words.size() > 1) return Read({words[1], L"--help"}, arguments);
  if (words[0] == L"help" || AsksForHelp(words[0])) arguments.helpPage = L"uactl";
  if (words[0] == L"--version") arguments.helpPage = words[0];
  if (!arguments.helpPage.empty()) return;
  const Command& command = FindCommand(words[0]);
  const std::wstring hint = L": see \"uactl help " + command.name + L"\".";
  Operands operands = TakeOptions(command, {hint, {words.begin() + 1, words.end()}}, arguments);
  if (!arguments.helpPage.empty()) return;
  command.read(operands, arguments);
  arguments.onlyCheck |= command.name == L"check";
  if (!operands.words.empty()) Refuse(operands.Take({}), L"is one argument too many" + hint);
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
