// SPDX-License-Identifier: MIT
#include <cmath>
#include <limits>
#include <tuple>

#include <gtest/gtest.h>

#include "exposure/exposure_code.h"
#include "family_steps.h"
#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vornccd::classicExposureCode;
using vornccd::ExposureCode;
using vornccd::quickerExposureCode;
using vornccd::standardExposureCode;
using vorntest::OpenedCamera;
using vorntest::Steps;

constexpr double BEYOND = std::numeric_limits<double>::infinity();
constexpr double NONSENSE = std::numeric_limits<double>::quiet_NaN();

TEST(ExposureCode, StandardChangesUnitAt50Milliseconds)
{
    const std::tuple<double, int, bool> CASES[] = {
        {0.0, 1, true},           {4e-7, 1, true},      // rounds to 0, which becomes 1
        {1.5e-6, 2, true},                              // rounds half up ...
        {2.5e-6, 2, true},                              // ... unless single precision falls below the half
        {0.0499999, 50000, true},                       // the unit follows the time asked for, not the code
        {0.05, 50, false},        {0.0525, 52, false},  // double precision alone would give 53
        {2.9994, 2999, false},    {2.9995, 3000, false},
        {BEYOND, 3000, false},    {-1.0, 48577, true},  // nonsense is not undefined: the low 16 bits
        {-1e300, 0, true},        {NONSENSE, 1, false},
    };
    for (const auto& [seconds, code, microseconds] : CASES) {
        const ExposureCode exposure = standardExposureCode(seconds);
        EXPECT_EQ(exposure.code, code) << seconds;
        EXPECT_EQ(exposure.microseconds, microseconds) << seconds;
        EXPECT_EQ(exposure.seconds, code * (microseconds ? 1e-6 : 0.001)) << seconds;
    }
}

TEST(ExposureCode, QuickerCountsUnitsOf1024Over3Million)
{
    const std::pair<double, int> CASES[] = {{-1.0, 1},      {0.0, 1},      {0.00034133, 1},  // 0.99999 truncates to 0
                                            {0.000683, 2},  {0.05, 146},   {0.1, 292},      {1.3977, 4094},
                                            {1.3978, 4095}, {1.398, 4095}, {BEYOND, 4095},  {NONSENSE, 1}};
    for (const auto& [seconds, code] : CASES) {
        EXPECT_EQ(quickerExposureCode(seconds).code, code) << seconds;
        EXPECT_EQ(quickerExposureCode(seconds).seconds, code * 1024.0 / 3e6) << seconds;
    }
}

TEST(ExposureCode, ClassicChangesUnitAtTenMilliseconds)
{
    const std::tuple<double, int, double> CASES[] = {
        {-1.0, 1, 1 * 0.001},      {0.0005, 1, 1 * 0.001},   {0.0015, 2, 2 * 0.001},  // rounds half up ...
        {0.0025, 2, 2 * 0.001},                            // ... unless single precision falls below the half
        {0.0095, 9, 9 * 0.001},                            // double precision alone would give 10
        {0.0096, 10, 1 * 0.01},                            // the formula follows the time asked for, the unit the code
        {0.01, 10, 1 * 0.01},      {0.015, 10, 1 * 0.01},  // double precision alone would give 11
        {0.016, 11, 2 * 0.01},     {2.455, 254, 245 * 0.01}, {2.46, 255, 246 * 0.01},
        {BEYOND, 255, 246 * 0.01}, {NONSENSE, 1, 1 * 0.001},
    };
    for (const auto& [seconds, code, made] : CASES) {
        EXPECT_EQ(classicExposureCode(seconds).code, code) << seconds;
        EXPECT_EQ(classicExposureCode(seconds).seconds, made) << seconds;
    }
}

TEST(StartExposureAdvanced, GivesUpAtTheFourHundredAndFirstPing)
{
    for (const bool answers : {true, false}) {
        OpenedCamera advanced(ADVANCED);
        vorntest::advancedCommand(vorntest::advancedCommand(advanced.usb, "02 00 00"), "04");
        for (int failed = 0; failed < 400; failed++)
            vorntest::advancedPing(advanced.usb, "00 00", "00 00").pause(25000);
        if (answers)
            vorntest::advancedCommand(vorntest::advancedPing(advanced.usb), "05");
        else
            vorntest::advancedPing(advanced.usb, "00 00", "00 00");
        vorntest::TraceCapture trace;
        EXPECT_EQ(advanced.camera.startExposure(false), answers);
        EXPECT_EQ(trace.has("    Waited too long for ping"), !answers);
        advanced.expectSettled(answers ? "No error" : "Failed to start exposure");
    }
}

