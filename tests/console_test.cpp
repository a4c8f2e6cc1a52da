// What the command shows in a console: no text that drives it, and the line that tells how far it
// is.
#include "uactl/console.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>

#include "uactl/report.h"

namespace {

using namespace std::chrono_literals;

TEST(Line, HoldsNothingThatDrivesAConsole) {
  EXPECT_EQ(Line(L"\x1F\x7F\x9F\x2028\x202E\x2066\x2069"), std::wstring(7, L'\xFFFD') + L"\n");
  const std::wstring plain = L" ~\xA0\x2027\x202F\x2065\x206A\xD83D\xDE00";
  EXPECT_EQ(Line(plain), plain + L"\n");
}

TEST(ProgressText, TellsShareCountsAndRate) {
  const std::pair<uaclient::Progress, const wchar_t*> kCases[] = {
      {{0, 1, 0, 5, {}, 0ms}, L"0 %, 0 of 1 file, 0 bytes of 5 bytes, 0 bytes/s"},
      {{1, 3, 1500, 2000, {}, 500ms}, L"75 %, 1 of 3 files, 1.5 kB of 2.0 kB, 3.0 kB/s"},
      {{1, 4, 0, 0, {}, 1s}, L"25 %, 1 of 4 files, 0 bytes of 0 bytes, 0 bytes/s"},
      {{1, 1, 5'000'000, 2'000'000'000'000, {}, 1ms},
       L"0 %, 1 of 1 file, 5.0 MB of 2.0 TB, 5.0 GB/s"},
      {{0, 0, 0, 0, {}, 1s}, L""},
  };
  for (auto [progress, text] : kCases) {
    EXPECT_EQ(ProgressText(progress), text);
    progress.comparing = true;
    EXPECT_EQ(ProgressText(progress), *text == L'\0' ? L"" : L"comparing with the sources");
  }
}

}  // namespace
