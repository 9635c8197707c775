// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

namespace vornfuzz {

/// The bytes of one execution, taken from the front. What lies behind the end reads as zeros.
class Input {
public:
    explicit Input(std::span<const uint8_t> bytes) : rest_(bytes) {}

    bool exhausted() const { return rest_.empty(); }

    /// @return up to @p length bytes.
    std::span<const uint8_t> take(size_t length)
    {
        const std::span<const uint8_t> taken = rest_.first(std::min(length, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

    /// @return a number of this type from its bytes, any bit pattern.
    template <typename Number>
    Number number()
    {
        Number value = {};
        const std::span<const uint8_t> taken = take(sizeof value);
        std::memcpy(&value, taken.data(), taken.size());
        return value;
    }

    uint8_t byte() { return number<uint8_t>(); }
    bool flag() { return (byte() & 1) != 0; }
    /// @return everything left.
    std::string text()
    {
        const std::span<const uint8_t> taken = take(rest_.size());
        return {taken.begin(), taken.end()};
    }

    /// @return one of the numbers hosts give by mistake, or any.
    double real()
    {
        constexpr double INTERESTING[] = {0.0,    0.001, 0.01,  0.05,  0.266282, 0.532782, 3.0,       -1.0,
                                          2147.5, 4295,  86400, 1e300, -1e300,   HUGE_VAL, -HUGE_VAL, NAN};
        const uint8_t choice = byte();
        return choice < std::size(INTERESTING) ? INTERESTING[choice] : number<double>();
    }

private:
    std::span<const uint8_t> rest_;
};

/// Ends the program as a finding when @p condition does not hold.
void check(bool condition, const char* what);

}  // namespace vornfuzz
