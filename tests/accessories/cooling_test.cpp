// SPDX-License-Identifier: MIT
#include <functional>

#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Steps;

/// A camera with a 10-bit sensor and a cooler whose power reads from 10 to 210.
struct CooledCamera : OpenedCamera {
    explicit CooledCamera(COOLER_TYPE cooler = COOLER_SETPOINT)
    {
        camera.cooler = cooler;
        camera.tempSensorType = 1;
        camera.minCoolerPower = 10;
        camera.maxCoolerPower = 210;
    }
};

TEST(CoolingStatus, DecodesStandardReplies)
{
    struct {
        const char* label;
        const char* reply;
        COOLING_STATE state;
        float target;
        float power;
    } const CASES[] = {
        {"inactive, nothing", "0A EE 00 EE 00 00", COOLING_INACTIVE, -60.0F, 0.0F},
        {"other bits mean nothing", "D2 EE 1F EE 9B 00", COOLING_INACTIVE, -10.0F, 100.0F},
        {"on", "6E EE 40 EE 9B 00", COOLING_ON, -10.0F, 50.0F},
        {"warming outranks on", "6E EE 60 EE 9B 00", WARMING_UP, -10.0F, 50.0F},
        {"set-point outranks warming", "6E EE A0 EE 9B 00", COOLING_SETPOINT, -10.0F, 50.0F},
        {"target has 16 bits", "6E 00 80 00 FF 03", COOLING_SETPOINT, 270.0F, 50.0F},
        {"power below the least", "00 00 80 00 9B 00", COOLING_SETPOINT, -10.0F, -5.0F},
        {"power above the most", "FA 00 80 00 9B 00", COOLING_SETPOINT, -10.0F, 120.0F},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        CooledCamera cooled;
        cooled.usb.command("35 00").parIn(6, row.reply);
        auto state = static_cast<COOLING_STATE>(9);
        float target = 99.0F;
        float power = 999.0F;
        EXPECT_TRUE(cooled.camera.getCoolingStatus(&state, &target, &power));
        EXPECT_EQ(state, row.state);
        EXPECT_EQ(target, row.target);
        EXPECT_EQ(power, row.power);
        EXPECT_TRUE(cooled.lockFree());
    }
}

TEST(CoolingStatus, ANullStateSuppressesTheOthers)
{
    CooledCamera cooled;
    cooled.camera.tempSensorType = 0;  // not even converted
    cooled.usb.command("35 00").parIn(6, "6E 00 80 00 9B 00");
    float target = 99.0F;
    float power = 999.0F;
    EXPECT_TRUE(cooled.camera.getCoolingStatus(nullptr, &target, &power));
    EXPECT_EQ(target, 99.0F);
    EXPECT_EQ(power, 999.0F);

    cooled.usb.command("35 00").parIn(6, "6E 00 80 00 9B 00");
    COOLING_STATE state = COOLING_INACTIVE;
    EXPECT_TRUE(cooled.camera.getCoolingStatus(&state, nullptr, nullptr));
    EXPECT_EQ(state, COOLING_SETPOINT);
}

struct CoolingCall {
    const char* label;
    std::function<bool(VornCameraImpl&)> act;
    std::function<void(Steps&)> conversation;
    const char* error;
};

const CoolingCall CALLS[] = {
    {"status",
     [](VornCameraImpl& camera) {
         COOLING_STATE state = WARMING_UP;
         float target = 99.0F;
         float power = 999.0F;
         const bool ok = camera.getCoolingStatus(&state, &target, &power);
         EXPECT_EQ(state, ok ? COOLING_SETPOINT : WARMING_UP);  // a failure writes no output
         EXPECT_EQ(target, ok ? -10.0F : 99.0F);
         EXPECT_EQ(power, ok ? 50.0F : 999.0F);
         return ok;
     },
     [](Steps& usb) { usb.command("35 00").parIn(6, "6E 00 80 00 9B 00"); }, "Failed to set cooling status"},
    {"set-point", [](VornCameraImpl& camera) { return camera.setCooling(-10.0F); },
     [](Steps& usb) { usb.command("38 00 9B 00").parIn(2, "01 00"); }, "Failed to set temperature"},
    {"set-point below the range, low 16 bits", [](VornCameraImpl& camera) { return camera.setCooling(-70.0F); },
     [](Steps& usb) { usb.command("38 00 E2 FF").parIn(2, "01 FF"); }, "Failed to set temperature"},
    {"warm-up", [](VornCameraImpl& camera) { return camera.initiateWarmUp(); },
     [](Steps& usb) { usb.command("39 00"); }, "Failed to initiate warmup"},
};

TEST(Cooling, EverySwitchableCoolerTakesTheSameCommands)
{
    for (const CoolingCall& row : CALLS) {
        for (const COOLER_TYPE cooler : {COOLER_ONOFF, COOLER_SELECTPOWER, COOLER_SETPOINT}) {
            SCOPED_TRACE(row.label);
            CooledCamera cooled(cooler);
            row.conversation(cooled.usb);
            EXPECT_TRUE(row.act(cooled.camera));
            EXPECT_TRUE(cooled.usb.done());
            EXPECT_EQ(cooled.error(), "No error");
            EXPECT_TRUE(cooled.lockFree());
        }
    }
}

TEST(Cooling, EachFailingTransferGivesTheOperationsOwnText)
{
    for (const CoolingCall& row : CALLS) {
        Steps whole;
        row.conversation(whole);
        for (size_t failing = 0; failing < whole.size(); failing++) {
            SCOPED_TRACE(std::string(row.label) + ", failing step " + std::to_string(failing + 1));
            CooledCamera cooled;
            cooled.usb.append(whole, 0, failing + 1).fails();
            EXPECT_FALSE(row.act(cooled.camera));
            EXPECT_TRUE(cooled.usb.done());
            EXPECT_EQ(cooled.error(), row.error);
            EXPECT_TRUE(cooled.lockFree());
        }
    }
}

TEST(Cooling, IsUnsupportedWithoutASwitchableCooler)
{
    for (const CoolingCall& row : CALLS) {
        for (const COOLER_TYPE cooler : {COOLER_NONE, COOLER_ALWAYSON}) {
            SCOPED_TRACE(row.label);
            CooledCamera cooled(cooler);
            cooled.camera.lock();  // a refusal does not wait for it
            EXPECT_FALSE(row.act(cooled.camera));
            EXPECT_EQ(cooled.error(), "Unsupported operation");
            cooled.camera.unlock();
        }
    }
}

// A closed camera keeps what it was identified as; its requests fail without reaching the bus.
TEST(Cooling, FailsOnAClosedCamera)
{
    for (const CoolingCall& row : CALLS) {
        SCOPED_TRACE(row.label);
        CooledCamera cooled;
        cooled.camera.handle = nullptr;
        EXPECT_FALSE(row.act(cooled.camera));
        EXPECT_EQ(cooled.error(), row.error);
    }
}

TEST(SetCooling, WantsAnAcknowledgementOfOne)
{
    for (const char* reply : {"00 01", "02 00", "FF FF"}) {
        SCOPED_TRACE(reply);
        CooledCamera cooled;
        cooled.usb.command("38 00 9B 00").parIn(2, reply);
        EXPECT_FALSE(cooled.camera.setCooling(-10.0F));
        EXPECT_EQ(cooled.error(), "Failed to set temperature");
    }
}

}  // namespace
