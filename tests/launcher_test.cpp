// The example launcher end to end: its arguments, the files that it writes, the helper that it
// starts and the clean-up behind both.
#include <gtest/gtest.h>
#include <windows.h>

#include <shellapi.h>

#include <sstream>
#include <string>
#include <vector>

#include "corekit/text.h"
#include "support.h"

namespace {

using Arguments = std::vector<std::string>;

const std::string kProgram = "C:\\windows\\system32\\cmd.exe";

std::string FullPath(const std::string& path) {
  wchar_t full[MAX_PATH] = {};
  GetFullPathNameW(Utf8ToWide(path).c_str(), MAX_PATH, full, nullptr);
  return WideToUtf8(full);
}

// The launcher's temporary folder for the scope; must be empty in the end.
class Temp {
 public:
  explicit Temp(const std::string& name = "temp/") : path_(parent_ / name) {
    MakeFolders(path_);
    GetEnvironmentVariableW(L"TMP", former_, MAX_PATH);
    SetEnvironmentVariableW(L"TMP", Utf8ToWide(FullPath(path_)).c_str());
  }
  ~Temp() {
    SetEnvironmentVariableW(L"TMP", former_[0] == L'\0' ? nullptr : former_);
    EXPECT_EQ(ReadTree(path_), Tree()) << path_;
  }
  Temp(const Temp&) = delete;
  Temp& operator=(const Temp&) = delete;

