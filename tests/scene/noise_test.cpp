// SPDX-License-Identifier: MIT
#include "scene/noise.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vornsim {
namespace {

TEST(Gaussian, HasMomentsAndTailsOfTheNormalDistribution)
{
    constexpr int COUNT = 2'000'000;
    double sum = 0.0;
    double squares = 0.0;
    double neighbours = 0.0;
    float last = 0.0f;
    int beyond[5] = {};
    for (uint64_t n = 0; n < COUNT; ++n) {
        const float value = gaussian(hashOf(42, n));
        sum += value;
        squares += value * value;
        neighbours += value * last;
        last = value;
        for (int sigma = 1; sigma <= 4; ++sigma)
            beyond[sigma] += std::abs(value) > static_cast<float>(sigma) ? 1 : 0;
    }
    EXPECT_NEAR(sum / COUNT, 0.0, 0.003);
    EXPECT_NEAR(squares / COUNT, 1.0, 0.004);
    EXPECT_NEAR(neighbours / COUNT, 0.0, 0.003);
    const double expected[] = {1.0, 0.31731, 0.0455, 0.0027, 0.0000633};
    for (int sigma = 1; sigma <= 4; ++sigma)
        EXPECT_NEAR(beyond[sigma], expected[sigma] * COUNT, 0.04 * expected[sigma] * COUNT + 50) << sigma << " sigma";
}

TEST(PowerOfTwo, IsExactEnoughEverywhere)
{
    const struct {
        double exponent;
        double power;
    } cases[] = {{0.0, 1.0},
                 {10.0, 1024.0},
                 {-3.0, 0.125},
                 {0.5, 1.4142135623730951},
                 {-0.5, 0.7071067811865476},
                 {1.0 / 3, 1.2599210498948732},
                 {-5.0 / 3, 0.3149802624737183},
                 {1e9, 0x1p100},
                 {-1e9, 0x1p-100},
                 {std::nan(""), 0x1p-100}};
    for (const auto& c : cases)
        EXPECT_NEAR(powerOfTwo(c.exponent) / c.power, 1.0, 1e-12) << c.exponent;
}

}  // namespace
}  // namespace vornsim
