// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <tuple>

#include "family_steps.h"
#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::advancedCommand;
using vorntest::OpenedCamera;
using vorntest::Operation;
using vorntest::Steps;
using vorntest::TraceCapture;

const char* const TEMPERATURE_FAILED = "Failed to read temperature sensor status";
const char* const COOLING_FAILED = "Failed to set cooling status";
const char* const SET_POINT_FAILED = "Failed to set temperature";
const char* const WARM_UP_FAILED = "Failed to initiate warmup";
const char* const WHEEL_FAILED = "Failed to get filter wheel status";
const char* const FILTER_FAILED = "Failed to set filter";
const char* const SHUTTER_FAILED = "Failed to set shutter";
const char* const RELAYS_FAILED = "Failed to set guide relays";
const char* const DIRECTION_FAILED = "Failed to set GPIO direction";
const char* const SET_GPIO_FAILED = "Failed to set GPIO";
const char* const GET_GPIO_FAILED = "Failed to get GPIO";
const char* const UNSUPPORTED = "Unsupported operation";

/// A camera with every accessory: many 10-bit sensors, a cooler whose power reads from 10 to 210, all ports.
struct EquippedCamera : OpenedCamera {
    explicit EquippedCamera(CAMERA_TYPE type = STANDARD) : OpenedCamera(type)
    {
        camera.hasFilterWheel = camera.hasGuidePort = camera.hasGPIO = camera.hasShutter = true;
        camera.cooler = COOLER_SETPOINT;
        camera.tempSensorCount = 0x300;
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
        camera.tempSensorType = 2;
        const bool ok = camera.getTemperatureSensorStatus(sensor, &celsius);
        EXPECT_EQ(celsius, ok ? expected : UNTOUCHED);
        EXPECT_EQ(camera.tempSensorType, ok ? expectedType : 2U);
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
Operation guide(unsigned short mask, unsigned kept = 0)
{
    return [=](VornCameraImpl& camera) {
        const bool ok = camera.setGuideRelays(mask);
        EXPECT_EQ(camera.guideRelayState, kept);
        return ok;
    };
}

struct Exchange {
    CAMERA_TYPE type;
    const char* sent;   ///< the command as the family frames it; several are separated by |, with 5 ms between them
    const char* reply;  ///< to the last command
    Operation act;
    const char* error;  ///< the text when it fails
    bool taken = true;  ///< that reply means that the camera agrees

    Steps steps() const
    {
        Steps usb;
        std::istringstream commands(sent);
        for (std::string hex; std::getline(commands, hex, '|');) {
            if (usb.size() != 0)
                usb.pause(5000);
            if (type == ADVANCED)
                vorntest::advancedCommand(usb, hex, reply);
            else if (type == QUICKER)
                vorntest::spiWrite(usb, hex);
            else
                type == STANDARD ? usb.command(hex) : vorntest::classicCommand(usb, hex);
        }
        if (type == ADVANCED || *reply == '\0')
            return usb;
        if (act.target_type() == temperature(0, 0).target_type())
            usb.pause(100000);  // for the sensor
        return usb.parIn(static_cast<unsigned>(vorntest::parseHex(reply).size()), reply);
    }
};

// STANDARD numbers go low byte first and come back in the low bytes of words, ADVANCED ones high byte first both ways;
// CLASSIC replies come in the low bytes of words.
TEST(Accessory, SendsTheseBytesOrFails)
{
    const Exchange CASES[] = {
        {STANDARD, "37 00 01 00", "01 EE 9B 00 EE EE", temperature(1, -10), TEMPERATURE_FAILED},
        {STANDARD, "37 00 02 00", "02 EE FF 0F EE EE", temperature(2, 270, 2), TEMPERATURE_FAILED},
        {STANDARD, "37 00 00 00", "01 00 00 00 00 00", temperature(0, -60), TEMPERATURE_FAILED},
        {STANDARD, "37 00 00 03", "07 00 9B 00 00 00", temperature(0x300, 0, 7), TEMPERATURE_FAILED},  // unknown type
        {ADVANCED, "37 02 01", "EE 01 00 9B EE EE", temperature(0x201, -10), TEMPERATURE_FAILED},
        {ADVANCED, "37 00 01", "02 00 03 FF 00 00", temperature(1, UNTOUCHED, 0), TEMPERATURE_FAILED},  // no assertion
        {CLASSIC, "37 01 02", "01 EE 9B EE 00 EE", temperature(0x201, -10), TEMPERATURE_FAILED},
        // set-point outranks warming, which outranks on; other bits mean nothing, power is not clamped
        {STANDARD, "35 00", "6E EE A0 EE 9B 00", cooling(COOLING_SETPOINT, -10, 50), COOLING_FAILED},
        {STANDARD, "35 00", "6E EE 60 EE 9B 00", cooling(WARMING_UP, -10, 50), COOLING_FAILED},
        {STANDARD, "35 00", "FA EE 40 EE FF 03", cooling(COOLING_ON, 270, 120), COOLING_FAILED},
        {STANDARD, "35 00", "00 EE 1F EE 00 00", cooling(COOLING_INACTIVE, -60, -5), COOLING_FAILED},
        {ADVANCED, "35", "00 6E 00 A0 00 9B EE EE", cooling(COOLING_SETPOINT, -10, 50), COOLING_FAILED},
        {ADVANCED, "35", "00 0A 00 40 03 FF 00 00", cooling(COOLING_ON, 270, 0), COOLING_FAILED},
        {ADVANCED, "35", "01 9A E0 1F 00 00 00 00", cooling(COOLING_INACTIVE, -60, 200), COOLING_FAILED},
        {CLASSIC, "35", "6E EE A0 EE 9B EE 00 EE", cooling(COOLING_SETPOINT, -10, 50), COOLING_FAILED},
        {CLASSIC, "35", "6E 00 60 00 FF 00 03 00", cooling(WARMING_UP, 270, 50), COOLING_FAILED},
        {CLASSIC, "35", "0A FF 1F FF 9B FF 00 FF", cooling(COOLING_INACTIVE, -10, 0), COOLING_FAILED},
        {STANDARD, "38 00 9B 00", "01 00", CALL(setCooling(-10.0F)), SET_POINT_FAILED},
        {STANDARD, "38 00 E2 FF", "01 FF", CALL(setCooling(-70.0F)), SET_POINT_FAILED},  // below the range
        {STANDARD, "38 00 9B 00", "00 01", CALL(setCooling(-10.0F)), SET_POINT_FAILED, false},
        {STANDARD, "38 00 9B 00", "02 00", CALL(setCooling(-10.0F)), SET_POINT_FAILED, false},
        {ADVANCED, "38 00 9B", "FF 01", CALL(setCooling(-10.0F)), SET_POINT_FAILED},
        {ADVANCED, "38 00 9B", "01 00", CALL(setCooling(-10.0F)), SET_POINT_FAILED, false},
        {ADVANCED, "38 00 9B", "00 02", CALL(setCooling(-10.0F)), SET_POINT_FAILED, false},
        {CLASSIC, "38 9B 00", "01 FF", CALL(setCooling(-10.0F)), SET_POINT_FAILED},
        {CLASSIC, "38 9B 00", "00 01", CALL(setCooling(-10.0F)), SET_POINT_FAILED, false},
        {STANDARD, "39 00", "", CALL(initiateWarmUp()), WARM_UP_FAILED},
        {ADVANCED, "39", "", CALL(initiateWarmUp()), WARM_UP_FAILED},
        {CLASSIC, "39", "", CALL(initiateWarmUp()), WARM_UP_FAILED},
        {STANDARD, "87 00", "05 EE 01 EE 02 EE 04 EE", wheel(5, true, 2, 4), WHEEL_FAILED},
        {STANDARD, "87 00", "07 01 00 01 03 01 FF 01", wheel(7, false, 3, 255), WHEEL_FAILED},
        {ADVANCED, "87", "00 07 00 00 00 03 01 04", wheel(7, false, 3, 0x104), WHEEL_FAILED},
        {STANDARD, "88 00 03 01", "FF 00", CALL(setFilter(0x50103)), FILTER_FAILED},  // low 16 bits; the camera decides
        {ADVANCED, "88 00 03", "01 00", CALL(setFilter(0x103)), FILTER_FAILED},       // the low byte travels
        {ADVANCED, "88 00 09", "00 01", CALL(setFilter(9)), FILTER_FAILED},
        {STANDARD, "88 00 63 00", "00 01", CALL(setFilter(99)), FILTER_FAILED, false},
        {ADVANCED, "88 00 00", "00 00", CALL(setFilter(0x100)), FILTER_FAILED, false},
        {STANDARD, "09 00 01 00", "", CALL(setShutter(true)), SHUTTER_FAILED},
        {STANDARD, "09 00 00 00", "", CALL(setShutter(false)), SHUTTER_FAILED},
        // relays are opened first, then one of each pair is closed
        {STANDARD, "18 00", "", guide(0xFFF0), RELAYS_FAILED},
        {STANDARD, "18 00|14 00|16 00", "", guide(0xFFFF), RELAYS_FAILED},
        {STANDARD, "18 00|14 00|17 00", "", guide(0x9), RELAYS_FAILED},
        {ADVANCED, "18|15|17", "", guide(0xA), RELAYS_FAILED},
        {ADVANCED, "18|15|16", "", guide(0x6), RELAYS_FAILED},
        {QUICKER, "20 03", "", guide(0xFFF3, 3), RELAYS_FAILED},  // four bits, both of a pair
        {STANDARD, "83 00 34 12", "", CALL(setGPIODirection(0x1234)), DIRECTION_FAILED},
        {ADVANCED, "83 12 34", "", CALL(setGPIODirection(0x1234)), DIRECTION_FAILED},
        {STANDARD, "84 00 34 12", "", CALL(setGPIO(0x1234)), SET_GPIO_FAILED},
        {ADVANCED, "84 12 34", "", CALL(setGPIO(0x1234)), SET_GPIO_FAILED},
        {STANDARD, "82 00", "00 10 12 34", gpio(0x3412), GET_GPIO_FAILED},
        {ADVANCED, "82", "00 10 12 34", gpio(0x1234), GET_GPIO_FAILED},
    };
    for (const Exchange& row : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << row.type << ": " << row.sent << ", " << row.reply);
        forEachFailure(row.steps(), [&](const Steps& steps, bool ok) {
            for (const COOLER_TYPE cooler : {COOLER_ONOFF, COOLER_SELECTPOWER, COOLER_SETPOINT}) {  // all alike
                EquippedCamera equipped(row.type);
                equipped.camera.cooler = cooler;
                equipped.usb.append(steps);
                EXPECT_EQ(row.act(equipped.camera), ok && row.taken);
                equipped.expectSettled(ok && row.taken ? "No error" : row.error);
            }
        });
    }
}

TEST(Accessory, IsRefusedWithoutTrafficWhereThereIsNone)
{
    const struct {
        std::vector<CAMERA_TYPE> withoutIt;  ///< families that never have one
        Operation act;
        const char* error;  ///< theirs
        const char* unequipped = UNSUPPORTED;
    } CASES[] = {
        {{QUICKER}, temperature(1, 0), TEMPERATURE_FAILED, "Invalid parameter"},
        {{}, temperature(0xFFFFFFFF, 0), TEMPERATURE_FAILED, "Invalid parameter"},
        {{QUICKER, IIDC}, cooling(COOLING_ON, 0, 0), COOLING_FAILED},
        {{QUICKER, IIDC}, CALL(setCooling(0)), SET_POINT_FAILED},
        {{QUICKER, IIDC}, CALL(initiateWarmUp()), WARM_UP_FAILED},
        {{CLASSIC, QUICKER, IIDC}, wheel(0, true, 0, 0), WHEEL_FAILED},
        {{CLASSIC, QUICKER, IIDC}, CALL(setFilter(1)), FILTER_FAILED},
        {{CLASSIC, ADVANCED, QUICKER, IIDC}, CALL(setShutter(true)), SHUTTER_FAILED},
        {{CLASSIC, IIDC}, guide(1), RELAYS_FAILED},
        {{CLASSIC, QUICKER, IIDC}, CALL(setGPIODirection(1)), DIRECTION_FAILED},
        {{CLASSIC, QUICKER, IIDC}, CALL(setGPIO(1)), SET_GPIO_FAILED},
        {{CLASSIC, QUICKER, IIDC}, gpio(0, 0xCCCC), GET_GPIO_FAILED},
    };
    for (const auto& row : CASES) {
        for (const CAMERA_TYPE type : row.withoutIt) {
            SCOPED_TRACE(std::string(row.error) + ", type " + std::to_string(type));
            EquippedCamera equipped(type);
            EXPECT_FALSE(row.act(equipped.camera));
            equipped.expectSettled(row.error);
        }
        for (const COOLER_TYPE cooler : {COOLER_NONE, COOLER_ALWAYSON}) {
            SCOPED_TRACE(std::string(row.error) + ", unequipped");
            OpenedCamera bare;
            bare.camera.cooler = cooler;
            bare.camera.lock();  // a refusal does not wait for it
            EXPECT_FALSE(row.act(bare.camera));
            bare.camera.unlock();
            bare.expectSettled(row.unequipped);
        }
    }
}

TEST(CoolingStatus, ANullStateSuppressesTheOthers)
{
    EquippedCamera equipped;
    equipped.camera.tempSensorType = 0;  // not even converted
    equipped.usb.command("35 00").parIn(6, "6E 00 80 00 9B 00");
    float target = UNTOUCHED;
    float power = UNTOUCHED;
    EXPECT_TRUE(equipped.camera.getCoolingStatus(nullptr, &target, &power));
    EXPECT_TRUE(target == UNTOUCHED && power == UNTOUCHED);
    equipped.usb.command("35 00").parIn(6, "6E 00 80 00 9B 00");
    COOLING_STATE state = COOLING_INACTIVE;
    EXPECT_TRUE(equipped.camera.getCoolingStatus(&state, nullptr, nullptr));  // only what is asked for is stored
    EXPECT_EQ(state, COOLING_SETPOINT);
}

TEST(CoolingStatus, PowerIsNotClamped)
{
    const std::tuple<unsigned, unsigned, const char*, float> CASES[] = {
        {10, 10, "00 6E 00 80 00 9B 00 00", std::numeric_limits<float>::infinity()},
        {10, 10, "00 00 00 80 00 9B 00 00", -std::numeric_limits<float>::infinity()},
        {210, 10, "00 6E 00 80 00 9B 00 00", 100.0F * -100.0F / 4294967096.0F},  // the difference of the bounds wraps
        {0, 1, "FF FF 00 80 00 9B 00 00", 6553500.0F},
    };
    for (const auto& [least, most, reply, power] : CASES) {
        EquippedCamera equipped(ADVANCED);
        equipped.camera.minCoolerPower = least;
        equipped.camera.maxCoolerPower = most;
        vorntest::advancedCommand(equipped.usb, "35", reply);
        TraceCapture trace;  // printing infinity as a whole number must not be undefined
        EXPECT_TRUE(cooling(COOLING_SETPOINT, -10, power)(equipped.camera));
    }
}

TEST(Modes, BelongToTheirFamilies)
{
    const std::tuple<CAMERA_TYPE, bool, bool, bool> CASES[] = {
        {STANDARD, true, false, true},  {CLASSIC, true, false, false}, {ADVANCED, true, true, false},
        {QUICKER, false, false, false}, {IIDC, false, false, false},
    };
    for (const auto& [type, preview, eightBit, dark] : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << type);
        OpenedCamera opened(type);
        VornCameraImpl& camera = opened.camera;
        camera.lock();  // none of them waits for it
        // the value already set is fine everywhere
        EXPECT_TRUE(camera.setPreviewMode(false) && camera.set8BitMode(false) && camera.setDarkFrameMode(false));
        EXPECT_EQ(camera.setDarkFrameMode(true), dark);
        EXPECT_EQ(opened.error(), "No error");  // a refusal leaves the text, unlike the next two
        EXPECT_EQ(camera.setPreviewMode(true), preview);
        EXPECT_EQ(opened.error(), preview ? "No error" : UNSUPPORTED);
        camera.lastError = "No error";
        EXPECT_EQ(camera.set8BitMode(true), eightBit);
        EXPECT_EQ(opened.error(), eightBit ? "No error" : UNSUPPORTED);
        EXPECT_TRUE(camera.previewMode == preview && camera.eightBitMode == eightBit && camera.darkFrameMode == dark);
        camera.unlock();
    }
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
    for (const Exchange& row : {Exchange{STANDARD, "37 00 01 00", "00 00 9B 00 00 00", temperature(1, 0), ""},
                                Exchange{CLASSIC, "37 01 00", "00 00 9B 00 00 00", temperature(1, 0), ""}}) {
        EquippedCamera equipped(row.type);
        equipped.usb.append(row.steps());
        EXPECT_TRUE(equipped.camera.getTemperatureSensorStatus(1, nullptr));  // harmless while nobody wants to know
        equipped.usb.append(row.steps());
        EXPECT_EXIT(row.act(equipped.camera), testing::ExitedWithCode(1),
                    "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 225\\)");
        EXPECT_EXIT(equipped.camera.setCooling(-10.0F), testing::ExitedWithCode(1),
                    "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 236\\)");
        equipped.usb.clear();
    }
}

