// Task files made of good and bad pieces, against the helper itself.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "client_support.h"
#include "corekit/text.h"
#include "fileop/file_system.h"
#include "support.h"
#include "uaclient/uaclient.h"
#include "uactask/operation_list.h"

namespace {

// Where the helper fails the check says why, and where the check finds nothing everything arrives.
class RandomTaskFiles : public testing::Test {
 protected:
  std::size_t Below(std::size_t limit) { return random_() % limit; }
  std::string OneOf(const std::vector<std::string>& texts) { return texts[Below(texts.size())]; }
  // In half of the files one thing is bad. Of several bad ones each comes in its turn.
  std::string OneOf(const std::vector<std::string>& good, const std::vector<std::string>& bad) {
    if (bad_ == 0 || Below(bad.size() > 3 ? 4 : 14) != 0) return OneOf(good);
    --bad_;
    return bad[turn_++ % bad.size()];
  }

  // Sources and destinations that other items do not touch, unless something bad is wanted.
  std::string Item(std::size_t number) {
    const std::string n = std::to_string(number);
    uactask::Operation copy;
    copy.isFolder = Below(2) == 0;
    copy.source = copy.isFolder ? OneOf({"@s/", "@e", "@s\\d/"}, {"@none/", "@f", "@s./", "t/"})
                                : OneOf({"@f", "@s/a", "@s\\d\\b"}, {"@none", "@s/", "", "f"});
    copy.destination =
        copy.isFolder
            ? OneOf({"@new" + n + "/", "@old" + n + "/", "@p/q" + n + "/r/", "@é" + n + "/"},
                    {"@old0/", "@s/new/", "@f/", "@p/..", "@in/", "@x ", ".",
                     "@" + std::string(240, 'l') + "/", "", "@old" + n + "//"})
            : OneOf({"@out" + n, "@over" + n, "@dir" + n + "/f", "@ü" + n},
                    {"@over0", "@p/q" + n + "/f", "@ro", "@s", "@in/x/y", "@x:y", "@nul",
                     "@out" + n + "/", "none/x/y", "@" + std::string(250, 'l'), "@s/d/b", "@f"});
    copies_.push_back(copy);
    const std::string key = std::string(2 - n.size(), '0') + n;
    return OneOf({"<item", "<i", "<!DOCTYPE x><i"}, {"<a.b", "<!-- c --><i", "<b/><i"}) + " key='" +
           OneOf({key}, {"01", "1"}) + "' " + OneOf({"src"}, {"Src", "source"}) + "=\"" +
           copy.source + "\" dec='" + copy.destination + "' " + OneOf({"type"}, {"typ"}) + "='" +
           (copy.isFolder ? OneOf({"dir"}, {"Dir", "dir ", "file"})
                          : OneOf({"file"}, {"", "dir"})) +
           "'/>" + OneOf({"", "\n", "\r\n\t"});
  }
  std::string List() {
    std::string items;
    for (std::size_t n = 1 + Below(5); n > 0; --n) items += Item(n);
    return OneOf({"", "<?xml version='1.0'?>\n", "\xEF\xBB\xBF"}, {"\xFF\xFE", "x"}) +
           OneOf({"<root>"}, {"<Root>", ""}) +
           OneOf({"<task>", "<o/><task note='[x'>"}, {"<tasks>"}) + items + "</task></root>" +
           OneOf({"", "\n", "<!-- end -->"}, {"<root/>", "<"});
  }

  // Lines in any order below the header.
  std::string TaskFile(std::vector<std::string> lines) {
    std::shuffle(lines.begin(), lines.end(), random_);
    std::string text =
        OneOf({"", "; note\n", "\r\n \n", "[Other]\nkind=1\n"}, {"\xEF\xBB\xBF", "#[x]\n"}) +
        OneOf({"[Task]", "  [Task] "}, {"[task]", "[Task", "[ Task]"});
    for (const std::string& line : lines) {
      text += OneOf({"\n", "\r\n", "\n\n", "\n# note\n"},
                    {"\nx\n", "\n;[", "\n;type=2\n", "\n; a=[b]\n"}) +
              OneOf({"", " "}, {"#", "x"}) + line;
    }
    return text + OneOf({"\n", "\r\n; end\n"}, {"", "\n\x1A"});
  }
  std::string Key(const std::string& key, const std::string& value) {
    return OneOf({key}, {key + "s", key + " ", "x"}) + "=" +
           OneOf({value}, {" " + value, "", "[" + value}) + OneOf({"", "\t"});
  }

