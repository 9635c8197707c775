// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "conversation_parts.h"
#include "family_steps.h"
#include "trace_capture.h"

namespace {

using vorntest::advancedCommand;
using vorntest::Steps;
using vorntest::TraceCapture;

const char* const FAILED = "Failed to initialize device";

/// A text of a description: one character a 16-bit unit, in its second byte; the first byte means nothing.
std::string units(const std::string& text)
{
    std::string hex;
    for (const char& character : text)
        hex += " 41 " + vorntest::toHex({reinterpret_cast<const uint8_t*>(&character), 1});
    return hex + " 41 00";
}

/// @p hex filled with zeros to the 128 bytes of a description.
std::string description(const std::string& hex)
{
    return hex + vorntest::zeros(128 - vorntest::parseHex(hex).size());
}

/// What an ADVANCED camera says while it is opened.
struct AdvancedOpen {
    std::string version = "EE 05 EE 02";  ///< 2.5
    std::string texts = units("Vorn K16") + units("Vorn");
    std::string flags = "1A 80";  ///< shutter, guide port, GPIO, 8-bit mode, filter wheel
    std::string numbers = "0F A0 0B B8 03 02 02 A3 00 03 00 04 C3 50";
    std::string clearTime = "00 64";  ///< not asked for when empty
    std::string temperatureDetails = "00 01";
    std::string temperature = "EE 02 08 00 EE EE";  ///< not asked for when empty
    std::string coolerDetails = "00 10 00 FF 00 20";
    std::string gpio = "00 08 EE EE";  ///< not asked for when empty
    std::string serial = "EE EE EE EE 30 39";
    int wheelPolls = 1;  ///< polls that find the wheel moving, before one that does not; negative: there is no wheel

