// The command end to end: what it refuses and says, what it has the helper do, and what it finds in
// task files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "corekit/text.h"
#include "fileop/file_system.h"
#include "support.h"
#include "uaclient/helper_process.h"
#include "uactl/arguments.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using Strings = std::vector<std::string>;

const Tree kTree = {{"empty/", ""}, {"sub/", ""}, {"sub/日本 😀.txt", "far"}, {"ü a.txt", "near"}};
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
    EXPECT_TRUE(std::regex_match(text, std::regex("(uactl: [^\\x01-\\x1F\\x7F]+\n)+"))) << text;
    return text;
  }
  // The text of a check, written from what the same check says to programs.
  static void ExpectSameAsJson(const std::string& text, unsigned long exitCode,
                               const std::string& file) {
    using Json = nlohmann::json;
    const Json json = Json::parse(Says(exitCode, {"check", "--json", file}), nullptr, false);
    ASSERT_TRUE(json.is_object());
    EXPECT_EQ(json["file"], FullPath(file));
    EXPECT_EQ(json["exit"], exitCode);
    EXPECT_EQ(json["helperFails"], exitCode == 2);
    EXPECT_EQ(json["exists"], true);
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
    EXPECT_THAT(text, StartsWith(lines));
  }

  const TestFolder folder_;
  std::filesystem::path tempPath_;

 private:
  const TestFolder temp_;
};

TEST_F(Uactl, ExplainsItself) {
  for (const char* command : {"copy", "daily", "weekly", "monthly", "unschedule", "run", "check"}) {
    EXPECT_THAT(Says(0, {"/?"}), HasSubstr(std::string("\n  ") + command + " "));
    const std::string help = Says(0, {command, "--help"});
    EXPECT_THAT(help, HasSubstr(std::string("Usage: uactl ") + command));
    EXPECT_THAT(help, HasSubstr("Exit code: 0"));
    EXPECT_EQ(Says(0, {command, "/?"}), help);
  }
  EXPECT_THAT(Says(0, {"--version"}), MatchesRegex("uactl \\d+\\.\\d+\\.\\d+\n"));
}

// Each with what must be named.
TEST_F(Uactl, RefusesBadArguments) {
  const std::filesystem::path start = std::filesystem::current_path();
  std::filesystem::current_path(folder_.Path());
  const std::vector<std::pair<std::string, std::string>> lines = {
      {"", "command"},
      {"remove a", "\"remove\""},
      {"--fast copy a b", "\"--fast\""},
      {"copy a b", "\"" + FullPath("a") + "\" does not exist"},
      {"copy P a P", "DESTINATION of \"" + kProgram},
      {"copy -x . a", "\"-x\""},
      {"copy --timeout 0 P a", "\"0\""},
      {"copy --timeout 86401 P a", "\"86401\""},
      {"copy --timeout 99999999999 P a", "\"99999999999\""},
      {"copy - a", "\"" + FullPath("-") + "\" does not exist"},
      {"copy \\\\?\\C:\\none a", "\"\\\\?\\C:\\none\" does not exist"},
      {"copy -- a", "\"--\""},
      {"copy -- . a", "\"--\""},
      {"copy P a --dry-run", "\".\\--dry-run\""},
      {"copy *.txt a", "not expanded"},
      {"check a --json", "\"--json\" stands behind"},
      {"unschedule", "NAME"},
      {"unschedule a b", "\"b\""},
      {"daily N 08:00 P", "argument"},
      {"daily N 08:00 C:\\none.exe a", "C:\\none.exe"},
      {"daily N 08:00 P 5%% %TEMP%", "\"5%% %TEMP%\" holds"},
      {"daily N 08:00 P $(Arg0)", "\"$(Arg0)\" holds"},
      {"daily N 24:00 P a", "\"24:00\""},
      {"daily N 8:00 P a", "two digits each"},
      {"daily N 12:60 P a", "\"12:60\""},
      {"daily N 12:00:00 P a", "\"12:00:00\""},
      {"daily N -1:00 P a", "\"-1:00\""},
      {"weekly N 08:00 mon,,tue P a", "\"\" is no weekday"},
      {"weekly N 08:00 mo P a", "\"mo\""},
      {"weekly N 08:00 tue,mondays P a", "\"mondays\""},
      {"monthly N 08:00 0 P a", "\"0\""},
      {"monthly N 08:00 1,32 P a", "\"32\""},
      {"monthly N 08:00 1-5 P a", "\"1-5\""},
      {"run none.ini", "none.ini\" does not exist"},
      {"run .", "folder"}};
  for (const auto& [line, named] : lines) EXPECT_THAT(Refusal(Words(line)), HasSubstr(named));
  std::filesystem::current_path(start);
}

