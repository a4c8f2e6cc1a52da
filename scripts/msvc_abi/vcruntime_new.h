#pragma once
#include <stddef.h>
inline void* operator new(size_t, void* p) noexcept { return p; }
inline void* operator new[](size_t, void* p) noexcept { return p; }
namespace std {
enum class align_val_t : size_t {};
struct nothrow_t {
  explicit nothrow_t() = default;
};
extern const nothrow_t nothrow;
using new_handler = void (*)();
new_handler set_new_handler(new_handler) noexcept;
}  // namespace std
void* operator new(size_t, const std::nothrow_t&) noexcept;
void* operator new(size_t, std::align_val_t, const std::nothrow_t&) noexcept;
