#include "fileop/file_operator.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>

#include "corekit/text.h"
#include "fileop/file_system.h"
#include "support.h"

namespace {

// A drive letter for a folder while in scope, because with a whole drive nobody wants to find out.
class TestDrive {
 public:
  explicit TestDrive(const std::string& folder) : target_(std::filesystem::absolute(folder)) {
    wchar_t prefix[MAX_PATH] = {};
    while (GetDriveTypeA((Name() + "\\").c_str()) != DRIVE_NO_ROOT_DIR) ++letter_;
    GetEnvironmentVariableW(L"WINEPREFIX", prefix, MAX_PATH);
    link_ = WideToUtf8(prefix) + "/dosdevices/" + static_cast<char>(letter_ - 'A' + 'a') + ":";
    if (OnWine()) {
      // Beside the link to the drive that the folder is on, which has a small letter.
      std::string beside = WideToUtf8(target_.generic_wstring());
      beside[0] = static_cast<char>(beside[0] - 'A' + 'a');
      RunUnixProgram("ln -sn \"" + beside + "\" \"" + link_ + "\"", [&] { return IsThere(); });
    } else {
      DefineDosDeviceW(0, Utf8ToWide(Name()).c_str(), target_.c_str());
    }
    EXPECT_TRUE(IsThere());
  }
  ~TestDrive() {
    if (OnWine()) {
      RunUnixProgram("rm \"" + link_ + "\"", [&] { return !IsThere(); });
    } else {
      DefineDosDeviceW(DDD_REMOVE_DEFINITION, Utf8ToWide(Name()).c_str(), nullptr);
    }
  }
  std::string Name() const { return {letter_, ':'}; }

 private:
  bool IsThere() const { return IsDirectory((Name() + "/").c_str()); }

  const std::filesystem::path target_;
  char letter_ = static_cast<char>('F' + GetCurrentProcessId() / 4 % 10);
  std::string link_;
};

class FileOperatorTest : public testing::Test {
 protected:
  void SetUp() override { WriteTree(folder_ / "from/", TreeOf("2/keep=new, bak=new")); }

  static bool Copy(const std::string& from, const std::string& to) {
    FileOperatorNomal fileOperator;
    fileOperator.AddDirectoryCopy(from.c_str(), to.c_str());
    return fileOperator.Execute();
  }

  bool CopyFolder(const std::string& from, const std::string& to) const {
    return Copy(folder_ / from, folder_ / to);
  }

  // The path behind which only "\" separates.
  std::string Verbatim(const std::string& name) const {
    return R"(\\?\)" + std::filesystem::absolute(folder_.Path()).make_preferred().string() + name;
  }

