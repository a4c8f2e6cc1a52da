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
  std::string Write(const std::string& bytes) {
    WriteFileBytes(file_, bytes);
    return file_;
  }
  std::string Get(const std::string& bytes, const std::string& key = "type") {
    return CIniFile::GetValue(key, "Task", Write(bytes));
  }
  // The file's bytes after one SetValue.
  std::string Set(const std::string& bytes, const std::string& key, const std::string& value,
                  const std::string& section) {
    EXPECT_TRUE(CIniFile::SetValue(key, value, section, Write(bytes)));
    return ReadFileBytes(file_);
  }

  TestFolder folder_;
  std::string file_ = folder_ / "t.ini";
};

TEST_F(IniFile, ReadsTheDialect) {
  const struct {
    const char* text;
    const char* value;
  } kCases[] = {
      {"[Task]\ntype=1\n", "1"},
      {"[Task]\r\ntype=1\r\n", "1"},
      {"[Task]\ntype=1", ""},  // the last line lacks its line break
      {"[Task]\ntype = 1\n", ""},
      {"  [Task]  \n\t type=1\t\n", "1"},
      {"[task]\ntype=1\n", ""},
      {"[Task]\nTYPE=1\n", ""},
      {"[Task]\ntype=a=b\n", "a=b"},
      {"[Task] tail\ntype=1\n", "1"},
      {"x[y]z\n[Task]\ntype=1\n", "1"},
      {"[Task]\n;type=1\n", "1"},
      {"[Task]\n#  type=1\n", "1"},
      {"[Task]\ntype=1\ntype=2\n", "1"},
      {"#[Task]\ntype=1\n", "1"},
      {"; note\n[Task]\n; another\ntype=1\n", "1"},
      {"[Other]\ntype=2\n[Task]\ntype=1\n", "1"},
      {"\xEF\xBB\xBF[Task]\ntype=1\n", ""},  // names the section "\xBB\xBF[Task"
      {"type=1\n", ""},
      {"", ""},
      {"\n\n\n", ""},
  };
  for (const auto& c : kCases) EXPECT_EQ(Get(c.text), c.value) << c.text;
  EXPECT_EQ(CIniFile::GetValue("k", "", Write("k=v\n[S]\n")), "v");
  EXPECT_EQ(CIniFile::GetValue("a", "[y", Write("x[y]z\na=1\n")), "1");
  EXPECT_EQ(CIniFile::GetValue("type", "Task", folder_ / "missing.ini"), "");
  EXPECT_EQ(CIniFile::GetValue("type", "Task", folder_.Path()), "");
}

TEST_F(IniFile, KeepsBytesAsTheyAre) {
  const std::string huge(1 << 20, 'x');
  EXPECT_EQ(Get("[Task]\ntype=" + huge + "\n"), huge);
  EXPECT_EQ(Get(std::string("[Task]\ntype=1\0\xFF\n", 16)), std::string("1\0\xFF", 3));
}

TEST_F(IniFile, ThrowsForAHeaderWithoutItsEnd) {
  for (const char* text : {"[Task\ntype=1\n", "[\n", "#[\n", "a[b\n", "]a[b\n"}) {
    EXPECT_THROW(Get(text), std::out_of_range) << text;
    EXPECT_THROW(CIniFile::SetValue("a", "b", "c", file_), std::out_of_range) << text;
    EXPECT_EQ(ReadFileBytes(file_), text);
  }
}

