// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"
#include "standard_open.h"
#include "trace_capture.h"

namespace {

using vorntest::Script;
using vorntest::TraceCapture;

/// A closed camera on a script that holds the conversation of @p answers.
struct ClosedCamera {
    explicit ClosedCamera(const StandardOpen& answers, CAMERA_TYPE type = STANDARD)
        : camera(&usb.device, "Vorn K12", type)
    {
        (void)answers.write(usb);
    }
    Script usb;
    VornCameraImpl camera;
};

TEST(OpenStandard, HoldsTheWholeConversationAndDescribesTheCamera)
{
    ClosedCamera closed({.flags = "80 12", .wheelPolls = 2});
    VornCameraImpl& camera = closed.camera;
    ASSERT_TRUE(camera.open());
    ASSERT_TRUE(closed.usb.done());
    EXPECT_EQ(camera.handle, &closed.usb.device.handle);
    EXPECT_EQ(camera.timeout, 30000U);
    EXPECT_EQ(camera.versionMajor, 2U);
    EXPECT_EQ(camera.versionMinor, 5U);
    EXPECT_TRUE(camera.hasShutter);
    EXPECT_TRUE(camera.hasFilterWheel);
    EXPECT_FALSE(camera.hasGPIO);  // although the flag is set
    EXPECT_FALSE(camera.has8BitMode);
    EXPECT_EQ(camera.pixelCountX, 4000U);
    EXPECT_EQ(camera.pixelCountY, 3000U);
    EXPECT_DOUBLE_EQ(camera.pixelSizeX, 7.7);
    EXPECT_DOUBLE_EQ(camera.pixelSizeY, 6.75);
    EXPECT_EQ(camera.maxBinX, 3U);
    EXPECT_EQ(camera.maxBinY, 4U);
    EXPECT_EQ(camera.tempSensorCount, 1U);
    EXPECT_EQ(camera.tempSensorType, 2U);
    EXPECT_EQ(camera.cooler, COOLER_SETPOINT);
    EXPECT_EQ(camera.maxCoolerPower, 200U);
    EXPECT_EQ(camera.minCoolerPower, 10U);
    EXPECT_EQ(camera.colour, COLOUR_NONE);
    EXPECT_EQ(camera.getSerialNumber(), 0x00011234U);
    EXPECT_EQ(camera.vregClearTime, 300000);
    EXPECT_STREQ(camera.getLastError(), "No error");

    // an open camera is left alone
    TraceCapture trace;
    EXPECT_TRUE(camera.open());
    EXPECT_EQ(trace.lines(), (std::vector<std::string>{"-> VornCameraImpl::open()", "<- VornCameraImpl::open 01"}));
    closed.usb.close();
    camera.close();
    EXPECT_EQ(camera.handle, nullptr);
    camera.close();  // nothing more
}

TEST(OpenStandard, DetachesAKernelDriverAndIgnoresTheOutcome)
{
    for (const int result : std::initializer_list<int>{0, LIBUSB_ERROR_NOT_FOUND}) {
        ClosedCamera closed({.driverActive = true, .detachResult = result});
        TraceCapture trace;
        EXPECT_TRUE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        EXPECT_TRUE(trace.has(result == 0 ? "    libusb_detach_kernel_driver() -> LIBUSB_SUCCESS"
                                          : "    libusb_detach_kernel_driver() -> LIBUSB_ERROR_NOT_FOUND"));
    }
}

TEST(OpenStandard, TakesWhatTheCameraSays)
{
    struct {
        const char* label;
        StandardOpen answers;
        void (*check)(const VornCameraImpl&);
    } const CASES[] = {
        {"no flags: only a guide port",
         {.flags = "00 00"},
         [](const VornCameraImpl& camera) {
             EXPECT_TRUE(camera.hasGuidePort);
             EXPECT_FALSE(camera.hasShutter || camera.hasFilterWheel || camera.hasGPIO || camera.has8BitMode);
         }},
        {"all flags but the wheel: no guide port, no GPIO, no 8-bit mode",
         {.flags = "FF EF"},
         [](const VornCameraImpl& camera) {
             EXPECT_TRUE(camera.hasShutter);
             EXPECT_FALSE(camera.hasGuidePort || camera.hasFilterWheel || camera.hasGPIO || camera.has8BitMode);
         }},
        {"product df31 has its own size",
         {.productId = "31 DF", .pixelCountX = "E8 03", .pixelCountY = "E8 03"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.pixelCountX, 3326U);
             EXPECT_EQ(camera.pixelCountY, 2504U);
         }},
        {"product df50 has its own size",
         {.productId = "50 DF"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.pixelCountX, 4499U);
             EXPECT_EQ(camera.pixelCountY, 3599U);
         }},
        {"counts beyond 15 bits stay positive",
         {.pixelCountX = "FF FF", .pixelCountY = "00 80"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.pixelCountX, 65535U);
             EXPECT_EQ(camera.pixelCountY, 32768U);
         }},
        {"no temperature sensor",
         {.temperatureDetails = "00 05", .hasTemperature = false},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.tempSensorCount, 0U); }},
        {"the sensor count is one byte",
         {.temperatureDetails = "03 01"},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.tempSensorCount, 3U); }},
        {"a sensor of type 0 is only noted",
         {.temperature = "00 00 00 00 00 00"},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.tempSensorType, 0U); }},
        {"cooler: set-point first",
         {.coolerDetails = "1D 00 FF 01 20 01"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.cooler, COOLER_SETPOINT);
             EXPECT_EQ(camera.maxCoolerPower, 255U);
             EXPECT_EQ(camera.minCoolerPower, 32U);
         }},
        {"cooler: then power",
         {.coolerDetails = "0D 00 00 00 00 00"},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.cooler, COOLER_SELECTPOWER); }},
        {"cooler: then on and off",
         {.coolerDetails = "05 00 C8 00 0A 00"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.cooler, COOLER_ONOFF);
             EXPECT_EQ(camera.maxCoolerPower, 200U);
             EXPECT_EQ(camera.minCoolerPower, 10U);
         }},
        {"cooler: then always on",
         {.coolerDetails = "03 00 00 00 00 00"},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.cooler, COOLER_ALWAYSON); }},
        {"cooler: unknown bits",
         {.coolerDetails = "E2 FF 00 00 00 00"},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.cooler, COOLER_NONE); }},
        {"colour",
         {.colour = "84 D9 01 02 00"},
         [](const VornCameraImpl& camera) {
             EXPECT_EQ(camera.colour, COLOUR_RGGB);
             EXPECT_EQ(camera.offsetX, 1);
             EXPECT_EQ(camera.offsetY, 0);
         }},
        {"serial number, all four bytes",
         {.serialLow = "DD CC", .serialHigh = "BB AA"},
         [](const VornCameraImpl& camera) { EXPECT_EQ(camera.serialNumber, 0xAABBCCDDU); }},
        {"a wheel that never stops does not fail the open",
         {.flags = "40 11", .wheelPolls = 20},
         [](const VornCameraImpl& camera) { EXPECT_TRUE(camera.hasFilterWheel); }},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        ClosedCamera closed(row.answers);
        EXPECT_TRUE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        row.check(closed.camera);
    }
}