TEST_F(Uactl, ReadsTimesDaysAndArguments) {
  using Every = uaclient::Job::Every;
  struct Case {
    std::string line;
    Every every;
    int minutes;  // from midnight on
    std::uint32_t days;
  };
  const Case cases[] = {{"daily N 00:00 P", Every::kDay, 0, 0},
                        {"weekly N 07:05 mon,Wednesday,FRI,mon P", Every::kWeek, 425, 42},
                        {"weekly N 23:59 sun,tues,thu,sat P", Every::kWeek, 1439, 85},
                        {"monthly N 12:30 1,15,31 P", Every::kMonth, 750, 0x40004001}};
  for (const Case& c : cases) {
    std::vector<std::wstring> words;
    for (const std::string& word : Words(c.line)) words.push_back(Utf8ToWide(word));
    // As they are: options of the program, and text that is no UTF-16.
    const std::vector<std::wstring> given = {L"--help", L"", L"/?", L"--", L"a b\\", L"\xD83D"};
    words.insert(words.end(), given.begin(), given.end());
    const auto job = std::get<uaclient::Job>(ReadArguments(words).request);
    EXPECT_EQ(job.name, Utf8ToWide(kJob));
    EXPECT_EQ(job.program, Utf8ToWide(kProgram));
    EXPECT_EQ(job.arguments, given);
    EXPECT_TRUE(job.every == c.every && job.hour * 60 + job.minute == c.minutes) << c.line;
    EXPECT_EQ(job.days, c.days) << c.line;
  }
  const Arguments copy = ReadArguments(
      {L"copy", Utf8ToWide(kProgram), L"//127.0.0.1/none/./x", L"C:/none/../windows/", L"Q:/b"});
  const auto& items = std::get<uaclient::CopyPlan>(copy.request).Items();
  EXPECT_EQ(items.at(0).destination, L"\\\\127.0.0.1\\none\\x");
  EXPECT_EQ(items.at(1).source, L"C:\\windows\\");
  const Arguments run =
      ReadArguments({L"run", L"--timeout", L"86400", L"--fast", Utf8ToWide(kProgram)});
  EXPECT_EQ(run.options.timeout, std::chrono::hours(24));
  EXPECT_EQ(run.options.comparison, uaclient::Comparison::kSizeAndTime);
}

// Whatever is typed is one value, or is refused and shown harmlessly.
TEST_F(Uactl, TypedTextAddsNoLineAndNoKey) {
  Strings names = {"", " " + kJob, "[Task]", "😀"};
  for (const char* end : {" ", ".", "\nexe_arguments=b", "\r", "\x1B[2J"})
    names.push_back(kJob + end);
  for (const char sign : std::string("\\/:*?<>|")) names.push_back(sign + kJob);
  for (const std::string& name : names) {
    Refusal({"unschedule", name});
  }
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
  WriteFileBytes(folder_ / "file", "older");
  const Strings copy = {"copy",
                        "--timeout=60",
                        folder_ / "from/sub/日本 😀.txt",
                        folder_ / "file",
                        folder_ / "from",
                        folder_ / "new",
                        folder_ / "from/",
                        folder_ / "old/",
                        folder_ / "from/ü a.txt",
                        folder_ / "made/日本"};
  const std::string replaced = "uactl: warning: [^\n]+ is replaced: 2 files, 6 bytes [^\n]+\n";
  Strings dry = copy;
  dry[1] = "--dry-run";
  const Tree before = folder_.Contents();
  EXPECT_TRUE(std::regex_match(Says(0, dry), std::regex(replaced)));
  EXPECT_EQ(folder_.Contents(), before);
  EXPECT_TRUE(
      std::regex_match(Says(0, copy), std::regex("6 files, 21 bytes, \\d+\\.\\d s\n" + replaced)));
  for (const char* to : {"new/", "old/"}) EXPECT_EQ(ReadTree(folder_ / to), kTree);
  EXPECT_EQ(ReadFileBytes(folder_ / "file"), "far");
  EXPECT_EQ(ReadFileBytes(folder_ / "made/日本"), "near");

  // What did not arrive is named; the rest did.
  WriteFileBytes(folder_ / "file", "raf");
  MakeFolders(folder_ / "new/left/");
  const FileLock lock(folder_ / "file");
  const std::string text = Says(1, copy);
  EXPECT_THAT(text, HasSubstr("uactl: \"" + FullPath(folder_ / "file") + "\": "));
  EXPECT_EQ(ReadTree(folder_ / "new/"), kTree);
}

