// SPDX-License-Identifier: MIT
// Temperature, cooling, wheel, guide relays and GPIO of the families with a dialect of their own.
#include <limits>

#include <gtest/gtest.h>

#include "family_steps.h"
#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Operation;
using vorntest::readRegister;
using vorntest::Steps;
using vorntest::TraceCapture;

const char* const TEMPERATURE_FAILED = "Failed to read temperature sensor status";
const char* const COOLING_FAILED = "Failed to set cooling status";
const char* const SET_POINT_FAILED = "Failed to set temperature";
const char* const WARM_UP_FAILED = "Failed to initiate warmup";
const char* const WHEEL_FAILED = "Failed to get filter wheel status";
const char* const FILTER_FAILED = "Failed to set filter";
const char* const RELAYS_FAILED = "Failed to set guide relays";

/// A camera with every accessory: a 10-bit sensor, a cooler whose power reads from 10 to 210, all ports.
struct EquippedCamera : OpenedCamera {
    explicit EquippedCamera(CAMERA_TYPE type) : OpenedCamera(type)
    {
        camera.tempSensorCount = 0x300;
        camera.tempSensorType = 1;
        camera.cooler = COOLER_SETPOINT;
        camera.minCoolerPower = 10;
        camera.maxCoolerPower = 210;
        camera.hasFilterWheel = camera.hasGuidePort = camera.hasGPIO = camera.hasShutter = true;
    }
};

Steps advanced(const char* hex, const char* reply = "")
{
    Steps usb;
    return vorntest::advancedCommand(usb, hex, reply);
}

Steps classic(const char* hex)
{
    Steps usb;
    return vorntest::classicCommand(usb, hex);
}

Steps relays(const char* firstPair, const char* secondPair)
{
    return advanced("18").pause(5000).append(advanced(firstPair)).pause(5000).append(advanced(secondPair));
}

// What follows reads into variables of the host, which a failure leaves alone.

Operation minus10At(unsigned sensor)
{
    return [sensor](VornCameraImpl& camera) {
        float celsius = 99.0F;
        camera.tempSensorType = 2;
        const bool ok = camera.getTemperatureSensorStatus(sensor, &celsius);
        EXPECT_EQ(celsius, ok ? -10.0F : 99.0F);
        EXPECT_EQ(camera.tempSensorType, ok ? 1U : 2U);
        return ok;
    };
}

Operation cooling(COOLING_STATE expectedState, float expectedTarget, float expectedPower)
{
    return [=](VornCameraImpl& camera) {
        auto state = static_cast<COOLING_STATE>(9);
        float target = 99.0F;
        float power = 999.0F;
        const bool ok = camera.getCoolingStatus(&state, &target, &power);
        EXPECT_EQ(state, ok ? expectedState : 9);
        EXPECT_EQ(target, ok ? expectedTarget : 99.0F);
        EXPECT_EQ(power, ok ? expectedPower : 999.0F);
        return ok;
    };
}

bool wheelRests(VornCameraImpl& camera)
{
    unsigned count = 9;
    unsigned current = 9;
    unsigned target = 9;
    bool moving = true;
    const bool ok = camera.getFilterWheelStatus(&count, &moving, &current, &target);
    EXPECT_EQ(std::vector({count, current, target}), ok ? std::vector({7U, 3U, 0x104U}) : std::vector({9U, 9U, 9U}));
    EXPECT_EQ(moving, !ok);
    return ok;
}

/// Levels are stored whatever the result, unless there is no traffic.
Operation gpio(unsigned short expected, unsigned short afterFailure = 0)
{
    return [=](VornCameraImpl& camera) {
        unsigned short levels = 0xCCCC;
        const bool ok = camera.getGPIO(&levels);
        EXPECT_EQ(levels, ok ? expected : afterFailure);
        return ok;
    };
}

/// @param kept what the camera object remembers of it
Operation guide(unsigned short mask, unsigned kept)
{
    return [=](VornCameraImpl& camera) {
        const bool ok = camera.setGuideRelays(mask);
        EXPECT_EQ(camera.guideRelayState, kept);
        return ok;
    };
}

