// The command end to end: what it refuses and says, what it has the helper do, and what it finds in
// task files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "corekit/text.h"
#include "fileop/file_system.h"
#include "support.h"
#include "uaclient/helper_process.h"
#include "uactl/arguments.h"
#include "uactl/report.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Json = nlohmann::json;
using Strings = std::vector<std::string>;

const Tree kTree = TreeOf("empty/, sub/日本 😀.txt=far, ü a.txt=near");
const std::string kProgram = "C:\\windows\\system32\\cmd.exe";
const std::string kJob = "uactask test uactl " + std::to_string(GetCurrentProcessId()) + " ü";

// The words of a line. N stands for a job's name, P for a program.
Strings Words(const std::string& line) {
  Strings words;
  std::istringstream stream(line);
  for (std::string word; stream >> word;) {
    words.push_back(word == "N" ? kJob : word == "P" ? kProgram : word);
  }
  return words;
}

std::vector<std::wstring> Wide(const Strings& words) {
  std::vector<std::wstring> wide;
  for (const std::string& word : words) wide.push_back(Utf8ToWide(word));
  return wide;
}

std::string FullPath(const std::string& path) {
  return WideToUtf8(std::filesystem::absolute(Utf8ToWide(path)).make_preferred().wstring());
}

// Has a temporary folder for the command, which must be empty in the end.
class Uactl : public testing::Test {
 protected:
  Uactl() {
    MakeFolders(temp_ / "temp ü/");
    tempPath_ = Utf8ToWide(FullPath(temp_ / "temp ü"));
    SetEnvironmentVariableW(L"TMP", tempPath_.c_str());
  }
  ~Uactl() override { EXPECT_EQ(temp_.Contents(), Tree({{"temp ü/", ""}})); }

  // What it prints, which must come with this exit code: standard output, then standard error.
  static std::string Says(unsigned long exitCode, const Strings& arguments) {
    const ProgramResult result = RunProgram("uactl.exe", arguments);
    EXPECT_EQ(result.exitCode, exitCode) << testing::PrintToString(arguments) << result.errors;
    return result.output + result.errors;
  }
  // The lines, all fit to be shown, by which it refuses what was asked for.
  static std::string Refusal(const Strings& arguments, unsigned long exitCode = 2) {
    std::string text = Says(exitCode, arguments);
    EXPECT_TRUE(Matches(text, "(uactl: [^\\x01-\\x1F\\x7F]+\n)+")) << text;
    return text;
  }
  // What it says to programs: nothing else, and in ASCII.
  static Json SaysAsJson(unsigned long exitCode, Strings arguments) {
    arguments.insert(arguments.begin() + 1, "--json");
    const ProgramResult result = RunProgram("uactl.exe", arguments);
    EXPECT_EQ(result.exitCode, exitCode) << testing::PrintToString(arguments) << result.errors;
    EXPECT_TRUE(Matches(result.output, "[\\n -~]+")) << result.output;
    const Json json = Json::parse(result.output, nullptr, false);
    EXPECT_EQ(json.value("exit", 9U), exitCode);
    for (const char* list : {"findings", "steps", "items"}) EXPECT_TRUE(json[list].is_array());
    return json;
  }
  // A check in words, from what the same says to programs.
  static std::string TextOf(const Json& json) {
    std::string lines;
    for (const Json& finding : json["findings"]) {
      const int line = finding["line"];
      const bool harmful = finding["harmful"];
      lines += finding["file"].get<std::string>() + (line > 0 ? ":" + std::to_string(line) : "") +
               ": " + finding["severity"].get<std::string>() + ": " +
               finding["text"].get<std::string>() +
               (harmful ? " \"uactl run\" does not start it.\n" : "\n");
    }
    for (const Json& step : json["steps"]) {
      lines += "plan: " + step["text"].get<std::string>() + "\n";
    }
    return lines;
  }

  const TestFolder folder_;
  std::filesystem::path tempPath_;

 private:
  const TestFolder temp_;
};

