// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <limits>

namespace vornccd {

/// Truncates toward zero. Values outside the range of T give its nearest end, not-a-number gives 0.
template <typename T>
constexpr T saturatingTrunc(double value)
{
    // The ends of 32-bit types are exact in double precision, so the comparisons are too.
    static_assert(sizeof(T) <= 4);
    if (value >= static_cast<double>(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    if (value <= static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    return value == value ? static_cast<T>(value) : T{0};
}

/// Rounds to single precision; values beyond its range give its nearest finite end.
constexpr float toSingle(double value)
{
    constexpr double LARGEST = std::numeric_limits<float>::max();
    if (value > LARGEST)
        return std::numeric_limits<float>::max();
    if (value < -LARGEST)
        return std::numeric_limits<float>::lowest();
    return static_cast<float>(value);
}

}  // namespace vornccd