TEST(TemperatureIidc, IsInTenthsOfAKelvin)
{
    const struct {
        const char* bytes;  ///< empty: the register does not answer
        float celsius;
    } CASES[] = {{"8C FB FF 8C", 22.45F}, {"FF 0F 00 00", 136.35F}, {"00 00 00 80", -273.15F}, {"", -273.15F}};
    for (const auto& row : CASES) {
        OpenedCamera iidc(IIDC);
        vorntest::readRegister(iidc.usb, 0x082C, row.bytes);
        if (*row.bytes == '\0')
            iidc.usb.fails(LIBUSB_ERROR_NO_DEVICE);
        float celsius = UNTOUCHED;
        EXPECT_TRUE(iidc.camera.getTemperatureSensorStatus(0, &celsius));
        EXPECT_EQ(celsius, row.celsius);
        iidc.expectSettled();
    }
}

// marker, not interpreted, gain, offset code; the same for the preview
const char* const EARLIER = "00 58 AA AA 00 07 00 07 00 58 AA AA 00 07 00 07";
const char* const RECORD = "00 58 12 34 00 3F 01 80 00 58 56 78 00 02 00 90";
const char* const NOT_READY = "01 58 12 34 00 3F 01 80 00 58 56 78 00 02 00 90";
TEST(GetGain, DecodesTheHalfOfTheReadoutMode)
{
    const std::tuple<bool, const char*, int, int> CASES[] = {
        {false, RECORD, 63, 128},  // code 384
        {true, RECORD, 2, 401},    // code 144
        {false, "00 58 00 00 00 00 02 00 00 58 00 00 00 01 00 01", 0, 0},
        {false, "00 58 00 00 00 0A 00 00 00 58 00 00 00 01 00 01", 10, 257},
        {false, "00 58 00 00 00 0A 00 FF 00 58 00 00 00 01 00 01", 10, 512},
        {false, "00 58 00 00 00 0A 01 00 00 58 00 00 00 01 00 01", 10, 256},
        {true, "00 00 00 00 00 00 00 00 00 00 00 00 01 02 03 00", 258, -256},  // neither marked nor in range
    };
    for (const auto& [preview, record, expectedGain, expectedOffset] : CASES) {
        OpenedCamera advanced(ADVANCED);
        advanced.camera.previewMode = preview;
        advancedCommand(advanced.usb, "8D", record);
        int gain = -1;
        int offset = -1;
        EXPECT_TRUE(advanced.camera.getGain(&gain, &offset));
        EXPECT_EQ(std::pair(gain, offset), std::pair(expectedGain, expectedOffset)) << record;
        advanced.expectSettled();
    }
}

