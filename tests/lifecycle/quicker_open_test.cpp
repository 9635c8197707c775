// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opening.h"

namespace {

const char* const WORDS = "80 01 12 34 00 00 FF FF A5 5A 00 01 40 00 08 08";  // what the converter is told

/// The bits of WORDS by hand, most significant first.
const char* const BITS[] = {"1000000000000001", "0001001000110100", "0000000000000000", "1111111111111111",
                            "1010010101011010", "0000000000000001", "0100000000000000", "0000100000001000"};

/// I/O lines: 2 frames a word, 5 is the data, 6 the clock.
Steps& writeConverterBits(Steps& usb)
{
    for (const char* word : BITS) {
        setPort(setPort(usb, "BF 00"), "FB 00");
        for (const char* bit = word; *bit != '\0'; bit++)
            setPort(setPort(setPort(usb, *bit == '1' ? "DF 20" : "DF 00"), "BF 40"), "BF 00");
        setPort(usb, "FB 04");
    }
    return usb;
}

/// What a QUICKER camera says while it is opened.
struct QuickerOpen {
    std::string productId = "2E DF";
    /// 3.7, "Vorn K01", "Vorn", guide port and precharge, 656 x 494, 7.4 x 5.6 um, binning 4 x 2, precharge code 3
    std::string bytes = "07 03 56 6F 72 6E 20 4B 30 31 00 56 6F 72 6E 00 05 90 02 EE 01 4A 38 04 02 03";

    Steps steps() const
    {
        const Steps closing = Steps().close();
        // the pause after the ping is made whatever went before
        const Steps pauseAndClose = Steps().pause(200000).close();
        Steps usb = bridgeOpening(QUICKER, productId, pauseAndClose);
        usb.ends(pauseAndClose, NOT_INITIALIZED);
        lineSetUp(loadTable(loadTable(usb, GPIF_MODE_1), PAR_INIT_Q_SLOW), "C0");
        setPort(setPort(setPort(usb, "FD 02"), "FD 00"), "FB 04")
            .eepRead(3, 2, productId)
            .out(0x04, "0C ?? 00 00 D0 07 ...");
        std::string described = bytes;
        while (vorntest::parseHex(described).size() < 64)
            described += " FF";
        usb.ends(closing, NOT_INITIALIZED).pause(200000).eepRead(42, 64, described);
        usb.eepRead(5, 2, "DD CC").eepRead(8, 2, "BB AA");
        return finalTimeouts(writeConverterBits(usb.ends(closing, NOT_INITIALIZED).eepRead(10, 16, WORDS)));
    }
};

TEST(OpenQuicker, HoldsTheWholeConversation)
{
    for (const char* productId : {"2E DF", "2F DF"})
        expectOpening(QUICKER, QuickerOpen{.productId = productId}.steps(),
                      {"version 3.7, 656 x 494 of 7.40 x 5.60 um, binning 4 x 2, sensors 0 of", "cooler 0 from",
                       "serial 2864434397, clear 300000, precharge 96: guide cds."});
    expectEachFailureOfOpen(QUICKER, QuickerOpen().steps());
}

TEST(OpenQuicker, TakesWhatTheDescriptionSays)
{
    // sixty characters: the second text and all that follows it lie beyond the 64 bytes
    std::string longText = "07 03";
    for (int i = 0; i < 60; i++)
        longText += " 41";
    const struct {
        std::string bytes;
        const char* described;
        const char* flags;
    } CASES[] = {
        // wrapped counts, largest bytes, negative precharge
        {"00 00 00 00 00 00 90 FF FF FF 41 FF FF FF",
         "0.0, 4294938624 x 4294967295 of 25.50 x 6.50 um, binning 255 x 255,", "precharge 4294967264:."},
        {"01 02 00 00 01 00 00 00 00 41 41 00 00 80", "2.1, 0 x 0 of 6.50 x 6.50 um, binning 0 x 0,",
         "precharge 4294963200: guide."},
        // largest positive numbers, the flag of no fast USB
        {"01 02 00 00 02 FF 7F 01 00 00 01 01 01 7F", ", 32767 x 1 of 0.00 x 0.10 um, binning 1 x 1,",
         "precharge 4064:."},
        {"07 03 41", "3.7, 0 x 0 of", "precharge 0:."},  // filled with FF: no NUL anywhere
        {longText + " 00 00", "3.7, 0 x 0 of", "precharge 0:."},
    };
    for (const auto& row : CASES)
        expectOpening(QUICKER, QuickerOpen{.bytes = row.bytes}.steps(), {row.described, row.flags});
}

TEST(OpenQuicker, KnowsItsCameraByTheProductIdInTheEeprom)
{
    for (const char* productId : {"2D DF", "30 DF", "2E DE"}) {
        Steps steps = QuickerOpen{.productId = productId}.steps().cutBefore("0C ?? 00 00 D0 07");  // after the ping
        expectOpening(QUICKER, steps.pause(200000).close(), {}, NOT_INITIALIZED);
    }
}

TEST(OpenQuicker, TracesItsDescription)
{
    const QuickerOpen answers = {.bytes = "07 03 4B 00 56 00 07 90 02 EE 01 4A 38 04 02 FF"};
    EXPECT_EQ(tracedOpening(QUICKER, answers.steps()),
              "    colour = 2, offsetX = 0, offsetY = 1\n    pid = df2e\n     ping ok\n    version: 3.7\n"
              "    model: K\n    manufacturer: V\n"
              "    flags: 0x7  HAS_GUIDE_PORT NO_FAST_USB PC_CDS\n    pixel count: 656 x 494\n"
              "    pixel size: 7.4 x 5.6\n    max bin: 4 x 2\n    precharge offset: -32\n    serial # 2864434397\n"
              "     ----- DEBUG OFF -----\n     ----- DEBUG ON -----\n");
}

}  // namespace
