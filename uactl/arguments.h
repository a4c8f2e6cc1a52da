// The command line: what the user typed, turned into what the library takes.
#pragma once

#include <filesystem>
#include <string>
#include <variant>
#include <vector>

#include "uaclient/uaclient.h"

// What the user can put right by other arguments: which one, why, and what to write instead.
struct BadArguments {
  std::wstring text;
};

struct ShownText {  // the help or the version
  std::wstring text;
};

struct PlanCheck {
  uaclient::CopyPlan plan;
};

struct TaskFileCheck {
  std::filesystem::path file;
  bool asJson = false;
};

using Request = std::variant<ShownText, uaclient::CopyPlan, PlanCheck, uaclient::Job,
                             uaclient::JobRemoval, uaclient::TaskFile, TaskFileCheck>;

struct Arguments {
  Request request;
  uaclient::Options options;
};

// `words` are the command line without the program. Paths become absolute; of the file system only
// what sources and destinations are is looked at. Throws BadArguments.
Arguments ReadArguments(const std::vector<std::wstring>& words);
