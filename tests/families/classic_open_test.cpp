// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "conversation_parts.h"
#include "family_steps.h"
#include "trace_capture.h"

namespace {

using vorntest::classicCommand;
using vorntest::OpenedCamera;
using vorntest::Steps;
using vorntest::TraceCapture;

const char* const FAILED = "Failed to initialize device";

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

    Parts parts() const;
};

/// A failed connection check: closed, and the next try finds the camera gone.
void writeLastTry(Steps& usb)
{
    usb.close().pause(RETRY_PAUSE_US).open().fails(LIBUSB_ERROR_NO_DEVICE);
}

Parts ClassicOpen::parts() const
{
    const Steps closing = Steps().close();
    Steps lastTry;
    writeLastTry(lastTry);
    Parts parts = bridgeParts(CLASSIC, "28 DF", lastTry, "Failed to open device");

    Part check{.afterwards = lastTry, .error = "Failed to open device"};
    check.steps.out(0x04, "0C ?? 00 01 64 00 ...").out(0x04, "0C ?? 00 00 E8 03 ...");
    vorntest::loadGpifMode1(check.steps);
    vorntest::loadParInitData(check.steps);
    Part ping = part(Part::UNTRIED);
    classicCommand(ping.steps, "11 64").pause(50000).parIn(2, "64 00");

    Part stream = {.afterwards = closing, .error = FAILED};
    classicCommand(stream.steps, "0A").parIn(4, version);
    vorntest::streamedText(stream.steps, "Vorn K30");
    vorntest::streamedText(stream.steps, "Vorn");
    stream.steps.parIn(4, flags).parIn(4, pixelCountX).parIn(4, pixelCountY);
    stream.steps.parIn(4, "02 00 03 00").parIn(4, "A3 00 02 00");                          // 7.70 x 6.75
    stream.steps.parIn(4, "03 00 00 00").parIn(4, "04 EE 01 EE").parIn(4, "50 EE C3 EE");  // 3 x 260, 50000
    classicCommand(stream.steps, "2C").pause(10000).parIn(2, "00 49").pause(10000).parIn(2, "49 00");
    classicCommand(stream.steps, "36").parIn(2, temperatureDetails);
    if (!temperature.empty())
        classicCommand(stream.steps, "37 01 00").pause(100000).parIn(6, temperature);
    classicCommand(stream.steps, "34").parIn(6, coolerDetails);
    stream.steps.eepRead(5, 2, "34 12").eepRead(8, 2, "01 00");
    parts.insert(parts.end(), {check, ping, stream});  // no timeouts at the end
    return parts;
}

TEST(OpenClassic, HoldsTheWholeConversationAndDescribesTheCamera)
{
    // one pixel less than the camera counts, and no accessories whatever the flags say
    const std::string described =
        "version 2.5, 999 x 799 of 7.70 x 6.75 um, binning 3 x 260, sensors 1 of type 2, cooler 3 from 10 to 100, "
        "colour 2 at 0 1, lines 0, serial 70196, clear 300000, precharge 0:.";
    expectOpens(CLASSIC, ClassicOpen().parts(), {described});
    expectEachFailureOfOpen(CLASSIC, ClassicOpen().parts());
}

TEST(OpenClassic, TakesWhatTheCameraSays)
{
    struct {
        const char* label;
        ClassicOpen answers;
        const char* described;
    } const CASES[] = {
        {"counts of 0 wrap",
         {.pixelCountX = "00 00 00 00", .pixelCountY = "00 FF 00 FF"},
         ", 4294967295 x 4294967295 of"},
        {"largest and least counts", {.pixelCountX = "FF 00 FF 00", .pixelCountY = "01 FF 00 FF"}, ", 65534 x 0 of"},
        {"no sensor", {.temperatureDetails = "00 01", .temperature = ""}, "sensors 0 of"},
        {"a sensor of type 0 is only noted", {.temperature = "00 02 00 00 00 00"}, "sensors 1 of type 0,"},
        {"no cooler", {.coolerDetails = "00 10 FF 00 FF 00"}, "cooler 0 from 255 to 255,"},
        {"set-point outranks the others", {.coolerDetails = "1D 00 FF 00 20 00"}, "cooler 4 from 32 to 255,"},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        expectOpens(CLASSIC, row.answers.parts(), {row.described});
    }
}

TEST(OpenClassic, AFailureKeepsWhatWasFilledBefore)
{
    Parts parts = ClassicOpen().parts();
    parts.back().steps.fails(LIBUSB_ERROR_TIMEOUT).close();  // the second half of the serial number
    ClosedCamera closed(CLASSIC, parts);
    EXPECT_FALSE(closed.camera.open());
    EXPECT_TRUE(closed.usb.done());
    expectDescribed(closed.camera, "version 2.5, 999 x 799 of");
    expectDescribed(closed.camera, "serial 4660,");  // the first half
}

