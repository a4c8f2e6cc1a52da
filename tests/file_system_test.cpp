#include "fileop/file_system.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "corekit/text.h"
#include "fileop/jfile.h"
#include "support.h"

namespace {

// A path of exactly `length` bytes below the folder.
std::string PathOfLength(const TestFolder& folder, std::size_t length) {
  std::string path = folder.Path();
  while (path.size() + 60 < length) path += std::string(50, 'd') + "/";
  return path + std::string(length - path.size(), 'x');
}

TEST(Directories, AreRecognised) {
  const TestFolder folder;
  WriteTree(folder.Path(), {{"dir/", ""}, {"file", "x"}, {"\xE4\xB8\xAD/", ""}, {"d/", ""}});
  const struct {
    const char* path;
    bool expected;
  } kCases[] = {{"dir", true},   {"dir/", true},         {"dir\\", true}, {"file", false},
                {"none", false}, {"\xE4\xB8\xAD", true}, {"\xC3", false}};
  for (const auto& c : kCases) {
    EXPECT_EQ(IsDirectory((folder / c.path).c_str()), c.expected) << c.path;
  }
  EXPECT_FALSE(IsDirectory(nullptr));
  EXPECT_FALSE(IsDirectory(""));
  EXPECT_FALSE(IsDirectory("."));
  EXPECT_FALSE(IsDirectory(".."));  // two characters are a drive or nothing
  EXPECT_TRUE(IsDirectory("C:"));
  EXPECT_TRUE(IsDirectory("C:/"));
}

TEST(Directories, AreRecognisedByTheirFirst260Bytes) {
  const TestFolder folder;
  const std::string path = PathOfLength(folder, 260);
  MakeFolders(path + "/");
  EXPECT_TRUE(IsDirectory(path.c_str()));
  EXPECT_TRUE(IsDirectory((path + "y").c_str()));
}

TEST(Directories, AreCreatedUpToTheLastSeparator) {
  const struct {
    const char* path;
    bool result;
    Tree created;
  } kCases[] = {
      {"a/b/c", true, {{"a/", ""}, {"a/b/", ""}}},
      {"a/b/c/", true, {{"a/", ""}, {"a/b/", ""}, {"a/b/c/", ""}}},
      {"a\\b\\c", true, {}},  // the "/" of the test folder comes first; then only "\" is left
      {"a//b/", true, {{"a/", ""}, {"a/b/", ""}}},
      {"a", true, {}},
  };
  for (const auto create : {CreateDirTree, MakeParentDirs}) {
    for (const auto& c : kCases) {
      const TestFolder folder;
      Tree created = c.created;
      if (std::string(c.path) == "a\\b\\c") created = {{"a/", ""}, {"a/b/", ""}};
      EXPECT_EQ(create((folder / c.path).c_str()), c.result) << c.path;
      EXPECT_EQ(folder.Contents(), created) << c.path;
    }
    const TestFolder folder;
    EXPECT_TRUE(create(""));
    WriteFileBytes(folder / "file", "");
    EXPECT_FALSE(create((folder / "file/x/y").c_str()));
    EXPECT_FALSE(create((PathOfLength(folder, 260) + "/").c_str()));
    EXPECT_EQ(folder.Contents(), (Tree{{"file", ""}}));
  }
}

TEST(Directories, NamesFollowUtf8OrTheCodePage) {
  const std::string name = "\xC3\xA9";
  const TestFolder folder;
  EXPECT_TRUE(CreateDirTree((folder / "u" + name + "/").c_str()));
  EXPECT_TRUE(MakeParentDirs((folder / "a" + name + "/").c_str()));
  EXPECT_EQ(folder.Contents(),
            (Tree{{"u" + name + "/", ""}, {WideToUtf8(AnsiToWide("a" + name)) + "/", ""}}));
}

TEST(CopyTree, CopiesFilesFoldersAndAttributes) {
  const TestFolder folder;
  const Tree tree = {{"a.txt", "1"},          {"empty/", ""}, {"s/", ""},
                     {"s/\xE4\xB8\xAD", "2"}, {"s/t/", ""},   {"s/t/\xF0\x9F\x8E\xB5", "3"}};
  WriteTree(folder / "from/", tree);
  WriteTree(folder / "to/", {{"a.txt", "old and longer"}, {"kept", "k"}});
  SetFileAttributesW(Utf8ToWide(folder / "from/a.txt").c_str(), FILE_ATTRIBUTE_READONLY);

  EXPECT_TRUE(CopyDirectoryTree((folder / "from/").c_str(), (folder / "to/").c_str(), 0));
  Tree expected = tree;
  expected["kept"] = "k";
  EXPECT_EQ(ReadTree(folder / "to/"), expected);

  MakeFolders(folder / "new/");
  EXPECT_TRUE(CopyDirectoryTree((folder / "from/").c_str(), (folder / "new/").c_str(), 0));
  EXPECT_NE(GetPathAttributes((folder / "new/a.txt").c_str()) & FILE_ATTRIBUTE_READONLY, 0U);

  // Without recursion a folder is one more thing that cannot be copied as a file.
  MakeFolders(folder / "flat/");
  EXPECT_FALSE(CopyDirectoryTree((folder / "from/").c_str(), (folder / "flat/").c_str(), 1));
  EXPECT_EQ(ReadTree(folder / "flat/"), (Tree{{"a.txt", "1"}}));
  EXPECT_FALSE(CopyDirectoryTree((folder / "none/").c_str(), (folder / "to/").c_str(), 0));
}

TEST(CopyTree, PassesOverWhatItCannotCopy) {
  const TestFolder folder;
  WriteTree(folder / "from/", {{"a", "1"}, {"b", "2"}, {"s/x", "3"}});
  MakeFolders(folder / "to/");
  const FileLock lock(folder / "from/a");
  CopyDirectoryTree((folder / "from/").c_str(), (folder / "to/").c_str(), 0);
  EXPECT_EQ(ReadTree(folder / "to/"), (Tree{{"b", "2"}, {"s/", ""}, {"s/x", "3"}}));

  // A file in the way of a folder.
  WriteTree(folder / "other/", {{"s", "file"}});
  EXPECT_FALSE(CopyDirectoryTree((folder / "from/").c_str(), (folder / "other/").c_str(), 0));
  EXPECT_EQ(ReadTree(folder / "other/"), (Tree{{"b", "2"}, {"s", "file"}}));
}

// Folders at every length around the limit: what fits in 259 units arrives as it was, nothing else
// appears, and the walk ends although cut paths name folders that it has seen.
TEST(CopyTree, CopiesWhatFitsAndNothingElse) {
  for (std::size_t length = 250; length <= 262; ++length) {
    const TestFolder folder;
    const Tree tree = {{"a", "a"},         {"a.b", "ab"},   {".x", "x"},       {"abcdef", "long"},
                       {"d/", ""},         {"d/d/", ""},    {"d/d/d", "deep"}, {"dd/", ""},
                       {"dd/longer", "l"}, {"ddd.dd/", ""}, {"ddd.dd/d", "d"}};
    const std::string longFolder = PathOfLength(folder, length - 1) + "/";
    const struct {
      std::string from;
      std::string to;
    } kDirections[] = {{folder / "s/", longFolder}, {longFolder, folder / "s/"}};
    for (const auto& [from, to] : kDirections) {
      WriteTree(from, tree);
      MakeFolders(to);
      Tree expected;
      for (const auto& [name, bytes] : tree) {
        // A folder must fit itself; what lies in it must be reached through its separator.
        const std::string bare = name.back() == '/' ? name.substr(0, name.size() - 1) : name;
        const bool created = to.size() + bare.size() <= 259;
        const std::size_t parent = bare.rfind('/') + 1;
        const bool listed = from.size() + parent < 259;
        const bool readable = name.back() == '/' || from.size() + bare.size() <= 259;
        if (created && listed && readable) expected[name] = bytes;
      }
      CopyDirectoryTree(from.c_str(), to.c_str(), 0);
      EXPECT_EQ(ReadTree(to), expected) << length;
      RemoveTreeForSure(from);
      RemoveTreeForSure(to);
    }
    EXPECT_LE(folder.Contents().size(), 6U) << "something appeared outside, length " << length;
  }
}

TEST(CopyTree, EndsWhenTheDestinationLiesInTheSource) {
  const TestFolder folder;
  WriteTree(folder / "s/", {{"file", "f"}, {"in/", ""}});
  EXPECT_FALSE(CopyDirectoryTree((folder / "s/").c_str(), (folder / "s/in/").c_str(), 0));
  EXPECT_EQ(ReadFileBytes(folder / "s/in/in/file"), "f");
}

TEST(RemoveTree, RemovesByMode) {
  const Tree tree = {{"a", "1"}, {"d/", ""}, {"d/b", "2"}, {"e/", ""}};
  const struct {
    int mode;
    Tree left;
    bool folderLeft;
  } kCases[] = {{0, {}, false},
                {1, {{"d/", ""}, {"e/", ""}}, true},
                {2, {{"a", "1"}, {"d/", ""}, {"d/b", "2"}}, true},
                {3, tree, true}};
  for (const auto& c : kCases) {
    const TestFolder folder;
    WriteTree(folder / "t/", tree);
    SetFileAttributesW(Utf8ToWide(folder / "t/d/b").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(RemoveDirectoryTree((folder / "t/").c_str(), c.mode)) << c.mode;
    EXPECT_EQ(PathExists((folder / "t").c_str()), c.folderLeft) << c.mode;
    EXPECT_EQ(ReadTree(folder / "t/"), c.left) << c.mode;
  }
  EXPECT_FALSE(RemoveDirectoryTree("", 0));
  EXPECT_FALSE(RemoveDirectoryTree("none/", 0));
}

TEST(RemoveTree, ReportsTheLastEntry) {
  const TestFolder folder;
  WriteTree(folder / "t/", {{"a", "1"}, {"b", "2"}});
  {
    const FileLock lock(folder / "t/b");
    EXPECT_FALSE(RemoveDirectoryTree((folder / "t/").c_str(), 0));
  }
  WriteTree(folder / "t/", {{"a", "1"}, {"b", "2"}});
  {
    const FileLock lock(folder / "t/a");
    EXPECT_TRUE(RemoveDirectoryTree((folder / "t/").c_str(), 0));
  }
  EXPECT_EQ(folder.Contents(), (Tree{{"t/", ""}, {"t/a", "1"}}));
}

TEST(RemoveTree, LeavesAloneWhatItCannotName) {
  for (std::size_t length = 252; length <= 262; ++length) {
    const TestFolder folder;
    const std::string longFolder = PathOfLength(folder, length - 1) + "/";
    WriteTree(longFolder, {{"abcd/e", "1"}, {"f", "2"}, {"longername", "3"}});
    // What a path cut inside the folder's own name would name.
    const std::string prefix = longFolder.substr(0, 259);
    if (length > 260) WriteFileBytes(prefix, "not yours");
    RemoveDirectoryTree(longFolder.c_str(), 0);
    EXPECT_EQ(PathExists((longFolder + "f").c_str()), length + 1 > 259) << length;
    EXPECT_EQ(PathExists((longFolder + "longername").c_str()), length + 10 > 259) << length;
    if (length > 260) {
      EXPECT_EQ(ReadFileBytes(prefix), "not yours");
    }
  }
}

TEST(SplitPath, TakesPathsApart) {
  const struct {
    const char* path;
    const char* name;
    const char* parent;
  } kCases[] = {{"D:/x/a.txt", "a.txt", "D:/x"},
                {"D:\\x\\a.txt", "a.txt", "D:\\x"},
                {"D:/a.txt", "a.txt", "D:/"},
                {"a.txt", "a.txt", ""},
                {"D:/\xE4\xB8\xAD/\xC3\xA9", "\xC3\xA9", "D:/\xE4\xB8\xAD"},
                {"", "", ""}};
  for (const auto& c : kCases) {
    std::string name = "?";
    std::string parent = "?";
    SplitPath(c.path, &name, &parent);
    EXPECT_EQ(name, c.name) << c.path;
    EXPECT_EQ(parent, c.parent) << c.path;
    SplitPath(c.path, nullptr, nullptr);
  }
}

TEST(FormatWidePath, CutsAtTheCapacity) {
  wchar_t buffer[6];
  EXPECT_EQ(FormatWidePath(buffer, 6, L"%s%s/", L"ab", L"cd"), 5);
  EXPECT_STREQ(buffer, L"abcd/");
  EXPECT_EQ(FormatWidePath(buffer, 6, L"%s%s", L"abc", L"def"), -1);
  EXPECT_STREQ(buffer, L"abcde");
  EXPECT_EQ(FormatWidePath(buffer, 6, L"%s", L"abcdefgh"), -1);
  EXPECT_STREQ(buffer, L"abcde");
  EXPECT_EQ(FormatWidePath(nullptr, 6, L"x"), -1);
  EXPECT_EQ(FormatWidePath(buffer, 0, L"x"), -1);
}

TEST(DeleteFileOrSchedule, DeletesOrQueues) {
  const TestFolder folder;
  WriteFileBytes(folder / "\xC3\xA9", "x");
  EXPECT_EQ(DeleteFileOrSchedule((folder / "\xC3\xA9").c_str()), 0);
  EXPECT_EQ(DeleteFileOrSchedule((folder / "\xC3\xA9").c_str()), 0);
  EXPECT_EQ(folder.Contents(), Tree());
  EXPECT_TRUE(IsNtPlatform());
}

TEST(JFileTest, ReadsAndWritesWholeFiles) {
  const TestFolder folder;
  const std::string path = folder / "new/folder/file";
  JFile file;
  EXPECT_FALSE(file.Open(path, JFile::OpenRead | JFile::OpenBinary));
  EXPECT_EQ(folder.Contents(), Tree());
  EXPECT_EQ(file.GetSize(), -1);
  EXPECT_EQ(file.Rewind(), -1);
  char buffer[16] = {};
  EXPECT_EQ(file.Read(buffer, 1), -1);
  EXPECT_EQ(file.Write(buffer, 1), -1);

  ASSERT_TRUE(file.Open(path, JFile::OpenWrite | JFile::OpenBinary));
  EXPECT_EQ(file.Write("a\nb\x1A"
                       "c",
                       5),
            5);
  EXPECT_EQ(file.Write(nullptr, 5), -1);
  EXPECT_EQ(file.Write("a", -1), -1);
  file.Close();
  EXPECT_EQ(ReadFileBytes(path),
            "a\nb\x1A"
            "c");

  ASSERT_TRUE(file.Open(path, JFile::OpenRead | JFile::OpenBinary));
  EXPECT_EQ(file.Read(buffer, 2), 2);
  EXPECT_EQ(file.GetSize(), 5);
  EXPECT_EQ(file.Read(buffer, 16), 3);
  EXPECT_EQ(file.Rewind(), 0);
  EXPECT_EQ(file.Read(buffer, 16), 5);
  // Failing to open closes what was open.
  EXPECT_FALSE(file.Open(folder / "none", JFile::OpenRead));
  EXPECT_EQ(file.GetSize(), -1);

  ASSERT_TRUE(file.Open(path, JFile::OpenWrite | JFile::OpenText));
  EXPECT_EQ(file.Write("a\n", 2), 2);
  file.Close();
  EXPECT_EQ(ReadFileBytes(path), "a\r\n");
  EXPECT_FALSE(file.Open(folder.Path(), JFile::OpenRead | JFile::OpenBinary));
}

TEST(JFileTest, PathsAreInTheCodePage) {
  const TestFolder folder;
  const std::string ansi = Utf8ToAnsi("\xC3\xA9");
  JFile file;
  ASSERT_TRUE(file.Open(folder / "d" + ansi + "/" + ansi, JFile::OpenWrite));
  file.Close();
  EXPECT_EQ(folder.Contents(), (Tree{{"d\xC3\xA9/", ""}, {"d\xC3\xA9/\xC3\xA9", ""}}));
}

TEST(JFileTest, DoesNotWrapTheSizeOfHugeFiles) {
  const TestFolder folder;
  const std::string path = folder / "sparse";
  for (const std::int64_t size :
       {(std::int64_t{1} << 31) - 1, std::int64_t{1} << 31, (std::int64_t{5} << 30) + 10}) {
    WriteFileBytes(path, "x");
    const HANDLE handle = CreateFileW(Utf8ToWide(path).c_str(), GENERIC_WRITE, 0, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    LARGE_INTEGER end;
    end.QuadPart = size;
    SetFilePointerEx(handle, end, nullptr, FILE_BEGIN);
    SetEndOfFile(handle);
    CloseHandle(handle);
    JFile file;
    ASSERT_TRUE(file.Open(path, JFile::OpenRead | JFile::OpenBinary));
    EXPECT_EQ(file.GetSize(), size > INT32_MAX ? -1 : INT32_MAX);
    file.Close();
  }
}

}  // namespace
