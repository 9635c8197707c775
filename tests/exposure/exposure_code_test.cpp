// SPDX-License-Identifier: MIT
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "exposure/exposure_code.h"
#include "exposure/pixel_kernels.h"

namespace {

using vornccd::classicExposureCode;
using vornccd::ExposureCode;
using vornccd::quickerExposureCode;
using vornccd::standardExposureCode;

constexpr double BEYOND = std::numeric_limits<double>::infinity();
constexpr double NONSENSE = std::numeric_limits<double>::quiet_NaN();

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
        {BEYOND, 3000, false, 3000 * 0.001},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.seconds);
        const ExposureCode exposure = standardExposureCode(row.seconds);
        EXPECT_EQ(exposure.code, row.code);
        EXPECT_EQ(exposure.microseconds, row.microseconds);
        EXPECT_EQ(exposure.seconds, row.made);
    }
}

TEST(ExposureCode, QuickerCountsUnitsOf1024Over3Million)
{
    const std::pair<double, int> CASES[] = {{-1.0, 1},      {0.0, 1},      {0.00034133, 1},  // 0.99999 truncates to 0
                                            {0.000683, 2},  {0.05, 146},   {0.1, 292},      {1.3977, 4094},
                                            {1.3978, 4095}, {1.398, 4095}, {BEYOND, 4095}};
    for (const auto& [seconds, code] : CASES) {
        EXPECT_EQ(quickerExposureCode(seconds).code, code) << seconds;
        EXPECT_EQ(quickerExposureCode(seconds).seconds, code * 1024.0 / 3e6) << seconds;
    }
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
}

TEST(ExposureCode, NonsenseIsNotUndefined)
{
    for (const double seconds : {-1.0, -1e300, NONSENSE}) {
        EXPECT_GE(standardExposureCode(seconds).code, 0) << seconds;
        EXPECT_LE(standardExposureCode(seconds).code, 0xFFFF) << seconds;
    }
    EXPECT_GE(quickerExposureCode(NONSENSE).code, 1);
    EXPECT_GE(classicExposureCode(NONSENSE).code, 1);
}

// Rows of ten pixels: eight go through registers where there are any, two do not.
TEST(PixelKernel, SubtractsPrechargeAlikeInEveryLane)
{
    const struct {
        uint16_t precharge;
        uint16_t signal;
        int32_t offset;
        uint16_t expected;
    } CASES[] = {
        {1000, 1500, 256, 1256},      {1500, 1000, 256, 0},      {100, 116, -32, 0},     {100, 117, -32, 2},
        {0, 32639, 256, 65534},       {0, 32640, 256, 65535},    {65535, 65535, -1, 0},  {0, 65535, -65536, 65534},
        {65535, 0, 131071, 1},        {65535, 0, 200000, 65535}, {0, 65535, -200000, 0}, {32768, 32767, 3, 1},
        {0, 65535, INT32_MAX, 65535}, {65535, 0, INT32_MIN, 0},
    };
    for (const auto& row : CASES) {
        std::vector<uint16_t> frame;
        for (int i = 0; i < 10; i++)
            frame.insert(frame.end(), {row.precharge, row.signal});
        std::vector<uint16_t> image(11, 0xCCCC);
        vornccd::subtractPrecharge(frame, {10, 1, 0, 0, 10, 1}, static_cast<uint32_t>(row.offset), image.data());
        std::vector<uint16_t> expected(10, row.expected);
        expected.push_back(0xCCCC);
        EXPECT_EQ(image, expected) << row.precharge << " " << row.signal << " " << row.offset;
    }
}

}  // namespace
