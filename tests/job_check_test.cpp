// Jobs that are refused before anything is started, and what the others are said to do.

#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <string>

#include "corekit/text.h"
#include "uaclient/uaclient.h"

namespace {

using uaclient::Job;
using Every = Job::Every;

std::wstring OwnProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

TEST(JobCheck, NamesEachMistakeOnce) {
  const std::wstring program = OwnProgram();
  const struct {
    std::function<void(Job&)> change;
    const char* finding;  // a part of the one finding's text; "" for none
    const char* step = "";
  } kCases[] = {
      {[](Job& job) { job.hour = 23, job.minute = 59; }, "", "daily at 23:59"},
      {[](Job& job) { job.hour = 24; }, "between 00:00 and 23:59"},
      {[](Job& job) { job.hour = -1; }, "between 00:00"},
      {[](Job& job) { job.minute = 60; }, "between 00:00"},
      {[](Job& job) { job.minute = -1; }, "between 00:00"},
      {[](Job& job) { job.name = L""; }, "name is empty"},
      {[](Job& job) { job.name = L" a"; }, "\" a\", holds"},
      {[](Job& job) { job.name = L"a."; }, "\"a.\", holds"},
      {[](Job& job) { job.name = L"a "; }, "\"a \", holds"},
      {[](Job& job) { job.name = L"a/b"; }, "\"a/b\", holds"},
      {[](Job& job) { job.name = L"a\\b"; }, "", "registers the job \"a\\b\": starts"},
      {[](Job& job) { job.name = L"a\\"; }, "\"a\\\", holds"},
      {[](Job& job) { job.name = L"a \\b"; }, "\"a \\b\", holds"},
      {[](Job& job) { job.name = L"a[b"; }, "name, \"a[b\", holds a control"},
      {[](Job& job) { job.author = L"[a]"; }, "author, \"[a]\""},
      {[](Job& job) { job.every = Every::kWeek, job.days = 0x42; }, "",
       "weekly on Monday, Saturday at 08:05"},
      {[](Job& job) { job.every = Every::kWeek, job.days = 0; }, "No day"},
      {[](Job& job) { job.every = Every::kWeek, job.days = 0x81; }, "lowest 7 bits"},
      {[](Job& job) { job.every = Every::kMonth, job.days = 0x40000001; }, "",
       "monthly on day 1, 31 at"},
      {[](Job& job) { job.every = Every::kMonth, job.days = 0x80000001; }, "lowest 31 bits"},
      {[](Job& job) { job.program = L""; }, "program is missing"},
      {[](Job& job) { job.program = L"calc.exe"; }, "\"calc.exe\" is relative"},
      {[](Job& job) { job.program = L"C:\\none.exe"; }, "none.exe\", does not exist"},
      {[](Job& job) { job.program += L" /s"; }, "arguments apart"},
      {[](Job& job) { job.program = L"C:\\windows"; }, "is a folder"},
      {[](Job& job) { job.program = L"C:\\a\xD83D"; }, "half of a surrogate"},
      {[](Job& job) { job.program = L"%ComSpec%"; }, "\"%ComSpec%\", holds"},
      {[](Job& job) { job.arguments = {}; }, "no arguments"},
      {[](Job& job) { job.arguments = {L""}; }, "", "with the arguments \"\"\"\" daily"},
      {[](Job& job) {
         job.arguments = {L"5%%", L"$x"};
       },
       ""},
      {[](Job& job) {
         job.arguments = {L"5 %", L"6 %"};
       },
       "command line"},
      {[](Job& job) { job.arguments = {L"$(x"}; }, "command line"},
      {[](Job& job) { job.arguments = {L"\xD83D\xDE00"}; }, "code page lacks"},
  };
  for (const auto& [change, expected, step] : kCases) {
    Job job = {L"n", Every::kDay, 8, 5, 0, program, {L"-a"}, L"author"};
    change(job);
    const uaclient::Report report = uaclient::Check(job);
    std::string found;
    for (const uaclient::Finding& finding : report.findings) {
      EXPECT_EQ(finding.severity, uaclient::Severity::kError);
      found += WideToUtf8(finding.text) + "\n";
    }
    EXPECT_EQ(report.findings.size(), *expected == '\0' ? 0U : 1U) << expected << ":\n" << found;
    EXPECT_NE(found.find(expected), std::string::npos) << expected << ":\n" << found;
    ASSERT_EQ(report.steps.size(), 1U);
    const std::string text = WideToUtf8(report.steps.front().text);
    EXPECT_NE(text.find(step), std::string::npos) << text;
  }
  EXPECT_EQ(uaclient::Check(uaclient::JobRemoval{L"a*"}).findings.size(), 1U);
  const uaclient::Report removal = uaclient::Check(uaclient::JobRemoval{L"a\\b"});
  EXPECT_TRUE(removal.findings.empty());
  EXPECT_EQ(removal.steps.at(0).text, L"deletes the job \"a\\b\"");
  EXPECT_TRUE(removal.steps.at(0).deletes);
}

}  // namespace