 private:
  TestFolder parent_;
  std::string path_;
  wchar_t former_[MAX_PATH] = {};
};

std::string JobName() {
  return "uactask test launcher " + std::to_string(GetCurrentProcessId()) + " ü";
}

unsigned long Launch(const Arguments& arguments) {
  return RunProgram("launcher.exe", arguments).exitCode;
}

// The files that the helper would be given, and their folder as "".
Tree DryRun(Arguments arguments) {
  arguments.insert(arguments.begin(), "--dry-run");
  const std::string taskFile = RunProgram("launcher.exe", arguments).output;
  const std::string folder = taskFile.substr(0, taskFile.rfind('\\') + 1);
  Tree files = ReadTree(folder);
  RemoveTreeForSure(folder);
  files[""] = folder;
  return files;
}

const Tree kTree = {{"empty/", ""}, {"sub/", ""}, {"sub/日本 😀.txt", "far"}, {"ü a.txt", "near"}};

TEST(Launcher, CopiesFilesAndReplacesFolders) {
  Arguments temps = {"temp/", "t ü/"};
  // No task file can carry these; their short names, which Windows may lack, do.
  if (OnWine()) temps.insert(temps.end(), {"t [/", "😀/"});
  for (const std::string& name : temps) {
    const Temp temp(name);
    const TestFolder folder;
    WriteTree(folder / "from/", kTree);
    WriteTree(folder / "old/", {{"gone/", ""}, {"gone/x", "x"}, {"ü a.txt", "older"}});
    WriteFileBytes(folder / "file", "older");
    EXPECT_EQ(Launch({"copy", folder / "from", folder / "new"}), 0U) << name;
    EXPECT_EQ(Launch({"copy", folder / "from/", folder / "old/"}), 0U) << name;
    EXPECT_EQ(Launch({"copy", folder / "from/sub/日本 😀.txt", folder / "file"}), 0U) << name;
    EXPECT_EQ(Launch({"copy", folder / "file", folder / "made/日本"}), 0U) << name;
    for (const char* copy : {"from/", "new/", "old/"}) EXPECT_EQ(ReadTree(folder / copy), kTree);
    EXPECT_EQ(ReadFileBytes(folder / "made/日本"), "far");
  }
}

TEST(Launcher, SaysWhenACopyFailed) {
  const Temp temp;
  const TestFolder folder;
  WriteTree(folder / "from/", kTree);
  WriteFileBytes(folder / "file", "older");
  const FileLock lock(folder / "from/ü a.txt");
  EXPECT_EQ(Launch({"copy", folder / "from/ü a.txt", folder / "file"}), 1U);
  EXPECT_EQ(Launch({"copy", folder / "from", folder / "to"}), 1U);
  EXPECT_EQ(Launch({"copy", folder / "from/sub/日本 😀.txt", folder / "a/b/c"}), 1U);
}

TEST(Launcher, RefusesCopiesThatDoHarm) {
  const Temp temp;
  const TestFolder folder;
  const std::string source = folder / "a long name";
  WriteTree(source + "/", kTree);
  WriteFileBytes(folder / "file", "f");
  wchar_t shortPath[MAX_PATH] = {};
  GetShortPathNameW(Utf8ToWide(source).c_str(), shortPath, MAX_PATH);
  const std::string shortName = WideToUtf8(shortPath);
  EXPECT_TRUE(shortName != source || !OnWine());
  const std::string link = MakeFolderLink(".", folder / "link") ? folder / "link" : folder / ".";
  const Tree before = folder.Contents();

  const std::vector<std::pair<std::string, std::string>> copies = {
      // The destination is the source …
      {source, source},
      {source + "/", folder / "A LONG NAME\\\\"},
      {source, folder / "x/../a long name/./sub/.."},
      {source, shortName},
      {shortName, FullPath(source)},
      {source, link + "/a long name"},
      {folder / "file", folder / "FILE"},
      // … holds it, lies inside it,
      {source + "/sub", source},
      {shortName + "/sub", source},
      {link + "/a long name/sub", folder.Path()},
      {source, source + "/new/deep"},
      {source, link + "/A Long Name/new"},
      // is a drive, is of another kind, or one of them is no usable path.
      {source, "Q:\\\\"},
      {source, folder / "file"},
      {folder / "file", source},
      {folder / "file", folder / "new/"},
      {folder / "file", folder / "new:stream"},
      {folder / "missing", folder / "new"},
      {source, ""},
  };
  for (const auto& [from, to] : copies) {
    EXPECT_EQ(Launch({"copy", from, to}), 2U) << from << " to " << to;
    EXPECT_EQ(folder.Contents(), before) << from << " to " << to;
  }
  EXPECT_EQ(Launch({"copy", source, source + "2"}), 0U);  // the names merely begin alike
}

TEST(Launcher, RefusesBadArguments) {
  const Temp temp;
  const std::string job = JobName();
  std::istringstream lines(  // N stands for a job's name, P for a program
      ";--dry-run;copy a;remove a b;unschedule;unschedule [;unschedule 😀;unschedule 乕;"
      "daily N 08:00 P;daily N 08:00 C:\\none.exe a;daily N 08:00 C:\\windows a;"
      "daily N 24:00 P a;daily N 12:60 P a;daily N 12 P a;daily N 12:00:00 P a;daily N -1:00 P a;"
      "daily N 08:00 P [a];daily N 08:00 P 😀;daily n/m 08:00 P a;weekly N 08:00 mon P;"
      "weekly N 08:00 mon,,tue P a;weekly N 08:00 mo P a;weekly N 08:00 mondays P a;"
      "monthly N 08:00 0 P a;monthly N 08:00 1,32 P a;monthly N 08:00 1-5 P a");
  for (std::string line; std::getline(lines, line, ';');) {
    Arguments arguments;
    std::istringstream words(line);
    for (std::string word; words >> word;) {
      arguments.push_back(word == "N" ? job : word == "P" ? kProgram : word);
    }
    EXPECT_EQ(Launch(arguments), 2U) << line;
  }
  EXPECT_EQ(Launch({"unschedule", job}), 1U);  // none was made
  Arguments names = {"", " a", "a ", "a.", "a\nb=c", "a\\\"b"};
  for (const char sign : std::string("\\/:*?<>|")) names.push_back(sign + std::string("a"));
  for (const std::string& name : names) EXPECT_EQ(Launch({"unschedule", name}), 2U) << name;
}

TEST(Launcher, WritesTaskFiles) {
  const Temp temp;
  const std::string name = Utf8ToAnsi("ü");
  SYSTEMTIME today;
  GetLocalTime(&today);
  wchar_t date[16] = {};
  GetDateFormatW(LOCALE_INVARIANT, 0, &today, L"yyyy-MM-dd", date, 16);
  struct Case {
    Arguments when;
    std::string time, monthDays, weekdays, type;
  };
  const std::vector<Case> cases = {
      {{"daily", "ü", "00:00"}, "00:00", "0", "0", "2"},
      {{"weekly", "ü", "7:05", "mon,Wednesday,FRI,mon"}, "07:05", "0", "42", "3"},
      {{"weekly", "ü", "23:59", "sun,tues,thu,sat"}, "23:59", "0", "85", "3"},
      {{"monthly", "ü", "12:30", "1,15,31"}, "12:30", "1073758209", "0", "4"}};
  for (const auto& [when, time, monthDays, weekdays, type] : cases) {
    Arguments arguments = when;
    arguments.insert(arguments.end(), {kProgram, "a", "b ü"});
    EXPECT_EQ(DryRun(arguments)["task.ini"],
              "[Task]\r\ntype=0\r\ntime_monthday=" + monthDays + "\r\ntime_weekday=" + weekdays +
                  "\r\ntime_type=" + type + "\r\nauthor_name=uactask example launcher\r\nruntime=" +
                  WideToUtf8(date) + "T" + time + ":00\r\nexe_arguments=a \"b " + name +
                  "\"\r\nexe_path=" + kProgram + "\r\ntask_name=" + name + "\r\n");
  }
  EXPECT_EQ(DryRun({"unschedule", "ü"})["task.ini"],
            "[Task]\r\ntype=0\r\ntime_monthday=0\r\ntime_weekday=0\r\ntime_type=0\r\n"
            "author_name=\r\nruntime=\r\nexe_arguments=\r\nexe_path=\r\ntask_name=" +
                name + "\r\n");

  const TestFolder folder;
  MakeFolders(folder / "日/");
  Tree files = DryRun({"copy", folder / "日", folder / "to"});
  EXPECT_EQ(files["task.ini"], "[Task]\r\ntype=1\r\nxml_path=" + files[""] + "list.xml\r\n");
  EXPECT_EQ(
      files["list.xml"],
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<root>\n\t<task>\n\t\t<item key=\"1\" src=\"" +
          FullPath(folder / "日") + "\\\" dec=\"" + FullPath(folder / "to") +
          "\\\" type=\"dir\"/>\n\t</task>\n</root>\n");
}

// The job's program must find its arguments as they were given.
TEST(Launcher, QuotesTheJobsArguments) {
  const Temp temp;
  const std::string task = DryRun({"daily", "n", "08:00", kProgram, "plain", "", "a \\\"b\\\"",
                                   "C:\\a b\\\\", "C:\\c\\\\", "\\\\\\\"\\\\"})["task.ini"];
  const std::size_t start = task.find("exe_arguments=") + 14;
  const std::wstring line = L"x " + Utf8ToWide(task.substr(start, task.find('\r', start) - start));
  int count = 0;
  wchar_t** const found = CommandLineToArgvW(line.c_str(), &count);
  const std::vector<std::wstring> arguments(found, found + count);
  LocalFree(found);
  EXPECT_EQ(arguments, (std::vector<std::wstring>{L"x", L"plain", L"", L"a \"b\"", L"C:\\a b\\",
                                                  L"C:\\c\\", L"\\\"\\"}));
}

TEST(Launcher, SchedulesAndUnschedules) {
  const Temp temp;
  const std::string name = JobName();
  EXPECT_EQ(Launch({"unschedule", name}), 1U);
  EXPECT_EQ(Launch({"daily", name, "08:00", kProgram, "/c"}), 0U);
  EXPECT_EQ(Launch({"unschedule", name}), 0U);
  EXPECT_EQ(Launch({"unschedule", name}), 1U);
}

}  // namespace
