// SPDX-License-Identifier: MIT
#include "exchange.h"

namespace {

using vorntest::Exchange;
using vorntest::expectExchanges;
using vorntest::expectRefused;
using vorntest::expectRefusedUnequipped;
using vorntest::Operation;

const char* const DIRECTION_FAILED = "Failed to set GPIO direction";
const char* const SET_GPIO_FAILED = "Failed to set GPIO";
const char* const GET_GPIO_FAILED = "Failed to get GPIO";

/// Levels are stored whatever the result, unless there is no traffic.
Operation gpio(unsigned short expected, unsigned short afterFailure = 0)
{
    return [=](VornCameraImpl& camera) {
        unsigned short levels = 0xCCCC;
        const bool ok = camera.getGPIO(&levels);
        EXPECT_EQ(levels, ok ? expected : afterFailure);
        return ok;
    };
}

TEST(SetGpioDirection, SendsTheseBytesOrFails)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "83 00 34 12", CALL(setGPIODirection(0x1234))},
        {ADVANCED, "83 12 34", CALL(setGPIODirection(0x1234))},
    };
    expectExchanges(DIRECTION_FAILED, CASES);
}

TEST(SetGpio, SendsTheseBytesOrFails)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "84 00 34 12", CALL(setGPIO(0x1234))},
        {ADVANCED, "84 12 34", CALL(setGPIO(0x1234))},
    };
    expectExchanges(SET_GPIO_FAILED, CASES);
}

TEST(GetGpio, SendsTheseBytesOrFails)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "82 00", "00 10 12 34", gpio(0x3412)},
        {ADVANCED, "82", "00 10 12 34", gpio(0x1234)},
    };
    expectExchanges(GET_GPIO_FAILED, CASES);
}

TEST(Gpio, IsRefusedWithoutTrafficWhereThereIsNone)
{
    const std::pair<Operation, const char*> CASES[] = {
        {CALL(setGPIODirection(1)), DIRECTION_FAILED},
        {CALL(setGPIO(1)), SET_GPIO_FAILED},
        {gpio(0, 0xCCCC), GET_GPIO_FAILED},
    };
    for (const auto& [act, error] : CASES) {
        expectRefused({CLASSIC, QUICKER, IIDC}, act, error);
        expectRefusedUnequipped(act);
    }
}

}  // namespace
