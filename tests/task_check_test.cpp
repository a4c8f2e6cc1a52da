// What is said ahead of a run, against what there is on the disk and against the helper itself.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <list>
#include <random>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "corekit/text.h"
#include "fileop/file_system.h"
#include "support.h"
#include "uaclient/uaclient.h"

namespace {

using uaclient::Finding;
using uaclient::Findings;
using uaclient::Severity;

// The whole path, with "/" at its end, of a test's folder.
std::string Absolute(const TestFolder& folder) {
  return WideToUtf8(std::filesystem::absolute(Utf8ToWide(folder.Path())).generic_wstring());
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

// One line a finding: harmful "!", error "E", warning "W", then ":" for one in an operation list,
// its line and text.
std::string Shown(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += finding.harmful ? "!" : finding.severity == Severity::kError ? "E" : "W";
    if (finding.file.extension() == ".xml") text += ":";
    if (finding.line != 0) text += std::to_string(finding.line);
    text += " " + WideToUtf8(finding.text) + "\n";
  }
  return text;
}

// Whether there is a line for each of the expected beginnings and fragments ("E3 …fragment"), in
// any order, and no other.
testing::AssertionResult Are(const Findings& findings, const std::vector<std::string>& expected) {
  std::vector<bool> met(findings.size());
  std::string faults;
  for (const std::string& one : expected) {
    const std::size_t blank = one.find(' ');
    bool found = false;
    for (std::size_t i = 0; i < findings.size() && !found; ++i) {
      const std::string line = Shown({findings[i]});
      found = !met[i] && line.rfind(one.substr(0, blank + 1), 0) == 0 &&
              line.find(one.substr(blank + 1)) != std::string::npos;
      if (found) met[i] = true;
    }
    if (!found) faults += "missing: " + one + "\n";
  }
  if (faults.empty() && expected.size() == findings.size()) return testing::AssertionSuccess();
  return testing::AssertionFailure() << faults << "of:\n" << Shown(findings);
}

bool Names(const std::wstring& text, const std::filesystem::path& path) {
  const auto plain = [](const std::wstring& written) {
    return Replaced(WideToUtf8(written), "/", "\\");
  };
  const std::string name = plain(path.wstring());
  return plain(text).find(name.substr(0, name.find_last_not_of('\\') + 1)) != std::string::npos;
}

std::string Repeated(const std::string& text, std::size_t times) {
  std::string result;
  while (times-- > 0) result += text;
  return result;
}

std::string OwnProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return WideToUtf8(path);
}

