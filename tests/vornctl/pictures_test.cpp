// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "command_run.h"

namespace {

using namespace vornctltest;
using capturetest::FitsFile;

/// What the simulated test pattern shows at a sensor pixel; cameras with 8-bit samples show its two bytes folded.
uint16_t patternValue(long x, long y, bool folded)
{
    const auto value = static_cast<uint16_t>(y * 256 + x);
    return folded ? static_cast<uint16_t>(((value >> 8) ^ (value & 0xFF)) << 8) : value;
}

struct Camera {
    const char* model;
    long width, height;
    bool folded;
};

std::ostream& operator<<(std::ostream& out, const Camera& camera)
{
    return out << camera.model;
}

class Picture : public CommandLine, public ::testing::WithParamInterface<Camera> {
protected:
    void expectPattern(const std::string& name, long x, long y, long width, long height, long binX, long binY) const
    {
        const FitsFile fits = readFits(name);
        ASSERT_EQ(fits.width, width / binX) << name;
        ASSERT_EQ(fits.height, height / binY) << name;
        for (long i = 0; i < fits.width * fits.height; ++i) {
            const uint16_t wanted =
                patternValue(x + i % fits.width * binX, y + i / fits.width * binY, GetParam().folded);
            ASSERT_EQ(fits.pixels[static_cast<size_t>(i)], wanted) << name << " at pixel " << i;
        }
    }
};

TEST_P(Picture, ShowsThePixelsAskedFor)
{
    const auto& [model, width, height, folded] = GetParam();
    const std::string corner = std::to_string(width - 61) + "," + std::to_string(height - 33) + ",61,33";
    std::vector<std::string> exposures = {"-o whole.fits", "-o binned.fits --bin 2",
                                          "-o region.fits --roi 101,51,40,131 --bin 2",
                                          "-o corner.fits --roi " + corner};
    if (!folded)  // XRM cameras bin both ways alike
        exposures.push_back("-o unequal.fits --roi 8,31,60,40 --bin 1x2");
    const Outcome outcome = pictures(std::string("--scene ramp --camera ") + model, exposures);
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    expectPattern("whole.fits", 0, 0, width, height, 1, 1);
    expectPattern("binned.fits", 0, 0, width, height, 2, 2);
    expectPattern("region.fits", 100, 50, 40, 130, 2, 2);
    expectPattern("corner.fits", width - 61, height - 33, 61, 33, 1, 1);
    if (!folded)
        expectPattern("unequal.fits", 8, 30, 60, 40, 1, 2);
}

// The whole sensor of the first three is wider than high.
INSTANTIATE_TEST_SUITE_P(EveryFamily, Picture,
                         ::testing::Values(Camera{"K06", 768, 512, false}, Camera{"K27", 1392, 1040, false},
                                           Camera{"K01", 752, 580, false}, Camera{"K03", 656, 494, false},
                                           Camera{"K30", 768, 512, false}, Camera{"XRM", 1280, 960, true}),
                         [](const auto& row) { return std::string(row.param.model); });

class Expose : public CommandLine {};

TEST_F(Expose, TwiceTheTimeGivesTwiceTheSignal)
{
    // Short exposures on a camera that times them itself, and a long one that vornctl times; one after the other,
    // so that none waits for the processor.
    const Outcome outcome = script("--camera k12", R"(set -e
        "$VORNCTL" expose -q -t 0 --dark -o bias.fits --bin 4
        "$VORNCTL" expose -q -t 0.4 -o single.fits --bin 4
        "$VORNCTL" expose -q -t 0.8 -o double.fits --bin 4
        "$VORNCTL" expose -q -t 3.1 -o long.fits --bin 4)");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const double bias = readFits("bias.fits").mean();
    const double single = readFits("single.fits").mean() - bias;
    EXPECT_GT(single, 10.0);
    EXPECT_NEAR((readFits("double.fits").mean() - bias) / single, 2.0, 0.05);
    const FitsFile timed = readFits("long.fits");
    const double seconds = std::stod(timed.keys.at("EXPTIME"));
    EXPECT_NEAR(seconds, 3.1, 0.1);
    EXPECT_NEAR((timed.mean() - bias) / single, seconds / 0.4, 0.4);
    EXPECT_EQ(readFits("bias.fits").keys.at("IMAGETYP"), "Bias Frame");
}

TEST_F(Expose, WritesWhatTheVerifierAcceptsAndTellsItInJson)
{
    const Outcome outcome = simulated("--camera k07 --serial 4711", "expose -t 0.02 -o a.fits --png a.png --json");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto json = nlohmann::json::parse(outcome.out);
    const FitsFile fits = readFits("a.fits");
    EXPECT_EQ(json["fits"], "a.fits");
    EXPECT_EQ(json["png"], "a.png");
    EXPECT_EQ(json["serial"], 4711);
    EXPECT_EQ(json["start_utc"], fits.keys.at("DATE-OBS"));
    EXPECT_EQ(json["width"], fits.width);
    EXPECT_EQ(fits.keys.at("BAYERPAT"), "RGGB");  // a colour model
    EXPECT_EQ(names(), (std::vector<std::string>{"a.fits", "a.png"}));
    if (std::system("command -v fitsverify >/dev/null") != 0)
        GTEST_SKIP() << "fitsverify is not installed";
    const std::string verify = "fitsverify -q '" + path("a.fits") + "' | grep -q 'verification OK'";
    EXPECT_EQ(std::system(verify.c_str()), 0);
}

TEST_F(Expose, RefusesWhatTheSensorCannotAndExposesNothing)
{
    for (const char* arguments : {"--roi 0,1000,100,100", "--bin 5"}) {
        const Outcome outcome = simulated("--camera k12 --log log", std::string("expose -t 0.01 ") + arguments);
        EXPECT_TRUE(outcome.refused(2, "")) << arguments;
    }
    EXPECT_EQ(names(), std::vector<std::string>{"log"});
    EXPECT_EQ(contents("log").find("expos"), std::string::npos);
}

}  // namespace
