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
    const Steps closing = Steps().close();
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
    // no shutter although the flag is set; of the cooler's powers the largest comes first
    const std::string described =
        "version 2.5, 4000 x 3000 of 7.70 x 6.75 um, binning 3 x 4, sensors 1 of type 2, cooler 4 from 32 to 255, "
        "colour 2 at 0 1, lines 8, serial 12345, clear 100000, precharge 0: guide 8bit wheel gpio.";
    expectOpens(ADVANCED, AdvancedOpen().parts(), {described});
    expectEachFailureOfOpen(ADVANCED, AdvancedOpen().parts());
}

TEST(OpenAdvanced, TakesWhatTheCameraSays)
{
    struct {
        const char* label;
        AdvancedOpen answers;
        const char* described;
    } const CASES[] = {
        {"every flag that means nothing here", {.flags = "E5 80", .gpio = "", .wheelPolls = -1}, ":."},
        {"version 1 is not asked for the clear time", {.version = "00 09 00 01", .clearTime = ""}, "clear 300000,"},
        {"the longest clear time", {.clearTime = "FF FF"}, "clear 65535000,"},
        {"no temperature sensor", {.temperatureDetails = "00 00", .temperature = ""}, "sensors 0 of"},
        {"a sensor of type 0",
         {.temperatureDetails = "01 02", .temperature = "00 00 00 00 00 00"},
         "sensors 258 of type 0,"},
        {"set-point before on and off", {.coolerDetails = "00 14 01 00 00 FF"}, "cooler 4 from 255 to 256,"},
        {"power before on and off", {.coolerDetails = "00 0D 00 00 00 00"}, "cooler 3 "},
        {"on and off before always on", {.coolerDetails = "00 05 00 00 00 00"}, "cooler 2 "},
        {"always on", {.coolerDetails = "00 03 00 00 00 00"}, "cooler 1 "},
        {"unknown bits", {.coolerDetails = "1D 02 00 00 00 00"}, "cooler 0 "},
        {"counts and sizes of 16 bits",
         {.numbers = "FF FF 00 00 FF FF 00 01 FF FF 00 00 00 00"},
         ", 65535 x 0 of 655.35 x 0.01 um, binning 65535 x 0,"},
        {"texts without an end swallow the rest, flags included",
         {.texts = units(std::string(61, 'x')).substr(0, 61UL * 6),
          .flags = "",
          .numbers = "",
          .gpio = "",
          .wheelPolls = -1},
         "5, 0 x 0 of 0.00 x 0.00 um, binning 0 x 0,"},
        {"a wheel that never stops does not fail the open", {.wheelPolls = 20}, "wheel"},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        expectOpens(ADVANCED, row.answers.parts(), {row.described});
    }
}

TEST(OpenAdvanced, WantsTwoRightAnswersToEachPing)
{
    const struct {
        const char* kernel;
        const char* application;
        const char* line;
    } CASES[] = {
        {"00 7C", "00 7C", "     kernel ping failed (123 124)"},
        {"00 7B", "01 7C", "     application ping failed (123 124)"},
    };
    for (const auto& row : CASES) {
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
    EXPECT_EQ(tracedOpening(ADVANCED, AdvancedOpen{.flags = "1E DE", .wheelPolls = 0}.parts()),
              "    pid = df3b\n     kernel ping ok\n     application ping ok\n     kernel ping ok\n"
              "     application ping ok\n    version: 2.5\n    model: Vorn K16\n    manufacturer: Vorn\n"
              "    flags: 0x1ede  INTERLACED EXT_TRIGGER PREVIEW SUBSAMPLE OVERLAP HAS_SHUTTER HAS_GUIDE_PORT HAS_GPIO"
              " HAS_WINDOW_HEATER HAS_8_BIT_MODE HAS_FILTER_WHEEL\n"
              "    pixel count: 4000 x 3000\n    pixel size: 7.7 x 6.8\n    max bin: 3 x 4\n    well capacity: 50000\n"
              "    VReg clear time: 100000us\n     ----- DEBUG OFF -----\n     ----- DEBUG ON -----\n"
              "     APPINIT completed\n    temperature sensor count: 1\n     temperature senzor type: 2\n"
              "    temperature sensor type: 2\n    cooler: COOLER_SETPOINT\n    min cooler power: 32\n"
              "    max cooler power: 255\n    GPIO line count: 8\n    serial # 0000012345\n     moving: 0\n");
}

}  // namespace
