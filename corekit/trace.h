// The diagnostic trace: one process-wide channel for error lines, off at start. The helper turns it
// on under a debugger; other programs call EnableTrace.
#pragma once

#if defined(__GNUC__)
#define COREKIT_PRINTF_LIKE(first, rest) __attribute__((format(printf, first, rest)))
#else
#define COREKIT_PRINTF_LIKE(first, rest)
#endif

namespace corekit {

// Turns the trace on or off for the whole process.
void EnableTrace(bool on);

// While the trace is on, writes one line to the debugger's output (OutputDebugString): the local
// time as "hh:mm:ss.mmm ", then the printf-style message. A line longer than 10,240 bytes is cut.
// While the trace is off, does nothing.
void Trace(const char* format, ...) COREKIT_PRINTF_LIKE(1, 2);

}  // namespace corekit
