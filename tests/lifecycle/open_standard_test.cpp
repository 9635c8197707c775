// SPDX-License-Identifier: MIT
#include <tuple>

#include <gtest/gtest.h>

#include "opened_camera.h"
#include "standard_open.h"
#include "trace_capture.h"

namespace {

using vorntest::Steps;
using vorntest::TraceCapture;

TEST(OpenStandard, HoldsTheWholeConversationAndDescribesTheCamera)
{
    ClosedCamera closed(STANDARD, StandardOpen({.flags = "80 12", .wheelPolls = 2}).parts());
    VornCameraImpl& camera = closed.camera;
    ASSERT_TRUE(camera.open());
    ASSERT_TRUE(closed.usb.done());
    EXPECT_EQ(camera.handle, &closed.usb.device.handle);
    EXPECT_EQ(camera.timeout, 30000U);
    EXPECT_EQ(std::tuple(camera.versionMajor, camera.versionMinor, camera.serialNumber),
              std::tuple(2U, 5U, 0x00011234U));
    EXPECT_TRUE(camera.hasShutter && camera.hasFilterWheel);
    EXPECT_FALSE(camera.hasGPIO || camera.has8BitMode);  // although the GPIO flag is set
    EXPECT_EQ(std::tuple(camera.pixelCountX, camera.pixelCountY, camera.maxBinX, camera.maxBinY),
              std::tuple(4000U, 3000U, 3U, 4U));
    EXPECT_EQ(std::tuple(camera.pixelSizeX, camera.pixelSizeY), std::tuple(7.7, 6.75));
    EXPECT_EQ(std::tuple(camera.tempSensorCount, camera.tempSensorType), std::tuple(1U, 2U));
    EXPECT_EQ(std::tuple(camera.cooler, camera.maxCoolerPower, camera.minCoolerPower),
              std::tuple(COOLER_SETPOINT, 200U, 10U));
    EXPECT_EQ(camera.colour, COLOUR_NONE);
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
        Parts parts = StandardOpen().parts();
        parts[1].steps = Steps().driverActive(true).detachDriver().fails(result).claim();
        ClosedCamera closed(STANDARD, parts);
        TraceCapture trace;
        EXPECT_TRUE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        EXPECT_TRUE(trace.has(result == 0 ? "    libusb_detach_kernel_driver() -> LIBUSB_SUCCESS"
                                          : "    libusb_detach_kernel_driver() -> LIBUSB_ERROR_NOT_FOUND"));
    }
}

#define CHECK(...) [](const VornCameraImpl& camera) { __VA_ARGS__; }

