#include "uactl/arguments.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cwchar>
#include <memory>
#include <optional>

#include "corekit/text.h"
#include "uaclient/version.h"

namespace {

namespace fs = std::filesystem;
using uaclient::Job;

std::wstring Quoted(const std::wstring& text) { return L"\"" + text + L"\""; }

[[noreturn]] void Refuse(const std::wstring& argument, const std::wstring& why) {
  throw BadArguments{Quoted(argument) + L" " + why};
}

// A word that begins like an option and stands where none may.
[[noreturn]] void RefuseOption(const std::wstring& word, const std::wstring& why,
                               const std::wstring& usage) {
  Refuse(word, why + L" (a path that begins with \"-\" is written " + Quoted(L".\\" + word) +
                   L"): " + usage);
}

// The words behind a command and its options, taken one after the other.
class Operands {
 public:
  Operands(std::wstring usage, std::vector<std::wstring> words)
      : usage_(std::move(usage)), words_(std::move(words)) {}

  bool AreLeft() const { return next_ < words_.size(); }

  std::wstring Take(const std::wstring& name) {
    if (!AreLeft()) throw BadArguments{name + L" is missing: " + usage_};
    return words_[next_++];
  }

  // What is no argument of another program: an option in its place is a mistake.
  std::wstring TakeOwn(const std::wstring& name) {
    RefuseLateOption();
    return Take(name);
  }

  void ExpectNoMore() const {
    RefuseLateOption();
    if (AreLeft()) Refuse(words_[next_], L"is one argument too many: " + usage_);
  }

 private:
  void RefuseLateOption() const {
    if (!AreLeft() || words_[next_].compare(0, 2, L"--") != 0) return;
    RefuseOption(words_[next_], L"stands behind the first operand, but options come before it",
                 usage_);
  }

