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

TEST(FilterWheel, ReportsWhatTheCameraSays)
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
        WheelCamera opened;
        opened.usb.command("87 00").parIn(8, row.reply).command("87 00").parIn(8, row.reply);
        Wheel wheel;
        EXPECT_TRUE(opened.camera.getFilterWheelStatus(&wheel.count, &wheel.moving, &wheel.current, &wheel.target));
        EXPECT_EQ(wheel, row.wheel);
        EXPECT_TRUE(opened.camera.getFilterWheelStatus(nullptr, nullptr, nullptr, nullptr));
        EXPECT_TRUE(opened.lockFree());
    }
}

TEST(FilterWheel, EachFailingTransferLeavesTheOutputs)
{
    Steps whole;
    whole.command("87 00").parIn(8, "05 00 00 00 02 00 04 00");
    for (size_t failing = 0; failing < whole.size(); failing++) {
        SCOPED_TRACE("failing step " + std::to_string(failing + 1));
        WheelCamera opened;
        opened.usb.append(whole, 0, failing + 1).fails();
        Wheel wheel;
        EXPECT_FALSE(opened.camera.getFilterWheelStatus(&wheel.count, &wheel.moving, &wheel.current, &wheel.target));
        EXPECT_EQ(wheel, Wheel());
        EXPECT_EQ(opened.error(), "Failed to get filter wheel status");
        EXPECT_TRUE(opened.lockFree());
    }
}

TEST(SetFilter, SendsTheIndexAsItIs)
{
    struct {
        unsigned index;
        const char* command;
        const char* reply;
        bool ok;
    } const CASES[] = {
        {3, "88 00 03 00", "01 00", true},
        {0x0103, "88 00 03 01", "FF 00", true},
        {0x50000, "88 00 00 00", "01 00", true},  // low 16 bits; the camera decides
        {99, "88 00 63 00", "00 01", false},      // only the first byte of the answer counts
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.command);
        WheelCamera opened;
        opened.usb.command(row.command).parIn(2, row.reply);
        EXPECT_EQ(opened.camera.setFilter(row.index), row.ok);
        EXPECT_TRUE(opened.usb.done());
        EXPECT_EQ(opened.error(), row.ok ? "No error" : "Failed to set filter");
        EXPECT_TRUE(opened.lockFree());
    }
}

TEST(SetFilter, EachFailingTransferFailsIt)
{
    Steps whole;
    whole.command("88 00 03 00").parIn(2, "01 00");
    for (size_t failing = 0; failing < whole.size(); failing++) {
        WheelCamera opened;
        opened.usb.append(whole, 0, failing + 1).fails();
        EXPECT_FALSE(opened.camera.setFilter(3)) << "failing step " << failing + 1;
        EXPECT_EQ(opened.error(), "Failed to set filter");
        EXPECT_TRUE(opened.lockFree());
    }
}

TEST(FilterWheel, IsUnsupportedWhereThereIsNone)
{
    OpenedCamera without;
    without.camera.lock();  // a refusal does not wait for it
    EXPECT_FALSE(without.camera.getFilterWheelStatus(nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(without.error(), "Unsupported operation");
    without.camera.lastError = "No error";
    EXPECT_FALSE(without.camera.setFilter(1));
    EXPECT_EQ(without.error(), "Unsupported operation");
    without.camera.unlock();

    for (const CAMERA_TYPE type : {CLASSIC, QUICKER, IIDC}) {  // no traffic, whatever the flag says
        WheelCamera wheel(type);
        EXPECT_FALSE(wheel.camera.getFilterWheelStatus(nullptr, nullptr, nullptr, nullptr));
        EXPECT_EQ(wheel.error(), "Failed to get filter wheel status");
        EXPECT_FALSE(wheel.camera.setFilter(1));
        EXPECT_EQ(wheel.error(), "Failed to set filter");
    }
}

}  // namespace