// Where a guess could destroy something: nothing is changed, and the path is named.
TEST_F(Uactl, RefusesCopiesThatMayNotBeMeant) {
  WriteTree(folder_.Path(), {{"file", "f"}, {"dir/", ""}, {"dir/a", "a"}});
  const Tree before = folder_.Contents();
  const std::vector<Strings> copies = {{"file", "dir", "dir"},      {"file", "new/", "new"},
                                       {"file/", "new", "file"},    {"dir", "file", "file"},
                                       {"dir", "dir/in", "in"},     {"dir", "DIR", "DIR"},
                                       {"dir/a", "./dir/a", "dir"}, {"dir/a", "file:s", "file"}};
  for (const Strings& copy : copies) {
    SCOPED_TRACE(testing::PrintToString(copy));
    EXPECT_THAT(Refusal({"copy", folder_ / copy[0], folder_ / copy[1]}), HasSubstr(copy[2]));
    EXPECT_EQ(folder_.Contents(), before);
  }
  for (const char* place : {".", "..", "dir/../..", ".\\. ", "...", "C:", "C:dir"}) {
    EXPECT_THAT(Refusal({"copy", "--dry-run", folder_ / "dir", place}), HasSubstr(place));
  }
  EXPECT_THAT(Refusal({"copy", folder_ / "dir", "Q:\\\\"}), HasSubstr("Q:"));
}

// A helper that hangs, and a console for this process and the command alone, which Ctrl+C reaches
// both.
TEST_F(Uactl, StopsWaitingButSaysThatTheHelperGoesOn) {
  if (!OnWine()) GTEST_SKIP() << "the tests would be cut off from their own console";
  const std::filesystem::path own = uaclient::OwnFolder();
  const std::filesystem::path helper = FullPath(folder_ / "uactask.exe");
  WriteFileBytes(folder_ / "a", "a");
  std::filesystem::copy_file(own / "uactl.exe", folder_ / "uactl.exe");
  FreeConsole();
  AllocConsole();
  const PHANDLER_ROUTINE goOn = [](DWORD) -> BOOL { return TRUE; };
  SetConsoleCtrlHandler(goOn, TRUE);
  for (const std::string timeout : {"1", "30"}) {
    std::filesystem::copy_file(own / "hanging_helper.exe", helper);
    const auto interrupt = [&] {
      if (timeout == "1") return;
      for (int i = 0; i < 500 && !PathExists((folder_ / "uactask.exe.runs").c_str()); ++i)
        Sleep(20);
      EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0));
    };
    const ProgramResult result =
        RunProgram(FullPath(folder_ / "uactl.exe"),
                   {"copy", "--timeout", timeout, folder_ / "a", folder_ / "b"}, interrupt);
    EXPECT_EQ(result.exitCode, 1U) << timeout;
    EXPECT_THAT(result.errors, HasSubstr("it goes on, and its files in "));
    // Without them it ends.
    for (const auto& left : std::filesystem::directory_iterator(tempPath_)) {
      std::filesystem::remove_all(left);
    }
    for (int i = 0; i < 100 && !DeleteFileW(helper.c_str()); ++i) Sleep(20);
  }
  SetConsoleCtrlHandler(goOn, FALSE);
  FreeConsole();
}

TEST_F(Uactl, SchedulesAndUnschedules) {
  const std::string job = "The job \"" + kJob + "\" was ";
  EXPECT_THAT(Says(0, {"daily", kJob, "08:00", kProgram, "/?", "--help", "--"}),
              StartsWith(job + "registered.\n"));
  EXPECT_THAT(Says(0, {"unschedule", kJob}), StartsWith(job + "deleted.\n"));
  EXPECT_THAT(Refusal({"unschedule", kJob}, 1), HasSubstr(kJob));
}

