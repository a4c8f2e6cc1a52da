#include "corekit/trace.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>

namespace corekit {
namespace {

constexpr std::size_t kBufferSize = 10240;

bool traceOn = false;

}  // namespace

void EnableTrace(bool on) { traceOn = on; }

void Trace(const char* format, ...) {
  if (!traceOn) return;

  SYSTEMTIME now;
  GetLocalTime(&now);
  char line[kBufferSize];
  const int stamped = std::snprintf(line, sizeof line, "%02u:%02u:%02u.%03u ", now.wHour,
                                    now.wMinute, now.wSecond, now.wMilliseconds);
  const auto stampLength = static_cast<std::size_t>(stamped);

  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line + stampLength, sizeof line - stampLength, format, arguments);
  va_end(arguments);
  OutputDebugStringA(line);
}

}  // namespace corekit