TEST(OpenClassic, KeepsTheModesOfTheTimeBefore)
{
    ClosedCamera closed(CLASSIC, ClassicOpen().parts());
    EXPECT_TRUE(closed.camera.open());
    EXPECT_TRUE(closed.camera.setPreviewMode(true));
    closed.usb.close();
    closed.camera.close();
    append(closed.usb, ClassicOpen().parts());
    EXPECT_TRUE(closed.camera.open());
    EXPECT_TRUE(closed.usb.done());
    EXPECT_TRUE(closed.camera.previewMode);
}

TEST(PingClassic, WantsTheSameNumberBackWithinTenTries)
{
    OpenedCamera classic(CLASSIC);
    // one more, the try before, nothing read, nothing sent but the right number read
    classicCommand(classic.usb, "11 64").pause(50000).parIn(2, "65 00");
    classicCommand(classic.usb, "11 65").pause(50000).parIn(2, "64 00");
    classicCommand(classic.usb, "11 66").pause(50000).parIn(2, "").fails(LIBUSB_ERROR_TIMEOUT);
    classicCommand(classic.usb, "11 67").fails().pause(50000).parIn(2, "67 00");
    classicCommand(classic.usb, "11 68").pause(50000).parIn(2, "68 00");
    EXPECT_TRUE(classic.camera.ping());

    for (const char* counter : {"64", "65", "66", "67", "68", "69", "6A", "6B", "6C", "6D"})
        classicCommand(classic.usb, std::string("11 ") + counter).pause(50000).parIn(2, "00 64");
    EXPECT_FALSE(classic.camera.ping());
    EXPECT_TRUE(classic.usb.done());
}

TEST(OpenClassic, TriesAgainAfterFiveSecondsUntilTheCameraAnswers)
{
    Parts parts = ClassicOpen().parts();
    Parts refused(parts.begin(), parts.begin() + 9);  // up to the ping
    refused.back().steps.cut(1).fails().close().pause(RETRY_PAUSE_US);
    ClosedCamera closed(CLASSIC, refused);
    append(closed.usb, refused);
    append(closed.usb, parts);
    TraceCapture trace;
    EXPECT_TRUE(closed.camera.open());
    EXPECT_TRUE(closed.usb.done());
    EXPECT_EQ(closed.camera.openRetried, 1);  // never counted up
    EXPECT_STREQ(closed.camera.getLastError(), "No error");
    const std::string text = trace.text();
    EXPECT_NE(text.find("    unlock()\n    failed to connect device!!!\n<- VornCameraImpl::open 00 - retry\n"
                        "-> VornCameraImpl::open()\n"),
              std::string::npos);
    EXPECT_TRUE(text.ends_with("\n<- VornCameraImpl::open 1\n"));
}

/// A camera whose interface belongs to somebody else, and which is unplugged at some time.
struct BusyDevice : vorntest::Backend {
    int serve(const vorntest::BusCall& call, std::span<uint8_t> /*data*/, int& /*transferred*/) override
    {
        if (call.kind == vorntest::BusCall::OPEN)
            return ++opens > 100000 ? LIBUSB_ERROR_NO_DEVICE : 0;
        return call.kind == vorntest::BusCall::CLAIM ? LIBUSB_ERROR_BUSY : 0;
    }
    int opens = 0;
};

TEST(OpenClassic, GoesOnTryingOnAFlatStackUntilTheCameraIsGone)
{
    vorntest::bus().reset();
    BusyDevice busy;
    libusb_device device(0xdf28, busy);
    VornCameraImpl camera(&device, "Vorn K30", CLASSIC);
    const int64_t startUs = vorntest::bus().nowUs();
    EXPECT_FALSE(camera.open());
    EXPECT_EQ(busy.opens, 100001);
    EXPECT_EQ(vorntest::bus().nowUs() - startUs, 100000LL * RETRY_PAUSE_US);
    EXPECT_STREQ(camera.getLastError(), "Failed to open device");
    EXPECT_EQ(device.openCount, 0);
    vorntest::bus().reset();
}

TEST(OpenClassic, TracesItsDescription)
{
    EXPECT_EQ(tracedOpening(CLASSIC, ClassicOpen{.flags = "5F 00 00 00"}.parts()),
              "    pid = df28\n     ping -> 100\n     ping <- 100\n"
              "    version: 2.5\n    model: Vorn K30\n    manufacturer: Vorn\n"
              "    flags: 0x5f  FIFO INTERLACED EXT_TRIGGER PREVIEW SUBSAMPLE OVERLAP\n    pixel count: 999 x 799\n"
              "    pixel size: 7.7 x 6.8\n    max bin: 3 x 260\n    well capacity: 50000\n"
              "     ----- DEBUG OFF -----\n     ----- DEBUG ON -----\n     APPINIT completed\n"
              "    temperature sensor count: 1\n    temperature sensor type: 2\n    cooler: COOLER_SELECTPOWER\n"
              "    min cooler power: 10\n    max cooler power: 100\n    serial # 0000070196\n");
}

}  // namespace
