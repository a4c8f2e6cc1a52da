// Runs the task that a task file describes.
#pragma once

#include <string>

// Reads the task's type from the file (UTF-8 path), creates the task and runs it. Returns the
// task's result, false when the file names no known type, and true when the file does not exist.
// Exceptions from the task pass through.
bool RunTaskFile(std::string path);
