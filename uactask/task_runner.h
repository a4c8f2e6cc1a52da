// Runs the task that a task file describes.
#pragma once

#include <string>

// Reads the task's type from the file (UTF-8 path), creates the task and runs it. Returns the
// task's result; false when the file names no known type; true when the file does not exist.
// Exceptions that leave the task pass through.
bool RunTaskFile(std::string path);
