#include "inifile/ini_file.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <stdexcept>

#include "corekit/text.h"
#include "support.h"

namespace {

using corekit::CIniFile;

class IniFile : public testing::Test {
 protected:
  // The value of a key in a file of these bytes.
  std::string Get(const std::string& bytes, const std::string& key = "type",
                  const std::string& section = "Task") {
    WriteFileBytes(file_, bytes);
    return CIniFile::GetValue(key, section, file_);
  }
  // The file after one SetValue.
  std::string Set(const std::string& bytes, const std::string& section) {
    WriteFileBytes(file_, bytes);
    EXPECT_TRUE(CIniFile::SetValue("k", "new", section, file_));
    return ReadFileBytes(file_);
  }

  TestFolder folder_;
  std::string file_ = folder_ / "t.ini";
};

TEST_F(IniFile, ReadsTheDialect) {
  for (const char* text :
       {"[Task]\ntype=1\n", "[Task]\r\ntype=1\r\n", "  [Task]  \n\t type=1\t\n",
        "[Task] tail]\ntype=1\n", "x[y]z\n[Task]\ntype=1\n", "[Task]\n;type=1\n",
        "[Task]\n#  type=1\n", "[Task]\ntype=1\ntype=2\n", "#[Task]\ntype=1\n",
        "; note\n[Task]\n; another\ntype=1\n", "[Other]\ntype=2\n[Task]\ntype=1\n"}) {
    EXPECT_EQ(Get(text), "1") << text;
  }
  for (const char* text :
       {"[Task]\ntype=1", "[Task]\ntype = 1\n", "[task]\ntype=1\n", "[Task]\nTYPE=1\n",
        "\xEF\xBB\xBF[Task]\ntype=1\n", "[Task]\n\x1A\ntype=1\n", "type=1\n", ""}) {
    EXPECT_EQ(Get(text), "") << text;
  }
  EXPECT_EQ(Get("[Task]\ntype=a=b\n"), "a=b");
  EXPECT_EQ(Get("k=v\n[S]\n", "k", ""), "v");
  EXPECT_EQ(Get("x[y]z\na=1\n", "a", "[y"), "1");
  EXPECT_EQ(CIniFile::GetValue("type", "Task", folder_ / "missing.ini"), "");
  EXPECT_EQ(CIniFile::GetValue("type", "Task", folder_.Path()), "");

  const std::string bytes = std::string("1\0\xFF", 3) + std::string(1 << 20, 'x');
  EXPECT_EQ(Get("[Task]\ntype=" + bytes + "\n"), bytes);
}

// A copy of the section's name for each line would take 100 GB here.
TEST_F(IniFile, NeedsNoMoreMemoryThanTheFile) {
  std::string lines;
  for (int i = 0; i < 100000; ++i) lines += "a=\r\n";
  const std::string name(1 << 20, 's');
  const std::string text = "[" + name + "]\r\n" + lines + "[Task]\r\ntype=1\r\n";
  EXPECT_EQ(Get(text), "1");
  EXPECT_EQ(Set(text, "S"), text + "[S]\r\nk=new\r\n");
}

TEST_F(IniFile, ThrowsForAHeaderWithoutItsEnd) {
  for (const char* text : {"[Task\ntype=1\n", "[\n", "#[\n", "]a[b\n"}) {
    EXPECT_THROW(Get(text), std::out_of_range) << text;
    EXPECT_THROW(CIniFile::SetValue("a", "b", "c", file_), std::out_of_range) << text;
    EXPECT_EQ(ReadFileBytes(file_), text);
  }
}

TEST_F(IniFile, RewritesNormalised) {
  // The file before and after, the latter with "\n" for every line end.
  const char* const kCases[][2] = {
      {"", "[S]\nk=new\n"},
      {"[S]\na=1\n", "[S]\nk=new\na=1\n"},
      {"[S]\nk=1\n[T]\n", "[S]\nk=new\n[T]\n"},
      {"[R]\n[T]\nb=1\n", "[R]\n[T]\nb=1\n[S]\nk=new\n"},
      {"[S]\n; k=1\n", "[S]\n;k=new\n"},
      {"[S]\nk=1\nk=2\n", "[S]\nk=new\nk=2\n"},
      {"\n  ; note\n\n  [S]  \n\n# more\n a=1 \n; tail\n", "; note\n[S]\nk=new\n# more\na=1\n"},
      {"garbage\n[S]\n", "[]\n[S]\nk=new\n"},
      {"; note\ngarbage\n[S]\n", "; note\n[S]\nk=new\n"},
      {"[S]\n=x\n", "[S]\nk=new\n[S]\n"},
      {"#[S]\na=1\n", "#[S]\nk=new\na=1\n"},
      {"[S]\nlost=1", "[S]\nk=new\n"}};
  for (const auto& [before, after] : kCases) {
    std::string expected;
    for (const char c : std::string(after)) expected += c == '\n' ? "\r\n" : std::string(1, c);
    EXPECT_EQ(Set(before, "S"), expected) << before;
    EXPECT_EQ(Set(expected, "S"), expected) << "again: " << before;
  }
  // A header that holds "=" becomes a key, and loses its comment.
  EXPECT_EQ(Set("; note\n[a=b]\n", "a=b"), "a=b\r\nk=new\r\n");
}

TEST_F(IniFile, WritesOnlyWhatItCanOpen) {
  EXPECT_FALSE(CIniFile::SetValue("a", "b", "c", folder_ / "missing.ini"));
  EXPECT_FALSE(CIniFile::SetValue("a", "b", "c", folder_.Path()));
  EXPECT_FALSE(CIniFile::SetValue("a", "b", "c", "NUL")) << "a device, like a pipe, is never read";
  EXPECT_EQ(folder_.Contents(), Tree());
  WriteFileBytes(file_, "[c]\n");
  const FileLock lock(file_);
  EXPECT_FALSE(CIniFile::SetValue("a", "b", "c", file_));
}

// What lies behind the part that cannot be read would be lost, or taken for missing.
TEST_F(IniFile, TakesAReadErrorForAnUnreadableFile) {
  const std::string bytes = "[c]\na=1\n" + std::string(1 << 17, '#') + "\nb=1\n";
  WriteFileBytes(file_, bytes);
  for (const int successes : {0, 1, 2}) {
    std::vector<CIniFile::Record> list(1);
    const SystemFailure failure(SystemFailure::kReadFile, successes, ERROR_LOCK_VIOLATION);
    EXPECT_FALSE(CIniFile::SetValue("a", "b", "c", file_));
    EXPECT_EQ(CIniFile::GetValue("a", "c", file_), "");
    EXPECT_FALSE(CIniFile::Load(file_, list));
    EXPECT_EQ(list.size(), 1U);
  }
  EXPECT_EQ(ReadFileBytes(file_), bytes);
}

TEST_F(IniFile, LoadsRecords) {
  WriteFileBytes(file_, "; c\n#[S]\nk=v\nk=w\n");
  std::vector<CIniFile::Record> list;
  EXPECT_TRUE(CIniFile::Load(file_, list));
  EXPECT_FALSE(CIniFile::Load(folder_ / "missing.ini", list)) << "which keeps the list";
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[0].Comments + list[0].Commented + list[1].Key, "; c\n#k");
  EXPECT_EQ(CIniFile::GetRecord("k", "S", file_).size(), 1U);
}

