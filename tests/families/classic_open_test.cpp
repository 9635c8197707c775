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
    Steps closing;
    closing.close();
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
    ClosedCamera closed(CLASSIC, ClassicOpen().parts());
    VornCameraImpl& camera = closed.camera;
    camera.hasShutter = camera.hasGuidePort = camera.hasFilterWheel = camera.hasGPIO = camera.has8BitMode = true;
    ASSERT_TRUE(camera.open());
    ASSERT_TRUE(closed.usb.done());
    EXPECT_EQ(camera.versionMajor, 2U);
    EXPECT_EQ(camera.versionMinor, 5U);
    EXPECT_FALSE(camera.hasShutter || camera.hasGuidePort || camera.hasFilterWheel || camera.hasGPIO ||
                 camera.has8BitMode);     // whatever the flags say
    EXPECT_EQ(camera.pixelCountX, 999U);  // the camera counts one too many
    EXPECT_EQ(camera.pixelCountY, 799U);
    EXPECT_DOUBLE_EQ(camera.pixelSizeX, 7.7);
    EXPECT_DOUBLE_EQ(camera.pixelSizeY, 6.75);
    EXPECT_EQ(camera.maxBinX, 3U);
    EXPECT_EQ(camera.maxBinY, 260U);
    EXPECT_EQ(camera.tempSensorCount, 1U);
    EXPECT_EQ(camera.tempSensorType, 2U);
    EXPECT_EQ(camera.cooler, COOLER_SELECTPOWER);
    EXPECT_EQ(camera.maxCoolerPower, 100U);
    EXPECT_EQ(camera.minCoolerPower, 10U);
    EXPECT_EQ(camera.serialNumber, 0x00011234U);
    EXPECT_EQ(camera.openRetried, 0);
}

TEST(OpenClassic, EachFailingTransferHasItsConsequence)
{
    expectEachFailureOfOpen(CLASSIC, ClassicOpen().parts());
}

TEST(OpenClassic, TakesWhatTheCameraSays)
{
    struct {
        const char* label;
        ClassicOpen answers;
        void (*check)(const VornCameraImpl&);
    } const CASES[] = {
        {"counts of 0 wrap",
         {.pixelCountX = "00 00 00 00", .pixelCountY = "00 FF 00 FF"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.pixelCountX, 4294967295U);
             EXPECT_EQ(camera.pixelCountY, 4294967295U);
         }},
        {"largest counts",
         {.pixelCountX = "FF 00 FF 00", .pixelCountY = "01 FF 00 FF"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.pixelCountX, 65534U);
             EXPECT_EQ(camera.pixelCountY, 0U);
         }},
        {"no sensor, no cooler",
         {.temperatureDetails = "00 01", .temperature = "", .coolerDetails = "00 10 FF 00 FF 00"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.tempSensorCount, 0U);
             EXPECT_EQ(camera.cooler, COOLER_NONE);
         }},
        {"a sensor of type 0 is only noted",
         {.temperature = "00 02 00 00 00 00"},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.tempSensorType, 0U); }},
        {"set-point outranks the others",
         {.coolerDetails = "1D 00 FF 00 20 00"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.cooler, COOLER_SETPOINT);
             EXPECT_EQ(camera.maxCoolerPower, 255U);
             EXPECT_EQ(camera.minCoolerPower, 32U);
         }},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        ClosedCamera closed(CLASSIC, row.answers.parts());
        EXPECT_TRUE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        row.check(closed.camera);
    }
}

TEST(OpenClassic, AFailureKeepsWhatWasFilledBefore)
{
    Parts parts = ClassicOpen().parts();
    parts.back().steps.fails(LIBUSB_ERROR_TIMEOUT).close();  // the second half of the serial number
    ClosedCamera closed(CLASSIC, parts);
    EXPECT_FALSE(closed.camera.open());
    EXPECT_TRUE(closed.usb.done());
    EXPECT_EQ(closed.camera.versionMajor, 2U);
    EXPECT_EQ(closed.camera.pixelCountX, 999U);
    EXPECT_EQ(closed.camera.cooler, COOLER_SELECTPOWER);
    EXPECT_EQ(closed.camera.serialNumber, 0x1234U);  // the first half
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
    const std::vector<std::string> lines = trace.lines();
    const auto failed = std::find(lines.begin(), lines.end(), "    failed to connect device!!!");
    ASSERT_LT(failed, lines.end() - 3);
    EXPECT_EQ(*(failed - 1), "    unlock()");
    EXPECT_EQ(*(failed + 1), "<- VornCameraImpl::open 00 - retry");
    EXPECT_EQ(*(failed + 2), "-> VornCameraImpl::open()");
    EXPECT_EQ(lines.back(), "<- VornCameraImpl::open 1");
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
    vorntest::bus().logging = false;
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
    ClosedCamera closed(CLASSIC, ClassicOpen{.flags = "5F 00 00 00"}.parts());
    TraceCapture trace;
    ASSERT_TRUE(closed.camera.open());
    std::vector<std::string> lines = trace.lines();
    lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), " -> VornCameraImpl::ping()"));
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("  ") && !line.starts_with("    "); });
    const std::vector<std::string> expected = {
        " -> VornCameraImpl::ping()",
        "     ping -> 100",
        "     ping <- 100",
        " <- VornCameraImpl::ping 1",
        " -> VornCameraImpl::sendCommand(10, NULL, ..., 0, 0)",
        " <- VornCameraImpl::sendCommand 1 NULL",
        "    version: 2.5",
        "    model: Vorn K30",
        "    manufacturer: Vorn",
        "    flags: 0x5f  FIFO INTERLACED EXT_TRIGGER PREVIEW SUBSAMPLE OVERLAP",
        "    pixel count: 999 x 799",
        "    pixel size: 7.7 x 6.8",
        "    max bin: 3 x 260",
        "    well capacity: 50000",
        " -> VornCameraImpl::appInit()",
        "     ----- DEBUG OFF -----",
        "     ----- DEBUG ON -----",
        "     APPINIT completed",
        " <- VornCameraImpl::appInit 1",
        " -> VornCameraImpl::sendCommand(54, NULL, ..., 0, 2)",
        " <- VornCameraImpl::sendCommand 1 [0x01 0xee]",
        "    temperature sensor count: 1",
        " -> VornCameraImpl::getTemperatureSensorStatus(1, ...)",
        "     lock()",
        "     unlock()",
        " <- VornCameraImpl::getTemperatureSensorStatus 1",
        "    temperature sensor type: 2",
        " -> VornCameraImpl::sendCommand(52, NULL, ..., 0, 6)",
        " <- VornCameraImpl::sendCommand 1 [0x08 0x64 0x0a 0xee...]",
        "    cooler: COOLER_SELECTPOWER",
        "    min cooler power: 10",
        "    max cooler power: 100",
        " -> VornCameraImpl::eepRead(5, ..., 2)",
        " <- VornCameraImpl::eepRead 1 [0x34 0x12]",
        " -> VornCameraImpl::eepRead(8, ..., 2)",
        " <- VornCameraImpl::eepRead 1 [0x01 0x00]",
        "    serial # 0000070196",
        "<- VornCameraImpl::open 1",
    };
    EXPECT_EQ(lines, expected);
}

}  // namespace