  std::wstring usage_;
  std::vector<std::wstring> words_;
  std::size_t next_ = 0;
};

std::vector<std::wstring> SplitAtCommas(const std::wstring& text) {
  std::vector<std::wstring> parts(1);
  for (const wchar_t c : text) {
    if (c == L',') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

std::optional<int> Number(const std::wstring& digits, int low, int high) {
  const bool isNumber = !digits.empty() && digits.size() <= 5 &&
                        digits.find_first_not_of(L"0123456789") == std::wstring::npos;
  const int number = isNumber ? std::stoi(digits) : low - 1;
  return number >= low && number <= high ? std::optional<int>(number) : std::nullopt;
}

void ReadTime(const std::wstring& time, Job& job) {
  const bool hasForm = time.size() == 5 && time[2] == L':';
  const auto hour = hasForm ? Number(time.substr(0, 2), 0, 23) : std::nullopt;
  const auto minute = hasForm ? Number(time.substr(3), 0, 59) : std::nullopt;
  if (!hour || !minute)
    Refuse(time, L"is no time from 00:00 to 23:59, two digits each, such as 08:30.");
  job.hour = *hour;
  job.minute = *minute;
}

int Weekday(const std::wstring& day) {
  static const wchar_t* const kNames[] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                                          L"Thursday", L"Friday", L"Saturday"};
  for (int i = 0; i < 7; ++i) {
    if (day.size() >= 3 && _wcsnicmp(kNames[i], day.c_str(), day.size()) == 0) return i;
  }
  Refuse(day, L"is no weekday, such as mon or Monday; several are written mon,wed,fri.");
}

int MonthDay(const std::wstring& day) {
  if (const auto number = Number(day, 1, 31)) return *number - 1;
  Refuse(day, L"is no day of a month, from 1 to 31; several are written 1,15,31.");
}

std::uint32_t Days(const std::wstring& days, int (*bitOf)(const std::wstring&)) {
  std::uint32_t mask = 0;
  for (const std::wstring& day : SplitAtCommas(days)) mask |= 1U << bitOf(day);
  return mask;
}

// From the drive or share down. A separator at its end stays. Not std::filesystem::absolute,
// because some libraries' knows no shares, and puts their names below the current drive.
fs::path FullPath(const std::wstring& path) {
  std::wstring full(32768, L'\0');
  const auto size = static_cast<DWORD>(full.size());
  const DWORD length = GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
  if (length == 0 || length >= size) Refuse(path, L"is not the path of a file or folder.");
  full.resize(length);
  return full;
}

// What stands for the current folder, of the process or of a drive, or for one above it, would have
// become its name when it is checked, and all that is in a destination is deleted. Windows drops
// blanks and dots at a path's end.
void RefuseCurrentFolders(const std::wstring& operand) {
  constexpr wchar_t kSeparators[] = L"\\/";
  const std::wstring path = operand.substr(0, operand.find_last_not_of(kSeparators) + 1);
  const std::size_t separator = path.find_last_of(kSeparators);
  const std::wstring name = separator == std::wstring::npos ? path : path.substr(separator + 1);
  if (!name.empty() && name.find_first_not_of(L". ") == std::wstring::npos) {
    Refuse(operand, L"ends in " + Quoted(name) + L": write the folder's own name.");
  }
  if (operand.size() > 1 && operand[1] == L':' && operand.find_first_of(kSeparators, 2) != 2) {
    Refuse(operand,
           L"has no separator behind the drive, and so means what is the current folder there: "
           L"write the whole path.");
  }
}

fs::path CopyPath(const std::wstring& operand) {
  const bool isVerbatim = operand.compare(0, 4, L"\\\\?\\") == 0;
  if (operand.find_first_of(L"*?", isVerbatim ? 4 : 0) != std::wstring::npos) {
    Refuse(operand,
           L"holds \"*\" or \"?\", and these are not expanded: name every file, or the "
           L"folder.");
  }
  RefuseCurrentFolders(operand);
  return FullPath(operand);
}

bool NamesFolder(const fs::path& path) { return !path.has_filename(); }

void AddCopy(uaclient::CopyPlan& plan, const fs::path& source, const fs::path& destination) {
  std::error_code error;
  const fs::file_status from = fs::status(source, error);
  if (from.type() == fs::file_type::not_found) Refuse(source, L"does not exist.");
  // The helper may see what this user may not. A separator at its end then says it is a folder.
  const bool isUnseen = from.type() == fs::file_type::none;
  const fs::file_status to = fs::status(destination, error);
  if (fs::is_directory(from) || (isUnseen && NamesFolder(source))) {
    if (fs::is_regular_file(to)) {
      Refuse(destination,
             L"is a file, which the folder " + Quoted(source) + L" cannot replace: name a folder.");
    }
    plan.Folder(source, destination);
    return;
  }
  if (NamesFolder(source)) Refuse(source, L"is a file: leave out the separator at its end.");
  if (NamesFolder(destination) || fs::is_directory(to)) {
    Refuse(destination, L"is a folder, but " + Quoted(source) +
                            L" is a file: name the file as it will be, such as " +
                            Quoted(destination / source.filename()) + L".");
  }
  plan.File(source, destination);
}

Request ReadCopy(Operands& operands) {
  uaclient::CopyPlan plan;
  do {
    const fs::path source = CopyPath(operands.TakeOwn(L"SOURCE"));
    AddCopy(plan, source, CopyPath(operands.TakeOwn(L"The DESTINATION of " + Quoted(source))));
  } while (operands.AreLeft());
  return plan;
}

template <Job::Every kEvery>
Request ReadJob(Operands& operands) {
  Job job;
  job.every = kEvery;
  job.name = operands.TakeOwn(L"NAME");
  ReadTime(operands.Take(L"HH:MM"), job);
  if constexpr (kEvery == Job::Every::kWeek) job.days = Days(operands.Take(L"DAYS"), Weekday);
  if constexpr (kEvery == Job::Every::kMonth) job.days = Days(operands.Take(L"DAYS"), MonthDay);
  job.program = FullPath(operands.TakeOwn(L"PROGRAM"));
  do {
    job.arguments.push_back(operands.Take(L"An argument for the program, which needs one,"));
  } while (operands.AreLeft());
  job.author = L"uactl";
  return job;
}

Request ReadRemoval(Operands& operands) { return uaclient::JobRemoval{operands.TakeOwn(L"NAME")}; }

Request ReadRun(Operands& operands) {
  const fs::path file = FullPath(operands.TakeOwn(L"TASKFILE"));
  std::error_code error;
  const fs::file_type type = fs::status(file, error).type();
  if (type == fs::file_type::not_found) Refuse(file, L"does not exist.");
  if (type == fs::file_type::directory) Refuse(file, L"is a folder and no task file.");
  return uaclient::TaskFile{file};
}

Request ReadCheck(Operands& operands) {
  return TaskFileCheck{FullPath(operands.TakeOwn(L"TASKFILE"))};
}

struct Command {
  const char* name;
  const char* operands;
  const char* summary;
  std::vector<const char*> options;  // names among those of AddOption
  std::string details;
  Request (*read)(Operands&);
};

const std::string kJobDetails =
    "The job runs as the user who confirms the raised rights, while that user is logged on.\n"
    "A job of the same name is replaced. PROGRAM gets the ARGUMENTS, at least one, as they\n"
    "are given here.\n";
const std::string kJobExitCodes = "Exit code: 0 done, 1 not done, 2 wrong arguments.";

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"copy",
       "SOURCE DESTINATION [SOURCE DESTINATION]...",
       "Copies files and folders, all with one request for raised rights.",
       {"--dry-run", "--fast", "--timeout"},
       "A file goes over the one that is there. A folder replaces its destination: everything\n"
       "in that is deleted first. Folders come first, then files. Afterwards every file is\n"
       "compared with its source.\n"
       "Exit code: 0 everything is there (with --dry-run: nothing speaks against it), 1 something\n"
       "is not, 2 wrong or harmful arguments (nothing was started).",
       ReadCopy},
      {"daily",
       "NAME HH:MM PROGRAM ARGUMENTS...",
       "Has a program started every day.",
       {},
       kJobDetails + kJobExitCodes,
       ReadJob<Job::Every::kDay>},
      {"weekly",
       "NAME HH:MM DAYS PROGRAM ARGUMENTS...",
       "Has a program started on days of the week.",
       {},
       "DAYS are names such as mon,wed,fri or Monday.\n" + kJobDetails + kJobExitCodes,
       ReadJob<Job::Every::kWeek>},
      {"monthly",
       "NAME HH:MM DAYS PROGRAM ARGUMENTS...",
       "Has a program started on days of the month.",
       {},
       "DAYS are numbers such as 1,15,31.\n" + kJobDetails + kJobExitCodes,
       ReadJob<Job::Every::kMonth>},
      {"unschedule", "NAME", "Deletes a job.", {}, kJobExitCodes, ReadRemoval},
      {"run",
       "TASKFILE",
       "Has the helper carry out a task file that exists, and says what became of it.",
       {"--fast", "--timeout"},
       "The helper deletes the task file when it succeeds. One that would do harm is not\n"
       "started; \"uactl check\" says what that is.\n"
       "Exit code: 0 everything was done, 1 not or not all, 2 no such file or wrong arguments.",
       ReadRun},
      {"check",
       "TASKFILE",
       "Says what the helper would do with a task file, and what is wrong with it. Changes\n"
       "nothing, and needs no rights.",
       {"--json"},
       "Prints FILE:LINE: error: TEXT or FILE:LINE: warning: TEXT for what it finds, then what\n"
       "the helper would do, in its order.\n"
       "Exit code: 0 nothing to remark, 1 the helper would run, but something is suspicious or\n"
       "would be left out, 2 the helper would fail, or there is no such file.",
       ReadCheck}};
  return commands;
}

