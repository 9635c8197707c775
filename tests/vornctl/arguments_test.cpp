// SPDX-License-Identifier: MIT
#include <nlohmann/json.hpp>
#include <sstream>

#include "command_run.h"

namespace {

using namespace vornctltest;

class Arguments : public CommandLine {};

TEST_F(Arguments, NonsenseGetsOneLineAndNoFile)
{
    struct Row {
        const char* arguments;
        int status;
        const char* says;
    };
    constexpr Row ROWS[] = {
        {"", 2, "command"},
        {"dance", 2, "\"dance\" is no command"},
        {"-d 1 info", 2, "vornctl info -d"},
        {"list --sideways", 2, "--sideways"},
        {"expose -t 1 --bayer RGB", 2, "GRBG, GBRG or BGGR"},
        {"expose", 2, "--time"},
        {"expose -t -1", 2, "\"-1\""},
        {"expose -t nan", 2, "\"nan\""},
        {"expose -t 1e999", 2, "\"1e999\""},
        {"expose -t 1s", 2, "\"1s\""},
        {"expose -t 1 --bin 2x0", 2, "binning 0"},
        {"expose -t 1 --bin 2x2x2", 2, "\"2x2x2\""},
        {"expose -t 1 --bin 99999999999", 2, "99999999999"},
        {"expose -t 1 --roi 1,2,3", 2, "\"1,2,3\""},
        {"expose -t 1 --roi -1,0,5,5", 2, "-1,0,5,5"},
        {"expose -t 1 --roi 0,0,0,5", 2, "empty"},
        {"expose -t 1 -d serial:", 2, "serial:"},
        {"expose -t 1 --filter red", 2, "\"red\""},
        {"expose -t 1 --filter-names a,A", 2, "\"A\""},
        {"expose -t 1 -o 'a-{sky}.fits'", 2, "{n:3}"},
        {"expose -t 1 -o - --json", 2, "standard output"},
        {"expose --type bias -t 1", 2, "bias"},
        {"expose -t 1 --type moon", 2, "\"moon\""},
        {"expose -t 1 --count 0", 2, "--count"},
        {"guide up 100", 2, "\"up\""},
        {"guide x+ 90000", 2, "60000"},
        {"gpio --set 0x10000", 2, "0x10000"},
        {"shutter ajar", 2, "ajar"},
        {"cool -- -300", 2, "-300"},
        {"expose -t 1 -o nowhere/a.fits", 1, "no directory nowhere"},
        {"expose -t 1 --png .", 1, "directory"},
    };
    for (const Row& row : ROWS) {
        SCOPED_TRACE(row.arguments);
        const Outcome outcome = vornctl(row.arguments);
        EXPECT_TRUE(outcome.refused(row.status, row.says));
        EXPECT_EQ(outcome.out.empty(), row.arguments != std::string("expose -t 1 -o - --json"));
    }
    EXPECT_TRUE(names().empty());
}

TEST_F(Arguments, NumbersAreTakenUpToTheirLimitsAndRefusedWithThem)
{
    struct Row {
        const char* before;
        std::vector<const char*> allowed;  ///< then only the camera is missing
        std::vector<const char*> refused;
        const char* says;
        const char* after = "";
    };
    const Row rows[] = {
        {"info --timeout", {"0.1", "1e6"}, {"0.09", "1000001", "x", ""}, "--timeout cannot be"},
        {"expose -t", {"0", "86400"}, {"86400.1", "-0.1", "0x10", "1 "}, "from 0 to 86400"},
        {"expose -t 1 --bin", {"1", "3x1"}, {"0", "1x", "x2", "1.5"}, "binning"},
        {"expose -t 1 --count", {"1", "1000000"}, {"0", "1000001", "1.5", "1e3"}, "a whole number from 1 to 1000000"},
        {"expose -t 1 --interval", {"0", "1000000"}, {"-1", "1000001"}, "a number from 0 to 1000000"},
        {"expose -t 1 --focal-length", {"0.1", "1000000"}, {"0.09", "1e7"}, "a number from 0.1 to 1000000"},
        {"expose -t 1 --aperture", {"0.1", "1000000"}, {"0", "nan"}, "a number from 0.1 to 1000000"},
        {"expose -t 1 --filter", {"1", "255"}, {"0", "256", "-1"}, "position, from 1"},
        {"guide x+", {"1", "60000"}, {"0.2", "60001"}, "MILLISECONDS cannot be"},
        {"guide", {"1", "4"}, {"0", "5"}, "relay's number 1 to 4", " 100"},
        {"gpio --set", {"0", "0xffff"}, {"65536", "0b2"}, "from 0 to 65535"},
        {"gain --gain", {"0", "63"}, {"64", "-1", "1.5"}, "--gain cannot be"},
        {"gain --offset", {"0", "512"}, {"513"}, "a whole number from 0 to 512"},
        {"cool --", {"-60", "40"}, {"-60.1", "40.1", "inf"}, "CELSIUS cannot be"},
        {"cool 0 --ramp", {"0.01", "1000"}, {"0", "1001"}, "a number from 0.01 to 1000"},
        {"monitor --interval", {"0.1", "1000000"}, {"0", "0.05"}, "a number from 0.1 to 1000000"},
        {"monitor --count", {"0", "1000000"}, {"-1", "2.5"}, "a whole number from 0 to 1000000"},
    };
    for (const Row& row : rows) {
        const auto command = [&row](const char* value) {
            return std::string(row.before) + " '" + value + "'" + row.after;
        };
        for (const char* value : row.allowed)
            EXPECT_TRUE(vornctl(command(value)).refused(3, "no camera is attached")) << command(value);
        for (const char* value : row.refused)
            EXPECT_TRUE(vornctl(command(value)).refused(2, row.says)) << command(value);
    }
    EXPECT_TRUE(names().empty());
}

TEST_F(Arguments, NamesOfFilesSayWhatIsWritten)
{
    for (const char* allowed :
         {"-o a.fits", "-o a.FIT", "-o a.fts", "-o a", "-o dir.d/a", "-o 'a-10.2C'", "--png a.png"})
        EXPECT_EQ(vornctl(std::string("expose -t 1 ") + allowed).out, "") << allowed;
    constexpr std::pair<const char*, const char*> REFUSED[] = {
        {"-o x.jpg", "\"x.jpg\" would not be a jpg file: -o writes FITS"},
        {"-o k.fits.xz", "\"k.fits.xz\" would not be a xz file"},
        {"-o a.png", "--png FILE.png"},
        {"--png a.fits", "--png writes PNG"}};
    for (const auto& [arguments, says] : REFUSED)
        EXPECT_TRUE(vornctl(std::string("expose -t 1 ") + arguments).refused(2, says)) << arguments;
    EXPECT_TRUE(vornctl("monitor --plot a.jpg").refused(2, ".png or .svg"));
}

TEST_F(Arguments, WhatCannotBeWrittenToStandardOutputIsAFailure)
{
    for (const char* command :
         {"list", "--json list", "info", "--json info", "status", "--json status", "doctor", "--json doctor",
          "--json monitor --count 2", "--json expose -t 0 -f -o a.fits", "expose -t 0 -o -", "--help"}) {
        const Outcome full = script("--camera XRM", std::string("\"$VORNCTL\" ") + command + " >/dev/full");
        EXPECT_EQ(full.status, 1) << command;
        EXPECT_NE(full.err.find("cannot write to standard output: No space left"), std::string::npos) << full.err;
        EXPECT_EQ(full.err.find("reader"), std::string::npos) << full.err;
    }
    const Outcome ended =
        script("--camera XRM", "{ sleep 0.3; \"$VORNCTL\" list; echo $? >status; } | true; cat status");
    EXPECT_EQ(ended.out, "1\n");
    EXPECT_NE(ended.err.find("The program that reads it has ended"), std::string::npos) << ended.err;
}

TEST_F(Arguments, HelpAndVersionAreNoErrors)
{
    for (const char* arguments :
         {"--help", "--version", "list --help", "expose --help", "monitor --help", "gpio --help"}) {
        const Outcome outcome = vornctl(arguments);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_NE(outcome.out, "");
        EXPECT_EQ(outcome.err, "");
        std::istringstream lines(outcome.out);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 80U) << line;
    }
}

