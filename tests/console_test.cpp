// What the command shows in a console, read back from the screen, and the line that tells how far
// it is.
#include "uactl/console.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "uactl/report.h"

namespace {

// A console's screen in the place of standard error.
class Screen : public testing::Test {
 protected:
  Screen() {
    screen_ = NewScreen();
    isOwnConsole_ = screen_ == INVALID_HANDLE_VALUE;
    if (isOwnConsole_) {
      FreeConsole();  // Wine's, which is none, where its programs have been started outside
      AllocConsole();
      screen_ = NewScreen();
    }
    EXPECT_NE(screen_, INVALID_HANDLE_VALUE) << "no console: error " << GetLastError();
    SetStdHandle(STD_ERROR_HANDLE, screen_);
  }
  ~Screen() override {
    SetStdHandle(STD_ERROR_HANDLE, errors_);
    CloseHandle(screen_);
    if (isOwnConsole_) FreeConsole();
  }

  static HANDLE NewScreen() {
    return CreateConsoleScreenBuffer(GENERIC_READ | GENERIC_WRITE,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     CONSOLE_TEXTMODE_BUFFER, nullptr);
  }

  CONSOLE_SCREEN_BUFFER_INFO Info() const {
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    GetConsoleScreenBufferInfo(screen_, &info);
    return info;
  }
  std::size_t Width() const {
    const SMALL_RECT window = Info().srWindow;
    return static_cast<std::size_t>(window.Right) - static_cast<std::size_t>(window.Left) + 1;
  }
  // The line that the cursor is in; "+" is the cursor, where something stands behind it.
  std::wstring AtCursor() const {
    const CONSOLE_SCREEN_BUFFER_INFO info = Info();
    const auto cursor = static_cast<std::size_t>(info.dwCursorPosition.X);
    std::wstring line(static_cast<std::size_t>(info.dwSize.X), L'\0');
    DWORD read = 0;
    ReadConsoleOutputCharacterW(screen_, line.data(), static_cast<DWORD>(line.size()),
                                {0, info.dwCursorPosition.Y}, &read);
    line.resize(std::max(cursor, line.find_last_not_of(L' ') + 1));
    return line.size() > cursor ? line.insert(cursor, L"+") : line;
  }

  HANDLE errors_ = GetStdHandle(STD_ERROR_HANDLE);
  HANDLE screen_ = nullptr;
  bool isOwnConsole_ = false;
};

TEST_F(Screen, ShowsTextWhateverTheCodePage) {
  Print(Stream::kErrors, L"é ł ж\n");
  Print(Stream::kErrors, std::wstring(40000, L'x') + L"\nї");
  EXPECT_EQ(AtCursor(), L"ї");
}

TEST_F(Screen, WritesTheStatusOverItself) {
  Print(Stream::kErrors, L"before");
  EXPECT_EQ(AtCursor(), L"before");
  for (const wchar_t* text : {L"a longer text", L"short", L"\nsame", L"x"}) {
    ShowStatus(text);
    EXPECT_EQ(AtCursor(), L"+" + (text[0] == L'\n' ? L"\xFFFDsame" : std::wstring(text)));
  }
  ShowStatus(std::wstring(1000, L'-'));
  EXPECT_EQ(AtCursor(), L"+" + std::wstring(Width() - 1, L'-'));
  ShowStatus({});
  EXPECT_EQ(AtCursor(), L"");
}

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