// Its help names the options that a command has, and no other.
TEST_F(Uactl, ExplainsItself) {
  const std::string all = Says(0, {"--help"});
  for (const char* word : {"-h", "/?", "help"}) EXPECT_EQ(Says(0, {word}), all);
  for (const std::string command :
       {"copy", "daily", "weekly", "monthly", "unschedule", "run", "check"}) {
    const std::string help = Says(0, {command, "--help"});
    EXPECT_THAT(help, StartsWith("uactl " + command + " "));
    EXPECT_THAT(all, HasSubstr("\n" + help.substr(0, help.find('\n', help.find('\n') + 1) + 1)));
    EXPECT_THAT(help, HasSubstr("\nExit code: 0"));
    EXPECT_EQ(Says(0, {"help", command}), help);
    EXPECT_EQ(Says(0, {command, "--json", "/?"}), help);
    for (const std::string option : {"--replace", "--dry-run", "--fast", "--timeout", "--json"}) {
      const bool isKnown =
          ReadArguments(Wide({command, option, "5"})).refusal.find(L"is not an option") ==
          std::string::npos;
      EXPECT_EQ(isKnown, help.find("\n  " + option) != std::string::npos) << command << option;
    }
  }
  EXPECT_TRUE(Matches(Says(0, {"--version"}), "uactl \\d+\\.\\d+\\.\\d+\n"));
}

// Bad arguments, each with what must be named; and what is typed by habit, with what to write
// instead.
TEST_F(Uactl, RefusesBadArguments) {
  WriteTree(folder_.Path(), {{"a b/", ""}, {"a b/u.exe", "MZ"}});
  const std::string program = FullPath(folder_ / "a b/u.exe");
  const std::string dir = FullPath(folder_ / "a b");
  const std::string front = dir.substr(0, dir.find(' '));
  const std::string quote = "Leave out that \\, or double it";
  std::vector<std::pair<Strings, std::string>> cases = {
      {{"COPY", "a", "b"}, "did you mean \"copy\"?"},
      {{"cp", "a", "b"}, "did you mean \"copy\"?"},
      {{"copy", dir + "\\", "b"}, quote},
      {{"daily", kJob, "08:00", dir + "\\", "a"}, quote},
      {{"copy", dir, "b", "/E"},
       "\"/E\" is not an option of this command. Options begin with \"--\""},
      {{"daily", "/tn", kJob, "08:00", kProgram, "a"}, "Options begin with \"--\""},
      {{"daily", kJob, "--dry-run", "08:00", kProgram, "a"}, "stand before its NAME"},
      {{"daily", "Skin", "update", "08:00", kProgram, "a"}, "\"update\" is not a time"},
      {{"daily", kJob, "08:00", front, "b\\u.exe", "/s"}, "\"" + front + "\" is not a file. Put"},
      {{"daily", kJob, "08:00", program + " /s"}, program + " /s\" is not a file. Put quotes"},
      {{"daily", kJob, "08:00", "\\\"" + program + "\\\" /s"}, quote},
      {{"daily", kJob, "08:00", program}, "\"\" where it takes none"},
      {{"copy", "\\\\127.0.0.1\\none\\x", "b"}, "none\\x\" is on a share that cannot be reached: "},
      {{"copy", "--replace", dir, "."}, "\".\" means"},
      {{"copy", "--replace", dir, "C:"}, "\"C:\" means"},
      {{"copy", "--replace", dir, dir + "\\..\\.. "}, "means"}};
  const std::pair<const char*, std::string> lines[] = {
      {"", "command"},
      {"--fast copy a b", "\"--fast\""},
      {"help none", "\"none\" is not a command"},
      {"copy none b", "none\" does not exist"},
      {"copy P a P", "DESTINATION of \"" + kProgram},
      {"copy -x . a", "\"-x\" is not an option"},
      {"copy P a --fast=1", "\"--fast=1\""},
      {"copy --timeout 0 P a", "\"0\""},
      {"copy P --timeout 86401 a", "\"86401\""},
      {"copy P a --timeout", "number of seconds is missing"},
      {"copy - a", "\"" + FullPath("-") + "\" does not exist"},
      {"copy -- --json a", "\"" + FullPath("--json") + "\" does not exist"},
      {"copy P \\\\.\\NUL", "NUL"},
      {"copy *.txt a", "\"*.txt\" holds * or ?"},
      {"run a --dry-run", "\"--dry-run\""},
      {"unschedule", "NAME"},
      {"unschedule a b", "\"b\""},
      {"daily N 24:00 P a", "\"24:00\""},
      {"daily N 8:00 P a", "such as 08:30"},
      {"daily N -1:00 P a", "\"-1:00\""},
      {"weekly N 08:00 mon,,tue P a", "\"\" is not a weekday"},
      {"monthly N 08:00 0 P a", "\"0\""},
      {"monthly N 08:00 1,32 P a", "\"32\""}};
  for (const auto& [line, said] : lines) cases.emplace_back(Words(line), said);
  for (const auto& [arguments, said] : cases) EXPECT_THAT(Refusal(arguments), HasSubstr(said));
  const Strings odd = {"daily", "--dry-run", kJob, "08:00", program, dir + "\\", "x"};
  EXPECT_THAT(Says(0, odd), HasSubstr("uactl: warning: \"" + dir + "\" x\" holds a quote"));
  EXPECT_THAT(TextOf(SaysAsJson(0, odd)), HasSubstr("holds a quote"));
}

