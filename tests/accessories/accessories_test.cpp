// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Operation;
using vorntest::Steps;

/// A camera with everything: a 10-bit sensor of three, a cooler whose power reads from 10 to 210, a wheel and so on.
struct EquippedCamera : OpenedCamera {
    explicit EquippedCamera(CAMERA_TYPE type = STANDARD) : OpenedCamera(type)
    {
        camera.hasFilterWheel = camera.hasGuidePort = camera.hasShutter = true;
        camera.cooler = COOLER_SETPOINT;
        camera.tempSensorCount = 3;
        camera.tempSensorType = 1;
        camera.minCoolerPower = 10;
        camera.maxCoolerPower = 210;
    }
};

/// What a failure must leave in the outputs of the operations below.
constexpr float UNTOUCHED = 999.0F;

Operation temperature(unsigned sensor, float expected, unsigned expectedType = 1)
{
    return [=](VornCameraImpl& camera) {
        float celsius = UNTOUCHED;
        const bool ok = camera.getTemperatureSensorStatus(sensor, &celsius);
        EXPECT_EQ(celsius, ok ? expected : UNTOUCHED);
        EXPECT_EQ(camera.tempSensorType, ok ? expectedType : 1U);
        return ok;
    };
}

Operation cooling(COOLING_STATE expectedState, float expectedTarget, float expectedPower)
{
    return [=](VornCameraImpl& camera) {
        auto state = static_cast<COOLING_STATE>(9);
        float target = UNTOUCHED;
        float power = UNTOUCHED;
        const bool ok = camera.getCoolingStatus(&state, &target, &power);
        EXPECT_EQ(state, ok ? expectedState : 9);
        EXPECT_EQ(target, ok ? expectedTarget : UNTOUCHED);
        EXPECT_EQ(power, ok ? expectedPower : UNTOUCHED);
        return ok;
    };
}

Operation wheel(unsigned expectedCount, bool expectedMoving, unsigned expectedCurrent, unsigned expectedTarget)
{
    return [=](VornCameraImpl& camera) {
        std::vector<unsigned> numbers(3, 999);
        bool moving = !expectedMoving;
        const bool ok = camera.getFilterWheelStatus(&numbers[0], &moving, &numbers[1], &numbers[2]);
        EXPECT_EQ(numbers, ok ? (std::vector{expectedCount, expectedCurrent, expectedTarget}) : std::vector(3, 999U));
        EXPECT_EQ(moving, ok == expectedMoving);
        return ok;
    };
}

/// Relays are opened first, then one of each pair is closed.
Steps relays(std::initializer_list<const char*> closed)
{
    Steps steps;
    steps.command("18 00");
    for (const char* relay : closed)
        steps.pause(5000).command(relay);
    return steps;
}

Steps temperatureOf(const char* sensor, const char* reply)
{
    return Steps().command(std::string("37 00 ") + sensor).pause(100000).parIn(6, reply);
}

Steps ask(const char* command, unsigned length, const char* reply)
{
    return Steps().command(command).parIn(length, reply);
}

const char* const TEMPERATURE_FAILED = "Failed to read temperature sensor status";
const char* const COOLING_FAILED = "Failed to set cooling status";
const char* const SET_POINT_FAILED = "Failed to set temperature";
const char* const WHEEL_FAILED = "Failed to get filter wheel status";
const char* const FILTER_FAILED = "Failed to set filter";
const char* const RELAYS_FAILED = "Failed to set guide relays";

