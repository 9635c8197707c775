// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opening.h"

namespace {

using vorntest::classicCommand;

constexpr long RETRY_PAUSE_US = 5000000;

/// What a CLASSIC camera says while it is opened: each byte in the low half of a 16-bit word.
struct ClassicOpen {
    std::string version = "05 EE 02 EE";  ///< 2.5
    std::string flags = "FF EE 00 EE";
    std::string pixelCountX = "E8 EE 03 EE";  ///< 1000
    std::string pixelCountY = "20 EE 03 EE";  ///< 800
    std::string temperatureDetails = "01 EE";
    std::string temperature = "02 EE 34 EE 08 EE";  ///< not asked for when empty
    std::string coolerDetails = "08 EE 64 EE 0A EE";

    Steps steps() const
    {
        // a failed connection check: closed, and the next try finds the camera gone
        const char* const gone = "Failed to open device";
        const Steps lastTry = Steps().close().pause(RETRY_PAUSE_US).open().fails(LIBUSB_ERROR_NO_DEVICE);
        Steps usb = bridgeOpening(CLASSIC, "28 DF", lastTry, gone);
        usb.ends(lastTry, gone).out(0x04, "0C ?? 00 01 64 00 ...").out(0x04, "0C ?? 00 00 E8 03 ...");
        loadTable(loadTable(usb, GPIF_MODE_1), PAR_INIT);
        classicCommand(usb.untried(), "11 64").pause(50000).parIn(2, "64 00");

        classicCommand(usb.ends(Steps().close(), NOT_INITIALIZED), "0A").parIn(4, version);
        vorntest::streamedText(usb, "Vorn K30");
        vorntest::streamedText(usb, "Vorn");
        usb.parIn(4, flags).parIn(4, pixelCountX).parIn(4, pixelCountY);
        usb.parIn(4, "02 00 03 00").parIn(4, "A3 00 02 00");                          // 7.70 x 6.75
        usb.parIn(4, "03 00 00 00").parIn(4, "04 EE 01 EE").parIn(4, "50 EE C3 EE");  // 3 x 260, 50000
        classicCommand(usb, "2C").pause(10000).parIn(2, "00 49").pause(10000).parIn(2, "49 00");
        classicCommand(usb, "36").parIn(2, temperatureDetails);
        if (!temperature.empty())
            classicCommand(usb, "37 01 00").pause(100000).parIn(6, temperature);
        classicCommand(usb, "34").parIn(6, coolerDetails);
        return usb.eepRead(5, 2, "34 12").eepRead(8, 2, "01 00");  // no timeouts at the end
    }
};

TEST(OpenClassic, HoldsTheWholeConversation)
{
    // one pixel less than the camera counts, and no accessories whatever the flags say
    const std::string described =
        "version 2.5, 999 x 799 of 7.70 x 6.75 um, binning 3 x 260, sensors 1 of type 2, cooler 3 from 10 to 100, "
        "colour 2 at 0 1, lines 0, serial 70196, clear 300000, precharge 0:.";
    expectOpening(CLASSIC, ClassicOpen().steps(), {described});
    expectEachFailureOfOpen(CLASSIC, ClassicOpen().steps());
}

TEST(OpenClassic, TakesWhatTheCameraSays)
{
    const struct {
        ClassicOpen answers;
        const char* described;
    } CASES[] = {
        {{.pixelCountX = "00 00 00 00", .pixelCountY = "00 FF 00 FF"}, ", 4294967295 x 4294967295 of"},
        {{.pixelCountX = "FF 00 FF 00", .pixelCountY = "01 FF 00 FF"}, ", 65534 x 0 of"},
        {{.temperatureDetails = "00 01", .temperature = ""}, "sensors 0 of"},
        {{.temperature = "00 02 00 00 00 00"}, "sensors 1 of type 0,"},
        {{.coolerDetails = "00 10 FF 00 FF 00"}, "cooler 0 from 255 to 255,"},
    };
    for (const auto& row : CASES)
        expectOpening(CLASSIC, row.answers.steps(), {row.described});
}

TEST(OpenClassic, AFailureKeepsWhatWasFilledBefore)
{
    // the second half of the serial number
    expectOpening(CLASSIC, ClassicOpen().steps().fails(LIBUSB_ERROR_TIMEOUT).close(),
                  {"version 2.5, 999 x 799 of", "serial 4660,"}, NOT_INITIALIZED);
}

TEST(OpenClassic, TriesAgainUntilTheCameraAnswers)
{
    Steps refused = ClassicOpen().steps().cutBefore("0C ?? 00 01 64");
    refused.out(0x04, "0C ?? 00 01 64 00 ...").fails().close().pause(RETRY_PAUSE_US);
    Steps steps;
    for (int again = 0; again < 6; again++)
        steps.append(refused);
    const std::string text = expectOpening(CLASSIC, steps.append(ClassicOpen{.flags = "5F EE 00 EE"}.steps()));
    EXPECT_NE(text.find("    unlock()\n    failed to connect device!!!\n<- VornCameraImpl::open 00 - retry\n"
                        "-> VornCameraImpl::open()\n"),
              std::string::npos);
    EXPECT_NE(text.find("    flags: 0x5f  FIFO INTERLACED EXT_TRIGGER PREVIEW SUBSAMPLE OVERLAP\n"
                        "    pixel count: 999 x 799\n"),
              std::string::npos);
    EXPECT_TRUE(text.ends_with("\n<- VornCameraImpl::open 1\n"));
}

// A host may put a class of its own between itself and the library's.
TEST(OpenClassic, TriesAgainThroughTheVirtualTable)
{
    struct CountingCamera : VornCameraImpl {
        using VornCameraImpl::VornCameraImpl;
        bool open() override
        {
            ++tries;
            return VornCameraImpl::open();
        }
        int tries = 0;
    };
    vorntest::Script usb;
    Steps refused = ClassicOpen().steps().cutBefore("0C ?? 00 01 64");
    refused.out(0x04, "0C ?? 00 01 64 00 ...").fails().close().pause(RETRY_PAUSE_US);
    usb.append(Steps().append(refused).append(refused).open().fails(LIBUSB_ERROR_NO_DEVICE));
    CountingCamera camera(&usb.device, "Vorn K30", CLASSIC);
    EXPECT_FALSE(camera.open());
    EXPECT_EQ(camera.tries, 3);
    EXPECT_TRUE(usb.done());
}

}  // namespace
