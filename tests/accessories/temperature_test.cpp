// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Steps;

TEST(SensorToCelsius, SpansMinus60To270)
{
    struct {
        unsigned sensorType;
        int raw;
        float celsius;
    } const CASES[] = {
        {1, 0, -60.0F},
        {1, 1023, 270.0F},
        {1, 512, 512.0F * 330.0F / 1023.0F - 60.0F},
        {1, 155, -10.0F},
        {1, 65535, 65535.0F * 330.0F / 1023.0F - 60.0F},
        {2, 0, -60.0F},
        {2, 4095, 270.0F},
        {2, 2048, 2048.0F * 330.0F / 4095.0F - 60.0F},
        {3, 512, 0.0F},
        {255, 1, 0.0F},
    };
    OpenedCamera standard;
    for (const auto& row : CASES) {
        standard.camera.tempSensorType = row.sensorType;
        EXPECT_EQ(standard.camera.sensorToCelsius(row.raw), row.celsius) << row.sensorType << ": " << row.raw;
    }
}

TEST(CelsiusToSensor, RoundsByHalfAndTruncates)
{
    struct {
        unsigned sensorType;
        float celsius;
        unsigned raw;
    } const CASES[] = {
        {1, -10.0F, 155},
        {2, -10.0F, 620},
        {1, 0.0F, 186},
        {2, 0.0F, 745},
        {1, -60.0F, 0},
        {2, -60.0F, 0},
        {1, 270.0F, 1023},
        {2, 270.0F, 4095},
        {1, 25.0F, 264},           // 263.5 + 0.5
        {1, -60.3F, 0},            // -0.43 truncates toward zero
        {1, -70.0F, 0xFFFFFFE2U},  // -30.5 truncates to -30
        {3, 25.0F, 0},
        {9, -10.0F, 0},
    };
    OpenedCamera standard;
    for (const auto& row : CASES) {
        standard.camera.tempSensorType = row.sensorType;
        EXPECT_EQ(standard.camera.celsiusToSensor(row.celsius), row.raw) << row.sensorType << ": " << row.celsius;
    }
    standard.camera.tempSensorType = 1;
    for (const float nonsense : {1e30F, -1e30F, std::numeric_limits<float>::quiet_NaN()})
        (void)standard.camera.celsiusToSensor(nonsense);  // the undefined-behaviour sanitizer watches
}

TEST(TemperatureSensor, ReadsStandardReplies)
{
    struct {
        const char* label;
        unsigned sensor;
        const char* command;
        const char* reply;
        float celsius;
        unsigned sensorType;
    } const CASES[] = {
        {"10-bit", 1, "37 00 01 00", "01 EE 9B 00 EE EE", -10.0F, 1},
        {"12-bit", 2, "37 00 02 00", "02 EE FF 0F EE EE", 270.0F, 2},
        {"number 0 is sent as it is", 0, "37 00 00 00", "01 00 00 00 00 00", -60.0F, 1},
        {"unknown encoding", 3, "37 00 03 00", "07 00 9B 00 00 00", 0.0F, 7},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        OpenedCamera standard;
        standard.camera.tempSensorCount = 3;
        standard.usb.command(row.command).pause(100000).parIn(6, row.reply);
        float celsius = 99.0F;
        EXPECT_TRUE(standard.camera.getTemperatureSensorStatus(row.sensor, &celsius));
        EXPECT_EQ(celsius, row.celsius);
        EXPECT_EQ(standard.camera.tempSensorType, row.sensorType);
        standard.expectSettled();
    }
}

TEST(TemperatureSensor, RefusesANumberBeyondTheCountWithoutTraffic)
{
    OpenedCamera standard;
    standard.camera.tempSensorCount = 2;
    standard.camera.lock();  // a refusal does not wait for it
    float celsius = 99.0F;
    for (const unsigned sensor : {3U, 0xFFFFFFFFU})
        EXPECT_FALSE(standard.camera.getTemperatureSensorStatus(sensor, &celsius));
    standard.camera.unlock();
    EXPECT_EQ(celsius, 99.0F);
    standard.expectSettled("Invalid parameter");
}

TEST(TemperatureSensor, AFailedExchangeChangesNothing)
{
    const Steps whole = Steps().command("37 00 01 00").pause(100000).parIn(6, "02 00 00 08 00 00");
    forEachFailure(whole, [&](const Steps& steps, bool ok) {
        OpenedCamera standard;
        standard.camera.tempSensorCount = 1;
        standard.camera.tempSensorType = 1;
        standard.usb.append(steps);
        float celsius = 99.0F;
        EXPECT_EQ(standard.camera.getTemperatureSensorStatus(1, &celsius), ok);
        EXPECT_EQ(celsius == 99.0F, !ok);
        EXPECT_EQ(standard.camera.tempSensorType, ok ? 2U : 1U);
        standard.expectSettled(ok ? "No error" : "Failed to read temperature sensor status");
    });
}

TEST(TemperatureSensor, TypeZeroIsHarmlessWhenNobodyWantsTheTemperature)
{
    OpenedCamera standard;
    standard.camera.tempSensorCount = 1;
    standard.usb.command("37 00 01 00").pause(100000).parIn(6, "00 00 00 00 00 00");
    EXPECT_TRUE(standard.camera.getTemperatureSensorStatus(1, nullptr));
    EXPECT_EQ(standard.camera.tempSensorType, 0U);
}

TEST(TemperatureDeathTest, TypeZeroEndsTheProcess)
{
    OpenedCamera standard;
    standard.camera.tempSensorCount = 1;
    standard.camera.cooler = COOLER_SETPOINT;
    EXPECT_EXIT(
        {
            standard.usb.command("37 00 01 00").pause(100000).parIn(6, "00 00 9B 00 00 00");
            float celsius = 0;
            standard.camera.getTemperatureSensorStatus(1, &celsius);
        },
        testing::ExitedWithCode(1), "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 225\\)");
    EXPECT_EXIT(standard.camera.setCooling(-10.0F), testing::ExitedWithCode(1),
                "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 236\\)");
}

}  // namespace
