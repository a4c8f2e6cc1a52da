#include "support.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>

#include "corekit/text.h"
#include "fileop/file_system.h"

namespace {

struct HandleCloser {
  void operator()(void* handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

std::wstring Widen(const std::string& path) { return Utf8ToWide(path); }

HANDLE OpenFile(const std::string& path, DWORD access, DWORD share, DWORD disposition) {
  return CreateFileW(Widen(path).c_str(), access, share, nullptr, disposition,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

std::string ReadToEnd(HANDLE handle) {
  std::string bytes;
  char buffer[65536];
  for (DWORD count = 0; ReadFile(handle, buffer, sizeof buffer, &count, nullptr) && count > 0;) {
    bytes.append(buffer, count);
  }
  return bytes;
}

// Wine neither makes nor removes links to folders, but shows those of the file system below and
// starts its programs. They give no handle to wait for, so this waits until their work shows.
template <typename Done>
void RunUnixProgram(const std::string& command, Done done) {
  std::wstring line = L"Z:\\bin\\" + Widen(command);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                 &process);
  for (int i = 0; i < 500 && !done(); ++i) Sleep(10);
}

void RemoveFolderLink(const std::string& link) {
  if (OnWine()) {
    RunUnixProgram("rm " + link, [&] { return !PathExists(link.c_str()); });
  } else {
    RemoveDirectoryW(Widen(link).c_str());
  }
}

template <typename Visit>
void ForEachEntry(const std::string& folder, Visit visit) {
  WIN32_FIND_DATAW entry;
  const HANDLE find = FindFirstFileW(Widen(folder + "*").c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) return;
  do {
    const std::string name = WideToUtf8(entry.cFileName);
    if (name == "." || name == "..") continue;
    visit(name, entry.dwFileAttributes);
  } while (FindNextFileW(find, &entry));
  FindClose(find);
}

void RemoveLinks(const std::string& folder) {
  ForEachEntry(folder, [&](const std::string& name, DWORD attributes) {
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return;
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
      RemoveFolderLink(folder + name);
    } else {
      RemoveLinks(folder + name + "/");
    }
  });
}

void ReadInto(Tree& tree, const std::string& folder, const std::string& prefix) {
  ForEachEntry(folder + prefix, [&](const std::string& name, DWORD attributes) {
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      tree[prefix + name] = ReadFileBytes(folder + prefix + name);
      return;
    }
    tree[prefix + name + "/"] = "";
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
      ReadInto(tree, folder, prefix + name + "/");
    }
  });
}

}  // namespace

TestFolder::TestFolder() {
  static int count = 0;
  path_ = "t" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++count) + "/";
  RemoveTreeForSure(path_);
  MakeFolders(path_);
}

TestFolder::~TestFolder() { RemoveTreeForSure(path_); }

Tree TestFolder::Contents() const { return ReadTree(path_); }

void WriteFileBytes(const std::string& path, const std::string& bytes) {
  MakeFolders(path.substr(0, path.rfind('/') + 1));
  const Handle file(OpenFile(path, GENERIC_WRITE, 0, CREATE_ALWAYS));
  ASSERT_NE(file.get(), INVALID_HANDLE_VALUE) << path;
  DWORD written = 0;
  WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  ASSERT_EQ(written, bytes.size());
}

std::string ReadFileBytes(const std::string& path) {
  const Handle file(
      OpenFile(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING));
  EXPECT_NE(file.get(), INVALID_HANDLE_VALUE) << path;
  return ReadToEnd(file.get());
}

void MakeFolders(const std::string& path) {
  for (std::size_t at = path.find('/'); at != std::string::npos; at = path.find('/', at + 1)) {
    CreateDirectoryW(Widen(path.substr(0, at)).c_str(), nullptr);
  }
}

void WriteTree(const std::string& folder, const Tree& tree) {
  MakeFolders(folder);
  for (const auto& [name, bytes] : tree) {
    if (name.back() == '/') {
      MakeFolders(folder + name);
    } else {
      WriteFileBytes(folder + name, bytes);
    }
  }
}

Tree ReadTree(const std::string& folder) {
  Tree tree;
  ReadInto(tree, folder, "");
  return tree;
}

void RemoveTreeForSure(const std::string& folder) {
  RemoveLinks(folder);  // while what they lead to is still there
  ForEachEntry(folder, [&](const std::string& name, DWORD attributes) {
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      RemoveTreeForSure(folder + name + "/");
    } else {
      SetFileAttributesW(Widen(folder + name).c_str(), FILE_ATTRIBUTE_NORMAL);
      DeleteFileW(Widen(folder + name).c_str());
    }
  });
  RemoveDirectoryW(Widen(folder).c_str());
}

bool OnWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

bool MakeFolderLink(const std::string& target, const std::string& link) {
  if (OnWine()) {
    RunUnixProgram("ln -s " + target + " " + link, [&] { return PathExists(link.c_str()); });
  } else {
    const DWORD unprivileged = 0x2;  // SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE
    CreateSymbolicLinkW(Widen(link).c_str(), Widen(target).c_str(),
                        SYMBOLIC_LINK_FLAG_DIRECTORY | unprivileged);
  }
  const DWORD attributes = GetFileAttributesW(Widen(link).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

ProgramResult RunProgram(const std::string& name, const std::vector<std::string>& arguments) {
  wchar_t self[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, self, MAX_PATH);
  const std::wstring folder = std::wstring(self).substr(0, std::wstring(self).rfind(L'\\') + 1);
  std::wstring command = L"\"" + folder + Widen(name) + L"\"";
  for (const std::string& argument : arguments) command += L" \"" + Widen(argument) + L"\"";

  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) ADD_FAILURE() << "no pipe";
  const Handle reader(readEnd);
  Handle writer(writeEnd);
  SetHandleInformation(reader.get(), HANDLE_FLAG_INHERIT, 0);

  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = INVALID_HANDLE_VALUE;
  startup.hStdOutput = writer.get();
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                      &startup, &process)) {
    ADD_FAILURE() << "cannot start " << name << ": error " << GetLastError();
    return {~0UL, ""};
  }
  const Handle running(process.hProcess);
  const Handle thread(process.hThread);
  writer.reset();
  // What these programs print fits the pipe, so it can wait there until they end.
  if (WaitForSingleObject(running.get(), 30000) != WAIT_OBJECT_0) {
    ADD_FAILURE() << name << " hangs";
    TerminateProcess(running.get(), ~0U);
  }
  ProgramResult result = {};
  result.output = ReadToEnd(reader.get());
  GetExitCodeProcess(running.get(), &result.exitCode);
  return result;
}

FileLock::FileLock(const std::string& path)
    : handle_(OpenFile(path, GENERIC_READ, 0, OPEN_EXISTING)) {
  EXPECT_NE(handle_, INVALID_HANDLE_VALUE) << path;
}

FileLock::~FileLock() { CloseHandle(handle_); }