TEST_F(Arguments, SlipsOfTheKeyboardAreAnsweredWithWhatIsNear)
{
    constexpr std::pair<const char*, const char*> ROWS[] = {
        {"exopse -t 1", "did you mean \"expose\"?"},
        {"statsu --help", "did you mean \"status\"?"},
        {"plot --help", "\"plot\" is no command"},
        {"expose -t 1 --ouput a.fits", "did you mean \"--output\"?"},
    };
    for (const auto& [arguments, says] : ROWS)
        EXPECT_TRUE(vornctl(arguments).refused(2, says)) << arguments;
}

TEST_F(Arguments, ErrorsAreJsonWhereResultsWouldBe)
{
    for (const auto& [arguments, status] : {std::pair{"--json info", 3},
                                            {"expose -t x --json", 2},
                                            {"--json plot", 2},
                                            {"expose -t 1 -o nowhere/a.fits --json", 1},
                                            {"monitor --plot nowhere/a.svg --json", 1}}) {
        const Outcome outcome = vornctl(arguments);
        EXPECT_EQ(outcome.status, status) << arguments;
        const auto error = nlohmann::json::parse(outcome.out)["error"];
        EXPECT_EQ(error["status"], status);
        EXPECT_NE(outcome.err.find(error["text"].get<std::string>()), std::string::npos) << outcome.err;
    }
}