// A task file by what "check" answers, in words and for programs, and what then becomes of it.
TEST_F(Uactl, ChecksAndRunsTaskFiles) {
  const std::string file = folder_ / "task.ini";
  const std::string list = folder_ / "list.xml";
  const std::string job = "[Task]\ntype=0\ntask_name=" + corekit::Utf8ToAnsi(kJob) +
                          "\ntime_type=2\ntime_weekday=0\ntime_monthday=0\nexe_path=" + kProgram +
                          "\nruntime=2030-01-01T08:00:00";
  struct Case {
    std::string text;
    unsigned long check;
    unsigned long run;
    Strings said;  // by the check
  };
  const std::vector<Case> cases = {
      {"[Task]\ntype=1\nxml_path=" + FullPath(list) + "\n", 0, 0, {"plan: copies "}},
      {"[Task]\ntype=1\nxml_path=" + FullPath(list), 2, 1, {"error: ", "task.ini:3: warning: "}},
      {"[Task]\ntype=7\n", 2, 1, {"task.ini:2: error: "}},
      {"", 2, 1, {"task.ini: error: "}},
      {"[Task]\ntype=1\nxml_path=" + FullPath(folder_ / "harm.xml") + "\n",
       1,
       1,
       {"harm.xml:1: warning: ", "\"uactl run\" does not start it.", "plan: does harm",
        "plan: does not copy, see above, the file "}},
      {job + "9\nexe_arguments=a\n",
       1,
       1,
       {"does not start it.", "plan: deletes the job \"" + kJob}},
      {std::regex_replace(job, std::regex("time_type=2"), "time_type=5") + "\nexe_arguments=a\n",
       2,
       1,
       {"plan: deletes the job \"" + kJob, "plan: then the helper would fail with exit code 1"}},
      {job + "\nexe_arguments=a", 1, 1, {"task.ini:9: ", "plan: deletes the job \"" + kJob}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    WriteTree(folder_.Path(), {{"a", "aa"}, {"task.ini", c.text}});
    WriteFileBytes(list, "<root><task><i key='1' src='" + FullPath(folder_ / "a") + "' dec='" +
                             FullPath(folder_ / "b") + "' type='file'/></task></root>");
    WriteFileBytes(folder_ / "harm.xml",
                   "<root><task><i key='1' src='" + FullPath(folder_.Path()) + "' dec='" +
                       FullPath(folder_ / "in") + "' type='dir'/><i key='2' src='" +
                       FullPath(folder_ / "a") + "' dec='" + FullPath("none/y/z") +
                       "' type='file'/></task></root>");
    const Tree before = folder_.Contents();
    const std::string text = Says(c.check, {"check", file});
    for (const std::string& said : c.said) EXPECT_THAT(text, HasSubstr(said));
    ExpectSameAsJson(text, c.check, file);
    EXPECT_EQ(folder_.Contents(), before);

    Says(c.run, {"run", file});
    EXPECT_EQ(folder_.Contents().count("task.ini"), c.run);
    EXPECT_EQ(folder_.Contents().count("b"), 1 - c.run);
    RemoveTreeForSure(folder_.Path());
  }
  EXPECT_THAT(Says(2, {"check", file}), HasSubstr(FullPath(file) + ": error: "));
}

TEST_F(Uactl, TellsProgramsEveryStep) {
  WriteTree(folder_.Path(), TreeOf("a=aa, d/x=333, d/y/z=1, old/k=4444, over=o"));
  const std::regex at("@");
  const std::string root = std::filesystem::absolute(folder_.Path()).generic_string();
  WriteFileBytes(folder_ / "list.xml",
                 std::regex_replace("<root><task>"
                                    "<i key='1' src='@d/' dec='@old/' type='dir'/>"
                                    "<i key='2' src='@none/' dec='@new/' type='dir'/>"
                                    "<i key='3' src='@a' dec='@over' type='file'/>"
                                    "</task></root>",
                                    at, root));
  WriteFileBytes(folder_ / "task.ini", "[Task]\ntype=1\nxml_path=" + root + "list.xml\n");
  const char* const expected = R"json([
      {"kind": "copyFolder", "source": "@d/", "destination": "@old/", "job": "",
       "files": 2, "bytes": 4, "empties": true, "emptiedFiles": 1, "emptiedBytes": 4,
       "text": "copies the folder '@d' (2 files, 4 bytes) to '@old' after deleting what is there (1 file, 4 bytes)"},
      {"kind": "copyFolder", "source": "@none/", "destination": "@new/", "job": "",
       "files": 0, "bytes": 0, "empties": false, "emptiedFiles": 0, "emptiedBytes": 0,
       "text": "copies nothing to '@new/'"},
      {"kind": "copyFile", "source": "@a", "destination": "@over", "job": "",
       "files": 1, "bytes": 2, "empties": false, "emptiedFiles": 0, "emptiedBytes": 0,
       "text": "copies the file '@a' (1 file, 2 bytes) to '@over', over the one that is there"}])json";
  using Json = nlohmann::json;
  Json json = Json::parse(Says(1, {"check", "--json", folder_ / "task.ini"}), nullptr, false);
  for (Json& step : json["steps"]) {
    std::string text = std::regex_replace(step["text"].get<std::string>(), std::regex("\""), "'");
    std::replace(text.begin(), text.end(), '\\', '/');
    step["text"] = text;
  }
  EXPECT_EQ(json["steps"], Json::parse(std::regex_replace(expected, at, root)));
}

}  // namespace
