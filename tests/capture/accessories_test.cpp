// SPDX-License-Identifier: MIT
#include "capture/accessories.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <utility>

#include "simulated_session.h"

namespace {

using namespace capturetest;
using namespace vorncapture;

std::string textOf(const Status& status)
{
    return status.ok() ? "ok" : status.error().text;
}

TEST(Lines, AreSetUpDrivenAndReadAsFarAsThereAreAny)
{
    CameraSession open("K20");
    Session& session = *open.session.value();
    EXPECT_EQ(textOf(setLineDirections(session, 0x0F)), "ok");
    EXPECT_EQ(textOf(driveLines(session, 0xA5)), "ok");
    const auto levels = readLines(session);
    ASSERT_TRUE(levels.ok());
    EXPECT_EQ(levels.value() & 0x0F, 0x05) << "the others are inputs";
    const std::string tooMany = "Vorn K20 has 8 GPIO lines, so that the largest mask is 255";
    EXPECT_EQ(textOf(setLineDirections(session, 0x100)), tooMany);
    EXPECT_EQ(textOf(driveLines(session, 0x100)), tooMany);
    EXPECT_EQ(textOf(driveLines(session, 0xFF)), "ok");
    open.camera->failAt["getGPIO"] = 2;
    EXPECT_FALSE(readLines(session).ok());

    CameraSession without("K12");
    EXPECT_EQ(textOf(driveLines(*without.session.value(), 0)), "Vorn K12 has no GPIO lines");
    EXPECT_FALSE(readLines(*without.session.value()).ok());
}

TEST(Gain, IsSetInItsRangeAndReadBack)
{
    CameraSession open("K20");
    Session& session = *open.session.value();
    for (const GainSetting& setting : {GainSetting{0, 0}, GainSetting{63, 512}, GainSetting{17, 300}}) {
        EXPECT_EQ(textOf(setGain(session, setting)), "ok");
        const auto found = readGain(session);
        ASSERT_TRUE(found.ok());
        EXPECT_EQ(found.value().gain, setting.gain);
        EXPECT_EQ(found.value().offset, setting.offset);
    }
    for (const GainSetting& setting : {GainSetting{-1, 0}, GainSetting{64, 0}, GainSetting{0, -1}, GainSetting{0, 513}})
        EXPECT_EQ(textOf(setGain(session, setting)), "the gain goes from 0 to 63 and the offset from 0 to 512");
    open.camera->failAt["getGain"] = open.camera->count("getGain") + 1;
    EXPECT_FALSE(readGain(session).ok());
    CameraSession without("K12");
    EXPECT_EQ(textOf(setGain(*without.session.value(), {0, 0})), "Vorn K12 has no gain setting");
    EXPECT_FALSE(readGain(*without.session.value()).ok());
}

TEST(Guiding, KeepsTheRelayClosedForItsTimeAndNotLonger)
{
    CameraSession open("K12");
    Session& session = *open.session.value();
    double drift = 0.0;
    const auto driftSinceThen = [&open, &drift] {
        return open.truth().driftY - std::exchange(drift, open.truth().driftY);
    };
    EXPECT_EQ(textOf(guidePulse(session, GuideRelay::Y_PLUS, 1.0, nullptr)), "ok");
    session.clock().sleep(10.0);
    const double aSecond = driftSinceThen();
    EXPECT_NE(aSecond, 0.0);
    for (const double seconds : {0.35, 60.0}) {
        EXPECT_EQ(textOf(guidePulse(session, GuideRelay::Y_PLUS, seconds, nullptr)), "ok");
        session.clock().sleep(10.0);
        EXPECT_NEAR(driftSinceThen() / aSecond, seconds, 0.01 * seconds);
    }
    for (const double seconds : {0.0, 60.001, std::nan("")})
        EXPECT_EQ(textOf(guidePulse(session, GuideRelay::Y_PLUS, seconds, nullptr)),
                  "a guide pulse lasts from 1 to 60000 milliseconds");
    CancelToken cancel;
    EXPECT_EQ(textOf(guidePulse(session, GuideRelay::X_PLUS, 0.1, &cancel)), "ok");
    cancel.request();
    EXPECT_EQ(textOf(guidePulse(session, GuideRelay::Y_PLUS, 5.0, &cancel)), "stopped; the guide relays are open");
    session.clock().sleep(10.0);
    EXPECT_NEAR(driftSinceThen() / aSecond, 0.0, 0.1);
    CameraSession without("XRM");
    EXPECT_EQ(textOf(guidePulse(*without.session.value(), GuideRelay::X_PLUS, 0.1, nullptr)),
              "Vorn XRM has no guide port");
}

TEST(Guiding, OpensTheRelaysAgainWhateverFails)
{
    const std::tuple<int, int, const char*, bool> rows[] = {
        {1, 2, "the guide relay does not close", false},
        {2, 3, "the guide relays do not open", false},  // the camera was closed and opened again, which has helped
        {-2, 3, "the guide relays do not open", true},
    };
    for (const auto& [failing, calls, text, mayMove] : rows) {
        CameraSession open("K12");
        open.camera->failAt["setGuideRelays"] = failing;
        const Status pulse = guidePulse(*open.session.value(), GuideRelay::Y_PLUS, 0.5, nullptr);
        ASSERT_EQ(textOf(pulse).find(text), 0U) << textOf(pulse);
        EXPECT_EQ(pulse.error().advice.find("pull the guide cable") != std::string::npos, mayMove);
        EXPECT_EQ(open.camera->count("setGuideRelays"), calls);
    }
}

TEST(Wheel, TurnsToItsPositionAndSaysWhereItIs)
{
    CameraSession open("K13");
    Session& session = *open.session.value();
    EXPECT_EQ(textOf(turnWheel(session, 3, nullptr)), "ok");
    EXPECT_EQ(open.truth().filterPosition, 3U);
    EXPECT_FALSE(open.truth().filterMoving);
    const std::string outside = "the filter wheel has the positions 1 to 5, not ";
    EXPECT_EQ(textOf(turnWheel(session, 0, nullptr)), outside + "0");
    EXPECT_EQ(textOf(turnWheel(session, 6, nullptr)), outside + "6");
    open.camera->wheelStandsAt = 3;
    EXPECT_EQ(textOf(turnWheel(session, 2, nullptr)), "the filter wheel stands at 3 and not at 2");
    CancelToken cancel;
    cancel.request();
    EXPECT_EQ(textOf(turnWheel(session, 1, &cancel)), "stopped; the filter wheel turns on to its position by itself");
    CameraSession without("XRM");
    EXPECT_EQ(textOf(turnWheel(*without.session.value(), 1, nullptr)), "Vorn XRM has no filter wheel");
}

}  // namespace
