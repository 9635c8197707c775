// SPDX-License-Identifier: MIT
#include "exchange.h"

namespace {

using vorntest::Exchange;
using vorntest::expectExchanges;
using vorntest::expectRefused;
using vorntest::expectRefusedUnequipped;

const char* const FAILED = "Failed to set shutter";

TEST(SetShutter, SendsTheseBytesOrFails)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "09 00 01 00", CALL(setShutter(true))},
        {STANDARD, "09 00 00 00", CALL(setShutter(false))},
    };
    expectExchanges(FAILED, CASES);
}

TEST(SetShutter, IsRefusedWithoutTrafficWhereThereIsNone)
{
    expectRefused({CLASSIC, ADVANCED, QUICKER, IIDC}, CALL(setShutter(true)), FAILED);
    expectRefusedUnequipped(CALL(setShutter(true)));
}

}  // namespace