TEST_F(Uactl, ReadsTimesDaysAndArguments) {
  using Every = uaclient::Job::Every;
  const struct {
    std::string line;
    Every every;
    int minutes;  // from midnight on
    std::uint32_t days;
  } cases[] = {{"daily --json N 00:00 P", Every::kDay, 0, 0},
               {"weekly -- N 07:05 mon,Wednesday,FRI,mon P", Every::kWeek, 425, 42},
               {"weekly --timeout 5 N 23:59 sun,tues,thu,sat P", Every::kWeek, 1439, 85},
               {"monthly N 12:30 1,15,31 P", Every::kMonth, 750, 0x40004001}};
  for (const auto& c : cases) {
    std::vector<std::wstring> words = Wide(Words(c.line));
    // As they are: options of the program, and text that is no UTF-16.
    const std::vector<std::wstring> given = {L"--help", L"",      L"/?",    L"--",
                                             L"--json", L"a b\\", L"\"a\"", L"\xD83D"};
    words.insert(words.end(), given.begin(), given.end());
    const Arguments arguments = ReadArguments(words);
    EXPECT_EQ(arguments.asJson, words[1] == L"--json");
    EXPECT_TRUE(arguments.findings.empty());
    const auto job = std::get<uaclient::Job>(arguments.request);
    EXPECT_EQ(job.name, Utf8ToWide(kJob));
    EXPECT_EQ(job.program, Utf8ToWide(kProgram));
    EXPECT_EQ(job.arguments, given);
    EXPECT_TRUE(job.every == c.every && job.hour * 60 + job.minute == c.minutes) << c.line;
    EXPECT_EQ(job.days, c.days) << c.line;
  }
  const Arguments copy = ReadArguments(
      Wide({"copy", kProgram, "Q:/none/./x", "C:/none/../windows/", "Q:/b", "--fast", kProgram,
            "C:/windows", kProgram, "Q:\\new/", "--timeout", "86400", "--", ".", "--x"}));
  const auto& items = std::get<uaclient::CopyPlan>(copy.request).Items();
  std::wstring destinations;
  for (const auto& item : items) destinations += item.destination.wstring() + L";";
  EXPECT_THAT(destinations,
              StartsWith(L"Q:\\none\\x;Q:\\b;C:\\windows\\cmd.exe;Q:\\new\\cmd.exe;"));
  EXPECT_EQ(items.at(4).source, std::filesystem::current_path());
  EXPECT_EQ(items.at(1).source, L"C:\\windows");
  EXPECT_EQ(copy.options.timeout, std::chrono::hours(24));
  EXPECT_EQ(copy.options.comparison, uaclient::Comparison::kSizeAndTime);
}

// Whatever is typed is one value, or is refused and shown harmlessly.
TEST_F(Uactl, TypedTextAddsNoLineAndNoKey) {
  Strings names = {"", " " + kJob, "[Task]", "😀"};
  for (const char* end : {" ", ".", "\nexe_arguments=b", "\r", "\x1B[2J"})
    names.push_back(kJob + end);
  for (const char sign : std::string("/:*?<>|")) names.push_back(sign + kJob);
  for (const std::string& name : names) Refusal({"unschedule", name});
  for (const char* text : {"a\n[Task]", "[a]", "a\nexe_path=C:\\none.exe", "a\r", "😀"}) {
    Refusal({"daily", kJob, "08:00", kProgram, "a", text});
    Refusal({"daily", kJob, "08:00", kProgram + text, "a"});
  }
  Refusal({"daily", names.back(), "08:00", kProgram, "a"});
  Refusal({"copy", folder_.Path(), folder_ / "a\n/b"});
}

