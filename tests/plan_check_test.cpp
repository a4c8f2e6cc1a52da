// What is said of a plan ahead of its run, against what there is on the disk.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "client_support.h"
#include "corekit/text.h"
#include "support.h"
#include "uaclient/uaclient.h"
#include "uaclient/win32.h"

namespace {

using uaclient::CopyPlan;

struct Case {
  // "source>destination", separated by ","; a folder's source ends in "/", and "!" in front of it
  // has it replace its destination. "@" is the test's folder.
  std::string items;
  std::vector<std::string> findings;
};

class PlanCheck : public testing::Test {
 protected:
  CopyPlan PlanOf(const std::string& items) const {
    CopyPlan plan;
    for (const std::vector<std::string>& item :
         MatchesIn(Replaced(items, "@", root_), "(!?)([^>,]*)>([^>,]*)")) {
      const std::wstring source = Utf8ToWide(item[2]);
      const std::wstring destination = Utf8ToWide(item[3]);
      if (!item[1].empty()) {
        plan.ReplaceFolder(source, destination);
      } else if (source.back() == L'/') {
        plan.Folder(source, destination);
      } else {
        plan.File(source, destination);
      }
    }
    return plan;
  }

  void Check(const std::vector<Case>& cases) const {
    for (const auto& [items, expected] : cases) {
      SCOPED_TRACE(items);
      const CopyPlan plan = PlanOf(items);
      const uaclient::Report report = uaclient::Check(plan);
      EXPECT_TRUE(Are(report.findings, expected));
      EXPECT_EQ(report.steps.size(), plan.Items().size());
    }
  }

  std::string Step(const std::string& items) const {
    return WideToUtf8(uaclient::Check(PlanOf(items)).steps.at(0).text);
  }