TEST(StartExposure, IsRefusedWhereThereAreNoLongExposures)
{
    OpenedCamera iidc(IIDC);
    vorntest::TraceCapture trace;
    EXPECT_FALSE(iidc.camera.startExposure(false));
    EXPECT_EQ(iidc.error(), "Failed to start exposure");
    EXPECT_TRUE(trace.has("    long exposures are unsupported with VORN XR"));
    OpenedCamera unknown(static_cast<CAMERA_TYPE>(6));
    EXPECT_FALSE(unknown.camera.startExposure(false));
    EXPECT_TRUE(unknown.lockFree());
}

TEST(AbortExposure, ClosesTheShutter)
{
    forEachFailure(Steps().command("09 00 00 00"), [](const Steps& steps, bool ok) {
        OpenedCamera standard;
        standard.camera.hasShutter = standard.camera.exposureStarted = standard.camera.imageReady = true;
        standard.usb.append(steps);
        EXPECT_EQ(standard.camera.abortExposure(), ok);
        EXPECT_FALSE(standard.camera.exposureStarted || standard.camera.imageReady);
        standard.expectSettled();  // a failure leaves the text
    });
    OpenedCamera shutterless;
    EXPECT_TRUE(shutterless.camera.abortExposure());
    for (const CAMERA_TYPE type : {CLASSIC, QUICKER, IIDC, ADVANCED, static_cast<CAMERA_TYPE>(6)}) {
        OpenedCamera other(type);
        other.camera.hasShutter = other.camera.exposureStarted = true;
        EXPECT_EQ(other.camera.abortExposure(), type <= ADVANCED) << type;
        EXPECT_FALSE(other.camera.exposureStarted);
        other.expectSettled(type <= ADVANCED ? "No error" : "Unsupported operation");
    }
}

TEST(Delay, SubtractsWhatTheReadoutItselfTakes)
{
    const std::tuple<CAMERA_TYPE, double, unsigned> CASES[] = {{QUICKER, 0.5, 400000},
                                                               {QUICKER, 0.1, 0},
                                                               {QUICKER, 0.100001, 1},
                                                               {QUICKER, 0.05, 0},
                                                               {CLASSIC, 1.0, 0},
                                                               {CLASSIC, 3.0, 1000000},
                                                               {ADVANCED, 0.3, 0},
                                                               {ADVANCED, 0.5, 200000},
                                                               {STANDARD, 2.0, 2000000},
                                                               {IIDC, 2.0, 2000000},
                                                               {STANDARD, 0.0000019, 1},
                                                               {STANDARD, 3000.0, 3000000000U},
                                                               {STANDARD, 5000.0, 4294967295U},
                                                               {STANDARD, -0.5, 4294467296U},  // as 32 bits hold it
                                                               {CLASSIC, -0.5, 4292467296U},
                                                               {STANDARD, std::nan(""), 0}};
    for (const auto& [type, seconds, microseconds] : CASES) {
        OpenedCamera opened(type);
        opened.camera.vregClearTime = 300000;
        EXPECT_EQ(opened.camera.delay(seconds), microseconds) << "type " << type << ", " << seconds;
    }
}

TEST(ImageSize, RoundsUpOnlyOneWidth)
{
    struct {
        CAMERA_TYPE type;
        bool eightBit;
        unsigned size;
        unsigned bin;
        unsigned width;
        unsigned height;
    } const CASES[] = {
        {STANDARD, true, 1001, 2, 500, 500},  {CLASSIC, false, 1001, 2, 500, 500},
        {QUICKER, false, 1001, 2, 500, 500},  {IIDC, false, 1001, 2, 500, 500},
        {ADVANCED, false, 1001, 2, 501, 500}, {ADVANCED, true, 1001, 2, 502, 500},
        {ADVANCED, false, 1000, 3, 334, 333}, {ADVANCED, true, 7, 7, 2, 1},
        {ADVANCED, true, 1000, 2, 500, 500},  {ADVANCED, false, 0xFFFFFFFF, 2, 0, 0x7FFFFFFF},  // the sum wraps
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << row.type << ", " << row.size << " / " << row.bin);
        OpenedCamera opened(row.type);
        opened.camera.eightBitMode = row.eightBit;
        EXPECT_EQ(opened.camera.imageWidth(row.size, row.bin), row.width);
        EXPECT_EQ(opened.camera.imageHeight(row.size, row.bin), row.height);
    }
}

}  // namespace
