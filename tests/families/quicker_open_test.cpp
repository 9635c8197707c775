// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "conversation_parts.h"
#include "family_steps.h"
#include "trace_capture.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Steps;
using vorntest::TraceCapture;

const char* const FAILED = "Failed to initialize device";

/// @p hex filled with FF to the 64 bytes of a description.
std::string description(std::string hex)
{
    for (size_t length = vorntest::parseHex(hex).size(); length < 64; length++)
        hex += " FF";
    return hex;
}

const char* const WORDS = "80 01 12 34 00 00 FF FF A5 5A 00 01 40 00 08 08";  // what the converter is told

/// The bits of WORDS by hand, most significant first.
const char* const BITS[] = {"1000000000000001", "0001001000110100", "0000000000000000", "1111111111111111",
                            "1010010101011010", "0000000000000001", "0100000000000000", "0000100000001000"};

/// What a QUICKER camera says while it is opened.
struct QuickerOpen {
    std::string productId = "2E DF";
    /// 3.7, "Vorn K01", "Vorn", guide port and precharge, 656 x 494, 7.4 x 5.6 um, binning 4 x 2, precharge code 3
    std::string bytes = "07 03 56 6F 72 6E 20 4B 30 31 00 56 6F 72 6E 00 05 90 02 EE 01 4A 38 04 02 03";
    std::string serialLow = "DD CC";
    std::string serialHigh = "BB AA";

    Parts parts() const;
};

void writeConverterBits(Steps& usb)
{
    for (const char* word : BITS) {
        vorntest::setLine(usb, 6, 0);
        vorntest::setLine(usb, 2, 0);
        for (const char* bit = word; *bit != '\0'; bit++) {
            vorntest::setLine(usb, 5, *bit == '1' ? 1 : 0);
            vorntest::setLine(usb, 6, 1);
            vorntest::setLine(usb, 6, 0);
        }
        vorntest::setLine(usb, 2, 1);
    }
}

Parts QuickerOpen::parts() const
{
    Steps closing;
    closing.close();
    Steps pauseAndClose;  // the pause after the ping is made whatever went before
    pauseAndClose.pause(200000).close();
    Parts parts = bridgeParts(QUICKER, productId, pauseAndClose);

    Part setUp = {.afterwards = pauseAndClose, .error = FAILED};
    vorntest::loadGpifMode1(setUp.steps);
    vorntest::loadParInitQSlowData(setUp.steps);
    vorntest::lineSetUp(setUp.steps, "C0");
    vorntest::setLine(setUp.steps, 1, 1);
    vorntest::setLine(setUp.steps, 1, 0);
    vorntest::setLine(setUp.steps, 2, 1);
    Part ping = {.afterwards = pauseAndClose, .error = FAILED};
    ping.steps.eepRead(3, 2, productId);
    Part timeout = {.afterwards = pauseAndClose, .error = FAILED};
    timeout.steps.out(0x04, "0C ?? 00 00 D0 07 ...");
    Part settling = part(Part::UNTRIED);
    settling.steps.pause(200000);
    Part identity = {.afterwards = closing, .error = FAILED};
    identity.steps.eepRead(42, 64, description(bytes)).eepRead(5, 2, serialLow).eepRead(8, 2, serialHigh);
    Part converter = {.afterwards = closing, .error = FAILED};
    converter.steps.eepRead(10, 16, WORDS);
    writeConverterBits(converter.steps);
    Part end = {.afterwards = closing, .error = FAILED};
    vorntest::finalTimeouts(end.steps);
    parts.insert(parts.end(), {setUp, ping, timeout, settling, identity, converter, end});
    return parts;
}

TEST(OpenQuicker, HoldsTheWholeConversationAndDescribesTheCamera)
{
    for (const char* productId : {"2E DF", "2F DF"}) {
        ClosedCamera closed(QUICKER, QuickerOpen{.productId = productId}.parts());
        VornCameraImpl& camera = closed.camera;
        camera.hasShutter = camera.hasFilterWheel = camera.hasGPIO = camera.has8BitMode = true;
        camera.tempSensorCount = 4;
        camera.cooler = COOLER_SETPOINT;
        ASSERT_TRUE(camera.open());
        ASSERT_TRUE(closed.usb.done());
        EXPECT_EQ(camera.versionMajor, 3U);
        EXPECT_EQ(camera.versionMinor, 7U);
        EXPECT_TRUE(camera.hasGuidePort);
        EXPECT_TRUE(camera.pcCds);
        EXPECT_FALSE(camera.hasShutter || camera.hasFilterWheel || camera.hasGPIO || camera.has8BitMode);
        EXPECT_EQ(camera.pixelCountX, 656U);
        EXPECT_EQ(camera.pixelCountY, 494U);
        EXPECT_DOUBLE_EQ(camera.pixelSizeX, 7.4);
        EXPECT_DOUBLE_EQ(camera.pixelSizeY, 5.6);
        EXPECT_EQ(camera.maxBinX, 4U);
        EXPECT_EQ(camera.maxBinY, 2U);
        EXPECT_EQ(camera.prechargeOffset, 96U);
        EXPECT_EQ(camera.tempSensorCount, 0U);
        EXPECT_EQ(camera.cooler, COOLER_NONE);
        EXPECT_EQ(camera.serialNumber, 0xAABBCCDDU);
        EXPECT_EQ(camera.timeout, 30000U);
    }
}