  const TestFolder folder_;
  const std::string root_ = Absolute(folder_);
};

TEST_F(PlanCheck, AddsToWhatIsThere) {
  WriteTree(folder_.Path(), TreeOf("f=1, s/a=1, s/d/b=22, old/a=333, old/y/z=4, e/"));
  Check({{"@s/>@old", {}},
         {"@s/>@new/deep/er,@f>@out/new/deep/f,@f>@new/deep/g", {}},
         {"@s/>@new,@f>@new/n/f", {}},
         {"@s/>@new,@e/>@new", {}},
         {"@s/>@old/y,@f>@old/f", {}},
         {"@s/>C:/Windows/uactask test", {}},
         {"", {"E The plan is empty"}},
         {"@none>@a,@none/>@b/", {"E none\" does not exist", "E none\" does not exist"}},
         {"@s>@a,@f/>@b", {"E is a folder, but the item copies a file", "E is a file, but"}},
         {"@f>@s,@s/>@f",
          {"E s\" is in the way: it is a folder", "E f\" is in the way: it is a file",
           "E f\" is or lies in the source"}},
         {"@f>@f/x", {"E is a file. Choose another", "E lies in the source"}},
         {"!@s/>@f/x", {"E is a file. Choose another"}},
         {"!@s/>@new/x,@f>@new", {"E written twice: \""}},
         {"@f>@new/", {"E ends like a folder"}}});
  EXPECT_THAT(Step("@s/>@old"),
              testing::MatchesRegex("adds the folder \".+s\" \\(2 files, 3 bytes\\) to \".+old\""));
}

TEST_F(PlanCheck, ReplacesWhatMayGo) {
  WriteTree(folder_.Path(),
            TreeOf("f=1, s/a=1, s/d/b=22, old/x=333, old/y/z=4, inuse/x=, used/x="));
  const FileLock lock(folder_ / "inuse/x");
  const FileLock source(folder_ / "used/x");
  const FileLock noObstacle(folder_ / "old/x",
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  MakeFolders(folder_ / "held/sub/");
  const uaclient::Handle held = uaclient::Open(
      Utf8ToWide(folder_ / "held/sub"), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE);
  MakeFolders(folder_ / "running/");
  CopyFileW(Utf8ToWide(OwnProgram()).c_str(), Utf8ToWide(folder_ / "running/x.exe").c_str(), TRUE);
  const HMODULE running =
      LoadLibraryExA((folder_ / "running/x.exe").c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE);
  wchar_t profile[MAX_PATH] = {};
  GetEnvironmentVariableW(L"USERPROFILE", profile, MAX_PATH);
  const std::string user = WideToUtf8(profile);
  Check({{"!@s/>@old", {}},
         {"!@s/>@p/q/r,!@s/>@old/", {}},
         {"!@s/>@old,@f>@old/n,@f>@old/deep/er/n", {}},
         {"!@s/>@old,@f>@old/a", {"E would be written twice"}},
         {"!@s/>@old,@f>@old/D", {"E written twice: \""}},
         {"!@s/>@old,@s/d/>@old/y", {"E is or lies in another item"}},
         {"!@s/d/>@s", {"E which is deleted first"}},
         {"!@s/>@s/new", {"E lies in the source"}},
         {"!@s/>@s", {"E is or lies in the source", "E which is deleted first"}},
         {"!@s/>@old/y,@s/>@OLD", {"E is or lies in another item"}},
         {"!@s/>@old,!@f/>@old", {"E is a file, but", "E is or lies in another item"}},
         {"!@old/>@s,@s/d/>@new", {"E s\\d\" is or lies in"}},
         {"!@s/>@inuse", {"E x\" is to be deleted, but is in use"}},
         {"!@s/>@held", {"E sub\" is to be deleted, but is in use"}},
         {"!@used/>@new", {"E x\" is in use"}},
         {"!@s/>@" + WideToUtf8(std::wstring(87, L'日')), {"E more than 260 bytes"}},
         {"!@s/>@running", {"E x.exe\" is to be deleted, but is in use"}},
         {"!@s/>C:/", {"E whole drive", "E which is deleted first"}},
         {"!@s/>C:/Windows/System32/x", {"E is in the Windows folder"}},
         {"!@s/>C:/Program Files", {"E could delete programs"}},
         {"!@s/>C:/Program Files/Common Files/", {"E which programs need"}},
         {"!@s/>" + user, {"E "}},
         {"!@s/>C:/users/somebody else", {"E a user's profile"}},
         {"!@s/>" + user + "/Documents", {"E which programs need"}},
         {"!@s/>" + WideToUtf8(std::filesystem::path(Utf8ToWide(OwnProgram())).parent_path()),
          {"E which programs need"}},
         {"!@s/>C:/Program Files/uactask test/new,!@s/>C:/ProgramData/uactask test", {}}});
  EXPECT_THAT(Step("!@s/>@old"),
              testing::HasSubstr(" after deleting what is there (2 files, 4 bytes)"));
  FreeLibrary(running);
}

TEST_F(PlanCheck, KnowsPlacesByTheirFolders) {
  WriteTree(folder_.Path(), TreeOf("f=1, s/a=1, s/d/b=2, o/x=1, w/w/x=1"));
  Check({{"@s/>@S/new", {"E lies in the source"}},
         {"@f>@o/y,@s/a>@O/Y", {"E written twice: \""}},
         {"@s/>@o,@f>@O/A", {"E written twice"}},
         {"@w/>@", {"E it is the source"}},
         {"@f>@n,@f>@N/x", {"E written twice: \""}}});
}

// Wine's drive Z: has everything, its drive C: too.
TEST_F(PlanCheck, KnowsFoldersByTwoDriveLetters) {
  using UnixName = char* (*)(const wchar_t*);
  const auto unixName = reinterpret_cast<UnixName>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
  if (unixName == nullptr) GTEST_SKIP() << "needs a second letter for a drive";
  const std::string first = "C:/users/uactask test " + std::to_string(GetCurrentProcessId()) + "/";
  WriteTree(first, TreeOf("s/a=1, s/d/b=2, f=1"));
  const std::string second = "Z:" + Replaced(unixName(Utf8ToWide(first).c_str()),
                                             "/dosdevices/c:", "/drive_c");  // no ":" in a name
  std::vector<Case> cases = {{"1:s/>2:s", {"E is or lies in the source"}},
                             {"!1:s/>2:s", {"E is or lies in", "E deleted first"}},
                             {"!2:s/d/>1:s", {"E which is deleted first"}},
                             {"!1:s/>2:", {"E a user's profile", "E which is deleted first"}},
                             {"1:f>2:n,2:s/a>1:N", {"E written twice"}}};
  for (Case& one : cases) one.items = Replaced(Replaced(one.items, "1:", first), "2:", second);
  Check(cases);
  RemoveTreeForSure(first);
}

TEST_F(PlanCheck, FollowsLinksAboveAndInSources) {
  WriteTree(folder_.Path(), TreeOf("f=1, far/x=1, s/a=1, o/y=1, twice/z=1, from/a=, to/in/b="));
  if (!MakeFolderLink("../to/in", folder_ / "from/link") ||
      !MakeFolderLink("../far", folder_ / "o/link") ||
      !MakeFolderLink("../far", folder_ / "s/link") ||
      !MakeFolderLink("../twice", folder_ / "far/link") || !MakeFolderLink("far", folder_ / "at")) {
    GTEST_SKIP() << "links cannot be made here";
  }
  Check({{"@f>@o/link/n", {}},
         {"@f>@o/link", {"E it is a link"}},
         {"@s/a>@at/n,@f>@far/N", {"E written twice"}},
         {"@o/y>@at", {"E it is a link"}},
         {"@s/>@new", {"E link behind a link"}},
         {"@twice/>@o", {}},
         {"@far/>@s/link/new", {"E is or lies in the source"}},
         {"!@twice/>@o", {"W o\\link\" is a link. It is removed"}},
         {"!@from/>@to", {"E which is deleted first"}},
         {"!@twice/>@at", {"W is a link. It is removed"}}});
}

TEST_F(PlanCheck, RefusesPathsThatDoNotCarry) {
  WriteTree(folder_.Path(), TreeOf("f=1, s/a=1, s/d/b=2, ro=r, same=1"));
  MakeReadOnly(folder_ / "ro");
  MakeReadOnly(folder_ / "same");
  WriteFileBytes(folder_ / ".hidden", "");
  SetFileAttributesA((folder_ / ".hidden").c_str(), FILE_ATTRIBUTE_HIDDEN);
  // A name with which a path below the folder has so many characters.
  const auto upTo = [&](std::size_t units) { return std::string(units - root_.size(), 'n'); };
  WriteFileBytes(folder_ / "fits/" + std::string(11, 'n'), "");
  Check({{"@f>@ro,@f>@.hidden,@f>@same", {"E ro\" is read-only", "E hidden\" is read-only"}},
         {"f>C:g", {"E \"f\" is relative", "E \"C:g\" is relative"}},
         {">@a,@f>", {"E source is empty", "E destination is empty"}},
         {"@f>@../x", {"E what Windows reads as"}},
         {"@f>@x.,@s/>@a//b", {"E x.\" is what Windows reads", "E b\" is what Windows reads"}},
         {"@f>@d/nul", {"E name of a device"}},
         {"@f>//?/C:/x", {"E is relative, or begins with"}},
         {"@f>@\x01,@f>@a:b,@f>@a*", {"E a control character", "E a:b\" holds", "E a*\" holds"}},
         {"@f>R:/x", {"E no drive R:"}},
         {"@f>@" + upTo(259), {}},
         {"@f>@" + upTo(260), {"E longer than the 259"}},
         {"@fits/>@" + upTo(247), {}},
         {"@fits/>@" + upTo(248), {"E longer than the 247", "E longer than the 259"}},
         {"@s/>@" + upTo(245), {}},
         {"@s/>@" + upTo(246), {"E d\" is longer than the 247"}}});
}

TEST_F(PlanCheck, CountsSpace) {
  const auto freeSpace = static_cast<std::int64_t>(std::filesystem::space(root_).available);
  for (const char* name : {"huge/x", "huger"}) {
    WriteSparseFile(folder_ / name, "", freeSpace + (std::int64_t{1} << 40));
  }
  Check({{"@huge/x>@x", {"W does not fit"}},
         {"@huge/x>@huger", {}},
         {"!@huge/>@new", {"E does not fit"}}});
}

// On Wine, whose folders may hold both; on Windows only folders that are made so.
TEST_F(PlanCheck, KnowsNamesThatOnlyOtherSystemsHave) {
  if (!OnWine()) GTEST_SKIP() << "folders tell case apart only where they are told to";
  WriteTree(folder_.Path(),
            TreeOf("s/k.txt=1, s/x=2, s/sub/a=, s/ tmp/a=, device/x=, new/x=3, x="));
  for (const auto& [from, to] :
       {std::pair("s/x", "s/K.TXT"), {"device/x", "device/nul"}, {"x", "NEW"}}) {
    RunUnixProgram("mv " + (folder_ / from) + " " + (folder_ / to), [&, name = folder_ / from] {
      return GetFileAttributesA(name.c_str()) == INVALID_FILE_ATTRIBUTES;
    });
  }
  Check({{"@s/>@other", {"E differ only in case"}},
         {"!@s/>@other", {"E differ only in case"}},
         {"!@device/>@other", {"E nul\" is the name of a device"}},
         {"!@s/sub/>@new", {}},
         {"!@s/sub/>@NEW", {"E it is a file"}}});
}

}  // namespace
