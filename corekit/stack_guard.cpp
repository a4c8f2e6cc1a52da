// The symbols of the stack protector and of checked copies, for the MinGW build. GCC's own library
// has them in one file, so that programs that use either must find all of them here. It takes the
// guard's value from the system's cryptography, whose DLLs take as long to load as the rest of the
// helper's start. This file takes it from the sources that MSVC's runtime uses.

#ifdef __MINGW32__

#include <windows.h>

#include <cstdint>

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

std::uintptr_t __stack_chk_guard = 0;

[[noreturn]] void __stack_chk_fail();
[[noreturn]] void __stack_chk_fail() {
  const UINT stackBufferOverrun = 0xC0000409;
  TerminateProcess(GetCurrentProcess(), stackBufferOverrun);
  __builtin_unreachable();
}

// What _FORTIFY_SOURCE calls when a copy is larger than its destination.
[[noreturn]] void __chk_fail();
[[noreturn]] void __chk_fail() { __stack_chk_fail(); }
}

namespace {

// Runs before every other constructor. It has no guard itself, because it changes the guard.
__attribute__((constructor(101), no_stack_protector)) void SetStackGuard() {
  FILETIME time;
  GetSystemTimeAsFileTime(&time);
  LARGE_INTEGER counter;
  QueryPerformanceCounter(&counter);
  std::uintptr_t guard = reinterpret_cast<std::uintptr_t>(&counter);
  guard ^= static_cast<std::uintptr_t>(counter.QuadPart) * 0x9E3779B97F4A7C15U;
  guard ^= (std::uintptr_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
  guard ^= std::uintptr_t{GetCurrentProcessId()} << 40;
  guard ^= std::uintptr_t{GetCurrentThreadId()} << 24;
  // Its first byte in memory is zero, which a string that overruns a buffer cannot write.
  __stack_chk_guard = guard << 8;
}

}  // namespace
// NOLINTEND(bugprone-reserved-identifier)

#endif  // __MINGW32__
