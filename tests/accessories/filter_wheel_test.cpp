// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Steps;

struct WheelCamera : OpenedCamera {
    explicit WheelCamera(CAMERA_TYPE type = STANDARD) : OpenedCamera(type) { camera.hasFilterWheel = true; }
};

struct Wheel {
    unsigned count = 91;
    bool moving = true;
    unsigned current = 93;
    unsigned target = 94;
    bool operator==(const Wheel&) const = default;
};

bool read(VornCameraImpl& camera, Wheel& wheel)
{
    return camera.getFilterWheelStatus(&wheel.count, &wheel.moving, &wheel.current, &wheel.target);
}

TEST(FilterWheel, ReportsWhatTheCameraSaysOrNothing)
{
    struct {
        const char* reply;
        Wheel wheel;
    } const CASES[] = {
        {"05 EE 01 EE 02 EE 04 EE", {5, true, 2, 4}},
        {"07 01 00 01 03 01 03 01", {7, false, 3, 3}},  // the second byte of each word does not count
        {"00 00 80 00 FF 00 00 00", {0, true, 255, 0}},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.reply);
        forEachFailure(Steps().command("87 00").parIn(8, row.reply), [&](const Steps& steps, bool ok) {
            WheelCamera opened;
            opened.usb.append(steps);
            Wheel wheel;
            EXPECT_EQ(read(opened.camera, wheel), ok);
            EXPECT_EQ(wheel, ok ? row.wheel : Wheel());
            opened.expectSettled(ok ? "No error" : "Failed to get filter wheel status");
        });
    }
    WheelCamera opened;
    opened.usb.command("87 00").parIn(8, CASES[0].reply);
    EXPECT_TRUE(opened.camera.getFilterWheelStatus(nullptr, nullptr, nullptr, nullptr));
}

TEST(SetFilter, SendsTheIndexAsItIs)
{
    struct {
        unsigned index;
        const char* command;
        const char* reply;
        bool accepted;
    } const CASES[] = {
        {3, "88 00 03 00", "01 00", true},
        {0x0103, "88 00 03 01", "FF 00", true},
        {0x50000, "88 00 00 00", "01 00", true},  // low 16 bits; the camera decides
        {99, "88 00 63 00", "00 01", false},      // only the first byte of the answer counts
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.command);
        forEachFailure(Steps().command(row.command).parIn(2, row.reply), [&](const Steps& steps, bool ok) {
            WheelCamera opened;
            opened.usb.append(steps);
            EXPECT_EQ(opened.camera.setFilter(row.index), ok && row.accepted);
            opened.expectSettled(ok && row.accepted ? "No error" : "Failed to set filter");
        });
    }
}

TEST(FilterWheel, IsUnsupportedWhereThereIsNone)
{
    OpenedCamera without;
    Wheel wheel;
    without.camera.lock();  // a refusal does not wait for it
    EXPECT_FALSE(read(without.camera, wheel));
    EXPECT_EQ(without.error(), "Unsupported operation");
    without.camera.lastError = "No error";
    EXPECT_FALSE(without.camera.setFilter(1));
    without.camera.unlock();
    without.expectSettled("Unsupported operation");

    for (const CAMERA_TYPE type : {CLASSIC, QUICKER, IIDC}) {  // no traffic, whatever the flag says
        WheelCamera opened(type);
        EXPECT_FALSE(read(opened.camera, wheel));
        EXPECT_EQ(opened.error(), "Failed to get filter wheel status");
        EXPECT_FALSE(opened.camera.setFilter(1));
        opened.expectSettled("Failed to set filter");
    }
}

}  // namespace
