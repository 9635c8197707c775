// SPDX-License-Identifier: MIT
#include <algorithm>
#include <nlohmann/json.hpp>

#include "command_run.h"

namespace {

using namespace vornctltest;

class Accessories : public CommandLine {};

TEST_F(Accessories, WhatACameraLacksIsSaidInOneLine)
{
    constexpr std::pair<const char*, const char*> ROWS[] = {
        {"filter 1", "filter wheel"},
        {"shutter open", "shutter"},
        {"guide x+ 10", "guide port"},
        {"gpio", "GPIO lines"},
        {"gain", "gain"},
        {"cool -- -10", "cooler"},
        {"expose -t 0.01 --filter 1", "filter wheel"},
        {"warm", "cooler"},
    };
    for (const auto& [arguments, what] : ROWS)
        EXPECT_TRUE(simulated("--camera XRM", arguments).refused(2, what)) << arguments;
}

TEST_F(Accessories, ASignalOpensTheGuideRelays)
{
    const std::pair<std::string, int> signals[] = {{"INT", 130}, {"TERM", 143}};
    for (const auto& [name, status] : signals) {
        // A second look at the camera would be refused as long as the first one has it.
        const Outcome outcome = script("--camera k12", R"(
            rm -f trace
            env --default-signal=INT "$VORNCTL" guide y- 60000 --trace 2>trace &
            i=0; until grep -q 'setGuideRelays 1' trace || [ $i -gt 300 ]; do sleep 0.05; i=$((i + 1)); done
            kill -)" + name + " $!; wait $!");
        EXPECT_EQ(outcome.status, status);
        const std::string trace = contents("trace");
        EXPECT_GT(trace.rfind("setGuideRelays(0)"), trace.rfind("setGuideRelays(8)")) << trace;
    }
}

TEST_F(Accessories, MonitorWritesOneObjectALineAndDrawsTheCurve)
{
    const Outcome outcome = simulated("--camera k12", "monitor --json --count 3 --interval 0.1 --plot curve.png");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    std::istringstream lines(outcome.out);
    double before = -1.0;
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const auto json = nlohmann::json::parse(line);
        EXPECT_NEAR(json["ccd_celsius"].get<double>(), 15.0, 1.0);
        EXPECT_GE(json["elapsed_seconds"], before);
        before = json["elapsed_seconds"];
    }
    EXPECT_EQ(count, 3);
    EXPECT_EQ(contents("curve.png").substr(1, 3), "PNG");
}

TEST_F(Accessories, AreLaidOutForPeople)
{
    const Outcome outcome = script("--camera k16 --serial 4711", R"(
        "$VORNCTL" info
        "$VORNCTL" status --filter-names L,Ha
        "$VORNCTL" gpio --outputs 0 --set 15
        "$VORNCTL" gpio --outputs 0b1111 --set 5)");
    EXPECT_EQ(outcome.status, 0);
    for (const char* line : {"Vorn K16, serial number 4711\n  family          ADVANCED\n",
                             "  sensor          3388 x 2712 pixels of 3.69 x 3.69 um, no colours reported\n",
                             "  gain            0 (0 to 63)\n  offset          256 (0 to 512)\n",
                             "  temperatures    CCD 15.0 degC, sensor 2 15.0 degC\n",
                             "  cooler          set-point, off, 0 % power\n  filter          1 (L) of 7\n",
                             "lines: 8\ndirections: 0b00001111\nlevels: 0b00000101\n"})
        EXPECT_NE(outcome.out.find(line), std::string::npos) << line << outcome.out;
    EXPECT_EQ(outcome.err.find("vornctl: note: the lines read 0b00000000 although 0b00001111 was set"), 0U)
        << outcome.err;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << "the second is as it was set";
}

