#pragma once
#include <eh.h>
extern "C" terminate_handler _get_terminate();
extern "C" unexpected_handler _get_unexpected();
namespace std {
class exception {
 public:
  exception() noexcept;
  explicit exception(const char*) noexcept;
  exception(const char*, int) noexcept;
  exception(const exception&) noexcept;
  exception& operator=(const exception&) noexcept;
  virtual ~exception();
  virtual const char* what() const;
};
struct bad_exception : exception {};
struct bad_alloc : exception {};
struct bad_array_new_length : bad_alloc {};
}  // namespace std