TEST(StandardAccessory, SendsTheseBytesAndEndsAtTheFirstFailureWithItsText)
{
    const struct {
        Steps conversation;
        Operation act;
        const char* error;
    } CASES[] = {
        {temperatureOf("01 00", "01 EE 9B 00 EE EE"), temperature(1, -10), TEMPERATURE_FAILED},
        {temperatureOf("02 00", "02 EE FF 0F EE EE"), temperature(2, 270, 2), TEMPERATURE_FAILED},
        {temperatureOf("00 00", "01 00 00 00 00 00"), temperature(0, -60), TEMPERATURE_FAILED},   // sent as it is
        {temperatureOf("03 00", "07 00 9B 00 00 00"), temperature(3, 0, 7), TEMPERATURE_FAILED},  // unknown encoding
        // set-point outranks warming, which outranks on; other bits mean nothing, power is not clamped
        {ask("35 00", 6, "6E EE A0 EE 9B 00"), cooling(COOLING_SETPOINT, -10, 50), COOLING_FAILED},
        {ask("35 00", 6, "6E EE 60 EE 9B 00"), cooling(WARMING_UP, -10, 50), COOLING_FAILED},
        {ask("35 00", 6, "FA EE 40 EE FF 03"), cooling(COOLING_ON, 270, 120), COOLING_FAILED},
        {ask("35 00", 6, "00 EE 1F EE 00 00"), cooling(COOLING_INACTIVE, -60, -5), COOLING_FAILED},
        {ask("38 00 9B 00", 2, "01 00"), CALL(setCooling(-10.0F)), SET_POINT_FAILED},
        {ask("38 00 E2 FF", 2, "01 FF"), CALL(setCooling(-70.0F)), SET_POINT_FAILED},  // below the range
        {Steps().command("39 00"), CALL(initiateWarmUp()), "Failed to initiate warmup"},
        // the second byte of each word does not count
        {ask("87 00", 8, "05 EE 01 EE 02 EE 04 EE"), wheel(5, true, 2, 4), WHEEL_FAILED},
        {ask("87 00", 8, "07 01 00 01 03 01 FF 01"), wheel(7, false, 3, 255), WHEEL_FAILED},
        {ask("88 00 03 01", 2, "FF 00"), CALL(setFilter(0x0103)), FILTER_FAILED},
        {ask("88 00 00 00", 2, "01 00"), CALL(setFilter(0x50000)), FILTER_FAILED},  // low 16 bits; the camera decides
        {Steps().command("09 00 01 00"), CALL(setShutter(true)), "Failed to set shutter"},
        {Steps().command("09 00 00 00"), CALL(setShutter(false)), "Failed to set shutter"},
        {relays({}), CALL(setGuideRelays(0xFFF0)), RELAYS_FAILED},
        {relays({"14 00", "16 00"}), CALL(setGuideRelays(0xFFFF)), RELAYS_FAILED},
        {relays({"14 00", "17 00"}), CALL(setGuideRelays(0x9)), RELAYS_FAILED},
        {relays({"15 00", "17 00"}), CALL(setGuideRelays(0xA)), RELAYS_FAILED},
    };
    for (size_t number = 0; number < std::size(CASES); number++) {
        const auto& row = CASES[number];
        SCOPED_TRACE("case " + std::to_string(number + 1) + ": " + row.error);
        forEachFailure(row.conversation, [&](const Steps& steps, bool ok) {
            EquippedCamera equipped;
            equipped.usb.append(steps);
            EXPECT_EQ(row.act(equipped.camera), ok);
            EXPECT_EQ(equipped.camera.guideRelayState, 0);
            equipped.expectSettled(ok ? "No error" : row.error);
        });
    }
}

TEST(StandardAccessory, WantsTheAcknowledgementInTheFirstByte)
{
    for (const char* reply : {"00 01", "02 00", "FF FF"}) {
        EquippedCamera equipped;
        equipped.usb.append(ask("38 00 9B 00", 2, reply));
        EXPECT_FALSE(equipped.camera.setCooling(-10.0F)) << reply;
        equipped.expectSettled(SET_POINT_FAILED);
    }
    EquippedCamera equipped;
    equipped.usb.append(ask("88 00 63 00", 2, "00 01"));
    EXPECT_FALSE(equipped.camera.setFilter(99));
    equipped.expectSettled(FILTER_FAILED);
}

TEST(StandardAccessory, IsRefusedWithoutTrafficWhereThereIsNone)
{
    const struct {
        Operation act;
        const char* error = "Unsupported operation";
    } CASES[] = {
        {temperature(4, 0), "Invalid parameter"},
        {temperature(0xFFFFFFFF, 0), "Invalid parameter"},
        {cooling(COOLING_ON, 0, 0)},
        {CALL(setCooling(-10.0F))},
        {CALL(initiateWarmUp())},
        {wheel(0, true, 0, 0)},
        {CALL(setFilter(1))},
        {CALL(setShutter(true))},
        {CALL(setGuideRelays(1))},
    };
    for (const auto& row : CASES) {
        for (const COOLER_TYPE cooler : {COOLER_NONE, COOLER_ALWAYSON}) {
            SCOPED_TRACE(&row - CASES);
            OpenedCamera bare;
            bare.camera.tempSensorCount = 3;
            bare.camera.tempSensorType = 1;
            bare.camera.cooler = cooler;
            bare.camera.lock();  // a refusal does not wait for it
            EXPECT_FALSE(row.act(bare.camera));
            bare.camera.unlock();
            bare.expectSettled(row.error);
        }
    }
}

TEST(Cooling, IsTheSameForOtherCoolersAndFailsOnAClosedCamera)
{
    for (const COOLER_TYPE cooler : {COOLER_ONOFF, COOLER_SELECTPOWER}) {
        EquippedCamera equipped;
        equipped.camera.cooler = cooler;
        equipped.usb.append(ask("35 00", 6, "6E EE A0 EE 9B 00")).append(ask("38 00 9B 00", 2, "01 00"));
        equipped.usb.command("39 00");
        EXPECT_TRUE(cooling(COOLING_SETPOINT, -10, 50)(equipped.camera));
        EXPECT_TRUE(equipped.camera.setCooling(-10.0F));
        EXPECT_TRUE(equipped.camera.initiateWarmUp());
        equipped.expectSettled();
    }
    EquippedCamera closed;  // keeps what it was identified as
    closed.camera.handle = nullptr;
    EXPECT_FALSE(closed.camera.setCooling(-10.0F));
    closed.expectSettled(SET_POINT_FAILED);
}

