// SPDX-License-Identifier: MIT
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "transport/saturate.h"
#include "transport/waveforms.h"
#include "transport/wire.h"
#include "vornccd.h"

namespace {

using namespace vornccd;

TEST(Wire, GivesZeroPastTheEnd)
{
    const uint8_t bytes[] = {1, 0x80, 0xFF};
    ByteReader reader(bytes);
    EXPECT_EQ(reader.be16(), 0x0180);
    EXPECT_FALSE(reader.overrun());
    EXPECT_EQ(reader.le16(), 0xFF);
    EXPECT_TRUE(reader.overrun());
}

TEST(Saturate, KeepsEveryDoubleInRange)
{
    constexpr double INF = std::numeric_limits<double>::infinity();
    EXPECT_EQ(saturatingTrunc<int32_t>(-1.9), -1);
    EXPECT_EQ(saturatingTrunc<int32_t>(-1e300), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(saturatingTrunc<uint32_t>(-1.0), 0U);
    EXPECT_EQ(saturatingTrunc<uint32_t>(INF), 4294967295U);
    EXPECT_EQ(saturatingTrunc<uint32_t>(std::nan("")), 0U);
    EXPECT_TRUE(std::isfinite(toSingle(INF)));
    EXPECT_TRUE(std::isfinite(toSingle(-1e300)));
}

/// Sum and position-weighted sum, modulo 2^32: a byte changed, dropped or swapped changes one of them.
std::array<uint32_t, 2> fingerprint(const uint8_t* bytes, size_t length)
{
    std::array<uint32_t, 2> sums = {};
    for (size_t i = 0; i < length; i++) {
        sums[0] += bytes[i];
        sums[1] += static_cast<uint32_t>(i + 1) * bytes[i];
    }
    return sums;
}

// The tables that cameras are given stand byte by byte in their openings.
TEST(Waveforms, TheOneNobodyLoadsIsKeptAsItIs)
{
    EXPECT_EQ(fingerprint(ParInitQFastData, sizeof ParInitQFastData), (std::array<uint32_t, 2>{11003, 850772}));
}

}  // namespace
