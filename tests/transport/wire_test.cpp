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

TEST(Wire, IsUnsignedAndGivesZeroPastTheEnd)
{
    const uint8_t bytes[] = {1, 0x80, 0xFF};
    EXPECT_EQ(getInt16(bytes, 1), 0x80FF);
    std::array<uint8_t, 4> out = {0xEE, 0xEE, 0xEE, 0xEE};
    setInt16(out.data(), 1, 0x56781234);
    EXPECT_EQ(out, (std::array<uint8_t, 4>{0xEE, 0x12, 0x34, 0xEE}));

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

TEST(Waveforms, AreTheKnownTables)
{
    EXPECT_EQ(waveformLength(0x81), 172U);
    EXPECT_EQ(waveformLength(0x7F), 152U);
    using Sums = std::array<uint32_t, 2>;
    EXPECT_EQ(fingerprint(GpifMode1, sizeof GpifMode1), (Sums{1858, 142955}));
    EXPECT_EQ(fingerprint(GpifMode9, sizeof GpifMode9), (Sums{10416, 795289}));
    EXPECT_EQ(fingerprint(ParInitData, sizeof ParInitData), (Sums{10507, 807686}));
    EXPECT_EQ(fingerprint(ParInitQSlowData, sizeof ParInitQSlowData), (Sums{10507, 807300}));
    EXPECT_EQ(fingerprint(ParInitQFastData, sizeof ParInitQFastData), (Sums{11003, 850772}));
}

}  // namespace
