// SPDX-License-Identifier: MIT
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "command_run.h"

namespace {

using namespace vornctltest;
using capturetest::FitsFile;

class Expose : public CommandLine {};

TEST_F(Expose, TakesPicturesWithEveryFamily)
{
    // Each pixel of the simulated test pattern tells its place; XRM cameras fold its two bytes into 8-bit samples.
    const std::vector<std::string> models = {"K12", "K27", "K01", "K04", "K30", "XRM"};
    const Outcome outcome = pictures(models, "--roi 101,51,40,131 --bin 2");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    for (const std::string& model : models) {
        const FitsFile fits = readFits(model + ".fits");
        ASSERT_EQ(fits.width, 20) << model;
        ASSERT_EQ(fits.height, 65) << model;
        for (size_t i = 0; i < fits.pixels.size(); ++i) {
            const size_t value = (50 + i / 20 * 2) * 256 + 100 + i % 20 * 2;
            const size_t folded = ((value >> 8) ^ (value & 0xFF)) << 8;
            ASSERT_EQ(fits.pixels[i], (model == "XRM" ? folded : value) & 0xFFFF) << model << " at pixel " << i;
        }
    }
}

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

class Stopping : public CommandLine {};

TEST_F(Stopping, SignalsCloseTheShutterAndLeaveNoFile)
{
    // The exposure has begun when the log says so; a minute of it is never waited for. A shell lets
    // its background jobs ignore the keyboard's interrupt, which env undoes.
    const std::pair<std::string, int> signals[] = {{"INT", 130}, {"TERM", 143}};
    for (const auto& [name, status] : signals) {
        const Outcome outcome = script("--camera k12 --log log", R"(
            env --default-signal=INT "$VORNCTL" expose -t 60 -o a.fits --png a.png &
            i=0; until grep -q 'shutter open' log || [ $i -gt 300 ]; do sleep 0.05; i=$((i + 1)); done
            "$VORNCTL" info 2>busy && exit 99
            kill -)" + name + " $!; wait $!");
        EXPECT_TRUE(outcome.refused(status, "of 60.0 s; no picture was taken")) << "after the seconds that it ran";
        EXPECT_NE(contents("busy").find("used by another program"), std::string::npos) << contents("busy");
        EXPECT_EQ(names(), (std::vector<std::string>{"busy", "log"}));
        EXPECT_NE(contents("log").find("shutter closed"), std::string::npos);
    }
}

TEST_F(Stopping, SignalsThatWereIgnoredAtTheStartStayIgnored)
{
    const Outcome outcome = script("--camera k12 --log log", R"(
        (trap '' HUP INT; exec "$VORNCTL" expose -q -t 4 --bin 4 -o a.fits) &
        i=0; until grep -q 'shutter open' log || [ $i -gt 300 ]; do sleep 0.05; i=$((i + 1)); done
        kill -HUP $!; kill -INT $!; wait $!)");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(readFits("a.fits").width, 348);
}

TEST_F(Stopping, ASequenceSaysWhichPictureFailedAndGoesOnWhenAsked)
{
    const char* const TAKE = "expose -t 0.01 --bin 4 --count 3 -o a.fits";
    const std::string passing = "--camera k12 --fault exposure=2,endpoint=0x86,transfer=1,error=PIPE";
    const Outcome stopped = simulated(passing, TAKE);
    EXPECT_EQ(stopped.status, 1);
    EXPECT_NE(stopped.err.find("vornctl: picture 2 of 3: "), std::string::npos) << stopped.err;
    EXPECT_NE(stopped.err.find("; 1 of 3 kept\n"), std::string::npos) << stopped.err;
    EXPECT_EQ(names(), std::vector<std::string>{"a-001.fits"});

    for (const std::string& fault :
         {passing, std::string("--camera k12 --fault exposure=2,error=NO_DEVICE,replug=2")}) {
        const Outcome whole = simulated(fault, std::string(TAKE) + " --force --retry 1");
        EXPECT_EQ(whole.status, 0) << whole.err;
        EXPECT_NE(whole.err.find("trying again"), std::string::npos) << whole.err;
        EXPECT_EQ(names(), (std::vector<std::string>{"a-001.fits", "a-002.fits", "a-003.fits"}));
    }
}

TEST_F(Stopping, TheProgressLineFitsIntoANarrowTerminal)
{
    // ADVANCED cameras have no shutter: what spoils a dark frame is reported with --quiet, too.
    const Outcome quiet = simulated("--camera k16", "expose -q -t 0.01 --dark --bin 4 -o dark.fits");
    EXPECT_NE(quiet.err.find("cover the telescope"), std::string::npos) << quiet.err;

    const Outcome outcome = script("--camera k12", R"(
        TERM=xterm script -qec 'stty cols 30 rows 10; "$VORNCTL" expose -t 1 --bin 4 --count 2 -o a.fits' /dev/null)");
    ASSERT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    size_t shown = 0;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line, '\r');) {
        if (!line.starts_with("\033[K"))
            continue;
        ++shown;
        EXPECT_LT(line.size() - 3, 30U) << line;
    }
    EXPECT_GT(shown, 5U) << outcome.out;
    EXPECT_NE(outcome.out.find("picture 2 of 2, exposing"), std::string::npos) << outcome.out;
}

TEST_F(Stopping, ExistingFilesAreFoundBeforeTheExposure)
{
    std::ofstream(path("a.fits")) << "mine";
    const Outcome refused = simulated("--camera k12 --log log", "expose -t 0.01 -o a.fits");
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("--force"), std::string::npos) << refused.err;
    EXPECT_EQ(contents("log"), "");
    EXPECT_EQ(contents("a.fits"), "mine");
    EXPECT_EQ(simulated("--camera k12", "expose -q -t 0.01 -o a.fits --force").status, 0);
    EXPECT_EQ(readFits("a.fits").width, 1392);
}

}  // namespace
