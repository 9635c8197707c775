// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Operation;
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

struct Cooling {
    COOLING_STATE state = static_cast<COOLING_STATE>(9);
    float target = 99.0F;
    float power = 999.0F;
    bool operator==(const Cooling&) const = default;
};

TEST(CoolingStatus, DecodesStandardReplies)
{
    struct {
        const char* label;
        const char* reply;
        Cooling cooling;
    } const CASES[] = {
        {"inactive, nothing", "0A EE 00 EE 00 00", {COOLING_INACTIVE, -60.0F, 0.0F}},
        {"other bits mean nothing", "D2 EE 1F EE 9B 00", {COOLING_INACTIVE, -10.0F, 100.0F}},
        {"on", "6E EE 40 EE 9B 00", {COOLING_ON, -10.0F, 50.0F}},
        {"warming outranks on", "6E EE 60 EE 9B 00", {WARMING_UP, -10.0F, 50.0F}},
        {"set-point outranks warming", "6E EE A0 EE 9B 00", {COOLING_SETPOINT, -10.0F, 50.0F}},
        {"target has 16 bits", "6E 00 80 00 FF 03", {COOLING_SETPOINT, 270.0F, 50.0F}},
        {"power below the least", "00 00 80 00 9B 00", {COOLING_SETPOINT, -10.0F, -5.0F}},
        {"power above the most", "FA 00 80 00 9B 00", {COOLING_SETPOINT, -10.0F, 120.0F}},
    };
    for (const auto& row : CASES) {
        SCOPED_TRACE(row.label);
        CooledCamera cooled;
        cooled.usb.command("35 00").parIn(6, row.reply);
        Cooling cooling;
        EXPECT_TRUE(cooled.camera.getCoolingStatus(&cooling.state, &cooling.target, &cooling.power));
        EXPECT_EQ(cooling, row.cooling);
        cooled.expectSettled();
    }
}

TEST(CoolingStatus, ANullStateSuppressesTheOthers)
{
    CooledCamera cooled;
    cooled.camera.tempSensorType = 0;  // not even converted
    cooled.usb.command("35 00").parIn(6, "6E 00 80 00 9B 00").command("35 00").parIn(6, "6E 00 80 00 9B 00");
    Cooling cooling;
    EXPECT_TRUE(cooled.camera.getCoolingStatus(nullptr, &cooling.target, &cooling.power));
    EXPECT_EQ(cooling, Cooling());
    EXPECT_TRUE(cooled.camera.getCoolingStatus(&cooling.state, nullptr, nullptr));
    EXPECT_EQ(cooling.state, COOLING_SETPOINT);
}

struct CoolingCall {
    const char* label;
    Operation operation;
    Steps conversation;
    const char* error;
};

std::vector<CoolingCall> coolingCalls()
{
    const auto status = [](VornCameraImpl& camera) {
        Cooling cooling;
        const bool ok = camera.getCoolingStatus(&cooling.state, &cooling.target, &cooling.power);
        EXPECT_EQ(cooling, ok ? (Cooling{COOLING_SETPOINT, -10.0F, 50.0F}) : Cooling());  // a failure writes nothing
        return ok;
    };
    return {
        {"status", status, Steps().command("35 00").parIn(6, "6E 00 80 00 9B 00"), "Failed to set cooling status"},
        {"set-point", CALL(setCooling(-10.0F)), Steps().command("38 00 9B 00").parIn(2, "01 00"),
         "Failed to set temperature"},
        {"set-point below the range", CALL(setCooling(-70.0F)), Steps().command("38 00 E2 FF").parIn(2, "01 FF"),
         "Failed to set temperature"},
        {"warm-up", CALL(initiateWarmUp()), Steps().command("39 00"), "Failed to initiate warmup"},
    };
}

TEST(Cooling, EverySwitchableCoolerTakesTheSameCommands)
{
    for (const CoolingCall& row : coolingCalls()) {
        for (const COOLER_TYPE cooler : {COOLER_ONOFF, COOLER_SELECTPOWER, COOLER_SETPOINT}) {
            SCOPED_TRACE(row.label);
            forEachFailure(row.conversation, [&](const Steps& steps, bool ok) {
                CooledCamera cooled(cooler);
                cooled.usb.append(steps);
                EXPECT_EQ(row.operation(cooled.camera), ok);
                cooled.expectSettled(ok ? "No error" : row.error);
            });
        }
    }
}

TEST(Cooling, IsRefusedWithoutTraffic)
{
    for (const CoolingCall& row : coolingCalls()) {
        SCOPED_TRACE(row.label);
        for (const COOLER_TYPE cooler : {COOLER_NONE, COOLER_ALWAYSON}) {
            CooledCamera cooled(cooler);
            cooled.camera.lock();  // a refusal does not wait for it
            EXPECT_FALSE(row.operation(cooled.camera));
            cooled.camera.unlock();
            cooled.expectSettled("Unsupported operation");
        }
        CooledCamera closed;  // keeps what it was identified as
        closed.camera.handle = nullptr;
        EXPECT_FALSE(row.operation(closed.camera));
        closed.expectSettled(row.error);
    }
}

TEST(SetCooling, WantsAnAcknowledgementOfOne)
{
    for (const char* reply : {"00 01", "02 00", "FF FF"}) {
        SCOPED_TRACE(reply);
        CooledCamera cooled;
        cooled.usb.command("38 00 9B 00").parIn(2, reply);
        EXPECT_FALSE(cooled.camera.setCooling(-10.0F));
        cooled.expectSettled("Failed to set temperature");
    }
}

}  // namespace