const Command& CommandOf(const CLI::App& app) {
  return *std::find_if(Commands().begin(), Commands().end(),
                       [&](const Command& command) { return app.get_name() == command.name; });
}

std::string Usage(const Command& command) {
  return std::string("uactl ") + command.name + (command.options.empty() ? " " : " [OPTIONS] ") +
         command.operands;
}

// The library's own usage line knows nothing of operands, which it leaves to us.
struct HelpFormatter : CLI::Formatter {
  std::string make_usage(const CLI::App* app, std::string) const override {
    const bool isCommand = app->get_parent() != nullptr;
    return "Usage: " + (isCommand ? Usage(CommandOf(*app)) : "uactl COMMAND ...") + "\n";
  }
  std::string make_subcommand(const CLI::App* app) const override {
    const Command& command = CommandOf(*app);
    return std::string("  ") + command.name + " " + command.operands + "\n      " +
           CLI::detail::find_and_replace(command.summary, "\n", "\n      ") + "\n";
  }
};

struct OptionValues {
  bool dryRun = false;
  bool fast = false;
  bool json = false;
  std::string timeout;
};

void AddOption(CLI::App& app, const std::string& name, OptionValues& values) {
  if (name == "--fast") {
    app.add_flag(name, values.fast,
                 "Compares sizes and times instead of contents where that will do");
  } else if (name == "--dry-run") {
    app.add_flag(name, values.dryRun,
                 "Starts nothing; says what speaks against it and what would be deleted");
  } else if (name == "--json") {
    app.add_flag(name, values.json, "Prints JSON, for programs");
  } else {
    app.add_option(name, values.timeout, "Waits no longer than this; the helper goes on then")
        ->type_name("SECONDS");
  }
}

