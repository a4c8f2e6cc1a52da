// Starts the helper as the application does, on real task files, and looks at everything that it
// may have changed: its exit code, its output, and all files around.

#include <gtest/gtest.h>
#include <windows.h>

#include <boost/lexical_cast.hpp>

#include "corekit/text.h"
#include "support.h"
#include "uactask/task_runner.h"

namespace {

class Helper : public testing::Test {
 protected:
  // Runs the helper on a task file with this content.
  unsigned long Run(const std::string& task) {
    WriteFileBytes(folder_ / kTaskFile, task);
    return RunOn(folder_ / kTaskFile);
  }
  unsigned long RunOn(const std::string& path) {
    const ProgramResult result = RunProgram("uactask.exe", {path});
    EXPECT_EQ(result.output, "");
    return result.exitCode;
  }
  // Exit code 1 could be a crash as well. In this process a crash would show.
  void ExpectCleanFailure() {
    try {
      EXPECT_FALSE(RunTaskFile(folder_ / kTaskFile));
    } catch (const boost::bad_lexical_cast&) {
      // How a scheduler task refuses its numbers.
    }
  }
  // Runs the helper on an operation list with these items; "@" stands for the test folder.
  unsigned long RunList(std::string items) {
    for (std::size_t at; (at = items.find('@')) != std::string::npos;) {
      items.replace(at, 1, folder_.Path());
    }
    return RunListText("<root><task>" + items + "</task></root>");
  }
  unsigned long RunListText(const std::string& text) {
    WriteFileBytes(folder_ / "list.xml", text);
    return Run("[Task]\ntype=1\nxml_path=" + folder_ / "list.xml\n");
  }
  // Everything there is, but for the operation list.
  Tree Files() {
    Tree tree = folder_.Contents();
    tree.erase("list.xml");
    return tree;
  }

