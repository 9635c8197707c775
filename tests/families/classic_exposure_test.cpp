// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "exposure_camera.h"
#include "family_steps.h"

namespace {

using vorntest::classicCommand;

Part command(const std::string& hex)
{
    Part write = part();
    classicCommand(write.steps, hex);
    return write;
}

Part waiting(long us)
{
    Part wait = part(Part::UNTRIED);
    wait.steps.pause(us);
    return wait;
}

TEST(StartExposureClassic, SendsItsCommandsInOrder)
{
    expectEachFailureOfStep(START, CLASSIC, {command("02 00 00"), command("04"), command("05")},
                            [](VornCameraImpl& camera) {
                                camera.hasShutter = true;  // no matter to this family
                                return camera.startExposure(true);
                            });
}

TEST(ReadLongClassic, WaitsTwoSecondsAndCountsFromOne)
{
    for (const bool preview : {false, true}) {
        // columns 259 to 1031, rows 6 to 65: the ends are one past the last
        const Parts parts = {
            command("42"), waiting(2000000), command("02 01 00"),
            command(std::string("06 00 02 03 03 01 06 00 07 04 42 00 ") + (preview ? "01 03" : "00 03"))};
        expectEachFailureOfStep(READ, CLASSIC, parts, [&](VornCameraImpl& camera) {
            setSensor(camera, 0x1000, 0x800);
            EXPECT_TRUE(camera.setPreviewMode(preview));
            return camera.readCCD(0x102, 5, 0x304, 60, 2, 3);
        });
    }
}

TEST(ReadShortClassic, SendsTheExposureCodeAndWaitsAlsoAfterAFailure)
{
    struct {
        double seconds;
        const char* code;
        long waitUs;
    } const CASES[] = {{0.0, "01", 1000},   {0.005, "05", 5000},   {0.0095, "09", 9000}, {0.01, "0A", 10000},
                       {0.5, "3B", 500000}, {2.46, "FF", 2460000}, {5.0, "FF", 2460000}};
    for (const auto& row : CASES) {
        Part readout = command(std::string("06 ") + row.code + " 01 01 01 00 01 00 65 00 3D 00 00 03");
        readout.afterwards.pause(row.waitUs);
        expectEachFailureOfStep(READ, CLASSIC, {readout, waiting(row.waitUs)}, [&](VornCameraImpl& camera) {
            const bool ok = camera.readCCD(0, 0, 100, 60, 1, 1, row.seconds);
            camera.exposureStarted = false;
            return ok;
        });
    }
}

TEST(ExposureClassic, WholeLongExposure)
{
    ExposureCamera classic(CLASSIC);
    for (const char* hex : {"02 00 00", "04", "05", "42"})
        classicCommand(classic.usb, hex);
    classicCommand(classic.usb.pause(2000000), "02 01 00");
    classicCommand(classic.usb, "06 00 01 01 01 00 01 00 03 00 02 00 00 03").parIn(4, "34 12 FF 00");
    EXPECT_EQ(takeImage(classic.camera, {0, 0, 2, 1, 1, 1}, -1.0, 3, 2),
              (std::vector<uint16_t>{0x1234, 0x00FF, 0xCCCC}));
    EXPECT_TRUE(classic.usb.done());
}

}  // namespace