TEST(GetGain, AsksAgainUpToAHundredTimes)
{
    const struct {
        int notReady;
        int result;  ///< of the last exchange
        const char* error;
        const char* line;
    } CASES[] = {
        {99, 0, "No error", "<- VornCameraImpl::getGain 1 -> 63, 128"},
        {100, 0, "Failed to set gain", "<- VornCameraImpl::getGain 00 //  no response"},  // the 101st does not count
        {1, LIBUSB_ERROR_TIMEOUT, "No error", "<- VornCameraImpl::getGain 0 -> -1, -2"},
    };
    for (const auto& row : CASES) {
        OpenedCamera advanced(ADVANCED);
        for (int i = 0; i < row.notReady; i++)
            advancedCommand(advanced.usb, "8D", NOT_READY);
        advancedCommand(advanced.usb, "8D", RECORD).fails(row.result);
        const bool ok = row.notReady == 99;
        int gain = -1;
        int offset = -2;
        TraceCapture trace;
        EXPECT_EQ(advanced.camera.getGain(&gain, &offset), ok);
        EXPECT_EQ(std::pair(gain, offset), ok ? std::pair(63, 128) : std::pair(-1, -2));
        EXPECT_EQ(trace.lines().back(), row.line);
        advanced.expectSettled(row.error);
    }
}