TEST(FamilyAccessory, SendsTheseBytesOrEndsWithItsText)
{
    Steps quickerRelays;
    vorntest::spiWrite(quickerRelays, "20 03");
    const struct {
        CAMERA_TYPE type;
        Steps conversation;
        Operation act;
        const char* error;
    } CASES[] = {
        // numbers and values: ADVANCED high byte first, CLASSIC in the low bytes of words
        {ADVANCED, advanced("37 02 01", "EE 01 00 9B EE EE"), minus10At(0x201), TEMPERATURE_FAILED},
        {CLASSIC, classic("37 01 02").pause(100000).parIn(6, "01 EE 9B EE 00 EE"), minus10At(0x201),
         TEMPERATURE_FAILED},
        // set-point outranks warming, which outranks on; the high byte of the flags means nothing
        {ADVANCED, advanced("35", "00 6E 00 A0 00 9B EE EE"), cooling(COOLING_SETPOINT, -10, 50), COOLING_FAILED},
        {ADVANCED, advanced("35", "00 6E 00 60 00 9B 00 00"), cooling(WARMING_UP, -10, 50), COOLING_FAILED},
        {ADVANCED, advanced("35", "00 0A 00 40 03 FF 00 00"), cooling(COOLING_ON, 270, 0), COOLING_FAILED},
        {ADVANCED, advanced("35", "00 D2 E0 1F 00 00 00 00"), cooling(COOLING_INACTIVE, -60, 100), COOLING_FAILED},
        {ADVANCED, advanced("35", "01 9A 00 80 00 9B 00 00"), cooling(COOLING_SETPOINT, -10, 200), COOLING_FAILED},
        {CLASSIC, classic("35").parIn(8, "6E EE A0 EE 9B EE 00 EE"), cooling(COOLING_SETPOINT, -10, 50),
         COOLING_FAILED},
        {CLASSIC, classic("35").parIn(8, "6E 00 60 00 FF 00 03 00"), cooling(WARMING_UP, 270, 50), COOLING_FAILED},
        {CLASSIC, classic("35").parIn(8, "D2 00 40 00 9B 00 00 00"), cooling(COOLING_ON, -10, 100), COOLING_FAILED},
        {CLASSIC, classic("35").parIn(8, "0A FF 1F FF 9B FF 00 FF"), cooling(COOLING_INACTIVE, -10, 0), COOLING_FAILED},
        {ADVANCED, advanced("38 00 9B", "00 01"), CALL(setCooling(-10.0F)), SET_POINT_FAILED},
        {ADVANCED, advanced("38 FF E2", "FF 01"), CALL(setCooling(-70.0F)), SET_POINT_FAILED},  // low 16 bits
        {CLASSIC, classic("38 9B 00").parIn(2, "01 FF"), CALL(setCooling(-10.0F)), SET_POINT_FAILED},
        {ADVANCED, advanced("39"), CALL(initiateWarmUp()), WARM_UP_FAILED},
        {CLASSIC, classic("39"), CALL(initiateWarmUp()), WARM_UP_FAILED},
        {ADVANCED, advanced("87", "00 07 00 00 00 03 01 04"), wheelRests, WHEEL_FAILED},
        {ADVANCED, advanced("88 00 03", "01 00"), CALL(setFilter(0x103)), FILTER_FAILED},  // the low byte travels
        {ADVANCED, advanced("88 00 09", "00 01"), CALL(setFilter(9)), FILTER_FAILED},      // beyond the wheel
        // both of each pair, then the others
        {ADVANCED, relays("14", "16"), guide(0xF, 0), RELAYS_FAILED},
        {ADVANCED, relays("15", "17"), guide(0xA, 0), RELAYS_FAILED},
        {QUICKER, quickerRelays, guide(0xFFF3, 3), RELAYS_FAILED},  // four bits, unchanged
        {STANDARD, Steps().command("83 00 34 12"), CALL(setGPIODirection(0x1234)), "Failed to set GPIO direction"},
        {ADVANCED, advanced("83 12 34"), CALL(setGPIODirection(0x1234)), "Failed to set GPIO direction"},
        {STANDARD, Steps().command("84 00 34 12"), CALL(setGPIO(0x1234)), "Failed to set GPIO"},
        {ADVANCED, advanced("84 12 34"), CALL(setGPIO(0x1234)), "Failed to set GPIO"},
        {STANDARD, Steps().command("82 00").parIn(4, "00 10 12 34"), gpio(0x3412), "Failed to get GPIO"},
        {ADVANCED, advanced("82", "00 10 12 34"), gpio(0x1234), "Failed to get GPIO"},
    };
    for (size_t number = 0; number < std::size(CASES); number++) {
        const auto& row = CASES[number];
        SCOPED_TRACE("case " + std::to_string(number + 1) + ": " + row.error);
        vorntest::forEachFailure(row.conversation, [&](const Steps& steps, bool ok) {
            EquippedCamera equipped(row.type);
            equipped.usb.append(steps);
            EXPECT_EQ(row.act(equipped.camera), ok);
            equipped.expectSettled(ok ? "No error" : row.error);
        });
    }
}

