// Starts the helper with raised rights.
#pragma once

#include <string>

// Runs the helper that stands beside this program on the task file, waits for its end and returns
// its exit code. Throws std::runtime_error, with the reason in plain words, when it did not start.
unsigned long RunHelper(const std::wstring& taskFile);
