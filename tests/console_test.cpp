// What the command shows in a console: no text that drives it, and the line that tells how far it
// is.
#include "uactl/console.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "uactl/report.h"

namespace {

TEST(Line, HoldsNothingThatDrivesAConsole) {
  EXPECT_EQ(Line(L"\x1F\x7F\x9F\x2028\x202E\x2066\x2069"), std::wstring(7, L'\xFFFD') + L"\n");
  const std::wstring plain = L" ~\xA0\x2027\x202F\x2065\x206A\xD83D\xDE00";
  EXPECT_EQ(Line(plain), plain + L"\n");
}

TEST(ProgressText, TellsShareCountsAndRate) {
  const struct {
    std::uint64_t files, allFiles, bytes, allBytes;
    int milliseconds;
    const wchar_t* text;
  } kCases[] = {
      {0, 1, 0, 5, 0, L"0 %, 0 of 1 file, 0 bytes of 5 bytes, 0 bytes/s"},
      {1, 3, 1500, 2000, 500, L"75 %, 1 of 3 files, 1.5 kB of 2.0 kB, 3.0 kB/s"},
      {1, 4, 0, 0, 1000, L"25 %, 1 of 4 files, 0 bytes of 0 bytes, 0 bytes/s"},
      {1, 1, 5'000'000, 2'000'000'000'000, 1, L"0 %, 1 of 1 file, 5.0 MB of 2.0 TB, 5.0 GB/s"},
      {0, 0, 0, 0, 1000, L""},
  };
  for (const auto& c : kCases) {
    uaclient::Progress progress;
    progress.files = c.files;
    progress.allFiles = c.allFiles;
    progress.bytes = c.bytes;
    progress.allBytes = c.allBytes;
    progress.elapsed = std::chrono::milliseconds(c.milliseconds);
    EXPECT_EQ(ProgressText(progress), c.text);
    progress.comparing = true;
    EXPECT_EQ(ProgressText(progress), c.allFiles == 0 ? L"" : L"comparing with the sources");
  }
}

}  // namespace