    Parts parts() const;
};

/// A command whose failure ends the opening.
Part fatalCommand(const std::string& hex, const std::string& reply)
{
    Part command = {.error = FAILED};
    advancedCommand(command.steps, hex, reply);
    command.afterwards.close();
    return command;
}

Parts AdvancedOpen::parts() const
{
    Steps closing;
    closing.close();
    Parts parts = bridgeParts(ADVANCED, "3B DF", closing);

    Part setUp = {.afterwards = closing, .error = FAILED};
    vorntest::loadGpifMode1(setUp.steps);
    vorntest::loadParInitQSlowData(setUp.steps);
    vorntest::lineSetUp(setUp.steps, "80");
    vorntest::setLineDirection(setUp.steps, 0, 1);
    vorntest::setLine(setUp.steps, 0, 0).pause(200000);
    Part kernelPing = fatalCommand("FD 00 7B", "00 7B");
    Part ping = fatalCommand("50 00 7B", "00 7C");
    kernelPing.afterwards = {};
    kernelPing.afterwards.append(ping.steps).close();  // the application is asked all the same
    Part timeout = {.afterwards = closing, .error = FAILED};
    timeout.steps.out(0x04, "0C ?? 00 00 D0 07 ...").pause(200000);
    parts.insert(parts.end(), {setUp, kernelPing, ping, timeout, kernelPing, ping});
    parts.push_back(fatalCommand("01", description(version + texts + " " + flags + " " + numbers)));
    if (!clearTime.empty())
        parts.push_back(fatalCommand("91", clearTime));

    Part appInit = fatalCommand("2C", "");
    appInit.steps.pause(10000);
    vorntest::advancedData(appInit.steps, "??", "00").pause(10000);
    vorntest::advancedData(appInit.steps, "00", "49");
    parts.push_back(appInit);
    parts.push_back(fatalCommand("36", temperatureDetails));
    if (!temperature.empty())
        parts.push_back(fatalCommand("37 00 01", temperature));
    parts.push_back(fatalCommand("34", coolerDetails));
    if (!gpio.empty())
        parts.push_back(fatalCommand("82", gpio));
    parts.push_back(fatalCommand("3E", serial));

    Part wheel = {.afterwards = closing, .error = FAILED};
    if (wheelPolls >= 0)
        wheel.steps.pause(5000000);
    for (int poll = 0; poll < wheelPolls; poll++)
        advancedCommand(wheel.steps, "87", "00 05 01 00 00 02 00 04").pause(100000);
    if (wheelPolls >= 0 && wheelPolls < 20)
        advancedCommand(wheel.steps, "87", "00 05 00 00 00 04 00 04");
    Part end = {.afterwards = closing, .error = FAILED};
    vorntest::finalTimeouts(end.steps);
    parts.insert(parts.end(), {wheel, end});
    return parts;
}

TEST(OpenAdvanced, HoldsTheWholeConversationAndDescribesTheCamera)
{
    ClosedCamera closed(ADVANCED, AdvancedOpen().parts());
    VornCameraImpl& camera = closed.camera;
    ASSERT_TRUE(camera.open());
    ASSERT_TRUE(closed.usb.done());
    EXPECT_EQ(camera.versionMajor, 2U);
    EXPECT_EQ(camera.versionMinor, 5U);
    EXPECT_FALSE(camera.hasShutter);  // although the flag is set
    EXPECT_TRUE(camera.hasGuidePort);
    EXPECT_TRUE(camera.hasGPIO);
    EXPECT_TRUE(camera.has8BitMode);
    EXPECT_TRUE(camera.hasFilterWheel);
    EXPECT_EQ(camera.pixelCountX, 4000U);
    EXPECT_EQ(camera.pixelCountY, 3000U);
    EXPECT_DOUBLE_EQ(camera.pixelSizeX, 7.7);
    EXPECT_DOUBLE_EQ(camera.pixelSizeY, 6.75);
    EXPECT_EQ(camera.maxBinX, 3U);
    EXPECT_EQ(camera.maxBinY, 4U);
    EXPECT_EQ(camera.vregClearTime, 100000);
    EXPECT_EQ(camera.tempSensorCount, 1U);
    EXPECT_EQ(camera.tempSensorType, 2U);
    EXPECT_EQ(camera.cooler, COOLER_SETPOINT);
    EXPECT_EQ(camera.maxCoolerPower, 255U);  // the maximum comes first
    EXPECT_EQ(camera.minCoolerPower, 32U);
    EXPECT_EQ(camera.lineCount, 8U);
    EXPECT_EQ(camera.getSerialNumber(), 12345U);
    EXPECT_EQ(camera.colour, COLOUR_RGGB);
    EXPECT_EQ(camera.offsetY, 1);
    EXPECT_STREQ(camera.getLastError(), "No error");
}

TEST(OpenAdvanced, EachFailingTransferHasItsConsequence)
{
    expectEachFailureOfOpen(ADVANCED, AdvancedOpen().parts());
}

TEST(OpenAdvanced, TakesWhatTheCameraSays)
{
    struct {
        const char* label;
        AdvancedOpen answers;
        void (*check)(const VornCameraImpl&);
    } const CASES[] = {
        {"nothing but a missing guide port",
         {.flags = "E5 80", .gpio = "", .wheelPolls = -1},
         [](const VornCameraImpl& camera) {
             EXPECT_FALSE(camera.hasShutter || camera.hasGuidePort || camera.hasGPIO || camera.has8BitMode ||
                          camera.hasFilterWheel);
             EXPECT_EQ(camera.lineCount, 0U);
         }},
        {"version 1 is not asked for the clear time",
         {.version = "00 09 00 01", .clearTime = ""},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.vregClearTime, 300000); }},
        {"nor is version 0",
         {.version = "02 09 02 00", .clearTime = ""},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.vregClearTime, 300000); }},
        {"the longest clear time",
         {.clearTime = "FF FF"},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.vregClearTime, 65535000); }},
        {"no temperature sensor",
         {.temperatureDetails = "00 00", .temperature = ""},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.tempSensorCount, 0U); }},
        {"a sensor of type 0",
         {.temperatureDetails = "01 02", .temperature = "00 00 00 00 00 00"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.tempSensorCount, 0x0102U);
             EXPECT_EQ(camera.tempSensorType, 0U);
         }},
        {"cooler: set-point before on and off",
         {.coolerDetails = "00 14 01 00 00 FF"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.cooler, COOLER_SETPOINT);
             EXPECT_EQ(camera.maxCoolerPower, 256U);
             EXPECT_EQ(camera.minCoolerPower, 255U);
         }},
        {"cooler: always on",
         {.coolerDetails = "00 03 00 00 00 00"},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.cooler, COOLER_ALWAYSON); }},
        {"cooler: unknown bits",
         {.coolerDetails = "1D 02 00 00 00 00"},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.cooler, COOLER_NONE); }},
        {"counts and sizes of 16 bits",
         {.numbers = "FF FF 00 00 FF FF 00 01 FF FF 00 00 00 00"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.pixelCountX, 65535U);
             EXPECT_EQ(camera.pixelCountY, 0U);
             EXPECT_DOUBLE_EQ(camera.pixelSizeX, 655.35);
             EXPECT_DOUBLE_EQ(camera.pixelSizeY, 0.01);
             EXPECT_EQ(camera.maxBinX, 65535U);
             EXPECT_EQ(camera.maxBinY, 0U);
         }},
        {"texts without an end swallow the rest",
         {.texts = units(std::string(61, 'x')).substr(0, 61UL * 6),
          .flags = "",
          .numbers = "",
          .gpio = "",
          .wheelPolls = -1},
         [](const VornCameraImpl& camera) {
             EXPECT_TRUE(camera.hasGuidePort);  // no flags at all
             EXPECT_EQ(camera.pixelCountX, 0U);
         }},
        {"a wheel that never stops does not fail the open",
         {.wheelPolls = 20},
         [](const VornCameraImpl& camera) { EXPECT_TRUE(camera.hasFilterWheel); }},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        ClosedCamera closed(ADVANCED, row.answers.parts());
        EXPECT_TRUE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        row.check(closed.camera);
    }
}