// Reading converts the name to the ANSI code page, writing takes its bytes as a name in it.
TEST_F(IniFile, NamesOutsideAsciiDifferBetweenReadingAndWriting) {
  const std::string name = "é.ini";
  WriteTree(folder_.Path(), TreeOf("é.ini=[S]\n, 🎵.ini=[S]\nk=v\n"));
  EXPECT_EQ(CIniFile::GetValue("k", "S", folder_ / "🎵.ini"), "") << "no code page has it";
  EXPECT_EQ(CIniFile::GetValue("k", "S", folder_ / name), "");
  EXPECT_TRUE(CIniFile::SetValue("k", "v", "S", folder_ / name));
  Tree expected = TreeOf("é.ini=[S]\n, 🎵.ini=[S]\nk=v\n");
  expected[WideToUtf8(corekit::AnsiToWide(name))] = "[S]\r\nk=v\r\n";
  EXPECT_EQ(folder_.Contents(), expected);
}

TEST(IniTrim, TrimsTheEndsItIsTold) {
  const char* const kTrimmed[] = {"a b", "a b \t", " \ta b"};
  for (int mode = 0; mode < 3; ++mode) {
    std::string text = " \ta b \t";
    CIniFile::Trim(text, " \t", mode);
    EXPECT_EQ(text, kTrimmed[mode]);
  }
}

}  // namespace
