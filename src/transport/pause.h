// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

/// Pauses for @p useconds MICROSECONDS. deliberate: the name says otherwise; every pause in the library is stated in
/// microseconds.
static inline void sleepms(long useconds)
{
    (void)usleep(static_cast<useconds_t>(useconds));
}
