// Jobs that are refused before anything is started, and what the others are said to do.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "client_support.h"
#include "corekit/text.h"
#include "uaclient/uaclient.h"

namespace {

using uaclient::Job;
using Every = Job::Every;

TEST(JobCheck, NamesEachMistakeOnce) {
  const std::wstring program = L"C:\\windows\\system32\\notepad.exe";
  const struct {
    std::function<void(Job&)> change;
    const char* finding;  // a part of the one finding's text; "" for none
    const char* step = "";
  } kCases[] = {
      {[](Job& job) { job.hour = 23, job.minute = 59; }, "", "daily at 23:59"},
      {[](Job& job) { job.hour = 24; }, "between 00:00 and 23:59"},
      {[](Job& job) { job.name = L""; }, "name, \"\", holds"},
      {[](Job& job) { job.name = L" a"; }, "\" a\", holds"},
      {[](Job& job) { job.name = L"a/b"; }, "\"a/b\", holds"},
      {[](Job& job) { job.name = L"a\\b"; }, "", "registers the job \"a\\b\": starts"},
      {[](Job& job) { job.name = L"a \\b"; }, "\"a \\b\", holds"},
      {[](Job& job) { job.name = L"a[b"; }, "name, \"a[b\", holds a \"["},
      {[](Job& job) { job.author = L"[a]"; }, "author, \"[a]\""},
      {[](Job& job) { job.every = Every::kWeek, job.days = 0x42; }, "",
       "weekly on Monday, Saturday at 08:05"},
      {[](Job& job) { job.every = Every::kWeek, job.days = 0; }, "Name its days"},
      {[](Job& job) { job.every = Every::kWeek, job.days = 0x81; }, "Name its days"},
      {[](Job& job) { job.every = Every::kMonth, job.days = 0x40000001; }, "",
       "monthly on day 1, 31 at"},
      {[](Job& job) { job.every = static_cast<Every>(7), job.days = 1; }, "Name its days"},
      {[](Job& job) { job.program = L""; }, "program is missing or empty"},
      {[](Job& job) { job.program = L"C:\\none.exe"; }, "none.exe\", is not a file"},
      {[](Job& job) { job.program = L"C:\\windows"; }, "is not a file"},
      {[](Job& job) { job.program = L"%ComSpec%"; }, "\"%ComSpec%\", holds"},
      {[](Job& job) { job.arguments = {}; }, "Give an argument"},
      {[](Job& job) { job.arguments = {L""}; }, "", "with the arguments \"\"\"\" daily"},
      {[](Job& job) { job.arguments = {L"a b\\", L"c\"\\\"d", L"e\\"}; }, "",
       R"(with the arguments ""a b\\" "c\"\\\"d" e\" daily)"},
      {[](Job& job) { job.arguments = {L"5%%", L"$x"}; }, ""},
      {[](Job& job) { job.arguments = {L"5 %", L"6 %"}; }, "command line"},
      {[](Job& job) { job.arguments = {L"\xD83D\xDE00"}; }, "what the code page lacks"},
  };
  for (const auto& [change, finding, step] : kCases) {
    SCOPED_TRACE(std::string(finding) + step);
    Job job = {L"n", Every::kDay, 8, 5, 0, program, {L"-a"}, L"author"};
    change(job);
    const uaclient::Report report = uaclient::Check(job);
    std::vector<std::string> findings;
    if (*finding != '\0') findings.push_back(std::string("E ") + finding);
    EXPECT_TRUE(Are(report.findings, findings));
    const std::string text = WideToUtf8(report.steps.at(0).text);
    EXPECT_NE(text.find(step), std::string::npos) << text;
  }
  EXPECT_TRUE(Are(uaclient::Check(uaclient::JobRemoval{L"a*"}).findings, {"E \"a*\", holds"}));
  const uaclient::Report removal = uaclient::Check(uaclient::JobRemoval{L"a\\b"});
  EXPECT_TRUE(Are(removal.findings, {}));
  EXPECT_EQ(removal.steps.at(0).text, L"deletes the job \"a\\b\"");
  EXPECT_TRUE(removal.steps.at(0).deletes);
}

}  // namespace
