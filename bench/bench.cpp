// The benchmark's jobs. Each call runs one job, so that each has its own process and its own peak
// of memory. run.py measures from outside; jobs that repeat something print the nanoseconds that
// one repetition took.

#include <windows.h>

#include <algorithm>
#include <boost/property_tree/xml_parser.hpp>
#include <cstdio>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "inifile/ini_file.h"
#include "uactask/operation_list.h"
#include "xmlstore/keyed_records.h"
#include "xmlstore/xml_parse.h"

namespace {

class Stopwatch {
 public:
  Stopwatch() { QueryPerformanceCounter(&start_); }
  double Nanoseconds() const {
    LARGE_INTEGER now;
    LARGE_INTEGER frequency;
    QueryPerformanceCounter(&now);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(now.QuadPart - start_.QuadPart) * 1e9 /
           static_cast<double>(frequency.QuadPart);
  }

 private:
  LARGE_INTEGER start_;
};

// Whether visit(name, isFolder) succeeds for every entry of the folder.
template <typename Visit>
bool ForEachEntry(const std::wstring& folder, Visit visit) {
  WIN32_FIND_DATAW entry;
  const HANDLE find = FindFirstFileW((folder + L"*").c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) return false;
  bool succeeded = true;
  do {
    const std::wstring name = entry.cFileName;
    if (name == L"." || name == L"..") continue;
    succeeded &= visit(name, (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0);
  } while (FindNextFileW(find, &entry));
  FindClose(find);
  return succeeded;
}

// The loops that an application would write itself to copy and to remove a tree.
bool CopyBare(const std::wstring& from, const std::wstring& to) {
  CreateDirectoryW(to.c_str(), nullptr);
  return ForEachEntry(from, [&](const std::wstring& name, bool isFolder) {
    return isFolder ? CopyBare(from + name + L"/", to + name + L"/")
                    : CopyFileW((from + name).c_str(), (to + name).c_str(), FALSE) != FALSE;
  });
}

bool RemoveBare(const std::wstring& folder) {
  const bool removed = ForEachEntry(folder, [&](const std::wstring& name, bool isFolder) {
    return isFolder ? RemoveBare(folder + name + L"/")
                    : DeleteFileW((folder + name).c_str()) != FALSE;
  });
  return RemoveDirectoryW(folder.c_str()) && removed;
}

// Compares two trees file by file.
bool CompareBare(const std::wstring& first, const std::wstring& second) {
  namespace fs = std::filesystem;
  std::vector<char> one(512 << 10);
  std::vector<char> other(one.size());
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(first)) {
    if (entry.is_directory()) continue;
    std::ifstream left(entry.path(), std::ios::binary);
    std::ifstream right(fs::path(second) / fs::relative(entry.path(), first), std::ios::binary);
    while (left && right) {
      left.read(one.data(), static_cast<std::streamsize>(one.size()));
      right.read(other.data(), static_cast<std::streamsize>(other.size()));
      if (left.gcount() != right.gcount() ||
          !std::equal(one.begin(), one.begin() + left.gcount(), other.begin()))
        return false;
    }
  }
  return true;
}

// The least that a caller of the helper does: starts it and waits for its end.
bool StartBare(const std::wstring& program, const std::wstring& argument) {
  std::wstring line = L"\"" + program + L"\" \"" + argument + L"\"";
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS, nullptr,
                      nullptr, &startup, &process)) {
    return false;
  }
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD exitCode = 1;
  return GetExitCodeProcess(process.hProcess, &exitCode) && exitCode == 0;
}

bool ReadBare(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  boost::property_tree::ptree tree;
  read_xml(stream, tree, boost::property_tree::xml_parser::trim_whitespace);
  return !tree.empty();
}

bool ReadRecords(const std::string& file) {
  XMLParse store;
  KeyedRecords records;
  return store.LoadFile(file) != 0 &&
         ReadKeyedRecords(store.GetTree(), uactask::kOperationListPath, records,
                          uactask::OperationFieldNames(), uactask::kMissingField) == 0 &&
         !records.empty();
}

// Writes, reads and replaces a vector. Prints the time of one entry.
bool Vectors(std::size_t count) {
  std::vector<std::int32_t> values(count);
  for (std::size_t i = 0; i < count; ++i) values[i] = static_cast<std::int32_t>(i);
  const std::size_t repetitions = 1000000 / count;
  bool done = true;
  const Stopwatch stopwatch;
  for (std::size_t i = 0; i < repetitions; ++i) {
    XMLParse store;
    std::vector<std::int32_t> read;
    done &= store.SetString("root.list", "") != 0 && store.PutIntVector("root.list", values) != 0 &&
            store.GetIntVector("root.list", read) != 0 && read.size() == count &&
            store.PutIntVector("root.list", values) != 0;
  }
  std::printf("%.0f\n", stopwatch.Nanoseconds() / static_cast<double>(repetitions * count));
  return done;
}

// Changes one value in a file of this many lines. Prints the time of one change.
bool SetIniValue(int lines) {
  const char* file = "bench.ini";
  {
    std::ofstream stream(file);
    stream << "[Task]\n";
    for (int i = 1; i < lines; ++i) stream << "key" << i << "=some value of ordinary length\n";
  }
  const int repetitions = 50;
  bool done = true;
  const Stopwatch stopwatch;
  for (int i = 0; i < repetitions; ++i) {
    done &= corekit::CIniFile::SetValue("key5", std::to_string(i), "Task", file);
  }
  std::printf("%.0f\n", stopwatch.Nanoseconds() / repetitions);
  return DeleteFileA(file) && done;
}

std::wstring Widen(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

}  // namespace

int main(int argumentCount, char* arguments[]) {
  const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
  const std::string job = words.empty() ? "" : words[0];
  if (job == "copy" && words.size() == 3) return CopyBare(Widen(words[1]), Widen(words[2])) ? 0 : 1;
  if (job == "replace" && words.size() == 3) {
    return RemoveBare(Widen(words[2])) && CopyBare(Widen(words[1]), Widen(words[2])) ? 0 : 1;
  }
  if (job == "compare" && words.size() == 3) {
    return CompareBare(Widen(words[1]), Widen(words[2])) ? 0 : 1;
  }
  if (job == "start" && words.size() == 3) {
    return StartBare(Widen(words[1]), Widen(words[2])) ? 0 : 1;
  }
  if (job == "read_xml" && words.size() == 2) return ReadBare(words[1]) ? 0 : 1;
  if (job == "records" && words.size() == 2) return ReadRecords(words[1]) ? 0 : 1;
  if (job == "vectors" && words.size() == 2) return Vectors(std::stoul(words[1])) ? 0 : 1;
  if (job == "ini" && words.size() == 2) return SetIniValue(std::stoi(words[1])) ? 0 : 1;
  std::fprintf(stderr,
               "bench copy FROM/ TO/ | replace FROM/ TO/ | compare FIRST SECOND | "
               "start PROGRAM ARGUMENT | read_xml FILE | records FILE | vectors N | ini N\n");
  return 2;
}