TEST(OpenStandard, TakesWhatTheCameraSays)
{
    struct {
        const char* label;
        StandardOpen answers;
        void (*check)(const VornCameraImpl&);
    } const CASES[] = {
        {"no flags: only a guide port",
         {.flags = "00 00"},
         CHECK(EXPECT_TRUE(camera.hasGuidePort);
               EXPECT_FALSE(camera.hasShutter || camera.hasFilterWheel || camera.hasGPIO || camera.has8BitMode))},
        {"all flags but the wheel: no guide port, no GPIO, no 8-bit mode",
         {.flags = "FF EF"},
         CHECK(EXPECT_TRUE(camera.hasShutter);
               EXPECT_FALSE(camera.hasGuidePort || camera.hasFilterWheel || camera.hasGPIO || camera.has8BitMode))},
        {"product df31 has its own size",
         {.productId = "31 DF", .pixelCountX = "E8 03", .pixelCountY = "E8 03"},
         CHECK(EXPECT_EQ(camera.pixelCountX, 3326U); EXPECT_EQ(camera.pixelCountY, 2504U))},
        {"product df50 has its own size",
         {.productId = "50 DF"},
         CHECK(EXPECT_EQ(camera.pixelCountX, 4499U); EXPECT_EQ(camera.pixelCountY, 3599U))},
        {"counts beyond 15 bits stay positive",
         {.pixelCountX = "FF FF", .pixelCountY = "00 80"},
         CHECK(EXPECT_EQ(camera.pixelCountX, 65535U); EXPECT_EQ(camera.pixelCountY, 32768U))},
        {"no temperature sensor",
         {.temperatureDetails = "00 05", .hasTemperature = false},
         CHECK(EXPECT_EQ(camera.tempSensorCount, 0U))},
        {"the sensor count is one byte", {.temperatureDetails = "03 01"}, CHECK(EXPECT_EQ(camera.tempSensorCount, 3U))},
        {"a sensor of type 0 is only noted",
         {.temperature = "00 00 00 00 00 00"},
         CHECK(EXPECT_EQ(camera.tempSensorType, 0U))},
        {"cooler: set-point first",
         {.coolerDetails = "1D 00 FF 01 20 01"},
         CHECK(EXPECT_EQ(camera.cooler, COOLER_SETPOINT); EXPECT_EQ(camera.maxCoolerPower, 255U);
               EXPECT_EQ(camera.minCoolerPower, 32U))},
        {"cooler: then power",
         {.coolerDetails = "0D 00 00 00 00 00"},
         CHECK(EXPECT_EQ(camera.cooler, COOLER_SELECTPOWER))},
        {"cooler: then on and off",
         {.coolerDetails = "05 00 C8 00 0A 00"},
         CHECK(EXPECT_EQ(camera.cooler, COOLER_ONOFF); EXPECT_EQ(camera.maxCoolerPower, 200U);
               EXPECT_EQ(camera.minCoolerPower, 10U))},
        {"cooler: then always on",
         {.coolerDetails = "03 00 00 00 00 00"},
         CHECK(EXPECT_EQ(camera.cooler, COOLER_ALWAYSON))},
        {"cooler: unknown bits", {.coolerDetails = "E2 FF 00 00 00 00"}, CHECK(EXPECT_EQ(camera.cooler, COOLER_NONE))},
        {"colour",
         {.colour = "84 D9 01 02 00"},
         CHECK(EXPECT_EQ(camera.colour, COLOUR_RGGB); EXPECT_EQ(camera.offsetX, 1); EXPECT_EQ(camera.offsetY, 0))},
        {"serial number, all four bytes",
         {.serialLow = "DD CC", .serialHigh = "BB AA"},
         CHECK(EXPECT_EQ(camera.serialNumber, 0xAABBCCDDU))},
        {"a wheel that never stops does not fail the open",
         {.flags = "40 11", .wheelPolls = 20},
         CHECK(EXPECT_TRUE(camera.hasFilterWheel))},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        ClosedCamera closed(STANDARD, row.answers.parts());
        EXPECT_TRUE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        row.check(closed.camera);
    }
}

