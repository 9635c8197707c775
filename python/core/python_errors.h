// SPDX-License-Identifier: MIT
#pragma once

#include "capture/result.h"

namespace vornpy {

/// Raises the Python exception that stands for @p error, made by vornccd._errors.make(). The caller holds the
/// interpreter's lock.
[[noreturn]] void raise(const vorncapture::Error& error);

/// @return the value. Raises like raise() when there is none.
template <typename T>
T& valueOrRaise(vorncapture::Result<T>& result)
{
    if (!result.ok())
        raise(result.error());
    return result.value();
}

}  // namespace vornpy
