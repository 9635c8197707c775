// SPDX-License-Identifier: MIT
#include "exposure/exposure_code.h"

#include <limits>

#include <gtest/gtest.h>

namespace {

using vornccd::classicExposureCode;
using vornccd::ExposureCode;
using vornccd::quickerExposureCode;

struct CodeCase {
    double seconds;
    int code;
    double made;
};

constexpr double BEYOND = std::numeric_limits<double>::infinity();

TEST(ExposureCode, QuickerCountsUnitsOf1024Over3Million)
{
    const CodeCase CASES[] = {
        {0.0, 1, 1 * 1024.0 / 3e6},
        {0.00034133, 1, 1 * 1024.0 / 3e6},  // 0.99999 truncates to 0, which
                                            // becomes 1
        {0.000683, 2, 2 * 1024.0 / 3e6},
        {0.05, 146, 146 * 1024.0 / 3e6},
        {0.1, 292, 292 * 1024.0 / 3e6},
        {1.3977, 4094, 4094 * 1024.0 / 3e6},
        {1.3978, 4095, 4095 * 1024.0 / 3e6},
        {1.398, 4095, 4095 * 1024.0 / 3e6},
        {10.0, 4095, 4095 * 1024.0 / 3e6},
        {BEYOND, 4095, 4095 * 1024.0 / 3e6},
        {-1.0, 1, 1 * 1024.0 / 3e6},
    };
    for (const CodeCase& row : CASES) {
        const ExposureCode exposure = quickerExposureCode(row.seconds);
        EXPECT_EQ(exposure.code, row.code) << row.seconds;
        EXPECT_EQ(exposure.seconds, row.made) << row.seconds;
    }
}

TEST(ExposureCode, ClassicChangesUnitAtTenMilliseconds)
{
    const CodeCase CASES[] = {
        {0.0, 1, 1 * 0.001},
        {0.0005, 1, 1 * 0.001},
        {0.0015, 2, 2 * 0.001},  // rounds half up ...
        {0.0025, 2, 2 * 0.001},  // ... unless single precision falls below the half
        {0.005, 5, 5 * 0.001},
        {0.0095, 9, 9 * 0.001},  // double precision alone would give 10
        {0.0096, 10, 1 * 0.01},  // the formula follows the time asked for, the unit the code
        {0.009999, 10, 1 * 0.01},
        {0.01, 10, 1 * 0.01},
        {0.015, 10, 1 * 0.01},  // double precision alone would
                                // give 11
        {0.016, 11, 2 * 0.01},
        {0.5, 59, 50 * 0.01},
        {2.455, 254, 245 * 0.01},
        {2.46, 255, 246 * 0.01},
        {5.0, 255, 246 * 0.01},
        {BEYOND, 255, 246 * 0.01},
        {-1.0, 1, 1 * 0.001},
    };
    for (const CodeCase& row : CASES) {
        const ExposureCode exposure = classicExposureCode(row.seconds);
        EXPECT_EQ(exposure.code, row.code) << row.seconds;
        EXPECT_EQ(exposure.seconds, row.made) << row.seconds;
    }
}

TEST(ExposureCode, NotANumberIsNotUndefined)
{
    const double nonsense = std::numeric_limits<double>::quiet_NaN();
    EXPECT_GE(quickerExposureCode(nonsense).code, 1);
    EXPECT_GE(classicExposureCode(nonsense).code, 1);
}

}  // namespace