TEST(FamilyAccessory, IsRefusedWithoutTrafficWhereAFamilyHasNone)
{
    const struct {
        std::vector<CAMERA_TYPE> types;
        Operation act;
        const char* error;
    } CASES[] = {
        {{QUICKER}, minus10At(1), TEMPERATURE_FAILED},
        {{QUICKER, IIDC}, cooling(COOLING_ON, 0, 0), COOLING_FAILED},
        {{QUICKER, IIDC}, CALL(setCooling(0)), SET_POINT_FAILED},
        {{QUICKER, IIDC}, CALL(initiateWarmUp()), WARM_UP_FAILED},
        {{CLASSIC, QUICKER, IIDC}, wheelRests, WHEEL_FAILED},
        {{CLASSIC, QUICKER, IIDC}, CALL(setFilter(1)), FILTER_FAILED},
        {{CLASSIC, IIDC}, CALL(setGuideRelays(1)), RELAYS_FAILED},
        {{CLASSIC, QUICKER, IIDC}, CALL(setGPIODirection(1)), "Failed to set GPIO direction"},
        {{CLASSIC, QUICKER, IIDC}, CALL(setGPIO(1)), "Failed to set GPIO"},
        {{CLASSIC, QUICKER, IIDC}, gpio(0, 0xCCCC), "Failed to get GPIO"},
    };
    for (const auto& row : CASES) {
        for (const CAMERA_TYPE type : row.types) {
            SCOPED_TRACE(std::string(row.error) + ", type " + std::to_string(type));
            EquippedCamera equipped(type);
            EXPECT_FALSE(row.act(equipped.camera));
            equipped.expectSettled(row.error);
        }
    }
}

TEST(Gpio, IsUnsupportedWithoutAPort)
{
    for (const CAMERA_TYPE type : {STANDARD, ADVANCED}) {
        OpenedCamera opened(type);
        opened.camera.lock();  // a refusal does not wait for it
        for (const Operation& act :
             {Operation(CALL(setGPIODirection(1))), Operation(CALL(setGPIO(1))), gpio(0, 0xCCCC)})
            EXPECT_FALSE(act(opened.camera));
        opened.camera.unlock();
        opened.expectSettled("Unsupported operation");
    }
}

TEST(CoolingStatus, PowerFollowsItsBoundsWhereverTheyAre)
{
    const struct {
        unsigned least;
        unsigned most;
        const char* reply;
        float power;
    } CASES[] = {
        {10, 10, "00 6E 00 80 00 9B 00 00", std::numeric_limits<float>::infinity()},
        {10, 10, "00 00 00 80 00 9B 00 00", -std::numeric_limits<float>::infinity()},
        {210, 10, "00 6E 00 80 00 9B 00 00", -2.3283064e-06F},  // the difference of the bounds wraps
        {0, 1, "FF FF 00 80 00 9B 00 00", 6553500.0F},
    };
    for (const auto& row : CASES) {
        EquippedCamera equipped(ADVANCED);
        equipped.camera.minCoolerPower = row.least;
        equipped.camera.maxCoolerPower = row.most;
        equipped.usb.append(advanced("35", row.reply));
        COOLING_STATE state = COOLING_INACTIVE;
        float power = 0;
        TraceCapture trace;  // printing infinity as a whole number must not be undefined
        EXPECT_TRUE(equipped.camera.getCoolingStatus(&state, nullptr, &power));
        EXPECT_FLOAT_EQ(power, row.power);
    }
}

TEST(FamilyAccessory, WantsTheAcknowledgementInItsFamilysByte)
{
    EquippedCamera equipped(ADVANCED);
    for (const char* reply : {"01 00", "00 02"}) {
        equipped.usb.append(advanced("38 00 9B", reply));
        EXPECT_FALSE(equipped.camera.setCooling(-10.0F));
        equipped.expectSettled(SET_POINT_FAILED);
    }
    equipped.usb.append(advanced("88 00 00", "00 00"));
    EXPECT_FALSE(equipped.camera.setFilter(0x100));
    equipped.expectSettled(FILTER_FAILED);

    EquippedCamera other(CLASSIC);
    other.usb.append(classic("38 9B 00").parIn(2, "00 01"));
    EXPECT_FALSE(other.camera.setCooling(-10.0F));
    other.expectSettled(SET_POINT_FAILED);
}

