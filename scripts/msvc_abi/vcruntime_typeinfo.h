#pragma once
#include <vcruntime_exception.h>
class type_info {
 public:
  type_info(const type_info&) = delete;
  size_t hash_code() const noexcept;
  bool operator==(const type_info&) const noexcept;
  bool operator!=(const type_info&) const noexcept;
  bool before(const type_info&) const noexcept;
  const char* name() const noexcept;
  const char* raw_name() const noexcept;
  virtual ~type_info();
};
namespace std {
using ::type_info;
}
#if _LIBCPP_VERSION < 20000  // that of LLVM 14 expects these too
namespace std {
struct bad_cast : exception {};
struct bad_typeid : exception {};
}  // namespace std
#endif
