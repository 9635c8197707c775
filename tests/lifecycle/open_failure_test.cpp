// SPDX-License-Identifier: MIT
// Every transfer of an open fails in turn: what is still attempted, and what is left behind.
#include <gtest/gtest.h>

#include "opened_camera.h"
#include "standard_open.h"
#include "trace_capture.h"

namespace {

using vorntest::Script;
using vorntest::Steps;
using vorntest::TraceCapture;

/// Calls that must follow when step @p failing of @p whole has failed, and whether the open succeeds all the same.
struct Aftermath {
    Steps rest;
    bool opens = false;
};

Aftermath aftermath(const StandardOpen& answers, StandardOpen::Phase phase, Steps& whole, size_t failing)
{
    Aftermath after;
    Steps& rest = after.rest;
    switch (phase) {
        case StandardOpen::OPEN:
            return after;          // nothing to close
        case StandardOpen::CLAIM:  // another program's interface: nothing more is sent
        case StandardOpen::IDENTIFY:
        case StandardOpen::CLOSING:
            rest.close();
            return after;
        case StandardOpen::BRIDGE:
            answers.writeFlush(rest);
            rest.close();
            return after;
        case StandardOpen::PRODUCT_ID:
            answers.writeColour(rest);
            rest.close();
            return after;
        case StandardOpen::FLUSH:   // flushing has no result
        case StandardOpen::COLOUR:  // no colour record means monochrome
        case StandardOpen::PING:
            break;  // asked again
    }
    after.opens = true;
    if (phase == StandardOpen::FLUSH)
        rest.out(0x04, "0C ?? 00 01 88 13 ...").eepRead(3, 2, answers.productId);
    if (phase == StandardOpen::FLUSH)
        answers.writeColour(rest);
    if (phase != StandardOpen::PING) {
        answers.writeIdentify(rest);
        rest.command("50 00 64 00").pause(20000).parIn(2, "65 00");
    } else {
        // a failed send is followed by the pause and the read all the same
        if (whole[failing].call.endpoint != 0x88 && whole[failing + 1].call.endpoint != 0x88)
            rest.pause(20000).parIn(2, "65 00");
        rest.command("50 00 65 00").pause(20000).parIn(2, "66 00");
    }
    answers.writeAfterPing(rest);
    answers.writeClosing(rest);
    return after;
}

TEST(OpenStandard, EachFailingTransferLeavesItClosed)
{
    const StandardOpen answers = {.flags = "80 12", .wheelPolls = 1};
    Steps whole;
    const std::vector<StandardOpen::Phase> phases = answers.write(whole);
    Script usb;
    for (size_t failing = 0; failing < whole.size(); failing++) {
        if (!whole[failing].call.countable())
            continue;
        SCOPED_TRACE("step " + std::to_string(failing + 1) + ": " + whole[failing].text());
        const Aftermath after = aftermath(answers, phases[failing], whole, failing);
        usb.clear();
        usb.append(whole, 0, failing + 1).fails(LIBUSB_ERROR_IO).append(after.rest);
        VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
        camera.serialNumber = 77;
        ASSERT_EQ(camera.open(), after.opens);
        ASSERT_TRUE(usb.done());
        EXPECT_EQ(camera.handle != nullptr, after.opens);
        EXPECT_EQ(usb.device.openCount, after.opens ? 1 : 0);
        EXPECT_EQ(pthread_mutex_trylock(&camera.mutex), 0);
        (void)pthread_mutex_unlock(&camera.mutex);
        EXPECT_STREQ(camera.getLastError(), after.opens                             ? "No error"
                                            : phases[failing] == StandardOpen::OPEN ? "Failed to open device"
                                                                                    : "Failed to initialize device");
        usb.device.openCount = 0;
    }
}

TEST(OpenStandard, AnUnpluggedCameraEndsItSoonAndClosed)
{
    const StandardOpen answers = {.flags = "80 12", .wheelPolls = 1};
    Steps whole;
    (void)answers.write(whole);
    Script usb;
    for (size_t last = 0; last<whole.size(); last += last> 10 && last < 740 ? 50 : 1) {
        SCOPED_TRACE("unplugged after step " + std::to_string(last));
        usb.clear();
        usb.append(whole, 0, last);
        usb.thenUnplugged();
        VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
        vorntest::bus().clearLog();
        const int64_t startUs = vorntest::bus().nowUs();
        ASSERT_FALSE(camera.open());
        EXPECT_EQ(camera.handle, nullptr);
        EXPECT_EQ(usb.device.openCount, 0);
        EXPECT_LT(vorntest::bus().log().size(), last + 30);
        EXPECT_LT(vorntest::bus().nowUs() - startUs, 7000000);
    }
}

TEST(OpenStandard, MoreThanPingsMayFail)
{
    Script usb;
    VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
    const StandardOpen answers;
    Steps whole;
    const std::vector<StandardOpen::Phase> phases = answers.write(whole);
    const auto ping = std::find(phases.begin(), phases.end(), StandardOpen::PING) - phases.begin();
    usb.append(whole, 0, static_cast<size_t>(ping));
    for (const char* counter : {"64", "65", "66", "67", "68"})
        usb.command(std::string("50 00 ") + counter + " 00").pause(20000).parIn(2, "00 00");
    usb.close();
    TraceCapture trace;
    EXPECT_FALSE(camera.open());
    EXPECT_TRUE(usb.done());
    EXPECT_TRUE(trace.has("    failed to initialize device!!!"));
    EXPECT_EQ(trace.lines().back(), "<- VornCameraImpl::open 00");
}

TEST(OpenStandard, AFailedLibusbOpenReleasesTheLockFirst)
{
    Script usb;
    VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
    usb.open().fails(LIBUSB_ERROR_ACCESS);
    TraceCapture trace;
    EXPECT_FALSE(camera.open());
    EXPECT_EQ(trace.lines(),
              (std::vector<std::string>{"-> VornCameraImpl::open()", "    unlock()",
                                        "    libusb_open() -> LIBUSB_ERROR_ACCESS", "<- VornCameraImpl::open 00"}));
}

TEST(Open, ATypeOutsideTheEnumerationFails)
{
    Script usb;
    VornCameraImpl camera(&usb.device, "Vorn ?", static_cast<CAMERA_TYPE>(6));
    usb.open().driverActive(false).claim().altSetting(1);
    // product id and colour are read: the type is not IIDC
    usb.out(0x04, "0C ?? 00 01 88 13 ...").eepRead(3, 2, "34 DF").eepRead(0xE8, 5, "FF FF FF FF FF").close();
    TraceCapture trace;
    EXPECT_FALSE(camera.open());
    EXPECT_TRUE(trace.has("    unsupported device!!!"));
    EXPECT_STREQ(camera.getLastError(), "Failed to initialize device");
}

}  // namespace