TEST_F(Uactl, CopiesAllAtOnce) {
  WriteTree(folder_ / "from/", kTree);
  WriteTree(folder_ / "old/", {{"gone/", ""}, {"gone/x", "x"}, {"ü a.txt", "older"}});
  const auto copy = [this](const Strings& options) {
    Strings words = {"copy", folder_ / "from/sub/日本 😀.txt", folder_ / "file", "--timeout", "60"};
    words.insert(words.end(), {folder_ / "from", folder_ / "old"});
    words.insert(words.end(), {folder_ / "from/ü a.txt", folder_ / "made/"});
    words.insert(words.end(), options.begin(), options.end());
    return words;
  };
  const Tree before = folder_.Contents();
  const Json planned = SaysAsJson(0, copy({"--dry-run", "--replace"}));
  EXPECT_EQ(Says(0, copy({"--replace", "--dry-run"})), TextOf(planned));
  const Json& step = planned["steps"][0];
  EXPECT_TRUE(step["kind"] == "replaceFolder" && step["deletes"] == true &&
              step["deletedFiles"] == 2);
  EXPECT_EQ(folder_.Contents(), before);

  const std::string done = "4 files, 14 bytes, \\d+\\.\\d s\n";
  const std::string told = Says(0, copy({"--replace"}));
  EXPECT_TRUE(Matches(told, done + "uactl: plan: [^\n]+\n"));
  EXPECT_THAT(told, HasSubstr("plan: " + step["text"].get<std::string>()));
  EXPECT_EQ(ReadTree(folder_ / "old/"), kTree);
  EXPECT_EQ(ReadFileBytes(folder_ / "made/ü a.txt"), "near");

  // Nothing is deleted, and so nothing is told before the start.
  WriteTree(folder_.Path(), {{"file", "older"}, {"old/kept", "k"}});
  EXPECT_TRUE(Matches(Says(0, copy({})), done));
  EXPECT_EQ(ReadFileBytes(folder_ / "file") + ReadFileBytes(folder_ / "old/kept"), "fark");

  // What did not arrive is named; the rest did.
  WriteFileBytes(folder_ / "file", "raf");
  const FileLock lock(folder_ / "file");
  EXPECT_THAT(Says(1, copy({})), HasSubstr("uactl: \"" + FullPath(folder_ / "file") + "\": "));
  const Json json = SaysAsJson(1, copy({}));
  EXPECT_EQ(json["status"], "incomplete");
  EXPECT_TRUE(json["items"][0]["done"] == false &&
              !json["items"][0]["reason"].get<std::string>().empty());
  EXPECT_EQ(json["items"][2]["destination"], FullPath(folder_ / "made/ü a.txt"));
}

TEST_F(Uactl, TellsWhyAPlanIsRefused) {
  WriteTree(folder_.Path(), {{"dir/", ""}, {"dir/a", "a"}});
  const Strings copy = {"copy", folder_ / "dir", folder_ / "dir/in"};
  EXPECT_THAT(Refusal(copy), HasSubstr(FullPath(folder_ / "dir/in")));
  const Json json = SaysAsJson(2, copy);
  const Json& finding = json["findings"][0];
  EXPECT_EQ(json["status"], "invalid");
  EXPECT_TRUE(finding["severity"] == "error" && finding["item"] == 0) << finding;
  EXPECT_EQ(SaysAsJson(2, {"copy", copy[1], copy[2], "--dry-run"})["status"], "fails");
  EXPECT_THAT(Refusal({"copy", "--replace", copy[1], "Q:\\\\"}), HasSubstr("Q:"));
  const Json wrong = SaysAsJson(2, {"copy", "a"});
  EXPECT_THAT(wrong["reason"].get<std::string>(), HasSubstr("DESTINATION"));
  EXPECT_EQ(wrong["findings"][0]["text"], wrong["reason"]);
}