TEST(OpenQuicker, EachFailingTransferHasItsConsequence)
{
    expectEachFailureOfOpen(QUICKER, QuickerOpen().parts());
}

TEST(OpenQuicker, TakesWhatTheDescriptionSays)
{
    // sixty characters: the second text and all that follows it lie beyond the 64 bytes
    std::string longText = "07 03";
    for (int i = 0; i < 60; i++)
        longText += " 41";
    struct {
        const char* label;
        std::string bytes;
        void (*check)(const VornCameraImpl&);
    } const CASES[] = {
        {"no flags, negative precharge, wrapped counts, largest bytes", "00 00 00 00 00 00 90 FF FF FF 41 FF FF FF",
         [](const VornCameraImpl& camera) {
             EXPECT_FALSE(camera.hasGuidePort || camera.pcCds);
             EXPECT_EQ(camera.pixelCountX, 0xFFFF9000U);
             EXPECT_EQ(camera.pixelCountY, 0xFFFFFFFFU);
             EXPECT_DOUBLE_EQ(camera.pixelSizeX, 25.5);
             EXPECT_DOUBLE_EQ(camera.pixelSizeY, 6.5);
             EXPECT_EQ(camera.maxBinX, 255U);
             EXPECT_EQ(camera.maxBinY, 255U);
             EXPECT_EQ(camera.prechargeOffset, 4294967264U);
         }},
        {"counts of 0, only a guide port, most negative precharge", "01 02 00 00 01 00 00 00 00 41 41 00 00 80",
         [](const VornCameraImpl& camera) {
             EXPECT_TRUE(camera.hasGuidePort);
             EXPECT_FALSE(camera.pcCds);
             EXPECT_EQ(camera.pixelCountX, 0U);
             EXPECT_EQ(camera.maxBinY, 0U);
             EXPECT_EQ(camera.prechargeOffset, 4294963200U);
         }},
        {"largest positive numbers, only the untold flag", "01 02 00 00 02 FF 7F 01 00 00 01 01 01 7F",
         [](const VornCameraImpl& camera) {
             EXPECT_FALSE(camera.hasGuidePort || camera.pcCds);
             EXPECT_EQ(camera.pixelCountX, 32767U);
             EXPECT_EQ(camera.pixelCountY, 1U);
             EXPECT_DOUBLE_EQ(camera.pixelSizeX, 0.0);
             EXPECT_EQ(camera.prechargeOffset, 4064U);
         }},
        {"text without an end", "07 03 41",  // filled with FF: no NUL anywhere
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.versionMajor, 3U);
             EXPECT_EQ(camera.pixelCountX, 0U);
             EXPECT_FALSE(camera.hasGuidePort);
         }},
        {"items cut off by the end", longText + " 00 00",
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.pixelCountX, 0U);
             EXPECT_EQ(camera.prechargeOffset, 0U);
         }},
        {"text ends with the last byte", longText + " 41 00",
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.pixelCountY, 0U); }},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        ClosedCamera closed(QUICKER, QuickerOpen{.bytes = row.bytes}.parts());
        EXPECT_TRUE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        row.check(closed.camera);
    }
}

TEST(OpenQuicker, KnowsItsCameraByTheProductIdInTheEeprom)
{
    for (const char* productId : {"2D DF", "30 DF", "2E DE", "DF 2E"}) {
        SCOPED_TRACE(productId);
        Parts parts = QuickerOpen{.productId = productId}.parts();
        parts.resize(10);  // up to the ping
        parts.back().steps.pause(200000).close();
        ClosedCamera closed(QUICKER, parts);
        EXPECT_FALSE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        EXPECT_STREQ(closed.camera.getLastError(), "Failed to initialize device");
    }
}