  TestFolder folder_;
};

// A folder given without its separator is that folder, and its siblings stay as they are.
TEST_F(FileOperatorTest, ReplacesTheDestinationAndTouchesNoSiblings) {
  const std::string siblings = "bbak=1, bb/keep=2, b2/keep=3, bb2/keep=4, ";
  for (const char* to : {"p/b", "p/b/", "p\\b", "p\\b\\"}) {
    for (const char* from : {"from", "from/", "from\\"}) {
      WriteTree(folder_ / "p/", TreeOf(siblings + "b/old=x, b/gone/deep/file=y"));
      EXPECT_TRUE(CopyFolder(from, to)) << to;
      EXPECT_EQ(ReadTree(folder_ / "p/"), TreeOf(siblings + "b/bak=new, b/2/keep=new")) << to;
    }
  }
  EXPECT_TRUE(Copy(Verbatim("from"), Verbatim("p\\b")));
  EXPECT_EQ(ReadTree(folder_ / "p/b/"), ReadTree(folder_ / "from/"));
  EXPECT_TRUE(CopyFolder("from/", "new/with/ancestors/"));
  EXPECT_EQ(ReadTree(folder_ / "new/with/ancestors/"), ReadTree(folder_ / "from/"));
}

// Unlike other folders, an empty drive lists not even "." and "..".
TEST_F(FileOperatorTest, ReplacesWhatIsOnADrive) {
  WriteTree(folder_ / "drive/", TreeOf("old=x, s/old=y"));
  const TestDrive drive(folder_ / "drive");
  const std::filesystem::path start = std::filesystem::current_path();
  for (const char* is : {"filled", "empty"}) {
    // Somebody stands in the folder, so that it cannot be removed any more than a drive.
    std::filesystem::current_path(folder_ / "drive");
    EXPECT_TRUE(Copy("../from/", drive.Name() + "/")) << is;
    EXPECT_EQ(ReadTree("./"), ReadTree("../from/")) << is;
    for (const auto& entry : std::filesystem::directory_iterator(".")) remove_all(entry.path());
    std::filesystem::current_path(start);
  }
  EXPECT_FALSE(Copy(drive.Name() + "/", folder_ / "from/"));
  EXPECT_FALSE(ReadTree(folder_ / "from/").empty()) << "an empty drive is no source";
}

// The current folder and the one above it are among what could be emptied.
TEST_F(FileOperatorTest, FolderCopiesThatFailTouchNothing) {
  WriteTree(folder_.Path(), TreeOf("to/here/kept=k, other/kept=k, drive/in/kept=k"));
  MakeFolderLink("to/here", folder_ / "link");
  MakeFolderLink("../../from", folder_ / "to/here/link");
  const Tree before = folder_.Contents();
  const TestDrive drive(folder_ / "drive");
  const std::filesystem::path start = std::filesystem::current_path();
  std::string many;
  while (many.size() < 248) many += "./";
  const std::string from = "../../from/";
  const std::string to = "../../other/";
  const std::vector<std::pair<std::string, std::string>> cases = {
      // Found as folders, but listed by another name, or by none.
      {"../../from ", to},
      {"../../from /", to},
      {"../../from..", to},
      {"../../" + many + "from/", to},
      {Verbatim("from/"), to},
      {"../../none/", to},
      {"../../from/bak", to},
      // What nobody means as a destination, and what is none.
      {from, "."},
      {from, ".."},
      {from, "./"},
      {from, "..\\"},
      {from, "../here/.."},
      {from, "../here/.//"},
      {from, "../here/... "},
      {from, start.string().substr(0, 2) + ".."},
      {from, drive.Name()},
      {from, ""},
      {from, "\xFF"},
      {from, Verbatim("to/")},
      {from, Verbatim("new/")},
      {from, Verbatim("to\\..")},
      // Would empty the source first.
      {from, "../../from"},
      {from, Verbatim("from")},
      {"../../from/2/", from},
      {"../../drive/in/", drive.Name() + "/"},
      {"../../link/", "../../to/"},
      {"link/", "../../to/"}};
  for (const auto& [source, destination] : cases) {
    std::filesystem::current_path(folder_ / "to/here");
    EXPECT_FALSE(Copy(source, destination)) << source << " to " << destination;
    std::filesystem::current_path(start);
    EXPECT_EQ(folder_.Contents(), before) << source << " to " << destination;
    WriteTree(folder_.Path(), before);
  }
  const FileLock lock(folder_ / "to/here/kept");
  EXPECT_FALSE(CopyFolder("from/", "to/")) << "what is there cannot be removed";
  EXPECT_FALSE(PathExists((folder_ / "to/bak").c_str())) << "nor is anything copied then";
}

TEST_F(FileOperatorTest, DoesNotReachThroughLinksInTheDestination) {
  WriteTree(folder_ / "outside/", TreeOf("precious=p, s/more=m"));
  MakeFolders(folder_ / "to/deep/");
  if (!MakeFolderLink("../outside", folder_ / "to/link") ||
      !MakeFolderLink("../../outside", folder_ / "to/deep/link") ||
      !MakeFolderLink("outside", folder_ / "itself")) {
    GTEST_SKIP() << "links cannot be made here";
  }
  WriteTree(folder_ / "from/", TreeOf("link/b=2, z=3"));
  for (const char* to : {"to/", "itself/"}) {
    const bool replaced = CopyFolder("from/", to);
    EXPECT_EQ(ReadTree(folder_ / "outside/"), TreeOf("precious=p, s/more=m"));
    if (OnWine()) continue;  // which cannot remove links, and so leaves them there
    EXPECT_TRUE(replaced);
    EXPECT_EQ(ReadTree(folder_ / to), ReadTree(folder_ / "from/"));
  }
}

// Links that lead to links would multiply the tree at every level.
TEST_F(FileOperatorTest, FollowsNoLinksBehindLinks) {
  if (!MakeFolderLink(".", folder_ / "from/x") || !MakeFolderLink(".", folder_ / "from/y")) {
    GTEST_SKIP() << "links cannot be made here";
  }
  CopyFolder("from/", "to/");
  const Tree copied = ReadTree(folder_ / "to/");
  EXPECT_EQ(copied.at("x/bak"), "new");
  EXPECT_EQ(copied.count("x/y/bak"), 0U);
}

TEST_F(FileOperatorTest, CopiesFiles) {
  WriteTree(folder_.Path(), TreeOf("a=new, old=longer than new"));
  const auto expect = [&](const char* from, const char* to, const std::string& line,
                          const std::string& exists) {
    std::string lines;
    FileOperatorNomal fileOperator([&](const std::string& reported) { lines += reported; });
    fileOperator.AddFileCopy((folder_ / from).c_str(), (folder_ / to).c_str());
    EXPECT_EQ(fileOperator.Execute(), exists == ", TRUE") << to;
    EXPECT_EQ(lines, line + folder_ / (exists.empty() ? from : to) + exists + "\n");
  };
  expect("a", "b", "File Copy Result : Succeed, File Exits : ", ", TRUE");
  expect("a", "old", "File Copy Result : Succeed, File Exits : ", ", TRUE");
  expect("a", "one/c", "File Copy Result : Succeed, File Exits : ", ", TRUE");
  expect("a", "two/levels/c", "File Copy Result : Failed, File Exits : ", ", FALSE");
  expect("from", "old", "File Copy Result : Failed, File Exits : ", ", TRUE");  // it is there
  expect("none", "d", "Error File Copy Task : ", "");
  EXPECT_EQ(folder_.Contents(),
            TreeOf("a=new, b=new, old=new, one/c=new, from/2/keep=new, from/bak=new"));
}

TEST_F(FileOperatorTest, ExecutesEverythingFoldersFirst) {
  WriteTree(folder_.Path(), TreeOf("a=file, to/old=o"));
  FileOperatorNomal fileOperator;
  EXPECT_TRUE(fileOperator.Execute()) << "nothing queued";
  EXPECT_TRUE(fileOperator.AddFileCopy((folder_ / "a").c_str(), (folder_ / "to/a").c_str()));
  fileOperator.AddFileCopy((folder_ / "none").c_str(), (folder_ / "n").c_str());
  EXPECT_TRUE(fileOperator.AddDirectoryCopy((folder_ / "none/").c_str(), (folder_ / "m/").c_str()));
  fileOperator.AddDirectoryCopy((folder_ / "from/").c_str(), (folder_ / "to/").c_str());
  fileOperator.AddFileCopy((folder_ / "a").c_str(), (folder_ / "last").c_str());
  Tree expected = TreeOf("a=file, last=file, to/a=file, to/2/keep=new, to/bak=new");
  expected.merge(TreeOf("from/2/keep=new, from/bak=new"));
  for (int run = 0; run < 2; ++run) {
    EXPECT_FALSE(fileOperator.Execute());
    EXPECT_EQ(folder_.Contents(), expected);
  }
  EXPECT_TRUE(fileOperator.ClearOperations());
  EXPECT_TRUE(fileOperator.Execute());
}

}  // namespace
