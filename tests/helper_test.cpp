// Starts the helper as the application does, on real task files, and looks at everything that it
// may have changed: its exit code, its output, and all files around.

#include <gtest/gtest.h>

#include <boost/lexical_cast.hpp>
#include <string>
#include <vector>

#include "corekit/text.h"
#include "support.h"
#include "uactask/task_runner.h"

namespace {

using namespace std::string_literals;  // for texts that hold a NUL

class Helper : public testing::Test {
 protected:
  unsigned long RunOn(const std::string& path) {
    const ProgramResult result = RunProgram("uactask.exe", {path});
    EXPECT_EQ(result.output, "");
    return result.exitCode;
  }
  // Exit code 1 could be a crash as well. In this process a crash would show.
  void ExpectToBeKept(const Tree& files) {
    SCOPED_TRACE(files.at("list.xml").substr(0, 60) + files.at("task.ini").substr(0, 60));
    WriteTree(folder_.Path(), files);
    EXPECT_EQ(RunOn(task_), 1U);
    try {
      EXPECT_FALSE(RunTaskFile(task_));
    } catch (const boost::bad_lexical_cast&) {
      // How a scheduler task refuses its numbers.
    }
    EXPECT_EQ(folder_.Contents(), files);
  }

  const TestFolder folder_;
  const std::string task_ = folder_ / "task.ini";
  const std::string taskOfList_ = "[Task]\ntype=1\nxml_path=" + folder_ / "list.xml\n";
};

TEST_F(Helper, NeedsATaskFile) {
  EXPECT_EQ(RunProgram("uactask.exe", {}).exitCode, 1U);
  EXPECT_EQ(RunOn(folder_ / "none.ini"), 2U);
  EXPECT_EQ(RunOn(""), 2U);
  EXPECT_EQ(RunOn(folder_ / "wild*"), 2U);
  EXPECT_EQ(RunOn(folder_.Path()), 1U);
  EXPECT_EQ(folder_.Contents(), Tree());
}

// Whatever the files hold, it is a failure that leaves everything as it was.
TEST_F(Helper, KeepsTaskFilesThatItCannotRun) {
  std::vector<std::string> tasks = {
      "\xFF\xFE[\0T\0\n\0"s, std::string(100, '\0') + "\n", ""s,
      "[Task\ntype=1\n"s,    "\x1A[Task]\ntype=1\n"s,       "[Task]\ntype=1"s};
  const std::string listPath = "\nxml_path=" + folder_ / "list.xml\n";
  for (const std::string& type :
       {""s, " 1"s, "1.0"s, "2"s, "-1"s, "99999999999"s, "1\0"s, std::string(1 << 20, '1'),
        "0\ntask_name=uactask test"s, "1\nxml_path="s, "1\nxml_path=none.xml"s, "1\nxml_path=."s,
        "1\nxml_path=" + std::string(5000, 'x')}) {
    tasks.push_back("[Task]\ntype=" + type + listPath);
  }
  for (const std::string& task : tasks) {
    ExpectToBeKept({{"list.xml", "<root><task/></root>"}, {"task.ini", task}});
  }

  std::string deep;
  for (int i = 0; i < 200000; ++i) deep += "<a>";
  for (const std::string& list :
       {""s, "<root/>"s, "<root><task>"s, "<root><task><i/></task></root>"s, "\xFF\xFE\x00"s, deep,
        "<root><task><i key='1' src='@a' dec='@b'/><!-- c --></task></root>"s}) {
    ExpectToBeKept({{"task.ini", taskOfList_}, {"list.xml", list}});
  }
}

// Keys in byte-wise order, folders before files, the first of equal keys; a type that is not
// exactly "dir" is a file, of which the folder above is made; failures stop nothing.
TEST_F(Helper, CopiesWhatTheListSays) {
  std::string list =
      "<root><task>"
      "<i key='9' src='@2' dec='@out' type='file'/>"
      "<i key='10' src='@1' dec='@out' type='file'/>"
      "<i key='9' src='@1' dec='@out' type='file'/>"
      "<i key='1' src='@1' dec='@é/1' type='file'/>"
      "<o key='7' src='@d/' dec='@é/' type='dir'/>"
      "<i key='3' src='@d/' dec='@DIR/' type='DIR'/>"
      "<i key='4' dec='@nothing' type='file'/>"
      "<i key='5' src='@none/' dec='@nothing/' type='dir'/>"
      "<i key='6' src='@1' dec='@locked' type=''/>"
      "<i key='8' src='@locked' dec='@never' type=''/>"
      "<i src='@1' dec='@made/中'/><i src='@1' dec='@dropped'/></task></root>";
  list = ReplaceMatches(list, "@", folder_.Path());
  Tree tree = TreeOf("1=1, 2=2, d/e/, d/中 é=d/中 é, d/🎵/g=d/🎵/g, é/x/y=, locked=");
  tree["list.xml"] = list;
  tree["task.ini"] = taskOfList_;
  WriteTree(folder_.Path(), tree);
  {
    const FileLock lock(folder_ / "locked");
    EXPECT_EQ(RunOn(task_), 0U);
  }
  tree.merge(TreeOf("DIR/, made/中=1, out=2, é/1=1, é/e/, é/中 é=d/中 é, é/🎵/g=d/🎵/g"));
  for (const char* gone : {"é/x/", "é/x/y"}) tree.erase(gone);
  tree.erase("task.ini");
  EXPECT_EQ(folder_.Contents(), tree);
}

// Which file a name outside ASCII reaches: the task file's goes through the ANSI code page, the
// list's bytes are taken as they stand in it, the names in the list are UTF-8.
TEST_F(Helper, FollowsTheCodePageRules) {
  const std::string misread = WideToUtf8(corekit::AnsiToWide("é"));
  WriteFileBytes(folder_ / "sé", "copied");
  const std::string list = "<root><task><i key='1' src='" + folder_ / "sé' dec='" +
                           folder_ / "dé' type='file'/></task></root>";
  const auto run = [&](const std::string& xmlPath) {
    WriteFileBytes(folder_ / "é.ini", "[Task]\ntype=1\nxml_path=" + folder_ / xmlPath + "\n");
    return RunOn(folder_ / "é.ini");
  };
  WriteFileBytes(folder_ / "é.xml", list);
  EXPECT_EQ(run("é.xml"), 1U) << "UTF-8 is not what the list's path is read as";
  EXPECT_EQ(run(corekit::Utf8ToAnsi("é.xml")), 0U);
  EXPECT_EQ(ReadFileBytes(folder_ / "dé"), "copied");
  WriteFileBytes(folder_ / misread + ".xml", list);
  EXPECT_EQ(run("é.xml"), 0U);

  // The code page lacks this name: the helper sees the file but cannot read it.
  WriteFileBytes(folder_ / "🎵.ini", "[Task]\ntype=1\n");
  EXPECT_EQ(RunOn(folder_ / "🎵.ini"), 1U);
}

TEST_F(Helper, LeavesAReadOnlyTaskFileToTheNextRestart) {
  const Tree files = {{"list.xml", "<root><task/></root>"}, {"task.ini", taskOfList_}};
  WriteTree(folder_.Path(), files);
  MakeReadOnly(task_);
  EXPECT_EQ(RunOn(task_), 0U);
  EXPECT_EQ(folder_.Contents(), files);
  EXPECT_TRUE(
      ForgetDeletionsAtRestart(folder_.Path().substr(0, folder_.Path().size() - 1) + "\\task.ini"));
}

}  // namespace