// A helper that hangs, and a console for this process and the command alone, which Ctrl+C reaches
// both.
TEST_F(Uactl, StopsWaitingButSaysThatTheHelperGoesOn) {
  if (!OnWine()) GTEST_SKIP() << "the tests would be cut off from their own console";
  const std::filesystem::path own = uaclient::OwnFolder();
  const std::filesystem::path helper = FullPath(folder_ / "uactask.exe");
  const Strings copy = {"copy", folder_ / "a", folder_ / "b"};
  WriteFileBytes(folder_ / "a", "a");
  std::filesystem::copy_file(own / "uactl.exe", folder_ / "uactl.exe");
  std::filesystem::copy_file(own / "hanging_helper.exe", helper);
  FreeConsole();
  AllocConsole();
  const PHANDLER_ROUTINE goOn = [](DWORD) -> BOOL { return TRUE; };
  SetConsoleCtrlHandler(goOn, TRUE);
  const ProgramResult result = RunProgram(FullPath(folder_ / "uactl.exe"), copy, [this] {
    for (int i = 0; i < 500 && !PathExists((folder_ / "uactask.exe.runs").c_str()); ++i) Sleep(20);
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0));
  });
  EXPECT_EQ(result.exitCode, 4U);
  EXPECT_THAT(result.errors, HasSubstr("goes on"));
  EXPECT_THAT(Refusal(copy, 1), HasSubstr("Another run is at"));
  // Without its files it ends.
  for (const auto& left : std::filesystem::directory_iterator(tempPath_)) {
    std::filesystem::remove_all(left);
  }
  for (int i = 0; i < 100 && !DeleteFileW(helper.c_str()); ++i) Sleep(20);
  SetConsoleCtrlHandler(goOn, FALSE);
  FreeConsole();
}

TEST_F(Uactl, SchedulesAndUnschedules) {
  if (!IsElevated()) GTEST_SKIP() << "the scheduler's jobs are not seen";
  const std::string job = "The job \"" + kJob + "\" was ";
  const Strings daily = {"daily", kJob, "08:00", kProgram, "/?", "--help", "--"};
  EXPECT_THAT(Says(0, daily), StartsWith(job + "registered.\n"));
  EXPECT_THAT(Says(0, daily), StartsWith(job + "replaced.\n"));
  EXPECT_EQ(SaysAsJson(0, {"unschedule", "--dry-run", kJob})["steps"][0]["kind"], "deleteJob");
  EXPECT_THAT(Says(0, {"unschedule", kJob}), StartsWith(job + "deleted.\n"));
  EXPECT_THAT(Refusal({"unschedule", kJob}, 1), HasSubstr(kJob + "\" does not exist."));
  if (!OnWine()) return;  // whose scheduler refuses all but daily jobs
  for (const char* what : {" registered.", " registered, and the older one is gone."}) {
    EXPECT_THAT(
        Refusal({"weekly", kJob, "08:00", "sun", kProgram, "/c"}, 1),
        HasSubstr(std::string(kJob) + "\" was not" + what +
                  " The helper said: TaskScheduler: Cannot create the trigger,80004001.\n"));
    Says(0, daily);
  }
  Says(0, {"unschedule", kJob});
}