TEST(OpenAdvanced, WantsTwoRightAnswersToEachPing)
{
    struct {
        const char* kernel;
        const char* application;
        const char* line;
    } const CASES[] = {
        {"00 7C", "00 7C", "     kernel ping failed (123 124)"},
        {"01 7B", "00 7C", "     kernel ping failed (123 123)"},
        {"00 7B", "00 7B", "     application ping failed (123 123)"},
        {"00 7B", "01 7C", "     application ping failed (123 124)"},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.line);
        Parts parts = AdvancedOpen().parts();
        parts.resize(9);  // up to the set-up
        ClosedCamera closed(ADVANCED, parts);
        vorntest::advancedPing(closed.usb, row.kernel, row.application).close();
        TraceCapture trace;
        EXPECT_FALSE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        EXPECT_TRUE(trace.has(row.line));
    }
}

TEST(OpenAdvanced, GivesUpOnAnApplicationThatDoesNotStart)
{
    Parts parts = AdvancedOpen().parts();
    parts.resize(17);  // the start command is the last
    parts[16].steps.cut(2);
    ClosedCamera closed(ADVANCED, parts);
    for (int poll = 0; poll < 64; poll++) {
        closed.usb.pause(10000);
        vorntest::advancedData(closed.usb, poll == 0 ? "??" : "4A", "4A");
    }
    closed.usb.close();
    EXPECT_FALSE(closed.camera.open());
    EXPECT_TRUE(closed.usb.done());
    EXPECT_TRUE(VornDebugOn);
}

// The replies share one buffer: what the command before left in it is taken when a command fails.
TEST(OpenAdvanced, StaleBytesReachLineCountAndSerialNumber)
{
    for (const bool gpioFails : {true, false}) {
        SCOPED_TRACE(gpioFails);
        Parts parts = AdvancedOpen().parts();
        parts.resize(gpioFails ? 21 : 22);
        parts.back().steps.fails(LIBUSB_ERROR_TIMEOUT).close();
        ClosedCamera closed(ADVANCED, parts);
        EXPECT_FALSE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        EXPECT_EQ(closed.camera.lineCount, gpioFails ? 0x0010U : 8U);  // first word of the cooler's details
        if (!gpioFails) {
            EXPECT_EQ(closed.camera.serialNumber, 0x0020U);  // their last word
        }
    }
}