TEST(PingQuicker, AFailedReadIsNoAnswer)
{
    OpenedCamera quicker(QUICKER);
    quicker.usb.eepRead(3, 2, "2F DF").fails(LIBUSB_ERROR_TIMEOUT);
    EXPECT_FALSE(quicker.camera.ping());
    quicker.usb.eepRead(3, 2, "2F DF");
    EXPECT_TRUE(quicker.camera.ping());
    EXPECT_TRUE(quicker.usb.done());
}

TEST(FlushQuicker, DrainsBlocksThenBytes)
{
    OpenedCamera quicker(QUICKER);
    quicker.usb.timeout(100);
    for (int block = 0; block < 2; block++) {
        quicker.usb.out(0x04, "09 ?? 00 00 03 00 40 0D ...");
        quicker.usb.in(0x88, 200001, std::vector<uint8_t>(200001, 0x55));
    }
    quicker.usb.parIn(200000, "").fails(LIBUSB_ERROR_TIMEOUT).parIn(1, "55").parIn(1, "").fails(LIBUSB_ERROR_TIMEOUT);
    TraceCapture trace;
    quicker.camera.flush();
    EXPECT_TRUE(quicker.usb.done());
    EXPECT_TRUE(trace.has("    400001 bytes flushed"));
    EXPECT_EQ(quicker.camera.timeout, 30000U);
}

TEST(SetAdc, ClocksEightWordsInAndKeepsQuiet)
{
    OpenedCamera quicker(QUICKER);
    quicker.usb.eepRead(10, 16, WORDS);
    const size_t afterRead = quicker.usb.size();
    writeConverterBits(quicker.usb);
    EXPECT_EQ(quicker.usb.size() - afterRead, 408U);
    TraceCapture trace;
    EXPECT_TRUE(quicker.camera.setADC());
    EXPECT_TRUE(quicker.usb.done());
    EXPECT_TRUE(VornDebugOn);
    std::vector<std::string> lines = trace.lines();
    std::erase_if(lines, [](const std::string& line) { return line.starts_with(" ") && !line.starts_with("    "); });
    EXPECT_EQ(lines, (std::vector<std::string>{"-> VornCameraImpl::setADC()", "    ----- DEBUG OFF -----",
                                               "    ----- DEBUG ON -----", "<- VornCameraImpl::setADC 1"}));
}

TEST(OpenQuicker, TracesItsDescription)
{
    ClosedCamera closed(QUICKER, QuickerOpen{.bytes = "07 03 4B 00 56 00 07 90 02 EE 01 4A 38 04 02 FF"}.parts());
    TraceCapture trace;
    ASSERT_TRUE(closed.camera.open());
    std::vector<std::string> lines = trace.lines();
    lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), " <- VornCameraImpl::spiInit 1"));
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("  ") && !line.starts_with("    "); });
    const std::vector<std::string> expected = {
        " <- VornCameraImpl::spiInit 1",
        " -> VornCameraImpl::setIOState(1, 1)",
        " <- VornCameraImpl::setIOState 1",
        " -> VornCameraImpl::setIOState(1, 0)",
        " <- VornCameraImpl::setIOState 1",
        " -> VornCameraImpl::setIOState(2, 1)",
        " <- VornCameraImpl::setIOState 1",
        " -> VornCameraImpl::ping()",
        "     ping ok",
        " <- VornCameraImpl::ping 1",
        " -> VornCameraImpl::setParTimeout(2000)",
        " <- VornCameraImpl::setParTimeout 1",
        " -> VornCameraImpl::eepRead(42, ..., 64)",
        " <- VornCameraImpl::eepRead 1 [0x07 0x03 0x4b 0x00...]",
        "    version: 3.7",
        "    model: K",
        "    manufacturer: V",
        "    flags: 0x7  HAS_GUIDE_PORT NO_FAST_USB PC_CDS",
        "    pixel count: 656 x 494",
        "    pixel size: 7.4 x 5.6",
        "    max bin: 4 x 2",
        "    precharge offset: -32",
        " -> VornCameraImpl::eepRead(5, ..., 2)",
        " <- VornCameraImpl::eepRead 1 [0xdd 0xcc]",
        " -> VornCameraImpl::eepRead(8, ..., 2)",
        " <- VornCameraImpl::eepRead 1 [0xbb 0xaa]",
        "    serial # 2864434397",
        " -> VornCameraImpl::setADC()",
        "     ----- DEBUG OFF -----",
        "     ----- DEBUG ON -----",
        " <- VornCameraImpl::setADC 1",
        " -> VornCameraImpl::i2cSetTimeout(200)",
        " <- VornCameraImpl::i2cSetTimeout 1",
        " -> VornCameraImpl::setParTimeout(2000)",
        " <- VornCameraImpl::setParTimeout 1",
        "<- VornCameraImpl::open 1",
    };
    EXPECT_EQ(lines, expected);
}

}  // namespace