TEST(OpenStandard, TracesItsProgress)
{
    ClosedCamera closed({.colour = "84 D9 01 03 00", .flags = "8C 02"});
    TraceCapture trace;
    ASSERT_TRUE(closed.camera.open());
    std::vector<std::string> lines = trace.lines();
    // what the nested primitives write has a test of its own
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("  ") && !line.starts_with("    "); });
    const std::vector<std::string> expected = {
        "-> VornCameraImpl::open()",
        "    libusb_claim_interface() -> LIBUSB_SUCCESS",
        "    libusb_set_interface_alt_setting() -> LIBUSB_SUCCESS",
        " -> VornCameraImpl::writeFW()",
        "     cpu stopped 1",
        "     cpu started 1",
        " <- VornCameraImpl::writeFW 1",
        " -> VornCameraImpl::setPortDirection(0, 0x9f)",
        " <- VornCameraImpl::setPortDirection 1",
        " -> VornCameraImpl::setPortState(0, 0x80)",
        " <- VornCameraImpl::setPortState 1",
        " -> VornCameraImpl::i2cSetTimeout(50)",
        " <- VornCameraImpl::i2cSetTimeout 1",
        " -> VornCameraImpl::setParTimeout(50)",
        " <- VornCameraImpl::setParTimeout 1",
        " -> VornCameraImpl::i2cSetSpeed(0)",
        " <- VornCameraImpl::i2cSetSpeed 1",
        " -> VornCameraImpl::flush()",
        "     libusb_bulk_transfer -> LIBUSB_ERROR_TIMEOUT",
        "     0 bytes flushed",
        " <- VornCameraImpl::flush",
        " -> VornCameraImpl::i2cSetTimeout(5000)",
        " <- VornCameraImpl::i2cSetTimeout 1",
        " -> VornCameraImpl::eepRead(3, ..., 2)",
        " <- VornCameraImpl::eepRead 1 [0x34 0xdf]",
        " -> VornCameraImpl::eepRead(1000, ..., 5)",
        " <- VornCameraImpl::eepRead 1 [0x84 0xd9 0x01 0x03...]",
        "    colour = 2, offsetX = 1, offsetY = 1",
        "    pid = df34",
        " -> VornCameraImpl::i2cSetTimeout(100)",
        " <- VornCameraImpl::i2cSetTimeout 1",
        " -> VornCameraImpl::setParTimeout(1000)",
        " <- VornCameraImpl::setParTimeout 1",
        " -> VornCameraImpl::parInit(9)",
        " <- VornCameraImpl::parInit 1",
        " -> VornCameraImpl::ping()",
        "     ping -> 100",
        "     ping <- 101",
        " <- VornCameraImpl::ping 1",
        " -> VornCameraImpl::sendCommand(1, NULL, ..., 0, 0)",
        " <- VornCameraImpl::sendCommand 1 NULL",
        "    version: 2.5",
        "    model: Vorn K12",
        "    manufacturer: Vorn",
        "    flags: 0x28c  EXT_TRIGGER PREVIEW HAS_SHUTTER HAS_GUIDE_PORT HAS_GPIO",
        "    pixel count: 4000 x 3000",
        "    pixel size: 7.7 x 6.8",
        "    max bin: 3 x 4",
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
        " <- VornCameraImpl::sendCommand 1 [0x10 0xee 0xc8 0xee...]",
        "    cooler: COOLER_SETPOINT",
        "    min cooler power: 10",
        "    max cooler power: 200",
        " -> VornCameraImpl::eepRead(5, ..., 2)",
        " <- VornCameraImpl::eepRead 1 [0x34 0x12]",
        " -> VornCameraImpl::eepRead(8, ..., 2)",
        " <- VornCameraImpl::eepRead 1 [0x01 0x00]",
        "    serial # 0000070196",
        " -> VornCameraImpl::i2cSetTimeout(200)",
        " <- VornCameraImpl::i2cSetTimeout 1",
        " -> VornCameraImpl::setParTimeout(2000)",
        " <- VornCameraImpl::setParTimeout 1",
        "<- VornCameraImpl::open 1",
    };
    EXPECT_EQ(lines, expected);
}

}  // namespace
