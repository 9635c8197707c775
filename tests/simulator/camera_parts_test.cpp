// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <set>

#include "bridge_host.h"
#include "device/accessory_models.h"
#include "device/bus_output.h"
#include "device/cooler_model.h"
#include "device/simulated_camera.h"

namespace vornsim::test {
namespace {

constexpr int64_t S = 1000000;

TEST(CoolerModel, FollowsTheFirstOrderCurve)
{
    CoolerModel cooler(CoolerKind::SET_POINT, 20.0, 0);
    EXPECT_EQ(cooler.flags(100 * S), 0);
    ASSERT_TRUE(cooler.setTarget(-60.0, 100 * S));  // out of reach: ends at 20 - 40
    struct Point {
        int64_t atS;
        double celsius;  // -20 + 40 exp(-t / 60)
    };
    for (const Point& p : {Point{100, 20.0}, Point{160, -5.28482}, Point{220, -14.58659}, Point{1300, -20.0}})
        EXPECT_NEAR(cooler.sensorCelsius(p.atS * S), p.celsius, 1e-4) << p.atS;
    EXPECT_EQ(cooler.power(1300 * S), 1.0);

    ASSERT_TRUE(cooler.setTarget(0.0, 2000 * S));  // without power from -20: 20 - 40 exp(-t / 60), there after 41.6 s
    EXPECT_EQ(cooler.power(2041 * S), 0.0);
    EXPECT_NEAR(cooler.sensorCelsius(2041 * S), -0.1972, 1e-3);
    EXPECT_EQ(cooler.sensorCelsius(2042 * S), 0.0);
    EXPECT_EQ(cooler.power(2042 * S), 0.5);
    EXPECT_EQ(cooler.flags(2042 * S), 0xC0);

    ASSERT_TRUE(cooler.warmUp(3000 * S));  // 5 degrees a minute up to 15, then without power
    EXPECT_NEAR(cooler.sensorCelsius(3060 * S), 5.0, 1e-6);
    EXPECT_NEAR(cooler.power(3000 * S), 0.375, 1e-6);
    EXPECT_EQ(cooler.flags(3060 * S), 0x60);
    EXPECT_NEAR(cooler.sensorCelsius(3240 * S), 20.0 - 5.0 * 0.36788, 1e-3);
    EXPECT_EQ(cooler.flags(3400 * S), 0);
}

TEST(CoolerModel, EachKindDoesWhatItCan)
{
    struct Case {
        CoolerKind kind;
        bool controlled;
        uint8_t flags;
        double celsius;  // long after a target of 5 degrees at 15 degrees ambient
    };
    for (const Case& c : {Case{CoolerKind::NONE, false, 0, 15.0}, Case{CoolerKind::ALWAYS_ON, false, 0x40, -25.0},
                          Case{CoolerKind::ON_OFF, true, 0x40, -25.0}, Case{CoolerKind::SELECT_POWER, true, 0x40, 5.0},
                          Case{CoolerKind::SET_POINT, true, 0xC0, 5.0}}) {
        CoolerModel cooler(c.kind, 15.0, 0);
        const int kind = static_cast<int>(c.kind);
        EXPECT_EQ(cooler.setTarget(5.0, 0), c.controlled) << kind;
        EXPECT_EQ(cooler.flags(S), c.flags) << kind;
        EXPECT_NEAR(cooler.sensorCelsius(3600 * S), c.celsius, 1e-6) << kind;
        EXPECT_EQ(cooler.warmUp(3600 * S), c.controlled) << kind;
    }
}

TEST(TemperatureEncoding, BothSpanTheSameRange)
{
    struct Case {
        double celsius;
        uint16_t tenBits;
        uint16_t twelveBits;
    };
    for (const Case& c : {Case{-60.0, 0, 0}, Case{-10.0, 155, 620}, Case{270.0, 1023, 4095}, Case{-99.0, 0, 0},
                          Case{400.0, 1023, 4095}}) {
        EXPECT_EQ(encodeCelsius(c.celsius, 1), c.tenBits) << c.celsius;
        EXPECT_EQ(encodeCelsius(c.celsius, 2), c.twelveBits) << c.celsius;
    }
    EXPECT_NEAR(decodeCelsius(512, 1), 105.1613, 1e-4);
    EXPECT_NEAR(decodeCelsius(4095, 2), 270.0, 1e-9);
}

TEST(BusOutput, WordsBecomeReadyOneAfterTheOther)
{
    BusOutput output;
    output.send(Bytes(400000, 1), 1000, 500);  // half a microsecond a word
    struct Case {
        int64_t atUs;
        size_t ready;
        int64_t moreAtUs;  // another 64 KiB, or the rest
    };
    for (const Case& c :
         {Case{999, 0, 17384}, Case{1000, 2, 17384}, Case{1001, 6, 17385}, Case{101000, 400000, NEVER}}) {
        const OfferedWords words = output.offered(c.atUs);
        EXPECT_EQ(words.bytes.size(), c.ready) << c.atUs;
        EXPECT_EQ(words.moreAtUs, c.moreAtUs) << c.atUs;
    }
    output.taken(4);
    EXPECT_EQ(output.offered(1001).bytes.size(), 2U);
    EXPECT_EQ(output.offered(1000).bytes.size(), 0U) << "asked about the past";
    output.taken(399996);
    EXPECT_EQ(output.offered(200000).bytes.size(), 0U);
    EXPECT_EQ(output.offered(200000).moreAtUs, NEVER);
}

TEST(Shutter, CountsLightOnlyWhileOpen)
{
    Shutter shutter(true);
    shutter.set(true, 0);
    shutter.beginIntegration(10 * S);
    shutter.set(false, 12 * S);
    shutter.set(true, 20 * S);
    EXPECT_DOUBLE_EQ(shutter.lightSeconds(21 * S), 3.0);
    Shutter none(false);
    none.set(false, 0);
    none.beginIntegration(10 * S);
    EXPECT_DOUBLE_EQ(none.lightSeconds(15 * S), 5.0);
}

TEST(Catalogue, EveryModelOnceWithItsFactoryData)
{
    std::set<uint16_t> ids;
    for (const ModelInfo& info : models()) {
        const CameraModel& model = cameraModel(info);
        EXPECT_TRUE(ids.insert(info.productId).second) << info.name;
        EXPECT_EQ(model.info.name, info.name);
        EXPECT_EQ(findModel(info.name), &info);
        EXPECT_GE(serialNumber(model, {.seed = 3}), 10000U) << info.name;
        EXPECT_EQ(serialNumber(model, {.seed = 3, .serialNumber = 9}), 9U) << info.name;
        const std::string family = info.family;
        EXPECT_EQ(model.sensorCount > 0, family != "QUICKER" && family != "IIDC") << info.name;
        EXPECT_TRUE(!model.shutter || family == "STANDARD") << info.name;
        ConfigurationEeprom eeprom = makeEeprom(model, {});
        Bytes record(5);
        eeprom.write(hex("00 E8"));
        eeprom.read(record);
        EXPECT_EQ(record[0] == 0x84 && record[1] == 0xD9 && record[2] == 0x01, info.colour) << info.name;
    }
    EXPECT_EQ(ids.size(), 33U);
    EXPECT_EQ(findModel(" vORN k33 ")->productId, 0xDF50);
    EXPECT_EQ(findModel("xrc")->productId, 0x2004);
    EXPECT_EQ(findModel("K99"), nullptr);
    EXPECT_EQ(sensorModel(cameraModel(*findModel("K14"))).bayerX, 0U);
    EXPECT_EQ(sensorModel(cameraModel(*findModel("K14"))).bayerY, 1U);
    EXPECT_EQ(sensorModel(cameraModel(*findModel("K15"))).bayerX, 1U);
    EXPECT_EQ(sensorModel(cameraModel(*findModel("K15"))).bayerY, 0U);
    // These two count more pixels than can be used, and hosts know it.
    for (const char* name : {"K10", "K33"})
        EXPECT_NE(cameraModel(*findModel(name)).describedX, findModel(name)->pixelCountX);
}

}  // namespace
}  // namespace vornsim::test