// "/?" asks for help where a command or its first argument is expected.
std::vector<std::string> Utf8Words(const std::vector<std::wstring>& words) {
  std::vector<std::string> result;
  for (const std::wstring& word : words) {
    const bool asksForHelp = word == L"/?" && result.size() < 2;
    result.push_back(asksForHelp ? "--help" : WideToUtf8(word));
  }
  return result;
}

// What looks like an option where operands begin.
void RefuseUnknownOption(const std::vector<std::string>& words, const std::wstring& hint) {
  if (words.empty() || words[0].size() < 2 || words[0][0] != '-') return;
  RefuseOption(Utf8ToWide(words[0]), L"is no option there", hint);
}

}  // namespace

Arguments ReadArguments(const std::vector<std::wstring>& words) {
  OptionValues values;
  CLI::App app(
      "Copies files and schedules programs with raised rights, through uactask.exe beside it.",
      "uactl");
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_help_flag("-h,--help", "Shows this; of one command: uactl COMMAND --help");
  app.set_version_flag("--version", std::string("uactl ") + uaclient::kVersion,
                       "Shows the version");
  app.require_subcommand(0, 1);
  // Options end at the first operand: what follows belongs to the job's program.
  app.prefix_command();
  for (const Command& command : Commands()) {
    CLI::App* const added = app.add_subcommand(command.name, command.summary);
    added->group("Commands")->footer(command.details);
    added->set_help_flag("-h,--help", "Shows this");
    for (const char* option : command.options) AddOption(*added, option, values);
  }

  try {
    std::vector<std::string> reversed = Utf8Words(words);
    std::reverse(reversed.begin(), reversed.end());
    app.parse(std::move(reversed));
  } catch (const CLI::CallForHelp&) {
    return {ShownText{Utf8ToWide(app.help())}, {}};
  } catch (const CLI::CallForVersion& version) {
    return {ShownText{Utf8ToWide(version.what()) + L"\n"}, {}};
  } catch (const CLI::ParseError& error) {
    throw BadArguments{Utf8ToWide(error.what())};
  }

  const std::wstring hint = L"see \"uactl --help\".";
  RefuseUnknownOption(app.remaining(), hint);
  if (words.empty()) throw BadArguments{L"A command is missing: " + hint};
  if (app.get_subcommands().empty()) Refuse(words[0], L"is no command: " + hint);
  const CLI::App& parsed = *app.get_subcommands().front();
  const Command& command = CommandOf(parsed);
  const std::wstring usage = Utf8ToWide(Usage(command));
  RefuseUnknownOption(parsed.remaining(), usage);
  // Separators such as "--" end a command's words.
  if (const std::size_t behind = app.remaining_size(); behind > 0) {
    Refuse(words[words.size() - behind - 1], L"cannot stand there: " + usage);
  }

  // As they were typed: on the way through UTF-8 text that is no UTF-16 would have become other
  // text.
  Operands operands(
      Utf8ToWide(Usage(command)),
      {words.end() - static_cast<std::ptrdiff_t>(parsed.remaining_size()), words.end()});
  Arguments arguments;
  arguments.request = command.read(operands);
  operands.ExpectNoMore();

  if (auto* plan = std::get_if<uaclient::CopyPlan>(&arguments.request); plan && values.dryRun) {
    arguments.request = PlanCheck{std::move(*plan)};
  }
  if (auto* check = std::get_if<TaskFileCheck>(&arguments.request)) check->asJson = values.json;
  if (values.fast) arguments.options.comparison = uaclient::Comparison::kSizeAndTime;
  if (!values.timeout.empty()) {
    const auto seconds = Number(Utf8ToWide(values.timeout), 1, 86400);
    if (!seconds) Refuse(Utf8ToWide(values.timeout), L"is no number of seconds from 1 to 86400.");
    arguments.options.timeout = std::chrono::seconds(*seconds);
  }
  return arguments;
}
