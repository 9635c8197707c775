// SPDX-License-Identifier: MIT
#include "exchange.h"

namespace {

using vorntest::Exchange;
using vorntest::expectExchanges;
using vorntest::expectRefused;
using vorntest::expectRefusedUnequipped;
using vorntest::Operation;

const char* const FAILED = "Failed to set guide relays";

/// @param kept what the camera object remembers of it
Operation guide(unsigned short mask, unsigned kept = 0)
{
    return [=](VornCameraImpl& camera) {
        const bool ok = camera.setGuideRelays(mask);
        EXPECT_EQ(camera.guideRelayState, kept);
        return ok;
    };
}

// Relays are opened first, then one of each pair is closed.
TEST(GuideRelays, SendTheseBytesOrFail)
{
    const std::vector<Exchange> CASES = {
        {STANDARD, "18 00", guide(0xFFF0)},          {STANDARD, "18 00|14 00|16 00", guide(0xFFFF)},
        {STANDARD, "18 00|14 00|17 00", guide(0x9)}, {ADVANCED, "18|15|17", guide(0xA)},
        {ADVANCED, "18|15|16", guide(0x6)},          {QUICKER, "20 03", guide(0xFFF3, 3)},  // four bits, both of a pair
    };
    expectExchanges(FAILED, CASES);
}

TEST(GuideRelays, AreRefusedWithoutTrafficWhereThereAreNone)
{
    expectRefused({CLASSIC, IIDC}, guide(1), FAILED);
    expectRefusedUnequipped(guide(1));
}

}  // namespace