TEST(TemperatureAdvanced, TypeZeroSucceedsAndLeavesTheTemperature)
{
    EquippedCamera equipped(ADVANCED);
    equipped.usb.append(advanced("37 00 01", "02 00 03 FF 00 00"));
    float celsius = 99.0F;
    TraceCapture trace;
    EXPECT_TRUE(equipped.camera.getTemperatureSensorStatus(1, &celsius));
    EXPECT_EQ(celsius, 99.0F);
    EXPECT_EQ(equipped.camera.tempSensorType, 0U);
    EXPECT_TRUE(trace.has("    temperature senzor type: 0"));
}

TEST(TemperatureFamilyDeathTest, TypeZeroEndsTheProcessWhenConverted)
{
    EquippedCamera typeZero(CLASSIC);
    typeZero.usb.append(classic("37 01 00").pause(100000).parIn(6, "00 00 9B 00 00 00"));
    EXPECT_EXIT(minus10At(1)(typeZero.camera), testing::ExitedWithCode(1),
                "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 225\\)");
    typeZero.usb.clear();
    typeZero.camera.tempSensorType = 0;
    EXPECT_EXIT(typeZero.camera.setCooling(-10.0F), testing::ExitedWithCode(1),
                "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 236\\)");
}

TEST(TemperatureIidc, IsTheLowTwelveBitsInTenthsOfAKelvin)
{
    const struct {
        const char* bytes;  ///< empty: the register does not answer
        float celsius;
    } CASES[] = {{"8C FB FF 8C", 22.45F}, {"FF 0F 00 00", 136.35F}, {"00 00 00 80", -273.15F}, {"", -273.15F}};
    for (const auto& row : CASES) {
        OpenedCamera iidc(IIDC);
        readRegister(iidc.usb, 0x082C, row.bytes);
        if (*row.bytes == '\0')
            iidc.usb.fails(LIBUSB_ERROR_NO_DEVICE);
        float celsius = 99.0F;
        EXPECT_TRUE(iidc.camera.getTemperatureSensorStatus(0, &celsius));
        EXPECT_EQ(celsius, row.celsius);
        iidc.expectSettled();
    }
}

TEST(TraceFamilies, OfAccessories)
{
    EquippedCamera equipped(ADVANCED);
    equipped.usb.append(advanced("37 00 01", "00 01 00 9B 00 00"));
    equipped.usb.append(advanced("83 00 0F")).append(advanced("82", "00 10 12 34"));
    TraceCapture trace;
    minus10At(1)(equipped.camera);
    equipped.camera.setGPIODirection(0xF);
    gpio(0x1234)(equipped.camera);
    equipped.camera.hasGPIO = false;
    equipped.camera.setGPIO(0xAB);
    EXPECT_EQ(trace.text(),
              "-> VornCameraImpl::getTemperatureSensorStatus(1, ...)\n    lock()\n"
              " -> VornCameraImpl::sendCommand(55, [0x00 0x01], ..., 2, 6)\n"
              " <- VornCameraImpl::sendCommand 1 [0x00 0x01 0x00 0x9b...]\n"
              "    temperature senzor type: 1\n    current temperature: -10.0\n    unlock()\n"
              "<- VornCameraImpl::getTemperatureSensorStatus 1\n-> VornCameraImpl::setGPIODirection(0x000f)\n"
              "    lock()\n -> VornCameraImpl::sendCommand(131, [0x00 0x0f], ..., 2, 0)\n"
              " <- VornCameraImpl::sendCommand 1 NULL\n    unlock()\n<- VornCameraImpl::setGPIODirection 1\n"
              "-> VornCameraImpl::getGPIO(...)\n    lock()\n -> VornCameraImpl::sendCommand(130, NULL, ..., 0, 4)\n"
              " <- VornCameraImpl::sendCommand 1 [0x00 0x10 0x12 0x34]\n    unlock()\n"
              "<- VornCameraImpl::getGPIO 1 -> 0x1234\n"
              "-> VornCameraImpl::setGPIO(0x00ab)\n<- VornCameraImpl::setGPIO 00\n");
}

}  // namespace
