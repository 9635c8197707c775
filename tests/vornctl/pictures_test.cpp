// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "command_run.h"

namespace {

using namespace vornctltest;

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
    bool unequalBinning;
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
        for (long row = 0; row < fits.height; ++row) {
            for (long column = 0; column < fits.width; ++column) {
                ASSERT_EQ(fits.pixels[static_cast<size_t>(row * fits.width + column)],
                          patternValue(x + column * binX, y + row * binY, GetParam().folded))
                    << name << " at " << column << ", " << row;
            }
        }
    }
};

TEST_P(Picture, ShowsThePixelsAskedFor)
{
    const Camera& camera = GetParam();
    const std::string corner = std::to_string(camera.width - 61) + "," + std::to_string(camera.height - 33) + ",61,33";
    // Opening takes most of the time, so each picture gets a camera of its own and all are taken at once.
    std::string cameras = "--scene ramp";
    for (int i = 0; i < 5; ++i)
        cameras += std::string(" --camera ") + camera.model;
    std::string text = R"(jobs=
        picture() { "$VORNCTL" expose -q -t 0.01 "$@" & jobs="$jobs $!"; }
        picture -d 0 -o whole.fits
        picture -d 1 -o binned.fits --bin 2
        picture -d 2 -o corner.fits --roi CORNER
        picture -d 3 -o region.fits --roi 101,51,40,131 --bin 2
        UNEQUAL
        for job in $jobs; do wait $job || exit $?; done)";
    text.replace(text.find("CORNER"), 6, corner);
    text.replace(text.find("UNEQUAL"), 7,
                 camera.unequalBinning ? "picture -d 4 -o unequal.fits --roi 8,31,60,40 --bin 1x2" : ":");
    const Outcome outcome = script(cameras, text);
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    expectPattern("whole.fits", 0, 0, camera.width, camera.height, 1, 1);
    expectPattern("binned.fits", 0, 0, camera.width, camera.height, 2, 2);
    expectPattern("corner.fits", camera.width - 61, camera.height - 33, 61, 33, 1, 1);
    expectPattern("region.fits", 100, 50, 40, 130, 2, 2);
    if (camera.unequalBinning)
        expectPattern("unequal.fits", 8, 30, 60, 40, 1, 2);
}

// The whole sensor of the first three is wider than high.
INSTANTIATE_TEST_SUITE_P(EveryFamily, Picture,
                         ::testing::Values(Camera{"K06", 768, 512, false, true}, Camera{"K27", 1392, 1040, false, true},
                                           Camera{"K01", 752, 580, false, true}, Camera{"K03", 656, 494, false, true},
                                           Camera{"K30", 768, 512, false, true}, Camera{"XRM", 1280, 960, true, false}),
                         [](const auto& row) { return std::string(row.param.model); });

class Expose : public CommandLine {};

TEST_F(Expose, TwiceTheTimeGivesTwiceTheSignal)
{
    // Short exposures on a camera that times them itself, and a long one that vornctl times.
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

TEST_F(Expose, ColourCamerasSayWhereTheirPatternBegins)
{
    const Outcome outcome = script("--camera k07", R"(set -e
        "$VORNCTL" expose -q -t 0.01 -o even.fits --roi 10,20,64,48
        "$VORNCTL" expose -q -t 0.01 -o odd.fits --roi 11,20,64,48
        "$VORNCTL" expose -q -t 0.01 -o binned.fits --roi 10,20,64,48 --bin 2)");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto even = readFits("even.fits").keys;
    const auto odd = readFits("odd.fits").keys;
    EXPECT_EQ(even.at("BAYERPAT"), "RGGB");
    EXPECT_NE(even.at("XBAYROFF"), odd.at("XBAYROFF"));
    EXPECT_EQ(even.at("YBAYROFF"), odd.at("YBAYROFF"));
    EXPECT_EQ(readFits("binned.fits").keys.count("BAYERPAT"), 0U);
}

TEST_F(Expose, WritesWhatTheVerifierAcceptsAndTellsItInJson)
{
    const Outcome outcome = simulated("--camera k12 --serial 4711", "expose -t 0.02 -o a.fits --png a.png --json");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto json = nlohmann::json::parse(outcome.out);
    const FitsFile fits = readFits("a.fits");
    EXPECT_EQ(json["fits"], "a.fits");
    EXPECT_EQ(json["png"], "a.png");
    EXPECT_EQ(json["serial"], 4711);
    EXPECT_EQ(json["start_utc"], fits.keys.at("DATE-OBS"));
    EXPECT_EQ(json["width"], fits.width);
    EXPECT_EQ(files(), (std::vector<std::string>{"a.fits", "a.png"}));
    if (std::system("command -v fitsverify >/dev/null") != 0)
        GTEST_SKIP() << "fitsverify is not installed";
    const std::string verify = "fitsverify -q '" + path("a.fits").string() + "' | grep -q 'verification OK'";
    EXPECT_EQ(std::system(verify.c_str()), 0);
}

TEST_F(Expose, RefusesWhatTheSensorCannotAndExposesNothing)
{
    for (const char* arguments : {"--roi 1300,0,100,100", "--roi 0,1000,100,100", "--bin 5", "--roi 0,0,3,3 --bin 4"}) {
        const Outcome outcome = simulated("--camera k12 --log log", std::string("expose -t 0.01 ") + arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.errorLines(), 1U) << outcome.err;
    }
    EXPECT_EQ(files(), std::vector<std::string>{"log"});
    const auto log = "! grep -qi expos '" + path("log").string() + "'";
    EXPECT_EQ(std::system(log.c_str()), 0);
}

}  // namespace