TEST_F(IniFile, RewritesNormalised) {
  const struct {
    const char* before;
    const char* key;
    const char* section;
    const char* after;  // with "\n" for every line end
  } kCases[] = {
      {"", "k", "S", "[S]\nk=new\n"},
      {"[S]\na=1\n", "k", "S", "[S]\nk=new\na=1\n"},
      {"[S]\nk=1\n[T]\n", "k", "S", "[S]\nk=new\n[T]\n"},
      {"[S]\n[T]\nb=1\n", "k", "U", "[S]\n[T]\nb=1\n[U]\nk=new\n"},
      {"[S]\n; k=1\n", "k", "S", "[S]\n;k=new\n"},
      {"[S]\nk=1\nk=2\n", "k", "S", "[S]\nk=new\nk=2\n"},
      {"\n  ; note\n\n  [S]  \n\n# more\n a=1 \n; tail\n", "k", "S",
       "; note\n[S]\nk=new\n# more\na=1\n"},
      {"garbage\n[S]\n", "k", "S", "[]\n[S]\nk=new\n"},
      {"; note\ngarbage\n[S]\n", "k", "S", "; note\n[S]\nk=new\n"},
      {"[S]\n=x\n", "k", "S", "[S]\nk=new\n[S]\n"},
      {"#[S]\na=1\n", "k", "S", "#[S]\nk=new\na=1\n"},
      {"[S]\nlost=1", "k", "S", "[S]\nk=new\n"},
  };
  for (const auto& c : kCases) {
    std::string expected;
    for (const char* at = c.after; *at != '\0'; ++at) {
      expected += *at == '\n' ? std::string("\r\n") : std::string(1, *at);
    }
    EXPECT_EQ(Set(c.before, c.key, "new", c.section), expected) << c.before;
    EXPECT_EQ(Set(expected, c.key, "new", c.section), expected) << "again: " << c.before;
  }
  // A header that holds "=" becomes a key, and loses its comment.
  EXPECT_EQ(Set("; note\n[a=b]\n", "k", "new", "a=b"), "a=b\r\nk=new\r\n");
}

TEST_F(IniFile, WritesOnlyWhatItCanOpen) {
  EXPECT_FALSE(CIniFile::SetValue("a", "b", "c", folder_ / "missing.ini"));
  EXPECT_FALSE(CIniFile::SetValue("a", "b", "c", folder_.Path()));
  EXPECT_EQ(folder_.Contents(), Tree());

  Write("[c]\n");
  const FileLock lock(file_);
  EXPECT_FALSE(CIniFile::SetValue("a", "b", "c", file_));
}

TEST_F(IniFile, LoadKeepsTheListWhenItFails) {
  std::vector<CIniFile::Record> list(1);
  EXPECT_FALSE(CIniFile::Load(folder_ / "missing.ini", list));
  EXPECT_EQ(list.size(), 1U);
  EXPECT_TRUE(CIniFile::Load(Write("; c\n#[S]\nk=v\n"), list));
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].Comments, "; c\n");
  EXPECT_EQ(list[0].Commented, '#');
  EXPECT_EQ(list[1].Section + "/" + list[1].Key + "/" + list[1].Value, "S/k/v");
  EXPECT_EQ(CIniFile::GetRecord("k", "S", file_).size(), 1U);
  EXPECT_TRUE(CIniFile::GetRecord("K", "S", file_).empty());
}

// Reading converts the name to the ANSI code page, writing takes its bytes as a name in it.
TEST_F(IniFile, NamesOutsideAsciiDifferBetweenReadingAndWriting) {
  const std::string name = "\xC3\xA9.ini";
  const std::string misread = WideToUtf8(AnsiToWide(name));
  WriteFileBytes(folder_ / name, "[S]\r\n");
  EXPECT_EQ(CIniFile::GetValue("k", "S", folder_ / name), "");
  EXPECT_TRUE(CIniFile::SetValue("k", "v", "S", folder_ / name));
  EXPECT_EQ(folder_.Contents(), (Tree{{name, "[S]\r\n"}, {misread, "[S]\r\nk=v\r\n"}}));

  // A name that the code page lacks cannot be opened at all.
  const std::string note = "\xF0\x9F\x8E\xB5.ini";
  WriteFileBytes(folder_ / note, "[S]\nk=v\n");
  EXPECT_EQ(CIniFile::GetValue("k", "S", folder_ / note), "");
}

TEST(IniTrim, TrimsTheEndsItIsTold) {
  const char* const kTrimmed[] = {"a b", "a b \t", " \ta b"};
  for (int mode = 0; mode < 3; ++mode) {
    std::string text = " \ta b \t";
    CIniFile::Trim(text, " \t", mode);
    EXPECT_EQ(text, kTrimmed[mode]);
    text = " \t ";
    CIniFile::Trim(text, " \t", mode);
    EXPECT_EQ(text, "");
  }
}

}  // namespace