TEST(Gain, OfOtherFamiliesLeavesAText)
{
    for (const CAMERA_TYPE type : {STANDARD, CLASSIC, QUICKER, IIDC}) {
        OpenedCamera other(type);
        int gain = -1;
        int offset = -2;
        TraceCapture trace;
        EXPECT_TRUE(other.camera.getGain(&gain, &offset));
        EXPECT_EQ(std::pair(gain, offset), std::pair(-1, -2));
        EXPECT_EQ(other.error(), "Unsupported operation");
        other.camera.lastError = "No error";
        EXPECT_TRUE(other.camera.setGain(64, -1));  // not even its arguments matter
        other.expectSettled("Unsupported operation");
        EXPECT_TRUE(trace.has("<- VornCameraImpl::getGain 1 -> -1, -2"));
        EXPECT_TRUE(trace.has("<- VornCameraImpl::setGain 1"));
    }
}

/// What setGain() polls for, with a pause after each; an empty record is no answer.
Steps polling(const std::vector<const char*>& records)
{
    Steps usb;
    for (const char* record : records) {
        const bool answered = *record != '\0';
        advancedCommand(usb, "8D", answered ? record : RECORD).fails(answered ? 0 : LIBUSB_ERROR_TIMEOUT).pause(10000);
    }
    return usb;
}

