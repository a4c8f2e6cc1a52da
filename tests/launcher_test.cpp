// The example launcher end to end: its arguments, the files that it writes, the helper that it
// starts and the clean-up behind both.
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "corekit/text.h"
#include "support.h"

namespace {

using Strings = std::vector<std::string>;

const Tree kTree = {{"empty/", ""}, {"sub/", ""}, {"sub/日本 😀.txt", "far"}, {"ü a.txt", "near"}};
const std::string kProgram = "C:\\windows\\system32\\cmd.exe";
const std::string kJob = "uactask test launcher " + std::to_string(GetCurrentProcessId()) + " ü";

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

// Has temporary folders for the launcher, which must be empty in the end.
class Launcher : public testing::Test {
 protected:
  Launcher() { UseTemp("temp/"); }
  void SetUp() override {
    if (ElevationPrompts()) GTEST_SKIP() << "without raised rights each start would ask";
  }
  ~Launcher() override { EXPECT_EQ(parent_.Contents(), temps_); }

  void UseTemp(const std::string& name) {
    temps_[name] = "";
    MakeFolders(parent_ / name);
    SetEnvironmentVariableW(L"TMP", Utf8ToWide(FullPath(parent_ / name)).c_str());
  }
  static unsigned long Launch(const Strings& arguments) {
    return RunProgram("launcher.exe", arguments).exitCode;
  }
  // The files that the helper would be given, and their folder as "".
  static Tree DryRun(Strings arguments) {
    arguments.insert(arguments.begin(), "--dry-run");
    const std::string taskFile = RunProgram("launcher.exe", arguments).output;
    const std::string folder = taskFile.substr(0, taskFile.rfind('\\') + 1);
    Tree files = ReadTree(folder);
    RemoveTreeForSure(folder);
    files[""] = folder;
    return files;
  }

  const TestFolder folder_;

