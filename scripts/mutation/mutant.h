// SPDX-License-Identifier: MIT
#pragma once

/// @file mutant.h
/// Included by every mutated source, which holds many mutants at once: M(17) is true while the environment names number
/// 17. With VORNCCD_MUTANT_LOG set, each number is noted in that file when it is first met.

#include <fcntl.h>
#include <unistd.h>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

inline bool mutantIsActive(int number)
{
    static const char* const wanted = std::getenv("VORNCCD_MUTANT");
    static const char* const log = std::getenv("VORNCCD_MUTANT_LOG");
    static const int active = wanted != nullptr ? std::atoi(wanted) : 0;
    static std::atomic<bool> met[10000];
    if (log != nullptr && !met[number].exchange(true)) {
        char line[16];
        const int length = std::snprintf(line, sizeof line, "%d\n", number);
        const int file = open(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (file < 0 || write(file, line, static_cast<size_t>(length)) != length)
            std::abort();
        (void)close(file);
    }
    return number == active;
}

/// Constants of the compiler stay as they are.
constexpr bool M(int number)
{
    return !std::is_constant_evaluated() && mutantIsActive(number);
}
