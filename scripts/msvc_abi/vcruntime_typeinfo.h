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