TEST(OpenAdvanced, TracesItsDescription)
{
    ClosedCamera closed(ADVANCED, AdvancedOpen{.flags = "1E DE", .wheelPolls = 0}.parts());
    TraceCapture trace;
    ASSERT_TRUE(closed.camera.open());
    std::vector<std::string> lines = trace.lines();
    // from the second pings on, and without what the nested operations write
    lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), "    pid = df3b"));
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("  ") && !line.starts_with("    "); });
    const std::string allNames =
        " INTERLACED EXT_TRIGGER PREVIEW SUBSAMPLE OVERLAP HAS_SHUTTER HAS_GUIDE_PORT HAS_GPIO HAS_WINDOW_HEATER"
        " HAS_8_BIT_MODE HAS_FILTER_WHEEL";
    const std::vector<std::string> expected = {
        "    pid = df3b",
        " -> VornCameraImpl::parInit(1)",
        " <- VornCameraImpl::parInit 1",
        " -> VornCameraImpl::parInit(...)",
        " <- VornCameraImpl::parInit 1",
        " -> VornCameraImpl::setIODir(0, 1)",
        " <- VornCameraImpl::setIODir 1",
        " -> VornCameraImpl::setIODir(1, 1)",
        " <- VornCameraImpl::setIODir 1",
        " -> VornCameraImpl::setIODir(2, 1)",
        " <- VornCameraImpl::setIODir 1",
        " -> VornCameraImpl::setIODir(3, 0)",
        " <- VornCameraImpl::setIODir 1",
        " -> VornCameraImpl::setIODir(4, 0)",
        " <- VornCameraImpl::setIODir 1",
        " -> VornCameraImpl::setIODir(5, 1)",
        " <- VornCameraImpl::setIODir 1",
        " -> VornCameraImpl::setIODir(6, 1)",
        " <- VornCameraImpl::setIODir 1",
        " -> VornCameraImpl::setIODir(7, 1)",
        " <- VornCameraImpl::setIODir 1",
        " -> VornCameraImpl::spiInit()",
        " <- VornCameraImpl::spiInit 1",
        " -> VornCameraImpl::setIODir(0, 1)",
        " <- VornCameraImpl::setIODir 1",
        " -> VornCameraImpl::setIOState(0, 0)",
        " <- VornCameraImpl::setIOState 1",
        " -> VornCameraImpl::ping()",
        "     kernel ping ok",
        "     application ping ok",
        " <- VornCameraImpl::ping 1",
        " -> VornCameraImpl::setParTimeout(2000)",
        " <- VornCameraImpl::setParTimeout 1",
        " -> VornCameraImpl::ping()",
        "     kernel ping ok",
        "     application ping ok",
        " <- VornCameraImpl::ping 1",
        " -> VornCameraImpl::sendCommand(1, NULL, ..., 0, 128)",
        " <- VornCameraImpl::sendCommand 1 [0xee 0x05 0xee 0x02...]",
        "    version: 2.5",
        "    model: Vorn K16",
        "    manufacturer: Vorn",
        "    flags: 0x1ede " + allNames,
        "    pixel count: 4000 x 3000",
        "    pixel size: 7.7 x 6.8",
        "    max bin: 3 x 4",
        "    well capacity: 50000",
        " -> VornCameraImpl::sendCommand(145, NULL, ..., 0, 2)",
        " <- VornCameraImpl::sendCommand 1 [0x00 0x64]",
        "    VReg clear time: 100000us",
        " -> VornCameraImpl::appInit()",
        "     ----- DEBUG OFF -----",
        "     ----- DEBUG ON -----",
        "     APPINIT completed",
        " <- VornCameraImpl::appInit 1",
        " -> VornCameraImpl::sendCommand(54, NULL, ..., 0, 2)",
        " <- VornCameraImpl::sendCommand 1 [0x00 0x01]",
        "    temperature sensor count: 1",
        " -> VornCameraImpl::getTemperatureSensorStatus(1, ...)",
        "     lock()",
        "     temperature senzor type: 2",
        "     unlock()",
        " <- VornCameraImpl::getTemperatureSensorStatus 1",
        "    temperature sensor type: 2",
        " -> VornCameraImpl::sendCommand(52, NULL, ..., 0, 6)",
        " <- VornCameraImpl::sendCommand 1 [0x00 0x10 0x00 0xff...]",
        "    cooler: COOLER_SETPOINT",
        "    min cooler power: 32",
        "    max cooler power: 255",
        " -> VornCameraImpl::sendCommand(130, NULL, ..., 0, 4)",
        " <- VornCameraImpl::sendCommand 1 [0x00 0x08 0xee 0xee]",
        "    GPIO line count: 8",
        " -> VornCameraImpl::sendCommand(62, NULL, ..., 0, 6)",
        " <- VornCameraImpl::sendCommand 1 [0xee 0xee 0xee 0xee...]",
        "    serial # 0000012345",
        " -> VornCameraImpl::getFilterWheelStatus(...)",
        "     lock()",
        "     moving: 0",
        "     unlock()",
        " <- VornCameraImpl::getFilterWheelStatus 1",
        " -> VornCameraImpl::i2cSetTimeout(200)",
        " <- VornCameraImpl::i2cSetTimeout 1",
        " -> VornCameraImpl::setParTimeout(2000)",
        " <- VornCameraImpl::setParTimeout 1",
        "<- VornCameraImpl::open 1",
    };
    EXPECT_EQ(lines, expected);
}

/// A host's subclass: identification asks its operations, not the base class's.
struct DerivedCamera : VornCameraImpl {
    using VornCameraImpl::VornCameraImpl;
    bool getTemperatureSensorStatus(unsigned sensor, float* celsius) override
    {
        EXPECT_EQ(sensor, 1U);
        EXPECT_EQ(celsius, nullptr);
        tempSensorType = 7;
        return true;
    }
    bool getFilterWheelStatus(unsigned* count, bool* moving, unsigned* current, unsigned* target) override
    {
        EXPECT_TRUE(count == nullptr && current == nullptr && target == nullptr);
        *moving = polls++ == 0;
        return true;
    }
    int polls = 0;
};

TEST(OpenAdvanced, AsksItsOwnVirtualOperations)
{
    ClosedCamera closed(ADVANCED, {});
    DerivedCamera camera(&closed.usb.device, "Vorn K16", ADVANCED);
    append(closed.usb, AdvancedOpen{.temperature = "", .wheelPolls = -1}.parts());
    closed.usb.cut(closed.usb.size() - 2).pause(5000000).pause(100000);
    vorntest::finalTimeouts(closed.usb);
    EXPECT_TRUE(camera.open());
    EXPECT_TRUE(closed.usb.done());
    EXPECT_EQ(camera.tempSensorType, 7U);
    EXPECT_EQ(camera.polls, 2);
}

}  // namespace
