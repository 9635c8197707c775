// SPDX-License-Identifier: MIT
#include "exchange.h"

#include <limits>
#include <tuple>

#include "family_steps.h"
#include "trace_capture.h"

namespace {

using vorntest::EquippedCamera;
using vorntest::Exchange;
using vorntest::expectExchanges;
using vorntest::expectRefused;
using vorntest::expectRefusedUnequipped;
using vorntest::Operation;
using vorntest::TraceCapture;
using vorntest::UNTOUCHED;

const char* const COOLING_FAILED = "Failed to set cooling status";
const char* const SET_POINT_FAILED = "Failed to set temperature";
const char* const WARM_UP_FAILED = "Failed to initiate warmup";

/// On failure nothing is stored.
Operation cooling(COOLING_STATE expectedState, float expectedTarget, float expectedPower)
{
    return [=](VornCameraImpl& camera) {
        auto state = static_cast<COOLING_STATE>(9);
        float target = UNTOUCHED;
        float power = UNTOUCHED;
        const bool ok = camera.getCoolingStatus(&state, &target, &power);
        EXPECT_EQ(state, ok ? expectedState : 9);
        EXPECT_EQ(target, ok ? expectedTarget : UNTOUCHED);
        EXPECT_EQ(power, ok ? expectedPower : UNTOUCHED);
        return ok;
    };
}

// Set-point outranks warming, which outranks on; other bits mean nothing, power is not clamped.
TEST(CoolingStatus, SendsTheseBytesOrFails)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "35 00", "6E EE A0 EE 9B 00", cooling(COOLING_SETPOINT, -10, 50)},
        {STANDARD, "35 00", "6E EE 60 EE 9B 00", cooling(WARMING_UP, -10, 50)},
        {STANDARD, "35 00", "FA EE 40 EE FF 03", cooling(COOLING_ON, 270, 120)},
        {STANDARD, "35 00", "00 EE 1F EE 00 00", cooling(COOLING_INACTIVE, -60, -5)},
        {ADVANCED, "35", "00 6E 00 A0 00 9B EE EE", cooling(COOLING_SETPOINT, -10, 50)},
        {ADVANCED, "35", "00 0A 00 40 03 FF 00 00", cooling(COOLING_ON, 270, 0)},
        {ADVANCED, "35", "01 9A E0 1F 00 00 00 00", cooling(COOLING_INACTIVE, -60, 200)},
        {CLASSIC, "35", "6E EE A0 EE 9B EE 00 EE", cooling(COOLING_SETPOINT, -10, 50)},
        {CLASSIC, "35", "6E 00 60 00 FF 00 03 00", cooling(WARMING_UP, 270, 50)},
        {CLASSIC, "35", "0A FF 1F FF 9B FF 00 FF", cooling(COOLING_INACTIVE, -10, 0)},
    };
    expectExchanges(COOLING_FAILED, CASES);
}

TEST(SetCooling, SendsTheseBytesOrFails)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "38 00 9B 00", "01 00", CALL(setCooling(-10.0F))},
        {STANDARD, "38 00 E2 FF", "01 FF", CALL(setCooling(-70.0F))},  // below the range
        {STANDARD, "38 00 9B 00", "00 01", CALL(setCooling(-10.0F)), false},
        {STANDARD, "38 00 9B 00", "02 00", CALL(setCooling(-10.0F)), false},
        {ADVANCED, "38 00 9B", "FF 01", CALL(setCooling(-10.0F))},
        {ADVANCED, "38 00 9B", "01 00", CALL(setCooling(-10.0F)), false},
        {ADVANCED, "38 00 9B", "00 02", CALL(setCooling(-10.0F)), false},
        {CLASSIC, "38 9B 00", "01 FF", CALL(setCooling(-10.0F))},
        {CLASSIC, "38 9B 00", "00 01", CALL(setCooling(-10.0F)), false},
    };
    expectExchanges(SET_POINT_FAILED, CASES);
}

TEST(WarmUp, SendsTheseBytesOrFails)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "39 00", CALL(initiateWarmUp())},
        {ADVANCED, "39", CALL(initiateWarmUp())},
        {CLASSIC, "39", CALL(initiateWarmUp())},
    };
    expectExchanges(WARM_UP_FAILED, CASES);
}

TEST(Cooling, IsRefusedWithoutTrafficWhereThereIsNoCooler)
{
    const std::pair<Operation, const char*> CASES[] = {
        {cooling(COOLING_ON, 0, 0), COOLING_FAILED},
        {CALL(setCooling(0)), SET_POINT_FAILED},
        {CALL(initiateWarmUp()), WARM_UP_FAILED},
    };
    for (const auto& [act, error] : CASES) {
        expectRefused({QUICKER, IIDC}, act, error);
        expectRefusedUnequipped(act);
    }
}

TEST(CoolingStatus, ANullStateSuppressesTheOthers)
{
    EquippedCamera equipped;
    equipped.camera.tempSensorType = 0;  // not even converted
    equipped.usb.command("35 00").parIn(6, "6E 00 80 00 9B 00");
    float target = UNTOUCHED;
    float power = UNTOUCHED;
    EXPECT_TRUE(equipped.camera.getCoolingStatus(nullptr, &target, &power));
    EXPECT_TRUE(target == UNTOUCHED && power == UNTOUCHED);
    equipped.usb.command("35 00").parIn(6, "6E 00 80 00 9B 00");
    COOLING_STATE state = COOLING_INACTIVE;
    EXPECT_TRUE(equipped.camera.getCoolingStatus(&state, nullptr, nullptr));  // only what is asked for is stored
    EXPECT_EQ(state, COOLING_SETPOINT);
}

TEST(CoolingStatus, PowerIsNotClamped)
{
    const std::tuple<unsigned, unsigned, const char*, float> CASES[] = {
        {10, 10, "00 6E 00 80 00 9B 00 00", std::numeric_limits<float>::infinity()},
        {10, 10, "00 00 00 80 00 9B 00 00", -std::numeric_limits<float>::infinity()},
        {210, 10, "00 6E 00 80 00 9B 00 00", 100.0F * -100.0F / 4294967096.0F},  // the difference of the bounds wraps
        {0, 1, "FF FF 00 80 00 9B 00 00", 6553500.0F},
    };
    for (const auto& [least, most, reply, power] : CASES) {
        EquippedCamera equipped(ADVANCED);
        equipped.camera.minCoolerPower = least;
        equipped.camera.maxCoolerPower = most;
        vorntest::advancedCommand(equipped.usb, "35", reply);
        TraceCapture trace;  // printing infinity as a whole number must not be undefined
        EXPECT_TRUE(cooling(COOLING_SETPOINT, -10, power)(equipped.camera));
    }
}

}  // namespace
