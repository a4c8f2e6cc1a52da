// An application's own global names, which may be those that the libraries use inside. Where the
// linker merged or confused the two, this program would not link, or crash.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fileop/file_system.h"
#include "support.h"
#include "uactask/task_runner.h"

struct Operation {
  std::string notes[9];
};

class Directory {
 public:
  explicit Directory(const std::wstring& path);
  const void* Next();
};

Directory::Directory(const std::wstring&) { ADD_FAILURE() << "called by the libraries"; }
const void* Directory::Next() { return nullptr; }

bool RemoveTree(const std::wstring& directory, std::int32_t mode);
bool RemoveTree(const std::wstring&, std::int32_t) {
  ADD_FAILURE() << "called by the libraries";
  return false;
}

TEST(ApplicationNames, AreItsOwn) {
  std::vector<Operation> own;
  own.push_back({{"note"}});
  own.push_back({{"note"}});

  const TestFolder folder;
  std::string list = "<root><task>";
  for (const char* name : {"1", "2", "3"}) {
    WriteFileBytes(folder / name, name);
    list += std::string("<i key='") + name + "' src='" + folder / name + "' dec='" +
            folder / "to/" + name + "'/>";
  }
  WriteFileBytes(folder / "list.xml", list + "</task></root>");
  WriteFileBytes(folder / "task.ini", "[Task]\ntype=1\nxml_path=" + folder / "list.xml\n");
  EXPECT_TRUE(RunTaskFile(folder / "task.ini"));
  EXPECT_EQ(ReadTree(folder / "to/"), TreeOf("1=1, 2=2, 3=3"));
  EXPECT_TRUE(RemoveDirectoryTree((folder / "to/").c_str(), 0));
}
