// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opening.h"

namespace {

using vorntest::advancedCommand;

/// A text of a description: one character a 16-bit unit, in its second byte; the first byte means nothing.
std::string units(const std::string& text)
{
    std::string hex;
    for (const char character : text)
        hex += " 41 " + vorntest::hexByte(static_cast<size_t>(character));
    return hex + " 41 00";
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

    Steps steps() const
    {
        const Steps closing = Steps().close();
        Steps usb = bridgeOpening(ADVANCED, "3B DF", closing);
        usb.ends(closing, NOT_INITIALIZED);
        loadTable(usb, GPIF_MODE_1);
        loadTable(usb, PAR_INIT_Q_SLOW);
        lineSetUp(usb, "80");
        setPort(setDirections(usb, "FE 01"), "FE 00").pause(200000);
        const Steps application = vorntest::advanced("50 00 7B", "00 7C");
        Steps ping = Steps().ends(Steps(application).close(), NOT_INITIALIZED);
        advancedCommand(ping, "FD 00 7B", "00 7B").ends(closing, NOT_INITIALIZED).append(application);
        usb.append(ping).ends(closing, NOT_INITIALIZED).out(0x04, "0C ?? 00 00 D0 07 ...").pause(200000).append(ping);

        usb.ends(closing, NOT_INITIALIZED);
        const std::string described = version + texts + " " + flags + " " + numbers;
        advancedCommand(usb, "01", described + vorntest::zeros(128 - vorntest::parseHex(described).size()));
        if (!clearTime.empty())
            advancedCommand(usb, "91", clearTime);
        advancedCommand(usb, "2C").pause(10000);
        vorntest::advancedData(usb, "??", "00").pause(10000);
        vorntest::advancedData(usb, "00", "49");
        advancedCommand(usb, "36", temperatureDetails);
        if (!temperature.empty())
            advancedCommand(usb, "37 00 01", temperature);
        advancedCommand(usb, "34", coolerDetails);
        if (!gpio.empty())
            advancedCommand(usb, "82", gpio);
        advancedCommand(usb, "3E", serial);
        if (wheelPolls >= 0)
            usb.pause(5000000);
        for (int poll = 0; poll < wheelPolls; poll++)
            advancedCommand(usb, "87", "00 05 01 00 00 02 00 04").pause(100000);
        if (wheelPolls >= 0 && wheelPolls < 20)
            advancedCommand(usb, "87", "00 05 00 00 00 04 00 04");
        return finalTimeouts(usb);
    }
};

TEST(OpenAdvanced, HoldsTheWholeConversation)
{
    // no shutter although the flag is set; of the cooler's powers the largest comes first
    const std::string described =
        "version 2.5, 4000 x 3000 of 7.70 x 6.75 um, binning 3 x 4, sensors 1 of type 2, cooler 4 from 32 to 255, "
        "colour 2 at 0 1, lines 8, serial 12345, clear 100000, precharge 0: guide 8bit wheel gpio.";
    expectOpening(ADVANCED, AdvancedOpen().steps(), {described});
    expectEachFailureOfOpen(ADVANCED, AdvancedOpen().steps());
}

TEST(OpenAdvanced, TakesWhatTheCameraSays)
{
    const struct {
        AdvancedOpen answers;
        const char* described;
    } CASES[] = {
        {{.flags = "E5 80", .gpio = "", .wheelPolls = -1}, ":."},        // every flag that means nothing here
        {{.version = "00 09 00 01", .clearTime = ""}, "clear 300000,"},  // version 1 is not asked for it
        {{.clearTime = "FF FF"}, "clear 65535000,"},
        {{.temperatureDetails = "00 00", .temperature = ""}, "sensors 0 of"},
        {{.temperatureDetails = "01 02", .temperature = "00 00 00 00 00 00"}, "sensors 258 of type 0,"},
        {{.coolerDetails = "00 14 01 00 00 FF"}, "cooler 4 from 255 to 256,"},
        {{.coolerDetails = "1D 02 00 00 00 00"}, "cooler 0 "},
        {{.numbers = "FF FF 00 00 FF FF 00 01 FF FF 00 00 00 00"},
         ", 65535 x 0 of 655.35 x 0.01 um, binning 65535 x 0,"},
        // texts without an end swallow the rest, flags included
        {{.texts = units(std::string(61, 'x')).substr(0, 61UL * 6),
          .flags = "",
          .numbers = "",
          .gpio = "",
          .wheelPolls = -1},
         "5, 0 x 0 of 0.00 x 0.00 um, binning 0 x 0,"},
        {{.wheelPolls = 20}, "wheel"},  // that never stops does not fail it
    };
    for (const auto& row : CASES)
        expectOpening(ADVANCED, row.answers.steps(), {row.described});
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
        Steps steps = AdvancedOpen().steps().cutBefore("43 4D 44 FD");
        vorntest::advancedPing(steps, row.kernel, row.application).close();
        EXPECT_NE(expectOpening(ADVANCED, steps, {}, NOT_INITIALIZED).find(row.line), std::string::npos) << row.line;
    }
}

// The replies share one buffer: what the command before left in it is taken when some commands fail.
TEST(OpenAdvanced, TakesStaleBytes)
{
    const struct {
        const char* command;
        const char* reply;
        const char* described;
    } CASES[] = {
        {"36", "00 01", "sensors 0 of"},             // none of them
        {"82", "00 08 EE EE", "lines 16,"},          // first word of the cooler's details
        {"3E", "EE EE EE EE 30 39", "serial 32, "},  // their last word
    };
    for (const auto& row : CASES) {
        Steps steps = AdvancedOpen().steps().cutBefore(std::string("43 4D 44 ") + row.command);
        advancedCommand(steps, row.command, row.reply).fails(LIBUSB_ERROR_TIMEOUT).close();
        expectOpening(ADVANCED, steps, {row.described}, NOT_INITIALIZED);
    }
}

TEST(OpenAdvanced, TracesItsDescription)
{
    EXPECT_EQ(
        tracedOpening(ADVANCED, AdvancedOpen{.flags = "1E DE", .wheelPolls = 0}.steps()),
        "    colour = 2, offsetX = 0, offsetY = 1\n    pid = df3b\n     kernel ping ok\n     application ping ok\n"
        "     kernel ping ok\n     application ping ok\n    version: 2.5\n    model: Vorn K16\n    manufacturer: Vorn\n"
        "    flags: 0x1ede  INTERLACED EXT_TRIGGER PREVIEW SUBSAMPLE OVERLAP HAS_SHUTTER HAS_GUIDE_PORT HAS_GPIO"
        " HAS_WINDOW_HEATER HAS_8_BIT_MODE HAS_FILTER_WHEEL\n"
        "    pixel count: 4000 x 3000\n    pixel size: 7.7 x 6.8\n    max bin: 3 x 4\n    well capacity: 50000\n"
        "    VReg clear time: 100000us\n     ----- DEBUG OFF -----\n     ----- DEBUG ON -----\n"
        "     APPINIT completed\n    temperature sensor count: 1\n     temperature senzor type: 2\n"
        "    temperature sensor type: 2\n    cooler: COOLER_SETPOINT\n    min cooler power: 32\n"
        "    max cooler power: 255\n    GPIO line count: 8\n    serial # 0000012345\n     moving: 0\n");
}

}  // namespace
