// SPDX-License-Identifier: MIT
#include "exposure/exposure_code.h"

#include <limits>

#include <gtest/gtest.h>

namespace {

using vornccd::classicExposureCode;
using vornccd::quickerExposureCode;

constexpr double BEYOND = std::numeric_limits<double>::infinity();
constexpr double NONSENSE = std::numeric_limits<double>::quiet_NaN();

TEST(ExposureCode, QuickerCountsUnitsOf1024Over3Million)
{
    const std::pair<double, int> CASES[] = {{-1.0, 1},      {0.0, 1},      {0.00034133, 1},  // 0.99999 truncates to 0
                                            {0.000683, 2},  {0.05, 146},   {0.1, 292},      {1.3977, 4094},
                                            {1.3978, 4095}, {1.398, 4095}, {BEYOND, 4095}};
    for (const auto& [seconds, code] : CASES) {
        EXPECT_EQ(quickerExposureCode(seconds).code, code) << seconds;
        EXPECT_EQ(quickerExposureCode(seconds).seconds, code * 1024.0 / 3e6) << seconds;
    }
    EXPECT_GE(quickerExposureCode(NONSENSE).code, 1);
}

TEST(ExposureCode, ClassicChangesUnitAtTenMilliseconds)
{
    const struct {
        double seconds;
        int code;
        double made;
    } CASES[] = {
        {-1.0, 1, 1 * 0.001},   {0.0005, 1, 1 * 0.001},   {0.0015, 2, 2 * 0.001},  // rounds half up ...
        {0.0025, 2, 2 * 0.001},                         // ... unless single precision falls below the half
        {0.0095, 9, 9 * 0.001},                         // double precision alone would give 10
        {0.0096, 10, 1 * 0.01},                         // the formula follows the time asked for, the unit the code
        {0.01, 10, 1 * 0.01},   {0.015, 10, 1 * 0.01},  // double precision alone would give 11
        {0.016, 11, 2 * 0.01},  {2.455, 254, 245 * 0.01}, {2.46, 255, 246 * 0.01}, {BEYOND, 255, 246 * 0.01},
    };
    for (const auto& row : CASES) {
        EXPECT_EQ(classicExposureCode(row.seconds).code, row.code) << row.seconds;
        EXPECT_EQ(classicExposureCode(row.seconds).seconds, row.made) << row.seconds;
    }
    EXPECT_GE(classicExposureCode(NONSENSE).code, 1);
}

}  // namespace
