#include "corekit/text.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace {

TEST(Text, ConvertsBetweenUtf8AndUtf16) {
  const std::string utf8 = "C:/\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x8E\xB5" + std::string("\0b", 2);
  const std::wstring wide = L"C:/\u00E9\u4E2D\xD83C\xDFB5" + std::wstring(L"\0b", 2);
  EXPECT_EQ(Utf8ToWide(utf8), wide);
  EXPECT_EQ(WideToUtf8(wide), utf8);
  EXPECT_EQ(Utf8ToWide(""), L"");
  EXPECT_EQ(WideToUtf8(L""), "");
}

TEST(Text, RefusesInvalidUtf8) {
  for (const char* text : {"\xFF", "a\x80", "\xC3", "\xC3(", "\xE4\xB8", "good until \xC3",
                           /* overlong */ "\xC0\xAF", "\xE0\x80\xAF", "\xF0\x80\x80\xAF",
                           /* surrogates */ "\xED\xA0\x80", "\xED\xB0\x80",
                           /* beyond U+10FFFF */ "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"}) {
    EXPECT_EQ(Utf8ToWide(text), L"") << text;
    EXPECT_EQ(corekit::Utf8ToAnsi(text), "") << text;
  }
}

TEST(Text, AnsiFollowsTheCodePage) {
  const bool chinese = GetACP() == 936;
  if (!chinese && GetACP() != 1252) GTEST_SKIP() << "nothing known about code page " << GetACP();
  EXPECT_EQ(corekit::Utf8ToAnsi("\xC3\xA9\xE4\xB8\xAD"), chinese ? "\xA8\xA6\xD6\xD0" : "\xE9?");
  EXPECT_EQ(corekit::AnsiToWide(chinese ? "\xD6\xD0" : "\xE9"), chinese ? L"\u4E2D" : L"\u00E9");
}

}  // namespace