 private:
  const TestFolder parent_;
  Tree temps_;
};

TEST_F(Launcher, CopiesFilesAndReplacesFolders) {
  Strings temps = {"temp/", "t ü/"};
  // No task file can carry these; their short names, which Windows may lack, do.
  if (OnWine()) temps.insert(temps.end(), {"t [/", "😀/"});
  for (const std::string& temp : temps) {
    UseTemp(temp);
    const TestFolder folder;
    WriteTree(folder / "from/", kTree);
    WriteTree(folder / "old/", {{"gone/", ""}, {"gone/x", "x"}, {"ü a.txt", "older"}});
    WriteFileBytes(folder / "file", "older");
    EXPECT_EQ(Launch({"copy", folder / "from", folder / "new"}), 0U) << temp;
    EXPECT_EQ(Launch({"copy", folder / "from/", folder / "old/"}), 0U) << temp;
    EXPECT_EQ(Launch({"copy", folder / "from/sub/日本 😀.txt", folder / "file"}), 0U) << temp;
    EXPECT_EQ(Launch({"copy", folder / "file", folder / "made/日本"}), 0U) << temp;
    for (const char* copy : {"from/", "new/", "old/"}) EXPECT_EQ(ReadTree(folder / copy), kTree);
    EXPECT_EQ(ReadFileBytes(folder / "made/日本"), "far");
  }
}

TEST_F(Launcher, SaysWhenACopyFailed) {
  WriteTree(folder_ / "from/", kTree);
  WriteFileBytes(folder_ / "file", "older");
  const FileLock lock(folder_ / "from/ü a.txt");
  const Strings copies[] = {{"from/ü a.txt", "file"}, {"from", "to"}, {"file", "a/b/c"}};
  for (const Strings& copy : copies)
    EXPECT_EQ(Launch({"copy", folder_ / copy[0], folder_ / copy[1]}), 1U);
}

TEST_F(Launcher, RefusesCopiesThatDoHarm) {
  const std::string source = folder_ / "a long name";
  const std::string file = folder_ / "file";
  WriteTree(source + "/", kTree);
  WriteFileBytes(file, "f");
  wchar_t path[MAX_PATH] = {};
  GetShortPathNameW(Utf8ToWide(source).c_str(), path, MAX_PATH);
  const std::string brief = WideToUtf8(path);
  EXPECT_TRUE(brief != source || !OnWine());
  const std::string link = MakeFolderLink(".", folder_ / "link") ? folder_ / "link" : folder_ / ".";
  const Tree before = folder_.Contents();

  const std::map<std::string, Strings> copies = {
      // The destination is the source or lies inside it,
      {source,
       {source + "/", folder_ / "A LONG NAME\\\\", folder_ / "x/../a long name/./sub/..", brief,
        link + "/a long name", source + "/new/deep", link + "/A Long Name/new",
        // is a drive or a file or no path,
        "Q:\\\\", file, ""}},
      {brief, {FullPath(source)}},
      // holds the source,
      {source + "/sub", {source}},
      {brief + "/sub", {source}},
      {link + "/a long name/sub", {folder_.Path()}},
      // or is not for a file.
      {file, {folder_ / "FILE", source, folder_ / "new/", folder_ / "new:stream"}},
      {folder_ / "missing", {folder_ / "new"}}};
  for (const auto& [from, destinations] : copies) {
    for (const std::string& to : destinations) {
      EXPECT_EQ(Launch({"copy", from, to}), 2U) << from << " to " << to;
      EXPECT_EQ(folder_.Contents(), before) << from << " to " << to;
    }
  }
  EXPECT_EQ(Launch({"copy", source, source + "2"}), 0U);  // the names merely begin alike
}

TEST_F(Launcher, RefusesBadArguments) {
  std::istringstream lines(
      ";--dry-run;copy a;remove a b;unschedule;unschedule [;unschedule 😀;unschedule 乕;"
      "daily N 08:00 P;daily N 08:00 C:\\none.exe a;daily N 08:00 C:\\windows a;"
      "daily N 24:00 P a;daily N 12:60 P a;daily N 12 P a;daily N 12:00:00 P a;daily N -1:00 P a;"
      "daily N 08:00 P [a];daily N 08:00 P 😀;daily n/m 08:00 P a;weekly N 08:00 mon P;"
      "weekly N 08:00 mon,,tue P a;weekly N 08:00 mo P a;weekly N 08:00 mondays P a;"
      "monthly N 08:00 0 P a;monthly N 08:00 1,32 P a;monthly N 08:00 1-5 P a");
  for (std::string line; std::getline(lines, line, ';');)
    EXPECT_EQ(Launch(Words(line)), 2U) << line;
  EXPECT_EQ(Launch({"unschedule", kJob}), 1U);  // none was made
  Strings names = {"", " a", "a ", "a.", "a\nb=c", "a\\\"b"};
  for (const char sign : std::string("\\/:*?<>|")) names.push_back(sign + std::string("a"));
  for (const std::string& name : names) EXPECT_EQ(Launch({"unschedule", name}), 2U) << name;
}

TEST_F(Launcher, WritesTaskFiles) {
  const std::string name = Utf8ToAnsi("ü");
  wchar_t date[16] = {};
  GetDateFormatW(LOCALE_INVARIANT, 0, nullptr, L"yyyy-MM-dd", date, 16);
  // Programs must find their arguments as they were given.
  const Strings given = {"plain",       "",          "b ü",         "a \\\"b\\\"",
                         "C:\\a b\\\\", "C:\\c\\\\", "\\\\\\\"\\\\"};
  const std::string written = "plain \"\" \"b " + name + R"(" "a \"b\"" "C:\a b\\" C:\c\ "\\\"\\")";
  const std::string file =
      "[Task]\r\ntype=0\r\ntime_monthday=$1\r\ntime_weekday=$2\r\ntime_type=$3\r\nauthor_name="
      "uactask example launcher\r\nruntime=" +
      WideToUtf8(date) + "T$4:00\r\nexe_arguments=" + written + "\r\nexe_path=" + kProgram +
      "\r\ntask_name=" + name + "\r\n";
  const std::map<std::string, std::string> jobs = {
      {"daily ü 00:00 P", "0 0 2 00:00"},
      {"weekly ü 7:05 mon,Wednesday,FRI,mon P", "0 42 3 07:05"},
      {"weekly ü 23:59 sun,tues,thu,sat P", "0 85 3 23:59"},
      {"monthly ü 12:30 1,15,31 P", "1073758209 0 4 12:30"}};
  for (const auto& [line, values] : jobs) {
    Strings arguments = Words(line);
    arguments.insert(arguments.end(), given.begin(), given.end());
    EXPECT_EQ(DryRun(arguments)["task.ini"],
              std::regex_replace(values, std::regex("(.+) (.+) (.+) (.+)"), file));
  }
  EXPECT_EQ(DryRun({"unschedule", "ü"})["task.ini"],
            "[Task]\r\ntype=0\r\ntime_monthday=0\r\ntime_weekday=0\r\ntime_type=0\r\n"
            "author_name=\r\nruntime=\r\nexe_arguments=\r\nexe_path=\r\ntask_name=" +
                name + "\r\n");

  MakeFolders(folder_ / "日/");
  Tree files = DryRun({"copy", folder_ / "日", folder_ / "to"});
  EXPECT_EQ(files["task.ini"], "[Task]\r\ntype=1\r\nxml_path=" + files[""] + "list.xml\r\n");
  EXPECT_EQ(
      files["list.xml"],
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<root>\n\t<task>\n\t\t<item key=\"1\" src=\"" +
          FullPath(folder_ / "日") + "\\\" dec=\"" + FullPath(folder_ / "to") +
          "\\\" type=\"dir\"/>\n\t</task>\n</root>\n");
}

TEST_F(Launcher, SchedulesAndUnschedules) {
  EXPECT_EQ(Launch({"daily", kJob, "08:00", kProgram, "/c"}), 0U);
  EXPECT_EQ(Launch({"unschedule", kJob}), 0U);
  EXPECT_EQ(Launch({"unschedule", kJob}), 1U);
}

}  // namespace
