// SPDX-License-Identifier: MIT
#include "exchange.h"

#include <limits>

#include "family_steps.h"

namespace {

using vorntest::EquippedCamera;
using vorntest::Exchange;
using vorntest::expectExchanges;
using vorntest::expectRefused;
using vorntest::expectRefusedUnequipped;
using vorntest::OpenedCamera;
using vorntest::Operation;
using vorntest::UNTOUCHED;

const char* const FAILED = "Failed to read temperature sensor status";
constexpr long CONVERSION_US = 100000;

/// On failure nothing is stored.
Operation temperature(unsigned sensor, float expected, unsigned expectedType = 1)
{
    return [=](VornCameraImpl& camera) {
        float celsius = UNTOUCHED;
        camera.tempSensorType = 2;
        const bool ok = camera.getTemperatureSensorStatus(sensor, &celsius);
        EXPECT_EQ(celsius, ok ? expected : UNTOUCHED);
        EXPECT_EQ(camera.tempSensorType, ok ? expectedType : 2U);
        return ok;
    };
}

// STANDARD numbers go low byte first and come back in the low bytes of words, ADVANCED ones high byte first both ways;
// CLASSIC replies come in the low bytes of words.
TEST(Temperature, SendsTheseBytesOrFails)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "37 00 01 00", "01 EE 9B 00 EE EE", temperature(1, -10)},
        {STANDARD, "37 00 02 00", "02 EE FF 0F EE EE", temperature(2, 270, 2)},
        {STANDARD, "37 00 00 00", "01 00 00 00 00 00", temperature(0, -60)},
        {STANDARD, "37 00 00 03", "07 00 9B 00 00 00", temperature(0x300, 0, 7)},  // unknown type
        {ADVANCED, "37 02 01", "EE 01 00 9B EE EE", temperature(0x201, -10)},
        {ADVANCED, "37 00 01", "02 00 03 FF 00 00", temperature(1, UNTOUCHED, 0)},  // no assertion
        {CLASSIC, "37 01 02", "01 EE 9B EE 00 EE", temperature(0x201, -10)},
    };
    expectExchanges(FAILED, CASES, CONVERSION_US);
}

TEST(Temperature, IsRefusedWithoutTrafficWhereThereIsNoSensor)
{
    expectRefused({QUICKER}, temperature(1, 0), FAILED);
    expectRefusedUnequipped(temperature(1, 0), "Invalid parameter");
    expectRefusedUnequipped(temperature(0xFFFFFFFF, 0), "Invalid parameter");
}

TEST(SensorScale, RoundsTruncatesAndTakesNonsense)
{
    OpenedCamera standard;
    VornCameraImpl& camera = standard.camera;
    camera.tempSensorType = 3;  // unknown
    EXPECT_EQ(camera.celsiusToSensor(-10.0F), 0U);
    camera.tempSensorType = 2;
    EXPECT_EQ(camera.sensorToCelsius(2048), 2048.0F * 330.0F / 4095.0F - 60.0F);
    EXPECT_EQ(camera.celsiusToSensor(270.0F), 4095U);
    camera.tempSensorType = 1;
    EXPECT_EQ(camera.sensorToCelsius(65535), 65535.0F * 330.0F / 1023.0F - 60.0F);
    EXPECT_EQ(camera.celsiusToSensor(270.0F), 1023U);
    EXPECT_EQ(camera.celsiusToSensor(25.0F), 264U);          // 263.5 + 0.5
    EXPECT_EQ(camera.celsiusToSensor(-60.3F), 0U);           // -0.43 truncates toward zero
    EXPECT_EQ(camera.celsiusToSensor(-70.0F), 0xFFFFFFE2U);  // -30.5 truncates to -30
    for (const float nonsense : {1e30F, -1e30F, std::numeric_limits<float>::quiet_NaN()})
        (void)camera.celsiusToSensor(nonsense);  // the undefined-behaviour sanitizer watches
}

TEST(TemperatureDeathTest, TypeZeroEndsTheProcess)
{
    for (const Exchange& row : {Exchange{STANDARD, "37 00 01 00", "00 00 9B 00 00 00", temperature(1, 0)},
                                Exchange{CLASSIC, "37 01 00", "00 00 9B 00 00 00", temperature(1, 0)}}) {
        EquippedCamera equipped(row.type);
        equipped.usb.append(row.steps(CONVERSION_US));
        EXPECT_TRUE(equipped.camera.getTemperatureSensorStatus(1, nullptr));  // harmless while nobody wants to know
        equipped.usb.append(row.steps(CONVERSION_US));
        EXPECT_EXIT(row.act(equipped.camera), testing::ExitedWithCode(1),
                    "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 225\\)");
        EXPECT_EXIT(equipped.camera.setCooling(-10.0F), testing::ExitedWithCode(1),
                    "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 236\\)");
        equipped.usb.clear();
    }
}

TEST(TemperatureIidc, IsInTenthsOfAKelvin)
{
    const std::pair<const char*, float> CASES[] = {
        {"8C FB FF 8C", 22.45F}, {"FF 0F 00 00", 136.35F}, {"00 00 00 80", -273.15F}};
    for (const auto& [bytes, expected] : CASES) {
        OpenedCamera iidc(IIDC);
        vorntest::readRegister(iidc.usb, 0x082C, bytes);
        float celsius = UNTOUCHED;
        EXPECT_TRUE(iidc.camera.getTemperatureSensorStatus(0, &celsius));
        EXPECT_EQ(celsius, expected);
        iidc.expectSettled();
    }
}

TEST(TemperatureIidc, ReadsAbsoluteZeroWhenTheRegisterDoesNotAnswer)
{
    OpenedCamera iidc(IIDC);
    vorntest::readRegister(iidc.usb, 0x082C, "").fails(LIBUSB_ERROR_NO_DEVICE);
    float celsius = UNTOUCHED;
    EXPECT_TRUE(iidc.camera.getTemperatureSensorStatus(0, &celsius));
    EXPECT_EQ(celsius, -273.15F);
    iidc.expectSettled();
}

}  // namespace
