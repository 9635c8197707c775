// SPDX-License-Identifier: MIT
#include "exchange.h"

namespace {

using vorntest::Exchange;
using vorntest::expectExchanges;
using vorntest::expectRefused;
using vorntest::expectRefusedUnequipped;
using vorntest::Operation;

const char* const WHEEL_FAILED = "Failed to get filter wheel status";
const char* const FILTER_FAILED = "Failed to set filter";

Operation wheel(unsigned expectedCount, bool expectedMoving, unsigned expectedCurrent, unsigned expectedTarget)
{
    return [=](VornCameraImpl& camera) {
        std::vector<unsigned> numbers(3, 999);
        bool moving = !expectedMoving;
        const bool ok = camera.getFilterWheelStatus(&numbers[0], &moving, &numbers[1], &numbers[2]);
        EXPECT_EQ(numbers, ok ? (std::vector{expectedCount, expectedCurrent, expectedTarget}) : std::vector(3, 999U));
        EXPECT_EQ(moving, ok == expectedMoving);
        return ok;
    };
}

TEST(FilterWheelStatus, SendsTheseBytesOrFails)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "87 00", "05 EE 01 EE 02 EE 04 EE", wheel(5, true, 2, 4)},
        {STANDARD, "87 00", "07 01 00 01 03 01 FF 01", wheel(7, false, 3, 255)},
        {ADVANCED, "87", "00 07 00 00 00 03 01 04", wheel(7, false, 3, 0x104)},
    };
    expectExchanges(WHEEL_FAILED, CASES);
}

TEST(SetFilter, SendsTheseBytesOrFails)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "88 00 03 01", "FF 00", CALL(setFilter(0x50103))},  // low 16 bits; the camera decides
        {ADVANCED, "88 00 03", "01 00", CALL(setFilter(0x103))},       // the low byte travels
        {ADVANCED, "88 00 09", "00 01", CALL(setFilter(9))},
        {STANDARD, "88 00 63 00", "00 01", CALL(setFilter(99)), false},
        {ADVANCED, "88 00 00", "00 00", CALL(setFilter(0x100)), false},
    };
    expectExchanges(FILTER_FAILED, CASES);
}

TEST(FilterWheel, IsRefusedWithoutTrafficWhereThereIsNone)
{
    expectRefused({CLASSIC, QUICKER, IIDC}, wheel(0, true, 0, 0), WHEEL_FAILED);
    expectRefused({CLASSIC, QUICKER, IIDC}, CALL(setFilter(1)), FILTER_FAILED);
    expectRefusedUnequipped(wheel(0, true, 0, 0));
    expectRefusedUnequipped(CALL(setFilter(1)));
}

}  // namespace
