// An application's own global names, which may be those that the libraries use inside. Where the
// linker merged or confused the two, this program would not link, or the other tests in it would
// crash or fail.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

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
  EXPECT_EQ(own.front().notes[0], "note");
}
