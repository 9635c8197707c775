// SPDX-License-Identifier: MIT
#include "trace/trace.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

bool VornDebug = false;
bool VornDebugOn = true;

namespace vornccd {

namespace {

constexpr int INDENT_LENGTH = 16;
constexpr char INDENT[INDENT_LENGTH + 1] = "                ";

// One depth for the whole process: lines of cameras driven in parallel interleave their indentation.
std::atomic<int8_t> depth{0};

/// The last @p count blanks. Depths outside 0 to 16 come up only when a host switches the trace inside an operation;
/// the prefix is then as near as there is.
const char* blanks(int count)
{
    return INDENT + INDENT_LENGTH - std::clamp(count, 0, INDENT_LENGTH);
}

void setDebugOn(bool on)
{
    std::atomic_ref<bool>(VornDebugOn).store(on, std::memory_order_relaxed);
}

}  // namespace

const char* _i(int step)
{
    if (step > 0)
        return blanks(depth.fetch_add(1, std::memory_order_relaxed));
    if (step < 0)
        return blanks(depth.fetch_sub(1, std::memory_order_relaxed) - 1);
    return blanks(depth.load(std::memory_order_relaxed) - 1);
}

const char* _d(const void* data, unsigned int length)
{
    constexpr unsigned int SHOWN_MAX = 4;
    thread_local std::array<char, 1024> text;

    if (data == nullptr)
        return "NULL";
    const auto* bytes = static_cast<const uint8_t*>(data);
    size_t used = 0;
    text[used++] = '[';
    for (unsigned int i = 0; i < std::min(length, SHOWN_MAX); ++i)
        used += static_cast<size_t>(std::snprintf(&text[used], text.size() - used, "0x%02x ", bytes[i]));
    // deliberate: the closing bracket overwrites the last character, so a length of 0 gives "]" alone.
    (void)std::snprintf(&text[used - 1], text.size() - used, "%s", length > SHOWN_MAX ? "...]" : "]");
    return text.data();
}

QuietTrace::QuietTrace()
{
    TRACE_DETAIL("%s    ----- DEBUG OFF -----\n");
    setDebugOn(false);
}

QuietTrace::~QuietTrace()
{
    // deliberate: set, not restored; a host that had cleared the switch sees it set from here on.
    setDebugOn(true);
    TRACE_DETAIL("%s    ----- DEBUG ON -----\n");
}

void assertionFailed(const char* format, int line)
{
    (void)std::fprintf(stderr, format, "vornccdusb", line);
    std::exit(1);
}

}  // namespace vornccd
