#include "corekit/text.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace {

TEST(Text, ConvertsBetweenUtf8AndUtf16) {
  const struct {
    std::string utf8;
    std::wstring wide;
  } kCases[] = {
      {"", L""},
      {"C:/a b.txt", L"C:/a b.txt"},
      {"\xC3\xA9\xE4\xB8\xAD", L"\u00E9\u4E2D"},
      {"\xF0\x9F\x8E\xB5", L"\xD83C\xDFB5"},
      {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(Utf8ToWide(c.utf8), c.wide) << c.utf8;
    EXPECT_EQ(WideToUtf8(c.wide), c.utf8) << c.utf8;
  }
}

TEST(Text, RefusesInvalidUtf8) {
  for (const char* text : {
           "\xFF",
           "a\x80",
           "\xC3",
           "\xC3(",
           "\xE4\xB8",  // stray, cut short
           "\xC0\xAF",
           "\xE0\x80\xAF",
           "\xF0\x80\x80\xAF",  // overlong "/"
           "\xED\xA0\x80",
           "\xED\xB0\x80",  // surrogates
           "\xF4\x90\x80\x80",
           "\xF8\x88\x80\x80\x80",  // beyond U+10FFFF
           "good until \xC3",
       }) {
    EXPECT_EQ(Utf8ToWide(text), L"") << text;
    EXPECT_EQ(Utf8ToAnsi(text), "") << text;
  }
}

TEST(Text, AnsiFollowsTheCodePage) {
  const std::string chinese = "\xE4\xB8\xAD";
  const std::string eAcute = "\xC3\xA9";
  switch (GetACP()) {
    case 1252:
      EXPECT_EQ(Utf8ToAnsi(eAcute), "\xE9");
      EXPECT_EQ(Utf8ToAnsi(chinese), "?");
      EXPECT_EQ(AnsiToWide("\xE9"), L"\u00E9");
      break;
    case 936:
      EXPECT_EQ(Utf8ToAnsi(eAcute), "\xA8\xA6");
      EXPECT_EQ(Utf8ToAnsi(chinese), "\xD6\xD0");
      EXPECT_EQ(AnsiToWide("\xD6\xD0"), L"\u4E2D");
      break;
    default:
      GTEST_SKIP() << "nothing known about code page " << GetACP();
  }
}

}  // namespace
