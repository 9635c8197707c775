// SPDX-License-Identifier: MIT
#include <nlohmann/json.hpp>
#include <set>

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
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_TRUE(names().empty());
}

TEST_F(Arguments, HelpAndVersionAreNoErrors)
{
    for (const char* arguments : {"--help", "expose --help", "--version"}) {
        const Outcome outcome = vornctl(arguments);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_NE(outcome.out, "");
        EXPECT_EQ(outcome.err, "");
    }
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
    const auto list = nlohmann::json::parse(simulated(THREE, "list --json").out);
    std::multiset<std::string> names;  // the system lists them in an order of its own
    for (const auto& camera : list["cameras"])
        names.insert(camera["name"]);
    EXPECT_EQ(names, (std::multiset<std::string>{"Vorn K06", "Vorn K12", "Vorn K12"}));
    EXPECT_EQ(list["cameras"][2]["index"], 2);
    EXPECT_EQ(contents("log"), "");  // no simulated camera has noticed anything
    const std::string numbered = std::string(THREE) + " --serial 51";
    for (const auto& [place, serial] : {std::pair{"1-1", 51}, {"1-2", 52}, {"1-3", 53}})
        EXPECT_EQ(nlohmann::json::parse(simulated(numbered, std::string("info --json -d ") + place).out)["serial"],
                  serial);
}

}  // namespace
