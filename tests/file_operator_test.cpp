#include "fileop/file_operator.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "corekit/text.h"
#include "support.h"

namespace {

class FileOperatorTest : public testing::Test {
 protected:
  bool CopyFolder(const std::string& from, const std::string& to) {
    FileOperatorNomal fileOperator;
    fileOperator.AddDirectoryCopy((folder_ / from).c_str(), (folder_ / to).c_str());
    return fileOperator.Execute();
  }
  // Also returns the diagnostic lines, with the test folder's name left out.
  bool CopyOneFile(const std::string& from, const std::string& to, std::string* lines) {
    FileOperatorNomal fileOperator([&](const std::string& line) {
      *lines += line;
      const std::size_t at = lines->find(folder_.Path());
      if (at != std::string::npos) lines->erase(at, folder_.Path().size());
    });
    fileOperator.AddFileCopy((folder_ / from).c_str(), (folder_ / to).c_str());
    return fileOperator.Execute();
  }

  TestFolder folder_;
};

TEST_F(FileOperatorTest, NothingQueuedSucceeds) {
  FileOperatorNomal fileOperator;
  EXPECT_TRUE(fileOperator.Execute());
}

TEST_F(FileOperatorTest, ReplacesTheDestinationFolder) {
  WriteTree(folder_ / "from/", {{"a", "1"}, {"s/b", "2"}});
  WriteTree(folder_ / "to/", {{"a", "old"}, {"only here", "x"}, {"gone/deep/file", "y"}});
  SetFileAttributesW(Utf8ToWide(folder_ / "to/only here").c_str(), FILE_ATTRIBUTE_READONLY);
  EXPECT_TRUE(CopyFolder("from/", "to/"));
  EXPECT_EQ(ReadTree(folder_ / "to/"), ReadTree(folder_ / "from/"));
  EXPECT_TRUE(CopyFolder("from/", "new/with/ancestors/"));
  EXPECT_EQ(ReadTree(folder_ / "new/with/ancestors/"), ReadTree(folder_ / "from/"));
}

// A folder given without its separator is that folder, and its siblings stay as they are.
TEST_F(FileOperatorTest, TouchesNoSiblings) {
  const Tree siblings = {{"bbak", "1"},    {"bb/", ""},  {"bb/keep", "2"}, {"b2/", ""},
                         {"b2/keep", "3"}, {"bb2/", ""}, {"bb2/keep", "4"}};
  for (const char* destination : {"p/b", "p/b/", "p\\b", "p\\b\\"}) {
    for (const char* source : {"from", "from/", "from\\"}) {
      WriteTree(folder_ / "from/", {{"bak", "new"}, {"2/keep", "new"}});
      WriteTree(folder_ / "p/", siblings);
      WriteTree(folder_ / "p/b/", {{"old", "x"}});
      EXPECT_TRUE(CopyFolder(source, destination)) << destination;
      Tree expected = siblings;
      expected.insert({{"b/", ""}, {"b/bak", "new"}, {"b/2/", ""}, {"b/2/keep", "new"}});
      EXPECT_EQ(ReadTree(folder_ / "p/"), expected) << destination;
    }
  }
}

TEST_F(FileOperatorTest, FolderCopiesThatFailTouchNothing) {
  WriteTree(folder_ / "to/", {{"kept", "k"}});
  WriteTree(folder_ / "from/", {{"file", "f"}});
  const Tree before = folder_.Contents();
  EXPECT_FALSE(CopyFolder("none/", "to/"));
  EXPECT_FALSE(CopyFolder("from/file", "to/"));
  FileOperatorNomal fileOperator;
  fileOperator.AddDirectoryCopy((folder_ / "from/").c_str(), "");
  EXPECT_FALSE(fileOperator.Execute());
  EXPECT_EQ(folder_.Contents(), before);
}

TEST_F(FileOperatorTest, CopiesNothingWhenTheDestinationCannotBeRemoved) {
  WriteTree(folder_ / "from/", {{"a", "1"}});
  WriteTree(folder_ / "to/", {{"b", "kept"}});
  const FileLock lock(folder_ / "to/b");
  EXPECT_FALSE(CopyFolder("from/", "to/"));
}

TEST_F(FileOperatorTest, DoesNotReachThroughLinksInTheDestination) {
  WriteTree(folder_ / "outside/", {{"precious", "p"}, {"s/more", "m"}});
  WriteTree(folder_ / "from/", {{"a", "1"}});
  MakeFolders(folder_ / "to/deep/");
  if (!MakeFolderLink("../outside", folder_ / "to/link") ||
      !MakeFolderLink("../../outside", folder_ / "to/deep/link") ||
      !MakeFolderLink("outside", folder_ / "itself")) {
    GTEST_SKIP() << "links cannot be made here";
  }
  WriteTree(folder_ / "from/", {{"link/b", "2"}, {"z", "3"}});
  const Tree from = ReadTree(folder_ / "from/");
  const Tree outside = ReadTree(folder_ / "outside/");
  const bool replaced = CopyFolder("from/", "to/");
  const bool itselfReplaced = CopyFolder("from/", "itself/");
  EXPECT_EQ(ReadTree(folder_ / "outside/"), outside);
  if (!OnWine()) {  // which cannot remove links, and so leaves them there
    EXPECT_TRUE(replaced);
    EXPECT_TRUE(itselfReplaced);
    EXPECT_EQ(ReadTree(folder_ / "to/"), from);
    EXPECT_EQ(ReadTree(folder_ / "itself/"), from);
  }
}

TEST_F(FileOperatorTest, CopiesFiles) {
  WriteTree(folder_.Path(), {{"a", "new"}, {"old", "longer than new"}});
  const struct {
    const char* from;
    const char* to;
    bool result;
    const char* lines;
  } kCases[] = {
      {"a", "b", true, "File Copy Result : Succeed, File Exits : b, TRUE\n"},
      {"a", "old", true, "File Copy Result : Succeed, File Exits : old, TRUE\n"},
      {"a", "one/c", true, "File Copy Result : Succeed, File Exits : one/c, TRUE\n"},
      {"a", "two/levels/c", false, "File Copy Result : Failed, File Exits : two/levels/c, FALSE\n"},
      {"none", "d", false, "Error File Copy Task : none\n"},
      // a folder cannot be copied onto a file, but the file is there
      {"one", "old", true, "File Copy Result : Failed, File Exits : old, TRUE\n"},
  };
  for (const auto& c : kCases) {
    std::string lines;
    EXPECT_EQ(CopyOneFile(c.from, c.to, &lines), c.result) << c.to;
    EXPECT_EQ(lines, c.lines);
  }
  EXPECT_EQ(folder_.Contents(),
            (Tree{{"a", "new"}, {"b", "new"}, {"old", "new"}, {"one/", ""}, {"one/c", "new"}}));
}

TEST_F(FileOperatorTest, ExecutesEverythingFoldersFirst) {
  WriteTree(folder_.Path(), {{"a", "file"}, {"from/x", "1"}, {"to/old", "o"}});
  FileOperatorNomal fileOperator;
  fileOperator.AddFileCopy((folder_ / "a").c_str(), (folder_ / "to/a").c_str());
  fileOperator.AddFileCopy((folder_ / "none").c_str(), (folder_ / "n").c_str());
  fileOperator.AddDirectoryCopy((folder_ / "none/").c_str(), (folder_ / "m/").c_str());
  fileOperator.AddDirectoryCopy((folder_ / "from/").c_str(), (folder_ / "to/").c_str());
  fileOperator.AddFileCopy((folder_ / "a").c_str(), (folder_ / "last").c_str());
  for (int run = 0; run < 2; ++run) {
    EXPECT_FALSE(fileOperator.Execute());
    EXPECT_EQ(folder_.Contents(), (Tree{{"a", "file"},
                                        {"from/", ""},
                                        {"from/x", "1"},
                                        {"last", "file"},
                                        {"to/", ""},
                                        {"to/a", "file"},
                                        {"to/x", "1"}}));
  }
  fileOperator.ClearOperations();
  EXPECT_TRUE(fileOperator.Execute());
}

}  // namespace
