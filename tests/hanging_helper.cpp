// Stands in the helper's place and does nothing, until its task file is gone, there is a file of
// that name and ".end", or a minute is over. Meanwhile there is a file of its own name and ".runs".
#include <windows.h>

#include <string>

int main(int, char* arguments[]) {
  const std::string sign = std::string(arguments[0]) + ".runs";
  const std::string end = std::string(arguments[1]) + ".end";
  CreateFileA(sign.c_str(), DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
              OPEN_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  for (int i = 0; i < 1200 && GetFileAttributesA(arguments[1]) != INVALID_FILE_ATTRIBUTES; ++i) {
    if (DeleteFileA(end.c_str())) break;
    Sleep(50);
  }
  return ERROR_ACCESS_DENIED;  // which would be misread as the system's error
}
