// The command line: what the user typed, turned into what the library takes.
#pragma once

#include <string>
#include <vector>

#include "uaclient/uaclient.h"

struct Arguments {
  // L"" where there is none of these.
  std::wstring refusal;   // which argument is wrong, and what to write instead
  std::wstring helpPage;  // the page of help.txt.in that is to be printed

  uaclient::Findings findings;  // arguments that may not be what was meant
  uaclient::Request request;
  bool replace = false;
  bool onlyCheck = false;  // "check", or --dry-run
  bool fast = false;
  bool asJson = false;  // known also where there is a refusal
  uaclient::Options options;
};

// `words` are the command line without the program. Paths become absolute; of the file system only
// what sources, destinations and programs are is looked at.
Arguments ReadArguments(const std::vector<std::wstring>& words);
