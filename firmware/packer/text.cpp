// SPDX-License-Identifier: MIT
#include "text.h"

#include <cstdarg>
#include <cstdio>

namespace firmware {

std::string format(const char* text, ...)
{
    char line[400] = {};
    va_list arguments;
    va_start(arguments, text);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): a false alarm when several files are checked in one run
    (void)std::vsnprintf(line, sizeof line, text, arguments);
    va_end(arguments);
    return line;
}

}  // namespace firmware