TEST_F(Arguments, NamesThatTheHeaderCannotHoldAreSaidWithWhatStandsForThem)
{
    const Outcome outcome = simulated("--no-camera", "expose -t 1 --object 'Σ 2398' --observer Ada -o a.fits");
    EXPECT_EQ(outcome.err.find("vornctl: note: \"Σ 2398\" becomes \"Sigma 2398\" in the FITS header"), 0U)
        << outcome.err;
    EXPECT_EQ(outcome.err.find("Ada"), std::string::npos);
    const Outcome picture = simulated("--no-camera", "expose -t 1 --object 'Σ 2398' --png a.png");
    EXPECT_EQ(picture.err.find("Sigma"), std::string::npos) << picture.err;
}

TEST_F(Arguments, CamerasAreToldApartWithoutOpeningThem)
{
    constexpr const char* NONE = "--no-camera";
    constexpr const char* THREE = "--camera k06 --camera k12 --camera k12 --log log";
    struct Row {
        const char* simulator;
        const char* arguments;
        int status;
    };
    constexpr Row ROWS[] = {{NONE, "list", 0},         {NONE, "info", 3},         {NONE, "expose -t 1 -d k12", 3},
                            {THREE, "info", 2},        {THREE, "info -d k12", 2}, {THREE, "info -d 3", 3},
                            {THREE, "info -d k13", 3}, {THREE, "info -d 1-9", 3}};
    for (const Row& row : ROWS)
        EXPECT_TRUE(simulated(row.simulator, row.arguments).refused(row.status, "")) << row.arguments;
    EXPECT_EQ(simulated(NONE, "list --json").out, "{\"cameras\":[]}\n");
    EXPECT_EQ(simulated(THREE, "list --json").out,
              R"({"cameras":[{"index":0,"name":"Vorn K06","family":"STANDARD","ports":["1-1"]},)"
              R"({"index":1,"name":"Vorn K12","family":"STANDARD","ports":["1-2","1-3"]},)"
              R"({"index":2,"name":"Vorn K12","family":"STANDARD","ports":["1-2","1-3"]}]})"
              "\n");
    const Outcome mixed = simulated("--camera xrm --camera k16 --camera k01 --log log", "list");
    EXPECT_EQ(mixed.out,
              "0  Vorn K01  QUICKER  port 1-3\n1  Vorn K16  ADVANCED  port 1-2\n"
              "2  Vorn XRM  IIDC  port 1-1\n");
    EXPECT_EQ(mixed.err, "");
    EXPECT_NE(simulated(THREE, "list").err.find("-d 1-2, -d serial:7"), std::string::npos);
    EXPECT_EQ(contents("log"), "");  // no simulated camera has noticed anything
    const std::string numbered = std::string(THREE) + " --serial 51";
    for (const auto& [place, serial] : {std::pair{"1-1", 51}, {"1-2", 52}, {"1-3", 53}})
        EXPECT_EQ(nlohmann::json::parse(simulated(numbered, std::string("info --json -d ") + place).out)["serial"],
                  serial);
}

}  // namespace