TEST(SetGain, WritesTheSecondValidRecord)
{
    const std::vector<const char*> two = {EARLIER, RECORD};  // the first valid one is never used
    const std::vector<const char*> passedOver = {
        NOT_READY,
        "00 59 12 34 00 3F 01 80 00 58 56 78 00 02 00 90",  // markers
        "00 58 12 34 00 3F 01 80 00 57 56 78 00 02 00 90",
        "00 58 12 34 00 3F 01 80 01 58 56 78 00 02 00 90",
        "00 58 12 34 00 40 01 80 00 58 56 78 00 02 00 90",  // gains beyond 63
        "00 58 12 34 01 00 01 80 00 58 56 78 00 02 00 90",
        "00 58 12 34 00 3F 01 80 00 58 56 78 00 40 00 90",
        "",  // the record stays what it was: not valid
        EARLIER,
        NOT_READY,  // the second valid one need not follow at once
        RECORD,
    };
    const struct {
        bool preview;
        std::vector<const char*> polls;
        int gain;
        int offset;
        const char* payload;  ///< null: nothing is written
    } CASES[] = {
        {false, two, 0, 0, "00 19 00 58 12 34 00 00 02 00 00 58 56 78 00 02 00 90"},
        {false, two, 0, 1, "00 19 00 58 12 34 00 00 01 FF 00 58 56 78 00 02 00 90"},
        {false, two, 10, 256, "00 19 00 58 12 34 00 0A 01 00 00 58 56 78 00 02 00 90"},
        {false, two, 10, 257, "00 19 00 58 12 34 00 0A 00 00 00 58 56 78 00 02 00 90"},
        {true, two, 10, 512, "00 19 00 58 12 34 00 3F 01 80 00 58 56 78 00 0A 00 FF"},
        {true, two, 63, 258, "00 19 00 58 12 34 00 3F 01 80 00 58 56 78 00 3F 00 01"},
        {false, passedOver, 5, 0, "00 19 00 58 12 34 00 05 02 00 00 58 56 78 00 02 00 90"},
        {false, {RECORD, ""}, 5, 0, nullptr},  // the record stays valid, which ends the loop
    };
    for (const auto& row : CASES) {
        for (const bool accepted : {true, false}) {
            OpenedCamera advanced(ADVANCED);
            advanced.camera.previewMode = row.preview;
            advanced.usb.append(polling(row.polls));
            if (row.payload != nullptr)
                advancedCommand(advanced.usb, std::string("8C ") + row.payload).fails(accepted ? 0 : LIBUSB_ERROR_IO);
            EXPECT_EQ(advanced.camera.setGain(row.gain, row.offset), accepted && row.payload != nullptr);
            advanced.expectSettled();  // a failure leaves the text
        }
    }
}