  static constexpr char kTaskFile[] = "task.ini";
  TestFolder folder_;
};

TEST_F(Helper, NeedsATaskFile) {
  EXPECT_EQ(RunProgram("uactask.exe", {}).exitCode, 1U);
  EXPECT_EQ(RunOn(folder_ / "none.ini"), 2U);
  EXPECT_EQ(RunOn(""), 2U);
  EXPECT_EQ(RunOn(folder_ / "wild*"), 2U);
  EXPECT_EQ(RunOn(folder_.Path()), 1U);
  EXPECT_EQ(folder_.Contents(), Tree());
}

// Whatever the file holds, it is a failure that leaves everything as it was.
TEST_F(Helper, KeepsTaskFilesThatItCannotRun) {
  for (const std::string& task : {
           std::string(),
           std::string("\n"),
           std::string("[Task]\n"),
           std::string("[Task]\ntype=\n"),
           std::string("[Task]\ntype= 1\n"),
           std::string("[Task]\ntype=1.0\n"),
           std::string("[Task]\ntype=1"),
           std::string("[Task]\ntype=2\n"),
           std::string("[Task]\ntype=-1\n"),
           std::string("[Task]\ntype=99999999999\n"),
           std::string("[Task\ntype=1\n"),
           std::string("[Task]\ntype=1\0\n", 15),
           std::string(100, '\0') + "\n",
           std::string("\x1A[Task]\ntype=1\n"),
           std::string(1 << 20, 'x') + "\n",
           "[Task]\ntype=" + std::string(1 << 20, '1') + "\n",
           std::string("\xFF\xFE[\0T\0\n\0", 8),
           // type 1 without a list that can be read
           std::string("[Task]\ntype=1\n"),
           std::string("[Task]\ntype=1\nxml_path=\n"),
           std::string("[Task]\ntype=1\nxml_path=none.xml\n"),
           std::string("[Task]\ntype=1\nxml_path=.\n"),
           "[Task]\ntype=1\nxml_path=" + std::string(5000, 'x') + "\n",
           // type 0 without its numbers
           std::string("[Task]\ntype=0\ntask_name=uactask test\n"),
       }) {
    EXPECT_EQ(Run(task), 1U) << task.substr(0, 60);
    ExpectCleanFailure();
    EXPECT_EQ(folder_.Contents(), (Tree{{kTaskFile, task}})) << task.substr(0, 60);
  }
}

TEST_F(Helper, KeepsTheTaskFileWhenTheListCannotBeRead) {
  std::string deep;
  for (int i = 0; i < 200000; ++i) deep += "<a>";
  for (const std::string& list : {
           std::string(),
           std::string("<root/>"),
           std::string("<root><task>"),
           std::string("<root><task><i/></task></root>"),
           std::string("\xFF\xFE\x00", 3),
           deep,
           std::string("<root><task><i key='1' src='@a' dec='@b'/><!-- c --></task></root>"),
           std::string(1 << 20, '<'),
       }) {
    WriteFileBytes(folder_ / "a", "x");
    EXPECT_EQ(RunListText(list), 1U) << list.substr(0, 60);
    ExpectCleanFailure();
    EXPECT_EQ(ReadFileBytes(folder_ / "list.xml"), list);
    EXPECT_EQ(Files().size(), 2U) << list.substr(0, 60);
  }
}

TEST_F(Helper, CopiesWhatTheListSays) {
  const Tree source = {{"a.txt", "1"}, {"empty/", ""},
                       {"s/", ""},     {"s/\xE4\xB8\xAD \xC3\xA9", "2"},
                       {"s/t/", ""},   {"s/t/\xF0\x9F\x8E\xB5.mp3", std::string(100000, 'm')}};
  WriteTree(folder_ / "src/", source);
  WriteTree(folder_ / "new \xC3\xA9/", {{"old", "gone afterwards"}, {"x/y", "gone too"}});
  WriteFileBytes(folder_ / "one", "file");
  EXPECT_EQ(RunList("<item key='1' src='@src/' dec='@new \xC3\xA9/' type='dir'/>"
                    "<other key='2' src='@one' dec='@made/\xE4\xB8\xAD' type='file'/>"),
            0U);
  Tree expected = {{"src/", ""},
                   {"new \xC3\xA9/", ""},
                   {"one", "file"},
                   {"made/", ""},
                   {"made/\xE4\xB8\xAD", "file"}};
  for (const auto& [name, bytes] : source) {
    expected["src/" + name] = bytes;
    expected["new \xC3\xA9/" + name] = bytes;
  }
  EXPECT_EQ(Files(), expected);
}

TEST_F(Helper, FollowsKeysAndTypes) {
  WriteTree(folder_.Path(), {{"1", "one"}, {"2", "two"}, {"d/f", "f"}});
  // Keys in byte-wise order, folders before files, the first of equal keys; a type that is not
  // exactly "dir" is a file; failures stop nothing.
  EXPECT_EQ(RunList("<i key='9' src='@2' dec='@out' type='file'/>"
                    "<i key='10' src='@1' dec='@out' type='file'/>"
                    "<i key='9' src='@1' dec='@out' type='file'/>"
                    "<i key='1' src='@1' dec='@to/1' type='file'/>"
                    "<i key='7' src='@d/' dec='@to/' type='dir'/>"
                    "<i key='3' src='@d/' dec='@DIR/' type='DIR'/>"
                    "<i key='4' dec='@nothing' type='file'/>"
                    "<i key='5' src='@none/' dec='@nothing/' type='dir'/>"
                    "<i src='@1' dec='@keyless'/><i src='@1' dec='@dropped'/>"),
            0U);
  // The "DIR" was taken for a file, of which the folder above it could be made.
  EXPECT_EQ(Files(), (Tree{{"1", "one"},
                           {"2", "two"},
                           {"DIR/", ""},
                           {"d/", ""},
                           {"d/f", "f"},
                           {"keyless", "one"},
                           {"out", "two"},
                           {"to/", ""},
                           {"to/1", "one"},
                           {"to/f", "f"}}));
  EXPECT_EQ(RunList(""), 0U);
}

TEST_F(Helper, LeavesALockedDestinationAndGoesOn) {
  WriteTree(folder_.Path(), {{"1", "one"}, {"locked", "old"}});
  {
    const FileLock lock(folder_ / "locked");
    EXPECT_EQ(RunList("<i key='1' src='@1' dec='@locked' type=''/>"
                      "<i key='2' src='@locked' dec='@never' type=''/>"
                      "<i key='3' src='@1' dec='@last' type=''/>"),
              0U);
  }
  EXPECT_EQ(ReadFileBytes(folder_ / "locked"), "old");
  EXPECT_EQ(ReadFileBytes(folder_ / "last"), "one");
  EXPECT_EQ(Files().count("never"), 0U);
}

// Which file a name outside ASCII reaches: the task file's goes through the ANSI code page, the
// list's bytes are taken as they stand in it, the names in the list are UTF-8.
TEST_F(Helper, FollowsTheCodePageRules) {
  const std::string name = "\xC3\xA9";
  const std::string misread = WideToUtf8(AnsiToWide(name));
  WriteFileBytes(folder_ / "s" + name, "copied");
  const std::string list = "<root><task><i key='1' src='" + (folder_ / "s" + name) + "' dec='" +
                           (folder_ / "d" + name) + "' type='file'/></task></root>";
  const std::string task = folder_ / name + ".ini";
  const auto run = [&](const std::string& xmlPath) {
    WriteFileBytes(task, "[Task]\ntype=1\nxml_path=" + folder_ / xmlPath + "\n");
    return RunOn(task);
  };
  WriteFileBytes(folder_ / name + ".xml", list);
  EXPECT_EQ(run(name + ".xml"), 1U) << "UTF-8 is not what the list's path is read as";
  EXPECT_EQ(run(Utf8ToAnsi(name) + ".xml"), 0U);
  EXPECT_EQ(ReadFileBytes(folder_ / "d" + name), "copied");
  WriteFileBytes(folder_ / misread + ".xml", list);
  EXPECT_EQ(run(name + ".xml"), 0U);

  // The code page lacks this name: the helper sees the file but cannot read it.
  WriteFileBytes(folder_ / "\xF0\x9F\x8E\xB5.ini", "[Task]\ntype=1\n");
  EXPECT_EQ(RunOn(folder_ / "\xF0\x9F\x8E\xB5.ini"), 1U);
}

TEST_F(Helper, LeavesAReadOnlyTaskFileToTheNextRestart) {
  WriteFileBytes(folder_ / "list.xml", "<root><task/></root>");
  WriteFileBytes(folder_ / kTaskFile, "[Task]\ntype=1\nxml_path=" + folder_ / "list.xml\n");
  SetFileAttributesW(Utf8ToWide(folder_ / kTaskFile).c_str(), FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(RunOn(folder_ / kTaskFile), 0U);
  EXPECT_EQ(folder_.Contents().count(kTaskFile), 1U);
}

TEST_F(Helper, RefusesHugeLists) {
  const std::string path = folder_ / "list.xml";
  WriteFileBytes(path, "<root><task/></root>");
  const HANDLE handle = CreateFileW(Utf8ToWide(path).c_str(), GENERIC_WRITE, 0, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  LARGE_INTEGER end;
  end.QuadPart = (std::int64_t{1} << 32) + 20;  // would be 20 bytes if it wrapped around
  SetFilePointerEx(handle, end, nullptr, FILE_BEGIN);
  SetEndOfFile(handle);
  CloseHandle(handle);
  EXPECT_EQ(Run("[Task]\ntype=1\nxml_path=" + path + "\n"), 1U);
  ExpectCleanFailure();
}

}  // namespace