// A task file by what "check" answers, in words and for programs, and what then becomes of it.
TEST_F(Uactl, ChecksAndRunsTaskFiles) {
  const std::string file = folder_ / "task.ini";
  const std::string list = folder_ / "list.xml";
  const std::string job = "[Task]\ntype=0\ntask_name=" + corekit::Utf8ToAnsi(kJob) +
                          "\ntime_type=2\ntime_weekday=0\ntime_monthday=0\nexe_path=" + kProgram +
                          "\nruntime=2030-01-01T08:00:00";
  const struct {
    std::string text;
    unsigned long check;
    unsigned long run;
    Strings said;  // by the check
  } cases[] = {
      {"[Task]\ntype=1\nxml_path=" + FullPath(list) + "\n", 0, 0, {"plan: copies "}},
      {"[Task]\ntype=1\nxml_path=" + FullPath(list), 2, 1, {"error: ", "task.ini:3: warning: "}},
      {"", 2, 1, {"task.ini: error: "}},
      {"[Task]\ntype=1\nxml_path=" + FullPath(folder_ / "harm.xml") + "\n",
       1,
       1,
       {"harm.xml:1: warning: ", "\"uactl run\" does not start it."}},
      {ReplaceMatches(job, "time_type=2", "time_type=5") + "\nexe_arguments=a\n",
       2,
       1,
       {"plan: deletes the job \"" + kJob, "plan: the helper fails with exit code 1"}},
      {job + "\nexe_arguments=a", 1, 1, {"task.ini:9: ", "plan: deletes the job \"" + kJob}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    WriteTree(folder_.Path(), {{"a", "aa"}, {"task.ini", c.text}});
    WriteFileBytes(list, "<root><task><i key='1' src='" + FullPath(folder_ / "a") + "' dec='" +
                             FullPath(folder_ / "b") + "' type='file'/></task></root>");
    WriteFileBytes(folder_ / "harm.xml", "<root><task><i key='1' src='" + FullPath(folder_.Path()) +
                                             "' dec='" + FullPath(folder_ / "in") +
                                             "' type='dir'/></task></root>");
    const Tree before = folder_.Contents();
    const std::string text = Says(c.check, {"check", file});
    for (const std::string& said : c.said) EXPECT_THAT(text, HasSubstr(said));
    EXPECT_THAT(text, StartsWith(TextOf(SaysAsJson(c.check, {"check", file}))));
    EXPECT_EQ(folder_.Contents(), before);

    Says(c.run, {"run", file});
    EXPECT_EQ(folder_.Contents().count("task.ini"), c.run);
    EXPECT_EQ(folder_.Contents().count("b"), 1 - c.run);
    RemoveTreeForSure(folder_.Path());
  }
  for (const char* command : {"check", "run"}) {
    EXPECT_THAT(Says(2, {command, file}), HasSubstr(FullPath(file) + ": error: "));
  }
}

// What cannot be provoked everywhere: the same outcome in words, as JSON and as exit code.
TEST(Report, TellsEveryOutcome) {
  const struct {
    uaclient::Status status;
    int exitCode;
    const char* name;
  } cases[] = {{uaclient::Status::kDone, 0, "done"},
               {uaclient::Status::kIncomplete, 1, "incomplete"},
               {uaclient::Status::kInvalid, 2, "invalid"},
               {uaclient::Status::kRefused, 3, "refused"},
               {uaclient::Status::kNotStarted, 1, "notStarted"},
               {uaclient::Status::kFailed, 1, "failed"},
               {uaclient::Status::kStillRunning, 4, "stillRunning"}};
  for (const auto& c : cases) {
    const bool isDone = c.exitCode == 0;
    uaclient::Result result = Failure(c.status, isDone ? L"" : L"Why.").result;
    result.items.resize(2);
    result.items[0].done = result.items[0].replaced = isDone;
    result.items[1].destination = L"D:\\é";
    result.items[1].reason = L"Own.";
    result.files = 2;
    result.bytes = 3400;
    result.elapsed = std::chrono::milliseconds(12345);
    const Json json = Json::parse(AsJson(OutcomeOf(result, false)));
    EXPECT_TRUE(json["exit"] == c.exitCode && json["status"] == c.name) << json;
    EXPECT_EQ(json["items"][0]["reason"], isDone ? "" : "Why.");
    EXPECT_EQ(json["items"][0]["replaced"], isDone);
    EXPECT_EQ(json["items"][1]["reason"], "Own.");
    const std::wstring errors =
        (isDone ? L"" : L"uactl: Why.\n") + std::wstring(L"uactl: \"D:\\é\": Own.\n");
    EXPECT_EQ(AsText(OutcomeOf(result, false)).errors,
              c.exitCode == 2 ? L"uactl: error: Why.\nuactl: Nothing was started.\n" : errors);
    EXPECT_EQ(AsText(OutcomeOf(result, false)).output,
              c.exitCode == 2 ? L"" : L"2 files, 3.4 kB, 12.3 s\n");
    // A task file may be wrong though the argument is right, unless there is no such file.
    EXPECT_EQ(OutcomeOf(result, true).exitCode, c.exitCode == 2 ? 1 : c.exitCode);
    result.report.exists = false;
    EXPECT_EQ(OutcomeOf(result, true).exitCode, c.exitCode);
  }
}

}  // namespace
