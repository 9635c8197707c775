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

#define IS(condition) [](const VornCameraImpl& camera) { return condition; }

TEST(OpenStandard, TakesWhatTheCameraSays)
{
    struct {
        const char* label;
        StandardOpen answers;
        bool (*check)(const VornCameraImpl&);
    } const CASES[] = {
        {"no flags: only a guide port",
         {.flags = "00 00"},
         IS(camera.hasGuidePort &&
            !(camera.hasShutter || camera.hasFilterWheel || camera.hasGPIO || camera.has8BitMode))},
        {"all flags but the wheel: no guide port, no GPIO, no 8-bit mode",
         {.flags = "FF EF"},
         IS(camera.hasShutter &&
            !(camera.hasGuidePort || camera.hasFilterWheel || camera.hasGPIO || camera.has8BitMode))},
        {"product df31 has its own size",
         {.productId = "31 DF", .pixelCountX = "E8 03", .pixelCountY = "E8 03"},
         IS(camera.pixelCountX == 3326 && camera.pixelCountY == 2504)},
        {"product df50, too", {.productId = "50 DF"}, IS(camera.pixelCountX == 4499 && camera.pixelCountY == 3599)},
        {"16 bits of pixels, 8 of sensors, 32 of a serial number",
         {.pixelCountX = "FF FF",
          .pixelCountY = "00 80",
          .temperatureDetails = "03 01",
          .serialLow = "DD CC",
          .serialHigh = "BB AA"},
         IS(camera.pixelCountX == 65535 && camera.pixelCountY == 32768 && camera.tempSensorCount == 3 &&
            camera.serialNumber == 0xAABBCCDD)},
        {"no temperature sensor",
         {.temperatureDetails = "00 05", .hasTemperature = false},
         IS(camera.tempSensorCount == 0)},
        {"cooler: set-point first",
         {.coolerDetails = "1D 00 FF 01 20 01"},
         IS(camera.cooler == COOLER_SETPOINT && camera.maxCoolerPower == 255 && camera.minCoolerPower == 32)},
        {"then power", {.coolerDetails = "0D 00 00 00 00 00"}, IS(camera.cooler == COOLER_SELECTPOWER)},
        {"then on and off", {.coolerDetails = "05 00 C8 00 0A 00"}, IS(camera.cooler == COOLER_ONOFF)},
        {"then always on", {.coolerDetails = "03 00 00 00 00 00"}, IS(camera.cooler == COOLER_ALWAYSON)},
        {"then none", {.coolerDetails = "E2 FF 00 00 00 00"}, IS(camera.cooler == COOLER_NONE)},
        {"a wheel that never stops does not fail it", {.flags = "40 11", .wheelPolls = 20}, IS(camera.hasFilterWheel)},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        ClosedCamera closed(STANDARD, row.answers.parts());
        EXPECT_TRUE(closed.camera.open());
        EXPECT_TRUE(closed.usb.done());
        EXPECT_TRUE(row.check(closed.camera));
    }
}

TEST(OpenStandard, TracesItsProgress)
{
    ClosedCamera closed(STANDARD, StandardOpen({.colour = "84 D9 01 03 00", .flags = "8C 02"}).parts());
    TraceCapture trace;
    ASSERT_TRUE(closed.camera.open());
    // what primitives write has tests of its own
    std::string text;
    for (const std::string& line : trace.lines()) {
        if (line.find_first_not_of(' ') == 4 || !line.starts_with(' '))
            text += line + "\n";
    }
    EXPECT_EQ(text, R"(-> VornCameraImpl::open()
    libusb_claim_interface() -> LIBUSB_SUCCESS
    libusb_set_interface_alt_setting() -> LIBUSB_SUCCESS
    colour = 2, offsetX = 1, offsetY = 1
    pid = df34
    version: 2.5
    model: Vorn K12
    manufacturer: Vorn
    flags: 0x28c  EXT_TRIGGER PREVIEW HAS_SHUTTER HAS_GUIDE_PORT HAS_GPIO
    pixel count: 4000 x 3000
    pixel size: 7.7 x 6.8
    max bin: 3 x 4
    well capacity: 50000
    temperature sensor count: 1
    temperature sensor type: 2
    cooler: COOLER_SETPOINT
    min cooler power: 10
    max cooler power: 200
    serial # 0000070196
<- VornCameraImpl::open 1
)");
}

}  // namespace
