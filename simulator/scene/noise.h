// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>

/// Randomness without state: every value is a pure function of a key, so that a pixel's noise is the same whichever
/// region it is read in, and the same on every machine. For that reason this room uses only operations whose result
/// IEEE 754 fixes to the last bit (+ - * / and the square root), never exp(), log() or the standard distributions.
namespace vornsim {

/// Scrambles @p value so that neighbouring keys give unrelated results (the finaliser of SplitMix64).
constexpr uint64_t scramble(uint64_t value)
{
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

/// @return the @p index-th value of the sequence named by @p key.
constexpr uint64_t hashOf(uint64_t key, uint64_t index)
{
    return scramble(key + (index + 1) * 0x9E3779B97F4A7C15u);
}

/// @return a key of its own for the cell (@p x, @p y); the coordinates may be negative.
constexpr uint64_t hashOf(uint64_t key, int64_t x, int64_t y)
{
    return hashOf(hashOf(key, static_cast<uint64_t>(y)), static_cast<uint64_t>(x));
}

/// @return the upper 24 bits of @p hash as a number in (0, 1].
constexpr float unitInterval(uint64_t hash)
{
    return static_cast<float>((hash >> 40) + 1) * 0x1p-24f;
}

/// @return a normally distributed number of mean 0 and variance 1, within +-4.9. The sum of the hash's four 16-bit
/// parts is nearly normal; an odd polynomial, fitted to the quantiles, puts the tails right up to four sigma.
constexpr float gaussian(uint64_t hash)
{
    constexpr int MEAN_OF_SUM = 2 * 0xFFFF;
    constexpr float SIGMA_OF_SUM = 37837.227f;  // 65536 / sqrt(3)
    const int sum =
        static_cast<int>((hash & 0xFFFF) + ((hash >> 16) & 0xFFFF) + ((hash >> 32) & 0xFFFF) + (hash >> 48));
    const float s = static_cast<float>(sum - MEAN_OF_SUM) / SIGMA_OF_SUM;
    const float s2 = s * s;
    return s * (0.958843957f + s2 * (0.0166711808f + s2 * (-0.00203198654f + s2 * 0.000317694563f)));
}

/// @return two to the power of @p exponent, -100 to 100 (values beyond are limited), right to about 1e-12.
inline double powerOfTwo(double exponent)
{
    constexpr double LN_2 = 0.69314718055994530942;
    constexpr double LIMIT = 100.0;
    if (!(exponent > -LIMIT))
        exponent = -LIMIT;
    if (exponent > LIMIT)
        exponent = LIMIT;
    const double whole = std::floor(exponent);
    const double x = (exponent - whole) * LN_2;
    double sum = 1.0;
    for (int n = 15; n > 0; --n)
        sum = 1.0 + sum * x / n;
    return std::ldexp(sum, static_cast<int>(whole));
}

}  // namespace vornsim
