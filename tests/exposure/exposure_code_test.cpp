// SPDX-License-Identifier: MIT
#include <limits>

#include <gtest/gtest.h>

#include "exposure/exposure_code.h"

namespace {

using vornccd::ExposureCode;
using vornccd::standardExposureCode;

TEST(ExposureCode, StandardChangesUnitAt50Milliseconds)
{
    struct {
        double seconds;
        int code;
        bool microseconds;
        double made;
    } const CASES[] = {
        {0.0, 1, true, 1 * 1e-6},
        {4e-7, 1, true, 1 * 1e-6},               // rounds to 0, which becomes 1
        {1.5e-6, 2, true, 2 * 1e-6},             // rounds half up ...
        {2.5e-6, 2, true, 2 * 1e-6},             // ... unless single precision falls below the half
        {0.0499999, 50000, true, 50000 * 1e-6},  // the unit follows the time asked for, not the code
        {0.05, 50, false, 50 * 0.001},
        {0.0525, 52, false, 52 * 0.001},  // double precision alone would give 53
        {2.9994, 2999, false, 2999 * 0.001},
        {2.9995, 3000, false, 3000 * 0.001},
        {std::numeric_limits<double>::infinity(), 3000, false, 3000 * 0.001},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.seconds);
        const ExposureCode exposure = standardExposureCode(row.seconds);
        EXPECT_EQ(exposure.code, row.code);
        EXPECT_EQ(exposure.microseconds, row.microseconds);
        EXPECT_EQ(exposure.seconds, row.made);
    }
}

TEST(ExposureCode, NonsenseIsNotUndefined)
{
    for (const double seconds : {-1.0, -1e300, std::numeric_limits<double>::quiet_NaN()}) {
        const ExposureCode exposure = standardExposureCode(seconds);
        EXPECT_GE(exposure.code, 0) << seconds;
        EXPECT_LE(exposure.code, 0xFFFF) << seconds;
    }
}

}  // namespace
