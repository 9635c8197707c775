// SPDX-License-Identifier: MIT
// Temperature, cooling, wheel, guide relays and GPIO of the families with a dialect of their own.
#include <functional>
#include <limits>

#include <gtest/gtest.h>

#include "conversation_parts.h"
#include "family_steps.h"
#include "trace_capture.h"

namespace {

using vorntest::advancedCommand;
using vorntest::classicCommand;
using vorntest::OpenedCamera;
using vorntest::readRegister;
using vorntest::spiWrite;
using vorntest::Steps;
using vorntest::TraceCapture;

/// Gives @p camera every accessory: a 10-bit sensor, a cooler whose power reads from 10 to 210, all ports.
void equip(VornCameraImpl& camera)
{
    camera.tempSensorCount = 0x300;
    camera.tempSensorType = 1;
    camera.cooler = COOLER_SETPOINT;
    camera.minCoolerPower = 10;
    camera.maxCoolerPower = 210;
    camera.hasFilterWheel = camera.hasGuidePort = camera.hasGPIO = camera.hasShutter = true;
}

struct EquippedCamera : OpenedCamera {
    explicit EquippedCamera(CAMERA_TYPE type) : OpenedCamera(type) { equip(camera); }
};

bool temperatureIsMinus10(VornCameraImpl& camera, unsigned sensor)
{
    float celsius = 99.0F;
    camera.tempSensorType = 2;
    const bool ok = camera.getTemperatureSensorStatus(sensor, &celsius);
    EXPECT_EQ(celsius, ok ? -10.0F : 99.0F);
    EXPECT_EQ(camera.tempSensorType, ok ? 1U : 2U);
    return ok;
}

bool coolingIsHalf(VornCameraImpl& camera)
{
    COOLING_STATE state = COOLING_ON;
    float target = 99.0F;
    float power = 999.0F;
    const bool ok = camera.getCoolingStatus(&state, &target, &power);
    EXPECT_EQ(state, ok ? COOLING_SETPOINT : COOLING_ON);
    EXPECT_EQ(target, ok ? -10.0F : 99.0F);
    EXPECT_EQ(power, ok ? 50.0F : 999.0F);
    return ok;
}

bool gpioIs(VornCameraImpl& camera, unsigned short expected)
{
    unsigned short levels = 0xCCCC;
    const bool ok = camera.getGPIO(&levels);
    EXPECT_EQ(levels, ok ? expected : 0);  // stored whatever the result
    return ok;
}

struct Operation {
    const char* label;
    CAMERA_TYPE type;
    std::function<void(Steps&)> conversation;
    std::function<bool(VornCameraImpl&)> act;
    const char* error;
};

const Operation OPERATIONS[] = {
    {"temperature, number and value high byte first", ADVANCED,
     [](Steps& usb) { advancedCommand(usb, "37 02 01", "EE 01 00 9B EE EE"); },
     [](VornCameraImpl& camera) { return temperatureIsMinus10(camera, 0x201); },
     "Failed to read temperature sensor status"},
    {"temperature, number 0", ADVANCED, [](Steps& usb) { advancedCommand(usb, "37 00 00", "00 01 00 9B 00 00"); },
     [](VornCameraImpl& camera) { return temperatureIsMinus10(camera, 0); },
     "Failed to read temperature sensor status"},
    {"temperature, compacted", CLASSIC,
     [](Steps& usb) { classicCommand(usb, "37 01 02").pause(100000).parIn(6, "01 EE 9B EE 00 EE"); },
     [](VornCameraImpl& camera) { return temperatureIsMinus10(camera, 0x201); },
     "Failed to read temperature sensor status"},
    {"cooling status", ADVANCED, [](Steps& usb) { advancedCommand(usb, "35", "00 6E 00 80 00 9B EE EE"); },
     coolingIsHalf, "Failed to set cooling status"},
    {"cooling status, compacted", CLASSIC,
     [](Steps& usb) { classicCommand(usb, "35").parIn(8, "6E EE 80 EE 9B EE 00 EE"); }, coolingIsHalf,
     "Failed to set cooling status"},
    {"set-point", ADVANCED, [](Steps& usb) { advancedCommand(usb, "38 00 9B", "00 01"); },
     [](VornCameraImpl& camera) { return camera.setCooling(-10.0F); }, "Failed to set temperature"},
    {"set-point below the range, low 16 bits", ADVANCED, [](Steps& usb) { advancedCommand(usb, "38 FF E2", "FF 01"); },
     [](VornCameraImpl& camera) { return camera.setCooling(-70.0F); }, "Failed to set temperature"},
    {"set-point", CLASSIC, [](Steps& usb) { classicCommand(usb, "38 9B 00").parIn(2, "01 FF"); },
     [](VornCameraImpl& camera) { return camera.setCooling(-10.0F); }, "Failed to set temperature"},
    {"warm-up", ADVANCED, [](Steps& usb) { advancedCommand(usb, "39"); },
     [](VornCameraImpl& camera) { return camera.initiateWarmUp(); }, "Failed to initiate warmup"},
    {"warm-up", CLASSIC, [](Steps& usb) { classicCommand(usb, "39"); },
     [](VornCameraImpl& camera) { return camera.initiateWarmUp(); }, "Failed to initiate warmup"},
    {"wheel at rest", ADVANCED, [](Steps& usb) { advancedCommand(usb, "87", "00 07 00 00 00 03 01 04"); },
     [](VornCameraImpl& camera) {
         unsigned count = 9;
         unsigned current = 9;
         unsigned target = 9;
         bool moving = true;
         const bool ok = camera.getFilterWheelStatus(&count, &moving, &current, &target);
         EXPECT_EQ(count, ok ? 7U : 9U);
         EXPECT_EQ(moving, !ok);
         EXPECT_EQ(current, ok ? 3U : 9U);
         EXPECT_EQ(target, ok ? 0x104U : 9U);
         return ok;
     },
     "Failed to get filter wheel status"},
    {"wheel moves, only the low eight bits travel", ADVANCED,
     [](Steps& usb) { advancedCommand(usb, "88 00 03", "01 00"); },
     [](VornCameraImpl& camera) { return camera.setFilter(0x103); }, "Failed to set filter"},
    {"guide relays, both of each pair", ADVANCED,
     [](Steps& usb) {
         advancedCommand(usb, "18").pause(5000);
         advancedCommand(usb, "14").pause(5000);
         advancedCommand(usb, "16");
     },
     [](VornCameraImpl& camera) {
         const bool ok = camera.setGuideRelays(0xF);
         EXPECT_EQ(camera.guideRelayState, 0);  // not kept by this family
         return ok;
     },
     "Failed to set guide relays"},
    {"guide relays, the others", ADVANCED,
     [](Steps& usb) {
         advancedCommand(usb, "18").pause(5000);
         advancedCommand(usb, "15").pause(5000);
         advancedCommand(usb, "17");
     },
     [](VornCameraImpl& camera) { return camera.setGuideRelays(0xA); }, "Failed to set guide relays"},
    {"guide relays, four bits unchanged and kept", QUICKER, [](Steps& usb) { spiWrite(usb, "20 03"); },
     [](VornCameraImpl& camera) {
         const bool ok = camera.setGuideRelays(0xFFF3);
         EXPECT_EQ(camera.guideRelayState, 0x3);
         return ok;
     },
     "Failed to set guide relays"},
    {"GPIO direction, low byte first", STANDARD, [](Steps& usb) { usb.command("83 00 34 12"); },
     [](VornCameraImpl& camera) { return camera.setGPIODirection(0x1234); }, "Failed to set GPIO direction"},
    {"GPIO direction, high byte first", ADVANCED, [](Steps& usb) { advancedCommand(usb, "83 12 34"); },
     [](VornCameraImpl& camera) { return camera.setGPIODirection(0x1234); }, "Failed to set GPIO direction"},
    {"GPIO levels, low byte first", STANDARD, [](Steps& usb) { usb.command("84 00 34 12"); },
     [](VornCameraImpl& camera) { return camera.setGPIO(0x1234); }, "Failed to set GPIO"},
    {"GPIO levels, high byte first", ADVANCED, [](Steps& usb) { advancedCommand(usb, "84 12 34"); },
     [](VornCameraImpl& camera) { return camera.setGPIO(0x1234); }, "Failed to set GPIO"},
    {"GPIO read, low byte first", STANDARD, [](Steps& usb) { usb.command("82 00").parIn(4, "00 10 12 34"); },
     [](VornCameraImpl& camera) { return gpioIs(camera, 0x3412); }, "Failed to get GPIO"},
    {"GPIO read, high byte first", ADVANCED, [](Steps& usb) { advancedCommand(usb, "82", "00 10 12 34"); },
     [](VornCameraImpl& camera) { return gpioIs(camera, 0x1234); }, "Failed to get GPIO"},
};

TEST(FamilyAccessory, SendsExactlyTheseBytes)
{
    for (const Operation& row : OPERATIONS) {
        SCOPED_TRACE(std::string(row.label) + ", type " + std::to_string(row.type));
        EquippedCamera equipped(row.type);
        row.conversation(equipped.usb);
        EXPECT_TRUE(row.act(equipped.camera));
        EXPECT_TRUE(equipped.usb.done());
        EXPECT_EQ(equipped.error(), "No error");
        EXPECT_TRUE(equipped.lockFree());
    }
}

TEST(FamilyAccessory, EachFailingTransferGivesTheOperationsOwnText)
{
    for (const Operation& row : OPERATIONS) {
        SCOPED_TRACE(std::string(row.label) + ", type " + std::to_string(row.type));
        Part whole = {.error = row.error};
        row.conversation(whole.steps);
        forEachFailure({whole}, [&](vorntest::Script& usb, bool /*ok*/, const char* error) {
            VornCameraImpl camera(&usb.device, "Vorn", row.type);
            camera.handle = usb.device.openHandle();
            equip(camera);
            EXPECT_FALSE(row.act(camera));
            EXPECT_STREQ(camera.getLastError(), error);
            EXPECT_EQ(pthread_mutex_trylock(&camera.mutex), 0);
            (void)pthread_mutex_unlock(&camera.mutex);
        });
    }
}

TEST(FamilyAccessory, IsRefusedWithoutTrafficWhereAFamilyHasNone)
{
    struct {
        const char* label;
        std::vector<CAMERA_TYPE> types;
        std::function<bool(VornCameraImpl&)> act;
        const char* error;
    } const CASES[] = {
        {"temperature",
         {QUICKER},
         [](VornCameraImpl& camera) {
             float celsius = 0;
             return camera.getTemperatureSensorStatus(1, &celsius);
         },
         "Failed to read temperature sensor status"},
        {"cooling status",
         {QUICKER, IIDC},
         [](VornCameraImpl& camera) {
             COOLING_STATE state = COOLING_ON;
             return camera.getCoolingStatus(&state, nullptr, nullptr);
         },
         "Failed to set cooling status"},
        {"set-point",
         {QUICKER, IIDC},
         [](VornCameraImpl& camera) { return camera.setCooling(0); },
         "Failed to set temperature"},
        {"warm-up",
         {QUICKER, IIDC},
         [](VornCameraImpl& camera) { return camera.initiateWarmUp(); },
         "Failed to initiate warmup"},
        {"wheel status",
         {CLASSIC, QUICKER, IIDC},
         [](VornCameraImpl& camera) { return camera.getFilterWheelStatus(nullptr, nullptr, nullptr, nullptr); },
         "Failed to get filter wheel status"},
        {"wheel",
         {CLASSIC, QUICKER, IIDC},
         [](VornCameraImpl& camera) { return camera.setFilter(1); },
         "Failed to set filter"},
        {"guide relays",
         {CLASSIC, IIDC},
         [](VornCameraImpl& camera) { return camera.setGuideRelays(1); },
         "Failed to set guide relays"},
        {"GPIO direction",
         {CLASSIC, QUICKER, IIDC},
         [](VornCameraImpl& camera) { return camera.setGPIODirection(1); },
         "Failed to set GPIO direction"},
        {"GPIO levels",
         {CLASSIC, QUICKER, IIDC},
         [](VornCameraImpl& camera) { return camera.setGPIO(1); },
         "Failed to set GPIO"},
        {"GPIO read",
         {CLASSIC, QUICKER, IIDC},
         [](VornCameraImpl& camera) {
             unsigned short levels = 0xCCCC;
             const bool ok = camera.getGPIO(&levels);
             EXPECT_EQ(levels, 0xCCCC);
             return ok;
         },
         "Failed to get GPIO"},
    };
    for (const auto& row : CASES) {
        for (const CAMERA_TYPE type : row.types) {
            SCOPED_TRACE(std::string(row.label) + ", type " + std::to_string(type));
            EquippedCamera equipped(type);
            EXPECT_FALSE(row.act(equipped.camera));
            EXPECT_EQ(equipped.error(), row.error);
            EXPECT_TRUE(equipped.lockFree());
        }
    }
}

TEST(Gpio, IsUnsupportedWithoutAPort)
{
    for (const CAMERA_TYPE type : {STANDARD, ADVANCED}) {
        OpenedCamera opened(type);
        opened.camera.lock();  // a refusal does not wait for it
        unsigned short levels = 7;
        EXPECT_FALSE(opened.camera.setGPIODirection(1) || opened.camera.setGPIO(1) || opened.camera.getGPIO(&levels));
        EXPECT_EQ(levels, 7);
        EXPECT_EQ(opened.error(), "Unsupported operation");
        opened.camera.unlock();
    }
}

TEST(CoolingStatus, DecodesAdvancedAndClassicReplies)
{
    struct {
        const char* label;
        const char* reply;
        CAMERA_TYPE type;
        COOLING_STATE state;
        float target;
        float power;
    } const CASES[] = {
        {"set-point outranks warming", "00 6E 00 A0 00 9B 00 00", ADVANCED, COOLING_SETPOINT, -10.0F, 50.0F},
        {"warming outranks on", "00 6E 00 60 00 9B 00 00", ADVANCED, WARMING_UP, -10.0F, 50.0F},
        {"on", "00 0A 00 40 03 FF 00 00", ADVANCED, COOLING_ON, 270.0F, 0.0F},
        {"the high byte of the flags means nothing", "00 D2 E0 1F 00 00 00 00", ADVANCED, COOLING_INACTIVE, -60.0F,
         100.0F},
        {"power of 16 bits", "01 9A 00 80 00 9B 00 00", ADVANCED, COOLING_SETPOINT, -10.0F, 200.0F},
        {"power below the least", "00 00 00 80 00 9B 00 00", ADVANCED, COOLING_SETPOINT, -10.0F, -5.0F},
        {"set-point outranks warming", "6E 00 A0 00 9B 00 00 00", CLASSIC, COOLING_SETPOINT, -10.0F, 50.0F},
        {"warming outranks on", "6E 00 60 00 FF 00 03 00", CLASSIC, WARMING_UP, 270.0F, 50.0F},
        {"on", "D2 00 40 00 9B 00 00 00", CLASSIC, COOLING_ON, -10.0F, 100.0F},
        {"inactive", "0A FF 1F FF 9B FF 00 FF", CLASSIC, COOLING_INACTIVE, -10.0F, 0.0F},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(std::string(row.label) + ", type " + std::to_string(row.type));
        EquippedCamera equipped(row.type);
        if (row.type == ADVANCED)
            advancedCommand(equipped.usb, "35", row.reply);
        else
            classicCommand(equipped.usb, "35").parIn(8, row.reply);
        auto state = static_cast<COOLING_STATE>(9);
        float target = 99.0F;
        float power = 999.0F;
        EXPECT_TRUE(equipped.camera.getCoolingStatus(&state, &target, &power));
        EXPECT_EQ(state, row.state);
        EXPECT_EQ(target, row.target);
        EXPECT_EQ(power, row.power);
    }
}

TEST(CoolingStatus, PowerFollowsItsBoundsWhereverTheyAre)
{
    struct {
        unsigned least;
        unsigned most;
        const char* reply;
        float power;
    } const CASES[] = {
        {10, 10, "00 6E 00 80 00 9B 00 00", std::numeric_limits<float>::infinity()},
        {10, 10, "00 00 00 80 00 9B 00 00", -std::numeric_limits<float>::infinity()},
        {210, 10, "00 6E 00 80 00 9B 00 00", -2.3283064e-06F},  // the difference of the bounds wraps
        {0, 1, "FF FF 00 80 00 9B 00 00", 6553500.0F},
    };
    for (const auto& row : CASES) {
        EquippedCamera advanced(ADVANCED);
        advanced.camera.minCoolerPower = row.least;
        advanced.camera.maxCoolerPower = row.most;
        advancedCommand(advanced.usb, "35", row.reply);
        COOLING_STATE state = COOLING_INACTIVE;
        float power = 0;
        TraceCapture trace;  // printing infinity as a whole number must not be undefined
        EXPECT_TRUE(advanced.camera.getCoolingStatus(&state, nullptr, &power));
        EXPECT_FLOAT_EQ(power, row.power);
    }
}

TEST(SetCooling, WantsTheAcknowledgementInItsFamilysByte)
{
    for (const char* reply : {"01 00", "00 02", "00 00"}) {
        EquippedCamera advanced(ADVANCED);
        advancedCommand(advanced.usb, "38 00 9B", reply);
        TraceCapture trace;
        EXPECT_FALSE(advanced.camera.setCooling(-10.0F)) << reply;
        EXPECT_TRUE(trace.has("    invalid response"));
        EXPECT_EQ(advanced.error(), "Failed to set temperature");
    }
    EquippedCamera classic(CLASSIC);
    classicCommand(classic.usb, "38 9B 00").parIn(2, "00 01");
    EXPECT_FALSE(classic.camera.setCooling(-10.0F));
}

TEST(SetFilter, AdvancedWantsANumberThatIsNotZero)
{
    EquippedCamera advanced(ADVANCED);
    advancedCommand(advanced.usb, "88 00 09", "00 01");  // beyond the wheel: the camera decides
    EXPECT_TRUE(advanced.camera.setFilter(9));
    advancedCommand(advanced.usb, "88 00 00", "00 00");
    TraceCapture trace;
    EXPECT_FALSE(advanced.camera.setFilter(0x100));
    EXPECT_TRUE(trace.has("    failed to set filter"));
    EXPECT_EQ(advanced.error(), "Failed to set filter");
}

TEST(TemperatureAdvanced, TypeZeroSucceedsAndLeavesTheTemperature)
{
    EquippedCamera advanced(ADVANCED);
    advancedCommand(advanced.usb, "37 00 01", "02 00 03 FF 00 00");
    float celsius = 99.0F;
    TraceCapture trace;
    EXPECT_TRUE(advanced.camera.getTemperatureSensorStatus(1, &celsius));
    EXPECT_EQ(celsius, 99.0F);
    EXPECT_EQ(advanced.camera.tempSensorType, 0U);
    EXPECT_TRUE(trace.has("    temperature senzor type: 0"));
}

TEST(TemperatureFamilyDeathTest, TypeZeroEndsTheProcessWhenConverted)
{
    EXPECT_EXIT(
        {
            EquippedCamera classic(CLASSIC);
            classicCommand(classic.usb, "37 01 00").pause(100000).parIn(6, "00 00 9B 00 00 00");
            float celsius = 0;
            classic.camera.getTemperatureSensorStatus(1, &celsius);
        },
        testing::ExitedWithCode(1), "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 225\\)");
    EXPECT_EXIT(
        {
            EquippedCamera advanced(ADVANCED);
            advanced.camera.tempSensorType = 0;
            advanced.camera.setCooling(-10.0F);
        },
        testing::ExitedWithCode(1), "Assertion \"tempSensorType!=0\" failed \\(vornccdusb, 236\\)");
}

TEST(TemperatureIidc, IsTheLowTwelveBitsInTenthsOfAKelvin)
{
    struct {
        const char* bytes;  ///< empty: the register does not answer
        float celsius;
    } const CASES[] = {{"8C 0B 00 00", 22.45F},
                       {"8C FB FF 8C", 22.45F},
                       {"FF 0F 00 00", 136.35F},
                       {"00 00 00 80", -273.15F},
                       {"", -273.15F}};
    for (const auto& row : CASES) {
        OpenedCamera iidc(IIDC);
        readRegister(iidc.usb, 0x082C, row.bytes);
        if (*row.bytes == '\0')
            iidc.usb.fails(LIBUSB_ERROR_NO_DEVICE);
        float celsius = 99.0F;
        EXPECT_TRUE(iidc.camera.getTemperatureSensorStatus(0, &celsius));
        EXPECT_EQ(celsius, row.celsius);
        EXPECT_EQ(iidc.error(), "No error");
        EXPECT_TRUE(iidc.lockFree());
    }
}

TEST(TraceFamilies, OfAccessories)
{
    struct {
        const char* label;
        CAMERA_TYPE type;
        std::function<void(Steps&)> conversation;
        std::function<void(VornCameraImpl&)> act;
        std::vector<std::string> lines;
    } const CASES[] = {
        {"temperature",
         ADVANCED,
         [](Steps& usb) { advancedCommand(usb, "37 00 01", "00 01 00 9B 00 00"); },
         [](VornCameraImpl& camera) { temperatureIsMinus10(camera, 1); },
         {"-> VornCameraImpl::getTemperatureSensorStatus(1, ...)", "    lock()",
          " -> VornCameraImpl::sendCommand(55, [0x00 0x01], ..., 2, 6)",
          " <- VornCameraImpl::sendCommand 1 [0x00 0x01 0x00 0x9b...]", "    temperature senzor type: 1",
          "    current temperature: -10.0", "    unlock()", "<- VornCameraImpl::getTemperatureSensorStatus 1"}},
        {"temperature",
         IIDC,
         [](Steps& usb) { readRegister(usb, 0x082C, "8C 0B 00 00"); },
         [](VornCameraImpl& camera) {
             float celsius = 0;
             camera.getTemperatureSensorStatus(1, &celsius);
         },
         {"-> VornCameraImpl::getTemperatureSensorStatus(1, ...)", "    lock()", "    current temperature: 22.5",
          "    unlock()", "<- VornCameraImpl::getTemperatureSensorStatus 1"}},
        {"guide relays",
         QUICKER,
         [](Steps& usb) { spiWrite(usb, "20 03"); },
         [](VornCameraImpl& camera) { camera.setGuideRelays(0xFFF3); },
         {"-> VornCameraImpl::setGuideRelays(65523)", "    lock()", " -> VornCameraImpl::spiWrite(2, 0x03)",
          " <- VornCameraImpl::spiWrite 1", "    unlock()", "<- VornCameraImpl::setGuideRelays 1"}},
        {"GPIO",
         ADVANCED,
         [](Steps& usb) {
             advancedCommand(usb, "83 00 0F");
             advancedCommand(usb, "84 00 AB");
             advancedCommand(usb, "82", "00 10 12 34");
         },
         [](VornCameraImpl& camera) {
             camera.setGPIODirection(0xF);
             camera.setGPIO(0xAB);
             gpioIs(camera, 0x1234);
         },
         {"-> VornCameraImpl::setGPIODirection(0x000f)", "    lock()",
          " -> VornCameraImpl::sendCommand(131, [0x00 0x0f], ..., 2, 0)", " <- VornCameraImpl::sendCommand 1 NULL",
          "    unlock()", "<- VornCameraImpl::setGPIODirection 1", "-> VornCameraImpl::setGPIO(0x00ab)", "    lock()",
          " -> VornCameraImpl::sendCommand(132, [0x00 0xab], ..., 2, 0)", " <- VornCameraImpl::sendCommand 1 NULL",
          "    unlock()", "<- VornCameraImpl::setGPIO 1", "-> VornCameraImpl::getGPIO(...)", "    lock()",
          " -> VornCameraImpl::sendCommand(130, NULL, ..., 0, 4)",
          " <- VornCameraImpl::sendCommand 1 [0x00 0x10 0x12 0x34]", "    unlock()",
          "<- VornCameraImpl::getGPIO 1 -> 0x1234"}},
        {"no GPIO",
         STANDARD,
         [](Steps&) {},
         [](VornCameraImpl& camera) {
             unsigned short levels = 0;
             camera.hasGPIO = false;
             camera.setGPIODirection(1);
             camera.setGPIO(1);
             camera.getGPIO(&levels);
         },
         {"-> VornCameraImpl::setGPIODirection(0x0001)", "<- VornCameraImpl::setGPIODirection 00",
          "-> VornCameraImpl::setGPIO(0x0001)", "<- VornCameraImpl::setGPIO 00", "-> VornCameraImpl::getGPIO(...)",
          "<- VornCameraImpl::getGPIO 00"}},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        EquippedCamera equipped(row.type);
        row.conversation(equipped.usb);
        TraceCapture trace;
        row.act(equipped.camera);
        EXPECT_EQ(trace.lines(), row.lines);
    }
}

}  // namespace