TEST(PlanCheck, FindsWhatWouldFailOrDoHarm) {
  const TestFolder folder;
  const std::string root = Absolute(folder);
  WriteTree(folder.Path(), TreeOf("f=1, g=22, s/a=1, s/d/b=2, old/x=333, old/y/z=4, ro=, used="));
  MakeReadOnly(folder / "ro");
  WriteFileBytes(folder / ".hidden", "");
  SetFileAttributesA((folder / ".hidden").c_str(), FILE_ATTRIBUTE_HIDDEN);
  const auto freeSpace = static_cast<std::int64_t>(std::filesystem::space(root).available);
  for (const char* name : {"huge", "huger"}) {
    WriteSparseFile(folder / name, "", freeSpace + (std::int64_t{1} << 40));
  }
  const FileLock lock(folder / "used");
  WriteFileBytes(folder / "inuse/x", "");
  const FileLock otherLock(folder / "inuse/x");
  const FileLock noObstacle(folder / "old/x",
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  WriteFileBytes(folder / "linked/x", "");
  WriteFileBytes(folder / "twin1", "");
  CreateHardLinkA((folder / "twin2").c_str(), (folder / "twin1").c_str(), nullptr);
  MakeFolders(folder / "running/");
  CopyFileA(OwnProgram().c_str(), (folder / "running/x.exe").c_str(), TRUE);
  const HMODULE running =
      LoadLibraryExA((folder / "running/x.exe").c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE);
  const bool hasLinks = MakeFolderLink("../old", folder / "linked/link");

  // Only Wine lets such a name be made, for it has those of the system below.
  const std::string plainName = folder / "odd/plain";
  const std::string oddName = folder / "odd/x.";
  const auto hasPlainName = [&] { return PathExists(plainName.c_str()); };
  WriteFileBytes(plainName, "");
  if (OnWine()) RunUnixProgram("mv " + plainName + " " + oddName, std::not_fn(hasPlainName));

  const auto letters = [](std::size_t count) { return std::string(count, 'n'); };
  // A name with which a path below the folder has so many units.
  const auto upTo = [&](std::size_t units) { return letters(units - root.size()); };
  WriteFileBytes(folder / "fits/" + letters(11), "");
  WriteFileBytes(folder / "fitsnot/" + letters(12), "");
  // A name with which a path below the folder has so many bytes, and a third as many signs.
  const auto nameUpTo = [&](std::size_t bytes) {
    const std::size_t length = bytes - root.size();
    return std::string(length % 3, 'n') + Repeated("日", length / 3);
  };

  // So many that what lies in that folder is no longer looked at one by one.
  std::string manyInLinked;
  for (int i = 0; i < 60; ++i) manyInLinked += "@e/>@linked/" + std::to_string(i) + "/,";
  MakeFolders(folder / "e/");

  const struct {
    std::string items;  // "source>destination", folders with "/" at the end, separated by ","
    std::vector<std::string> findings;
  } kCases[] = {
      {"@f>@new/f,@g>@new/g,@g>@new/d/g,@s/>@p/q/r/", {}},
      {"@s/>@old/", {"W 2 files, 4 bytes in it are deleted"}},
      {"@none>@a,@none/>@b/", {"E none/\" does not exist", "E none\" does not exist"}},
      {"@s>@a,@f/>@b/", {"E is a file, but", "E is a folder, but"}},
      {"@f>@s,@s/>@f/",
       {"! \"@s\" is the source", "E is a file already", "E is a folder already",
        "! \"@f/\" is the source of another"}},
      {"@s/>@s/", {"! its own source", "W 2 files"}},
      {"@s/>@s/new/", {"! lies in its own source"}},
      {"@s/d/>@s/", {"! holds its own source", "W 2 files"}},
      {"@s/>@a/,@s/d/>@b/,@f>@S/D/n", {"! the source of another item, \"@s/d/\""}},
      {"@s/>@a/,@g>@A/b/c,@f>@ab", {"! destroys the other"}},
      {"@f>@a,@g>@A", {"! destroys the other"}},
      {"@s/>@old/,@f>@old/n,@g>@old/d/n", {"W 2 files"}},
      {"@s/>@old/,@f>@old/a", {"! destroys the other", "W 2 files"}},
      {"@s/>@old/,@f>@old/y/n", {"! destroys the other", "W 2 files"}},
      {"@g>@twin1,@twin2>@x", {"W other names", "! another name of the source"}},
      {"@f>@twin1,@g>@twin2", {"W other names", "W other names", "! is another name of the dest"}},
      {"@f>" + OwnProgram(), {"E which runs meanwhile", "W in use"}},
      {"@f>@" + Repeated("日", 80) + "/f", {"E is missing, and its path too long"}},
      {"@s/>@running/", {"W x.exe\" is to be deleted", "W 1 file, "}},
      {"@linked/>@a/,@s/>@old/", {"W is a link", "! a link in it leads to", "W 2 files"}},
      {manyInLinked + "@s/>@linked/link/,@s/>@old/,@e/>@linked/X/",
       {"W 2 files", "! destroys the other", "W is a link", "W 2 files",
        "E there is a file already"}},
      {"@f>@p/q/f", {"E more than one is missing"}},
      {"@f>@g/x", {"E there is a file"}},
      {"@f>@ro,@g>@.hidden", {"E is read-only", "E is read-only, hidden"}},
      {"@f>@used", {"W is in use"}},
      {"@s/>@inuse/", {"W x\" is to be deleted", "W 1 file, 0 bytes"}},
      {"f>C:g", {"E \"f\" is relative", "E \"C:g\" is relative"}},
      {"@f>@../x", {"E holds \"..\""}},
      {"@f>@x.,@g>@nul .txt", {"E holds \"x.\"", "E holds \"nul .txt\""}},
      {"@f>@a:b,@g>@a*", {"E holds \"a:b\"", "E holds \"a*\""}},
      {"@f>@a//b", {"W two separators"}},
      {"@f>@Com1.a,@g>@lpt\xC2\xB9", {"E holds \"Com1.a\"", "E holds \"lpt\xC2\xB9\""}},
      {"@f>@com,@g>@comx", {}},
      {"@s/>@" + nameUpTo(260), {"E too long"}},
      {"@s/>@" + nameUpTo(259), {}},
      {"@s/>@" + nameUpTo(259) + "/", {}},
      {"@f>@" + upTo(259), {}},
      {"@f>@" + upTo(260), {"E too long"}},
      {"@fits/>@" + upTo(247), {}},
      {"@fits/>@" + upTo(248), {"E too long", "E is not copied"}},
      {"@fitsnot/>@" + upTo(247), {"E is not copied"}},
      {"@s/>@" + upTo(245), {}},
      {"@s/>@" + upTo(246), {"E s\\d\" is not copied"}},
      {"@odd/>@a/", {"W x.\" has a name"}},
      {"@s/>@odd/", {"W x.\" has a name by which", "W 1 file, 0 bytes"}},
      {"@f>@" + Repeated("日", 90), {}},
      {"@s/>C:/", {"! whole drive"}},
      {"@s/>C:/Windows/System32/", {"! lies in Windows"}},
      {"@s/>C:/program files/", {"! is the folder %ProgramFiles%"}},
      {"@s/>C:/Program Files/uactask test/new/,@s/>C:/ProgramData/uactask test/", {}},
      {"@s/>C:/Users/", {"! holds the folder %"}},
      {"C:/>@all/", {"! whole drive"}},
      {"@s/>//server/share/", {"! whole drive or share"}},
      {"@f>//?/C:/x", {"E names a device"}},
      {"@f>Q:/x", {"E no drive Q:"}},
      {"@f>//127.0.0.1/none/x", {"W on another computer", "W cannot be seen"}},
      {"@huge>@x", {"W does not fit"}},
      {"@huge>@huger", {}},
      {"@f>@\xEF\xBF\xBF/", {"E ends like a folder"}},
  };
  for (const auto& [items, expected] : kCases) {
    SCOPED_TRACE(items);
    if (!hasLinks && items.find("linked") != std::string::npos) continue;
    if (!OnWine() && items.find("odd") != std::string::npos) continue;
    uaclient::CopyPlan plan;
    const std::regex item("([^>,]*)>([^>,]*)");
    const std::string text = Replaced(items, "@", root);
    for (std::sregex_iterator at(text.begin(), text.end(), item), end; at != end; ++at) {
      const std::wstring source = Utf8ToWide((*at)[1]);
      const std::wstring destination = Utf8ToWide((*at)[2]);
      if (source.back() == L'/') {
        plan.Folder(source, destination);
      } else {
        plan.File(source, destination);
      }
    }
    std::vector<std::string> findings = expected;
    for (std::string& finding : findings) finding = Replaced(finding, "@", root);
    const Findings found = plan.Check();
    EXPECT_TRUE(Are(found, findings));
    for (const Finding& finding : found) {
      const uaclient::CopyItem& meant = plan.Items().at(finding.item);
      EXPECT_TRUE(Names(finding.text, meant.source) || Names(finding.text, meant.destination));
    }
  }
  if (OnWine()) RunUnixProgram("mv " + oddName + " " + plainName, hasPlainName);
  FreeLibrary(running);
}

TEST(PlanCheck, RemarksOnTheFirstEntriesOfAFolder) {
  for (const std::size_t count : {20U, 22U}) {
    const TestFolder folder;
    std::list<FileLock> locks;
    for (std::size_t i = 0; i < count; ++i) {
      const std::string file = folder / "many/" + std::to_string(i);
      WriteFileBytes(file, "");
      locks.emplace_back(file);
    }
    const std::wstring root = Utf8ToWide(Absolute(folder));
    std::vector<std::string> expected(20, "W is to be deleted");
    expected.push_back("W " + std::to_string(count) + " files, 0 bytes in it");
    if (count == 22) expected.push_back("W There are 2 more");
    MakeFolders(folder / "new/");
    uaclient::CopyPlan plan;
    plan.Folder(root + L"new/", root + L"many/");
    EXPECT_TRUE(Are(plan.Check(), expected));
  }
}

}  // namespace