TEST_F(Accessories, AnEmptyListOfTemperaturesIsNotShown)
{
    const Outcome outcome = simulated("--camera K01", "info");
    EXPECT_EQ(outcome.out.find("temperature"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("  cooler          none\n"), std::string::npos) << outcome.out;
}

TEST_F(Accessories, ATargetThatIsNotReachedHasAStatusOfItsOwn)
{
    const Outcome outcome = simulated("--camera k12", "cool -q --timeout 3 0");
    EXPECT_EQ(outcome.status, 6);
    EXPECT_EQ(outcome.err.find("vornctl: the sensor has not settled at 0.0 degC in 3 s; it is at "), 0U) << outcome.err;
}

class Sequence : public CommandLine {};

TEST_F(Sequence, NamesTellNumberFilterAndTemperatureAndTheHeaderTheFilter)
{
    const Outcome outcome = simulated("--camera k13 --ambient -5.2",
                                      "expose -q -t 0.01 --bin 4 --type flat --filter-names L,Ha --filter ha --count 2 "
                                      "-o 'm{filter}-{n:2}-{type}-{seconds}-{camera}.fits'");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const std::vector<std::string> expected = {"mHa-01-flat-0.01-Vorn-K13.fits", "mHa-02-flat-0.01-Vorn-K13.fits"};
    EXPECT_EQ(names(), expected);
    const auto fits = readFits(expected.back());
    EXPECT_EQ(fits.keys.at("FILTER"), "Ha");
    EXPECT_EQ(fits.keys.at("IMAGETYP"), "Flat Frame");
}

TEST_F(Sequence, GoesToStandardOutputWhole)
{
    const Outcome outcome = script("--camera k12", R"("$VORNCTL" expose --type bias --bin 4 -o - >piped.fits)");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto fits = readFits("piped.fits");
    EXPECT_TRUE(fits.intact);
    EXPECT_EQ(fits.width, 348);
}

class Doctor : public CommandLine {};

TEST_F(Doctor, TellsAHaltedEndpointWithItsCure)
{
    const Outcome outcome = script("--camera XRM --fault exposure=1,endpoint=0x81,error=PIPE", R"(
        for i in 1 2; do
            "$VORNCTL" expose -q -t 0.01 -o a.fits 2>said-$i && exit 99
        done
        "$VORNCTL" --json doctor)");
    EXPECT_EQ(outcome.status, 1);
    for (const char* said : {"said-1", "said-2"}) {
        EXPECT_NE(contents(said).find("is halted: no program gets one"), std::string::npos) << contents(said);
        EXPECT_NE(contents(said).find("echo 0 >authorized"), std::string::npos) << contents(said);
    }
    const auto finding = nlohmann::json::parse(outcome.out)["findings"][1];
    EXPECT_EQ(finding["level"], "problem");
    EXPECT_NE(finding["text"].get<std::string>().find("halted"), std::string::npos);
    EXPECT_NE(finding["cure"].get<std::string>().find("plug it in again"), std::string::npos);
}

TEST_F(Doctor, SaysWhetherIndiClientsCanUseTheCameras)
{
    const Outcome outcome = script("--camera k12", R"(
        PATH=/nowhere "$VORNCTL" doctor >without
        mkdir programs && printf '' >programs/indi_vorn_ccd && chmod +x programs/indi_vorn_ccd
        PATH=/nowhere:$PWD/programs "$VORNCTL" doctor)");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_NE(contents("without").find("hint     the INDI driver indi_vorn_ccd is not installed"), std::string::npos);
    EXPECT_NE(outcome.out.find("good     the INDI driver is installed"), std::string::npos) << outcome.out;
}

TEST_F(Doctor, FindsWhatIsWrongAndSaysWhatToType)
{
    struct Row {
        const char* simulator;
        int status;
        const char* level;
        const char* text;
        const char* cure;
    };
    constexpr Row ROWS[] = {
        {"--no-camera", 3, "problem", "no camera is seen", "lsusb"},
        {"--camera k12 --serial 4711", 0, "good", "serial number 4711", ""},
        {"--camera k12", 0, "hint", "free replacement", "-DVORNCCD_FIRMWARE="},
        {"--camera k33", 0, "hint", "usbfs_memory_mb is 16", "tee /sys/module/usbcore/parameters/usbfs_memory_mb"},
        {"--camera k12 --fault open=every,error=BUSY,times=ever", 1, "problem", "another program", "Close the other"},
        {"--camera k12 --fault endpoint=control,error=PIPE,times=ever", 5, "problem", "program", "unplug"},
        {"--camera k12 --fault open=every,endpoint=in,transfer=2,garbage,times=ever", 5, "problem", "description",
         "unplug"},
        {"--camera k12 --fault open=1,error=NO_DEVICE", 5, "problem", "no longer attached", "cable"},
    };
    for (const Row& row : ROWS) {
        SCOPED_TRACE(row.simulator);
        const Outcome outcome = simulated(row.simulator, "doctor --json");
        EXPECT_EQ(outcome.status, row.status) << outcome.out;
        bool found = false;
        const auto report = nlohmann::json::parse(outcome.out);
        for (const auto& finding : report["findings"]) {
            const std::string cure = finding["cure"].is_null() ? "" : finding["cure"].get<std::string>();
            found = found || (finding["level"] == row.level &&
                              finding["text"].get<std::string>().find(row.text) != std::string::npos &&
                              cure.find(row.cure) != std::string::npos);
        }
        EXPECT_TRUE(found) << outcome.out;
    }
}

}  // namespace