TEST(CoolingStatus, ANullStateSuppressesTheOthers)
{
    EquippedCamera equipped;
    equipped.camera.tempSensorType = 0;  // not even converted
    equipped.usb.append(ask("35 00", 6, "6E 00 80 00 9B 00"));
    float target = UNTOUCHED;
    float power = UNTOUCHED;
    EXPECT_TRUE(equipped.camera.getCoolingStatus(nullptr, &target, &power));
    EXPECT_TRUE(target == UNTOUCHED && power == UNTOUCHED);
}

TEST(Shutter, MovesOnStandardCamerasOnly)
{
    for (const CAMERA_TYPE type : {CLASSIC, ADVANCED, QUICKER, IIDC}) {
        EquippedCamera equipped(type);
        EXPECT_FALSE(equipped.camera.setShutter(true));
        equipped.expectSettled("Failed to set shutter");
    }
}

TEST(Modes, BelongToTheirFamilies)
{
    struct {
        CAMERA_TYPE type;
        bool preview;
        bool eightBit;
        bool dark;
    } const CASES[] = {
        {STANDARD, true, false, true},  {CLASSIC, true, false, false}, {ADVANCED, true, true, false},
        {QUICKER, false, false, false}, {IIDC, false, false, false},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << row.type);
        OpenedCamera opened(row.type);
        VornCameraImpl& camera = opened.camera;
        camera.lock();  // none of them waits for it
        // the value already set is fine everywhere
        EXPECT_TRUE(camera.setPreviewMode(false) && camera.set8BitMode(false) && camera.setDarkFrameMode(false));
        EXPECT_EQ(camera.setDarkFrameMode(true), row.dark);
        EXPECT_EQ(opened.error(), "No error");  // a refusal leaves the text, unlike the next two
        EXPECT_EQ(camera.setPreviewMode(true), row.preview);
        EXPECT_EQ(opened.error(), row.preview ? "No error" : "Unsupported operation");
        camera.lastError = "No error";
        EXPECT_EQ(camera.set8BitMode(true), row.eightBit);
        EXPECT_EQ(opened.error(), row.eightBit ? "No error" : "Unsupported operation");
        EXPECT_TRUE(camera.previewMode == row.preview && camera.eightBitMode == row.eightBit &&
                    camera.darkFrameMode == row.dark);
        camera.unlock();
    }
}

TEST(SensorScale, SpansMinus60To270BothWays)
{
    struct {
        unsigned sensorType;
        float celsius;
        unsigned raw;
    } const CASES[] = {
        {1, -60.0F, 0},    {1, -10.0F, 155}, {1, 270.0F, 1023}, {2, -60.0F, 0},
        {2, 270.0F, 4095}, {3, 0.0F, 0},     {9, 0.0F, 0},
    };
    OpenedCamera standard;
    VornCameraImpl& camera = standard.camera;
    for (const auto& row : CASES) {
        camera.tempSensorType = row.sensorType;
        EXPECT_EQ(camera.sensorToCelsius(static_cast<int>(row.raw)), row.celsius) << row.sensorType;
        EXPECT_EQ(camera.celsiusToSensor(row.celsius), row.raw) << row.sensorType << ": " << row.celsius;
    }
    camera.tempSensorType = 2;
    EXPECT_EQ(camera.sensorToCelsius(2048), 2048.0F * 330.0F / 4095.0F - 60.0F);
    camera.tempSensorType = 1;
    EXPECT_EQ(camera.sensorToCelsius(65535), 65535.0F * 330.0F / 1023.0F - 60.0F);
    EXPECT_EQ(camera.celsiusToSensor(25.0F), 264U);          // 263.5 + 0.5
    EXPECT_EQ(camera.celsiusToSensor(-60.3F), 0U);           // -0.43 truncates toward zero
    EXPECT_EQ(camera.celsiusToSensor(-70.0F), 0xFFFFFFE2U);  // -30.5 truncates to -30
    for (const float nonsense : {1e30F, -1e30F, std::numeric_limits<float>::quiet_NaN()})
        (void)camera.celsiusToSensor(nonsense);  // the undefined-behaviour sanitizer watches
}

TEST(TemperatureDeathTest, TypeZeroEndsTheProcess)
{
    EquippedCamera equipped;
    equipped.usb.append(temperatureOf("01 00", "00 00 00 00 00 00"));
    EXPECT_TRUE(equipped.camera.getTemperatureSensorStatus(1, nullptr));  // harmless while nobody wants to know
    equipped.usb.append(temperatureOf("01 00", "00 00 9B 00 00 00"));
    EXPECT_EXIT(temperature(1, 0)(equipped.camera), testing::ExitedWithCode(1),
                "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 225\\)");
    EXPECT_EXIT(equipped.camera.setCooling(-10.0F), testing::ExitedWithCode(1),
                "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 236\\)");
    equipped.usb.clear();
}

}  // namespace
