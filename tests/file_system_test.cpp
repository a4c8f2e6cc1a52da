#include "fileop/file_system.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <functional>
#include <thread>

#include "corekit/text.h"
#include "fileop/file_operator.h"
#include "fileop/jfile.h"
#include "support.h"

namespace {

bool Copy(const std::string& from, const std::string& to, std::int32_t noRecursion = 0) {
  return CopyDirectoryTree(from.c_str(), to.c_str(), noRecursion);
}

bool Remove(const std::string& folder, std::int32_t mode = 0) {
  return RemoveDirectoryTree(folder.c_str(), mode);
}

// A path of exactly `length` bytes below the folder.
std::string PathOfLength(const TestFolder& folder, std::size_t length) {
  std::string path = folder.Path();
  while (path.size() + 60 < length) path += std::string(50, 'd') + "/";
  return path + std::string(length - path.size(), 'x');
}

TEST(Directories, AreRecognised) {
  if (!LongPathsWork()) GTEST_SKIP() << "paths are limited to 259 units here";
  const TestFolder folder;
  WriteTree(folder.Path(), TreeOf("dir/, file=x, 中/"));
  for (const char* path : {"dir", "dir/", "dir\\", "中"}) {
    EXPECT_TRUE(IsDirectory((folder / path).c_str())) << path;
  }
  for (const char* path : {"file", "none", "\xC3"}) {
    EXPECT_FALSE(IsDirectory((folder / path).c_str())) << path;
  }
  // Two characters are a drive or nothing.
  for (const char* path : {"C:", "C:/"}) EXPECT_TRUE(IsDirectory(path)) << path;
  for (const char* path : {"", ".", ".."}) EXPECT_FALSE(IsDirectory(path)) << path;

  const std::string longest = PathOfLength(folder, 260);
  MakeFolders(longest + "/");
  EXPECT_TRUE(IsDirectory(longest.c_str()));
  EXPECT_TRUE(IsDirectory((longest + "y").c_str())) << "the first 260 bytes count";
}

TEST(Directories, AreNamedInUtf8OrTheCodePage) {
  const TestFolder folder;
  EXPECT_TRUE(CreateDirTree((folder / "ué/").c_str()));
  EXPECT_TRUE(MakeParentDirs((folder / "aé/").c_str()));
  EXPECT_EQ(folder.Contents(), TreeOf("ué/, " + WideToUtf8(corekit::AnsiToWide("aé")) + "/"));
}

TEST(Directories, AreCreatedUpToTheLastSeparator) {
  if (!LongPathsWork()) GTEST_SKIP() << "paths are limited to 259 units here";
  const char* const kCases[][2] = {
      {"a/b/c", "a/b/"}, {"a/b/c/", "a/b/c/"}, {"a\\b\\c", "a/b/"}, {"a//b/", "a/b/"}, {"a", ""}};
  for (const auto create : {CreateDirTree, MakeParentDirs}) {
    for (const auto& [path, created] : kCases) {
      const TestFolder folder;
      EXPECT_TRUE(create((folder / path).c_str())) << path;
      EXPECT_EQ(folder.Contents(), TreeOf(created)) << path;
    }
    const TestFolder folder;
    WriteFileBytes(folder / "file", "");
    EXPECT_TRUE(create(""));
    EXPECT_FALSE(create((folder / "file/x/y").c_str()));
    EXPECT_FALSE(create((PathOfLength(folder, 260) + "/").c_str()));
    EXPECT_EQ(folder.Contents(), TreeOf("file="));
    EXPECT_TRUE(create((PathOfLength(folder, 259) + "/").c_str()));
  }
}

TEST(CopyTree, CopiesFilesFoldersAndAttributes) {
  const TestFolder folder;
  const std::string tree = "a.txt=1, empty/, s/中=2, s/t/🎵=3";
  WriteTree(folder / "from/", TreeOf(tree));
  WriteTree(folder / "to/", TreeOf("a.txt=old and longer, kept=k"));
  MakeReadOnly(folder / "from/a.txt");
  EXPECT_TRUE(Copy(folder / "from/", folder / "to/"));
  EXPECT_EQ(ReadTree(folder / "to/"), TreeOf(tree + ", kept=k"));
  EXPECT_FALSE(Copy(folder / "none/", folder / "to/"));

  // Each entry fails where nothing can go, and an empty folder has none.
  for (const char* to : {"none/", "to/a.txt/"}) {
    EXPECT_FALSE(Copy(folder / "from/", folder / to)) << to;
    EXPECT_TRUE(Copy(folder / "from/empty/", folder / to)) << to;
  }
  EXPECT_FALSE(PathExists((folder / "none").c_str()));

  // Without recursion a folder is one more thing that cannot be copied as a file.
  MakeFolders(folder / "flat/");
  EXPECT_FALSE(Copy(folder / "from/", folder / "flat/", 1));
  EXPECT_EQ(ReadTree(folder / "flat/"), TreeOf("a.txt=1"));
  EXPECT_NE(GetPathAttributes((folder / "flat/a.txt").c_str()) & FILE_ATTRIBUTE_READONLY, 0U);
}

TEST(CopyTree, PassesOverWhatItCannotCopy) {
  const TestFolder folder;
  WriteTree(folder / "from/", TreeOf("a=1, b=2, s/x=3"));
  WriteTree(folder / "to/", {});
  WriteTree(folder / "other/", TreeOf("s=a file in the way of a folder"));
  const FileLock lock(folder / "from/a");
  Copy(folder / "from/", folder / "to/");
  EXPECT_EQ(ReadTree(folder / "to/"), TreeOf("b=2, s/x=3"));
  EXPECT_FALSE(Copy(folder / "from/", folder / "other/"));
  EXPECT_EQ(ReadTree(folder / "other/"), TreeOf("b=2, s=a file in the way of a folder"));
}

// Folders at every length around the limit: what fits in 259 units arrives as it was, nothing else
// appears, and the walk ends although cut paths name folders that it has seen.
TEST(CopyTree, CopiesWhatFitsAndNothingElse) {
  if (!LongPathsWork()) GTEST_SKIP() << "paths are limited to 259 units here";
  const Tree tree = TreeOf("a=a, a.b=ab, .x=x, abcdef=long, d/d/d=deep, dd/longer=l, ddd.dd/d=d");
  for (std::size_t length = 250; length <= 262; ++length) {
    const TestFolder folder;
    const std::string longFolder = PathOfLength(folder, length - 1) + "/";
    for (const bool toLong : {true, false}) {
      const std::string from = toLong ? folder / "s/" : longFolder;
      const std::string to = toLong ? longFolder : folder / "s/";
      WriteTree(from, tree);
      MakeFolders(to);
      Tree expected;
      for (const auto& [name, bytes] : tree) {
        // A folder must fit itself; what lies in it must be reached through its separator.
        const std::string bare = name.back() == '/' ? name.substr(0, name.size() - 1) : name;
        const bool created = to.size() + bare.size() <= 259;
        const bool listed = from.size() + bare.rfind('/') + 1 < 259;
        const bool readable = name.back() == '/' || from.size() + bare.size() <= 259;
        if (created && listed && readable) expected[name] = bytes;
      }
      Copy(from, to);
      EXPECT_EQ(ReadTree(to), expected) << length;
      RemoveTreeForSure(from);
      RemoveTreeForSure(to);
    }
    EXPECT_LE(folder.Contents().size(), 6U) << "something appeared outside, length " << length;
  }
}

TEST(CopyTree, EndsWhenTheDestinationLiesInTheSource) {
  const TestFolder folder;
  WriteTree(folder / "s/", TreeOf("file=f, in/"));
  EXPECT_FALSE(Copy(folder / "s/", folder / "s/in/"));
  EXPECT_EQ(ReadFileBytes(folder / "s/in/in/file"), "f");
}

TEST(CopyTree, DoesNotReachThroughLinksInTheDestination) {
  const TestFolder folder;
  WriteTree(folder.Path(), TreeOf("from/link/b=2, outside/kept=k, to/"));
  if (!MakeFolderLink("../outside", folder / "to/link"))
    GTEST_SKIP() << "links cannot be made here";
  EXPECT_FALSE(Copy(folder / "from/", folder / "to/"));
  EXPECT_EQ(ReadTree(folder / "outside/"), TreeOf("kept=k"));
}

// Wine's links stay, which is a failure then.
TEST(RemoveTree, RemovesLinksAloneAndOnlyWithFolders) {
  const TestFolder folder;
  WriteTree(folder.Path(), TreeOf("outside/kept=k, in/"));
  if (!MakeFolderLink("../outside", folder / "in/link"))
    GTEST_SKIP() << "links cannot be made here";
  for (const int mode : {1, 3, 0}) {
    const bool removed = Remove(folder / "in/link/", mode);
    EXPECT_EQ(removed, mode != 0 || !PathExists((folder / "in/link").c_str())) << mode;
    EXPECT_EQ(ReadTree(folder / "outside/"), TreeOf("kept=k"));
  }
}

TEST(RemoveTree, RemovesByMode) {
  // What each mode leaves, and whether the folder itself is left.
  const char* const kLeft[] = {"", "d/, e/", "a=1, d/b=2", "a=1, d/b=2, e/"};
  for (int mode = 0; mode < 4; ++mode) {
    const TestFolder folder;
    WriteTree(folder / "t/", TreeOf("a=1, d/b=2, e/"));
    MakeReadOnly(folder / "t/d/b");
    EXPECT_TRUE(Remove(folder / "t/", mode)) << mode;
    EXPECT_EQ(ReadTree(folder / "t/"), TreeOf(kLeft[mode])) << mode;
    EXPECT_EQ(PathExists((folder / "t").c_str()), mode != 0) << mode;
    for (const char* path : {"", "none/", "a|b/", "//nohost/share/x/"}) {
      EXPECT_FALSE(Remove(path, mode)) << path;
    }
  }
}

TEST(RemoveTree, ReportsTheLastEntry) {
  for (const bool lockLast : {true, false}) {
    const TestFolder folder;
    WriteTree(folder / "t/", TreeOf("a=, b="));
    {
      const FileLock lock(folder / (lockLast ? "t/b" : "t/a"));
      EXPECT_EQ(Remove(folder / "t/"), !lockLast);
    }
    EXPECT_EQ(folder.Contents(), TreeOf(lockLast ? "t/b=" : "t/a="));
  }
}

TEST(RemoveTree, LeavesAloneWhatItCannotName) {
  if (!LongPathsWork()) GTEST_SKIP() << "paths are limited to 259 units here";
  for (std::size_t length = 252; length <= 262; ++length) {
    const TestFolder folder;
    const std::string longFolder = PathOfLength(folder, length - 1) + "/";
    WriteTree(longFolder, TreeOf("abcd/e=1, f=2, longername=3"));
    // What a path cut inside the folder's own name would name.
    const std::string prefix = longFolder.substr(0, 259);
    if (length > 260) WriteFileBytes(prefix, "not yours");
    Remove(longFolder);
    EXPECT_EQ(PathExists((longFolder + "f").c_str()), length + 1 > 259) << length;
    EXPECT_EQ(PathExists((longFolder + "longername").c_str()), length + 10 > 259) << length;
    EXPECT_TRUE(length <= 260 || ReadFileBytes(prefix) == "not yours") << length;
  }
}

// Whoever may write in a folder must not be able to put another folder or a link in its place.
TEST(Walks, KeepTheirFoldersInPlace) {
  const TestFolder folder;
  const auto moved = [&](auto walk, auto within, const std::vector<std::string>& names) {
    std::atomic<bool> over = false;
    std::thread walker([&] {
      walk();
      over = true;
    });
    while (!within() && !over) std::this_thread::yield();
    std::string result;
    for (const std::string& name : names) {
      if (MoveFileA((folder / name).c_str(), (folder / "away").c_str())) result += name + " ";
    }
    EXPECT_FALSE(over) << "too quick to tell";
    walker.join();
    return result;
  };
  const auto exists = [&](const char* name) { return PathExists((folder / name).c_str()); };

  MakeFolders(folder / "to/");
  WriteSparseFile(folder / "from/s/large", "", 64 << 20);
  EXPECT_EQ(moved([&] { Copy(folder / "from/", folder / "to/"); },
                  [&] { return exists("to/s/large"); }, {"from/s", "to/s", "from", "to"}),
            "");
  for (int i = 1; i < 300; ++i) WriteFileBytes(folder / "to/s/" + std::to_string(i), "");
  EXPECT_EQ(
      moved([&] { Remove(folder / "to/"); }, [&] { return !exists("to/s/1"); }, {"to/s", "to"}),
      "");
  EXPECT_FALSE(exists("to"));
}

// A share that drops, for instance.
TEST(Walks, FailWhereAListingEndsWithAnError) {
  const TestFolder folder;
  MakeFolders(folder / "to/");
  for (int entries = 0; entries < 5; ++entries) {
    WriteTree(folder / "from/", TreeOf("a=1, b=2, c=3, s/d=4"));
    for (const auto& walk : {std::function([&] { return Copy(folder / "from/", folder / "to/"); }),
                             std::function([&] { return Remove(folder / "from/"); })}) {
      const SystemFailure failure(SystemFailure::kFindNextFile, entries, ERROR_NETNAME_DELETED);
      EXPECT_FALSE(walk()) << entries;
    }
  }
}

// While a folder is emptied another comes by its path, as a junction makes it. What stands in that
// under the same names stays.
TEST(Walks, RemoveNothingElsewhere) {
  if (!OnWine()) GTEST_SKIP() << "held folders cannot be moved here";
  const TestFolder folder;
  Tree outside;
  for (int i = 0; i < 500; ++i) outside["s/" + std::to_string(i)] = "";
  WriteTree(folder / "to/", outside);
  WriteTree(folder / "outside/", outside);
  outside = ReadTree(folder / "outside/");
  WriteFileBytes(folder / "swap", "cd " + folder.Path() + "to; touch ../ready; " +
                                      "while [ -e s/0 ]; do :; done; " +
                                      "mv s ../away; ln -s ../outside/s s");
  RunUnixProgram("sh " + folder / "swap", [&] { return PathExists((folder / "ready").c_str()); });
  Remove(folder / "to/");
  EXPECT_FALSE(ReadTree(folder / "away/").empty()) << "too quick to tell";
  EXPECT_EQ(ReadTree(folder / "outside/"), outside);
  RunUnixProgram("rm -f " + folder / "to/s",
                 [&] { return !PathExists((folder / "to/s").c_str()); });
}

// As part of a path such a name leads out of the tree.
TEST(Walks, PassOverNamesThatHoldSeparators) {
  if (!OnWine()) GTEST_SKIP() << "the system has no such names";
  const TestFolder folder;
  WriteTree(folder.Path(), TreeOf("from/a=1, p/to/, victim/kept=k, odd/new=n"));
  const auto oddExists = [&] { return PathExists((folder / "odd").c_str()); };
  const std::string oddName = folder / "from/..\\victim";
  RunUnixProgram("mv " + folder / "odd " + oddName, [&] { return !oddExists(); });
  EXPECT_FALSE(Copy(folder / "from/", folder / "p/to/"));
  EXPECT_EQ(ReadTree(folder / "p/"), TreeOf("to/a=1"));
  Remove(folder / "from/");
  RunUnixProgram("mv " + oddName + " " + folder / "odd", oddExists);
  EXPECT_EQ(folder.Contents(), TreeOf("from/, odd/new=n, p/to/a=1, victim/kept=k"));
}

TEST(NullPaths, AreNoPaths) {
  const TestFolder folder;
  WriteTree(folder.Path(), TreeOf("d/a=1"));
  const std::string file = folder / "d/a";
  const std::string directory = folder / "d/";
  std::string name = "x", parent = "x";
  SplitPath(nullptr, &name, &parent);
  EXPECT_EQ(name + parent, "");
  FileOperatorNomal items[4];
  items[0].AddFileCopy(nullptr, file.c_str());
  items[1].AddFileCopy(file.c_str(), nullptr);
  items[2].AddDirectoryCopy(nullptr, directory.c_str());
  items[3].AddDirectoryCopy(directory.c_str(), nullptr);
  for (FileOperatorNomal& item : items) EXPECT_FALSE(item.Execute());
  for (const bool result :
       {PathExists(nullptr), DeleteFileOrSchedule(nullptr) != 1, IsDirectory(nullptr),
        GetPathAttributes(nullptr) != INVALID_FILE_ATTRIBUTES, CreateDir(nullptr),
        CreateDirTree(nullptr), MakeParentDirs(nullptr), CopyFileTo(nullptr, file.c_str(), 0),
        CopyFileTo(file.c_str(), nullptr, 0), CopyDirectoryTree(nullptr, directory.c_str(), 0),
        CopyDirectoryTree(directory.c_str(), nullptr, 0), RemoveDirectoryTree(nullptr, 0)}) {
    EXPECT_FALSE(result);
  }
  EXPECT_EQ(folder.Contents(), TreeOf("d/a=1"));
}

TEST(SplitPath, TakesPathsApart) {
  for (const std::string parent : {"", "D:/", "D:/x/中", "D:\\x"}) {
    const std::string separator = parent.empty() || parent == "D:/" ? "" : "\\";
    std::string splitName, splitParent;
    SplitPath((parent + separator + "é.txt").c_str(), &splitName, nullptr);
    SplitPath((parent + separator + "é.txt").c_str(), nullptr, &splitParent);
    EXPECT_EQ(splitParent + " | " + splitName, parent + " | é.txt");
  }
}

TEST(FormatWidePath, CutsAtTheCapacity) {
  wchar_t buffer[6];
  EXPECT_EQ(FormatWidePath(buffer, 6, L"%s%s/", L"ab", L"cd"), 5);
  EXPECT_STREQ(buffer, L"abcd/");
  for (const wchar_t* text : {L"abcdef", L"abcdefgh"}) {  // just too long by the terminator, longer
    EXPECT_EQ(FormatWidePath(buffer, 6, L"%s", text), -1);
    EXPECT_STREQ(buffer, L"abcde");
  }
  EXPECT_EQ(FormatWidePath(nullptr, 6, L"x"), -1);
  EXPECT_EQ(FormatWidePath(buffer, 0, L"x"), -1);
  EXPECT_EQ(FormatWidePath(buffer, 1, L""), 0);
}

TEST(DeleteFileOrSchedule, TakesAMissingFileForDeleted) {
  const TestFolder folder;
  WriteFileBytes(folder / "é", "x");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(DeleteFileOrSchedule((folder / "é").c_str()), 0);
  EXPECT_EQ(folder.Contents(), Tree());
  EXPECT_TRUE(IsNtPlatform());
}

TEST(JFileTest, ReadsAndWritesWholeFiles) {
  const TestFolder folder;
  const std::string path = folder / "new/folder/file";
  const std::string bytes = "a\nb\x1A!";
  char buffer[16] = {};
  JFile file;
  EXPECT_FALSE(file.Open(path, JFile::OpenRead | JFile::OpenBinary));
  EXPECT_EQ(folder.Contents(), Tree());
  EXPECT_EQ(file.GetSize(), -1);
  EXPECT_EQ(file.Rewind(), -1);
  EXPECT_EQ(file.Read(buffer, 1), -1);
  EXPECT_EQ(file.Write(buffer, 1), -1);

  ASSERT_TRUE(file.Open(path, JFile::OpenWrite | JFile::OpenBinary));
  EXPECT_EQ(file.Write(bytes.data(), 5), 5);
  EXPECT_EQ(file.Write(nullptr, 5), -1);
  EXPECT_EQ(file.Write("a", -1), -1);
  file.Close();
  EXPECT_EQ(ReadFileBytes(path), bytes);

  ASSERT_TRUE(file.Open(path, JFile::OpenRead | JFile::OpenBinary));
  EXPECT_EQ(file.Read(buffer, 0), 0);
  EXPECT_EQ(file.Read(nullptr, 1), -1);
  EXPECT_EQ(file.Read(buffer, -1), -1);
  EXPECT_EQ(file.Read(buffer, 2), 2);
  EXPECT_EQ(file.GetSize(), 5);
  EXPECT_EQ(file.Read(buffer, 16), 3);
  EXPECT_EQ(file.Rewind(), 0);
  EXPECT_EQ(file.Read(buffer, 16), 5);
  EXPECT_EQ(buffer, bytes);
  EXPECT_FALSE(file.Open(folder / "none", JFile::OpenRead));
  EXPECT_EQ(file.GetSize(), -1) << "failing to open closes what was open";

  for (const std::int32_t kind : {JFile::OpenText, JFile::OpenText | JFile::OpenBinary, 0}) {
    ASSERT_TRUE(file.Open(path, JFile::OpenWrite | kind));
    EXPECT_EQ(file.Write("a\r\nb\n", 5), 5);
    file.Close();
    EXPECT_EQ(ReadFileBytes(path), "a\r\r\nb\r\n") << kind;
  }
  EXPECT_FALSE(file.Open(folder.Path(), JFile::OpenRead | JFile::OpenBinary));
}

TEST(JFileTest, DoesNotWrapTheSizeOfHugeFiles) {
  const TestFolder folder;
  const std::int64_t gib = std::int64_t{1} << 30;
  for (const std::int64_t size : {2 * gib - 1, 2 * gib, 5 * gib + 10}) {
    WriteSparseFile(folder / "sparse", "x", size);
    JFile file;
    ASSERT_TRUE(file.Open(folder / "sparse", JFile::OpenRead | JFile::OpenBinary));
    EXPECT_EQ(file.GetSize(), size > INT32_MAX ? -1 : INT32_MAX);
    file.Close();
  }
}

}  // namespace