  // Checks the file, has the helper carry it out, and compares. Returns whether it succeeded.
  bool RunChecked(const std::string& path) {
    SCOPED_TRACE("file " + std::to_string(files_) + ": " + ReadFileBytes(path));
    report_ = uaclient::Check(uaclient::TaskFile{std::filesystem::absolute(Utf8ToWide(path))});
    SCOPED_TRACE(Shown(report_.findings));
    const unsigned long exitCode = RunProgram("uactask.exe", {path}).exitCode;
    EXPECT_EQ(report_.helperFails, exitCode != 0);
    ++files_;
    if (report_.findings.empty()) ++clean_;
    for (const uactask::Operation& copy : copies_) {
      if (!report_.findings.empty()) break;
      EXPECT_EQ(Bytes(copy.source, copy.isFolder), Bytes(copy.destination, copy.isFolder))
          << copy.destination;
    }
    copies_.clear();
    bad_ = Below(2);
    return exitCode == 0;
  }
  static Tree Bytes(const std::string& path, bool isFolder) {
    return isFolder ? ReadTree(path.back() == '/' ? path : path + "/")
                    : Tree{{"", PathExists(path.c_str()) ? ReadFileBytes(path) : "none"}};
  }
  // A good share of the files has nothing to remark, or half of the law is not tested.
  ~RandomTaskFiles() override { EXPECT_GE(clean_ * 10, files_ * 3); }

  std::mt19937 random_{4711 + GetACP()};  // other files under each code page
  std::size_t bad_ = 0;                   // things that may still be
  std::size_t turn_ = 0;
  std::vector<uactask::Operation> copies_;
  uaclient::Report report_;
  std::size_t files_ = 0;
  std::size_t clean_ = 0;
};

TEST_F(RandomTaskFiles, OfCopies) {
  for (int i = 0; i < 40; ++i) {
    const TestFolder folder;
    const std::string root = Absolute(folder);
    Tree tree = TreeOf("f=1, s/a=22, s/d/b=333, s/d/e/, e/, ro=r, in/x=i");
    for (const char* n : {"0", "1", "2", "3", "4", "5"}) {
      tree[std::string("old") + n + "/x/y"] = tree[std::string("over") + n] = "old";
    }
    WriteTree(folder.Path(), tree);
    MakeReadOnly(folder / "ro");
    const FileLock otherLock(folder / "in/x");
    WriteFileBytes(folder / "list.xml", Replaced(List(), "@", root));
    for (uactask::Operation& copy : copies_) {
      copy.source = Replaced(copy.source, "@", root);
      copy.destination = Replaced(copy.destination, "@", root);
    }
    const std::string list = OneOf({root}, {"", "C:/none/"}) + "list.xml";
    WriteFileBytes(folder / "task.ini", TaskFile({Key("type", OneOf({"1", "+1"}, {"2", "one"})),
                                                  Key("xml_path", list)}));
    RunChecked(folder / "task.ini");
  }
}

// Of the triggers the service under Wine knows the daily one alone.
TEST_F(RandomTaskFiles, OfJobs) {
  if (!IsElevated()) GTEST_SKIP() << "the Task Scheduler refuses jobs that replace others";
  const TestFolder folder;
  const std::string name = "uactask test " + std::to_string(GetCurrentProcessId()) + " check";
  const auto run = [&](bool isDeletion) {
    WriteFileBytes(folder / "task.ini",
                   TaskFile({Key("type", "0"), "task_name=" + name,
                             Key("exe_path", isDeletion ? "" : "C:/windows/notepad.exe"),
                             Key("exe_arguments", isDeletion ? "" : "-a"), Key("author_name", "x"),
                             Key("runtime", "2099-01-31T08:00:00"), Key("time_weekday", "+0"),
                             Key("time_monthday", OneOf({"0", "-1"}, {"0.5"})),
                             Key("time_type", OneOf({"2"}, {"5", "99"}))}));
    if (!RunChecked(folder / "task.ini")) return false;
    EXPECT_EQ(report_.steps.size(), 1U);
    return report_.steps.front().kind == uaclient::Step::Kind::kRegisterJob;
  };
  bool isThere = false;
  for (int i = 0; i < 20; ++i) isThere = run(isThere && Below(2) == 0);

  WriteFileBytes(folder / "task.ini", "[Task]\ntype=0\ntask_name=" + name +
                                          "\ntime_type=0\ntime_weekday=0\ntime_monthday=0\n");
  RunProgram("uactask.exe", {folder / "task.ini"});
}

}  // namespace