TEST(OpenStandard, TracesItsProgress)
{
    ClosedCamera closed(STANDARD, StandardOpen({.colour = "84 D9 01 03 00", .flags = "8C 02"}).parts());
    TraceCapture trace;
    ASSERT_TRUE(closed.camera.open());
    // what the primitives write inside primitives has a test of its own
    std::string text;
    for (const std::string& line : trace.lines()) {
        if (!line.starts_with("  ") || line.starts_with("    "))
            text += line + "\n";
    }
    EXPECT_EQ(text,
              "-> VornCameraImpl::open()\n    libusb_claim_interface() -> LIBUSB_SUCCESS\n"
              "    libusb_set_interface_alt_setting() -> LIBUSB_SUCCESS\n -> VornCameraImpl::writeFW()\n"
              "     cpu stopped 1\n     cpu started 1\n <- VornCameraImpl::writeFW 1\n"
              " -> VornCameraImpl::setPortDirection(0, 0x9f)\n <- VornCameraImpl::setPortDirection 1\n"
              " -> VornCameraImpl::setPortState(0, 0x80)\n <- VornCameraImpl::setPortState 1\n"
              " -> VornCameraImpl::i2cSetTimeout(50)\n <- VornCameraImpl::i2cSetTimeout 1\n"
              " -> VornCameraImpl::setParTimeout(50)\n <- VornCameraImpl::setParTimeout 1\n"
              " -> VornCameraImpl::i2cSetSpeed(0)\n <- VornCameraImpl::i2cSetSpeed 1\n -> VornCameraImpl::flush()\n"
              "     libusb_bulk_transfer -> LIBUSB_ERROR_TIMEOUT\n     0 bytes flushed\n <- VornCameraImpl::flush\n"
              " -> VornCameraImpl::i2cSetTimeout(5000)\n <- VornCameraImpl::i2cSetTimeout 1\n"
              " -> VornCameraImpl::eepRead(3, ..., 2)\n <- VornCameraImpl::eepRead 1 [0x34 0xdf]\n"
              " -> VornCameraImpl::eepRead(1000, ..., 5)\n <- VornCameraImpl::eepRead 1 [0x84 0xd9 0x01 0x03...]\n"
              "    colour = 2, offsetX = 1, offsetY = 1\n    pid = df34\n -> VornCameraImpl::i2cSetTimeout(100)\n"
              " <- VornCameraImpl::i2cSetTimeout 1\n -> VornCameraImpl::setParTimeout(1000)\n"
              " <- VornCameraImpl::setParTimeout 1\n -> VornCameraImpl::parInit(9)\n <- VornCameraImpl::parInit 1\n"
              " -> VornCameraImpl::ping()\n     ping -> 100\n     ping <- 101\n <- VornCameraImpl::ping 1\n"
              " -> VornCameraImpl::sendCommand(1, NULL, ..., 0, 0)\n <- VornCameraImpl::sendCommand 1 NULL\n"
              "    version: 2.5\n    model: Vorn K12\n    manufacturer: Vorn\n"
              "    flags: 0x28c  EXT_TRIGGER PREVIEW HAS_SHUTTER HAS_GUIDE_PORT HAS_GPIO\n"
              "    pixel count: 4000 x 3000\n    pixel size: 7.7 x 6.8\n    max bin: 3 x 4\n    well capacity: 50000\n"
              " -> VornCameraImpl::appInit()\n     ----- DEBUG OFF -----\n     ----- DEBUG ON -----\n"
              "     APPINIT completed\n <- VornCameraImpl::appInit 1\n"
              " -> VornCameraImpl::sendCommand(54, NULL, ..., 0, 2)\n <- VornCameraImpl::sendCommand 1 [0x01 0xee]\n"
              "    temperature sensor count: 1\n -> VornCameraImpl::getTemperatureSensorStatus(1, ...)\n     lock()\n"
              "     unlock()\n <- VornCameraImpl::getTemperatureSensorStatus 1\n    temperature sensor type: 2\n"
              " -> VornCameraImpl::sendCommand(52, NULL, ..., 0, 6)\n"
              " <- VornCameraImpl::sendCommand 1 [0x10 0xee 0xc8 0xee...]\n    cooler: COOLER_SETPOINT\n"
              "    min cooler power: 10\n    max cooler power: 200\n -> VornCameraImpl::eepRead(5, ..., 2)\n"
              " <- VornCameraImpl::eepRead 1 [0x34 0x12]\n -> VornCameraImpl::eepRead(8, ..., 2)\n"
              " <- VornCameraImpl::eepRead 1 [0x01 0x00]\n    serial # 0000070196\n"
              " -> VornCameraImpl::i2cSetTimeout(200)\n <- VornCameraImpl::i2cSetTimeout 1\n"
              " -> VornCameraImpl::setParTimeout(2000)\n <- VornCameraImpl::setParTimeout 1\n"
              "<- VornCameraImpl::open 1\n");
}

}  // namespace