TEST(SetGain, GivesUpAtTheHundredAndFirst)
{
    for (const bool answered : {true, false}) {
        OpenedCamera advanced(ADVANCED);
        std::vector<const char*> records(101, answered ? NOT_READY : "");
        if (answered)
            records.front() = records.back() = RECORD;  // a second valid record comes too late
        advanced.usb.append(polling(records));
        TraceCapture trace;
        EXPECT_FALSE(advanced.camera.setGain(5, 0));
        EXPECT_EQ(trace.lines().back(), "<- VornCameraImpl::getGain 00 //  no response");
        advanced.expectSettled("Failed to set gain");
    }
}

TEST(SetGain, RefusesWhatIsOutOfRange)
{
    const std::pair<int, int> CASES[] = {{-1, 0}, {64, 0}, {0, -1}, {0, 513}, {INT_MIN, INT_MAX}};
    for (const auto& [gain, offset] : CASES) {
        OpenedCamera advanced(ADVANCED);
        TraceCapture trace;
        EXPECT_FALSE(advanced.camera.setGain(gain, offset));
        EXPECT_TRUE(
            trace.text().ends_with("    lock()\n    unlock()\n<- VornCameraImpl::setGain 00 // invalid parameter\n"));
        advanced.expectSettled("Invalid parameter");
    }
}

}  // namespace
