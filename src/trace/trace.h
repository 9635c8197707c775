// SPDX-License-Identifier: MIT
#pragma once

#include "vornccd.h"

#include <atomic>
#include <cstdio>

namespace vornccd {

/// @return true when both trace switches are on. The switches belong to the host and are shared by all threads.
inline bool tracing()
{
    return std::atomic_ref<bool>(VornDebug).load(std::memory_order_relaxed) &&
           std::atomic_ref<bool>(VornDebugOn).load(std::memory_order_relaxed);
}

/// Indentation of a trace line. Call it only when the line is written: the depth moves only while tracing.
/// @param step 1 for an entry line, -1 for an exit line, 0 for a detail line
/// @return a prefix of blanks, static
const char* _i(int step);

/// Hex dump of at most the first four bytes, "[0x01 0x02 0x03 0x04...]"; null data gives "NULL".
/// @return text valid until this thread's next call
const char* _d(const void* data, unsigned int length);

/// Silences the trace of every camera for its lifetime and says so in the trace.
class QuietTrace {
public:
    QuietTrace();
    ~QuietTrace();
    QuietTrace(const QuietTrace&) = delete;
    QuietTrace& operator=(const QuietTrace&) = delete;
};

/// Reports a violated precondition on standard error and ends the process with exit status 1.
/// @param format one of the assertion texts, with places for the source name and the line
/// @param line fixed number that names the assertion, whatever the layout of the source
[[noreturn]] void assertionFailed(const char* format, int line);

}  // namespace vornccd

// The arguments are evaluated only when the line is written. Each format carries its own "%s" for the indentation, so
// that any line seen in a trace can be searched for.
#define VORNCCD_TRACE(step, format, ...)                                                      \
    do {                                                                                      \
        if (vornccd::tracing())                                                               \
            (void)std::fprintf(stderr, format, vornccd::_i(step) __VA_OPT__(, ) __VA_ARGS__); \
    } while (false)

#define TRACE_ENTER(format, ...) VORNCCD_TRACE(1, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_DETAIL(format, ...) VORNCCD_TRACE(0, format __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_EXIT(format, ...) VORNCCD_TRACE(-1, format __VA_OPT__(, ) __VA_ARGS__)
