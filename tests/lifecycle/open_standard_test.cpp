// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

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
    expectDescribed(camera,
                    "version 2.5, 4000 x 3000 of 7.70 x 6.75 um, binning 3 x 4, sensors 1 of type 2, cooler 4 from 10 "
                    "to 200, colour 1 at 0 0, lines 0, serial 70196, clear 300000, precharge 0: shutter guide wheel.");
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

TEST(OpenStandard, TakesWhatTheCameraSays)
{
    const struct {
        StandardOpen answers;
        std::vector<std::string> expected;
    } CASES[] = {
        {{.flags = "00 00"}, {": guide."}},  // a set flag means none
        {{.flags = "FF EF"}, {": shutter."}},
        {{.productId = "31 DF", .pixelCountX = "E8 03"}, {"3326 x 2504"}},  // two products have their own size
        {{.productId = "50 DF"}, {"4499 x 3599"}},
        {{.pixelCountX = "FF FF", .pixelCountY = "00 80"}, {"65535 x 32768"}},
        {{.temperatureDetails = "03 01"}, {"sensors 3 of"}},
        {{.temperatureDetails = "00 05", .hasTemperature = false}, {"sensors 0 of"}},
        {{.coolerDetails = "1D 00 FF 01 20 01"}, {"cooler 4 from 32 to 255"}},  // set-point outranks power ...
        {{.coolerDetails = "0D 00 00 00 00 00"}, {"cooler 3 from"}},
        {{.coolerDetails = "05 00 C8 00 0A 00"}, {"cooler 2 from 10 to 200"}},
        {{.coolerDetails = "03 00 00 00 00 00"}, {"cooler 1 from"}},
        {{.coolerDetails = "E2 FF 00 00 00 00"}, {"cooler 0 from"}},
        {{.serialLow = "DD CC", .serialHigh = "BB AA"}, {"serial 2864434397"}},
        {{.flags = "40 11", .wheelPolls = 20}, {": wheel."}},  // that never stops does not fail it
    };
    for (const auto& row : CASES)
        expectOpens(STANDARD, row.answers.parts(), row.expected);
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
