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
        {"dance", 2, "command"},
        {"list --sideways", 2, "--sideways"},
        {"expose", 2, "--time"},
        {"expose -t", 2, "--time"},
        {"expose -t -1", 2, "\"-1\""},
        {"expose -t nan", 2, "\"nan\""},
        {"expose -t inf", 2, "\"inf\""},
        {"expose -t 1e999", 2, "\"1e999\""},
        {"expose -t 1s", 2, "\"1s\""},
        {"expose -t ''", 2, "\"\""},
        {"expose -t 1 --bin 0", 2, "binning 0"},
        {"expose -t 1 --bin 2x0", 2, "binning 0"},
        {"expose -t 1 --bin 2x2x2", 2, "\"2x2x2\""},
        {"expose -t 1 --bin -2", 2, "\"-2\""},
        {"expose -t 1 --bin 99999999999", 2, "99999999999"},
        {"expose -t 1 --roi 1,2,3", 2, "\"1,2,3\""},
        {"expose -t 1 --roi 1,2,3,4,5", 2, "1,2,3,4,5"},
        {"expose -t 1 --roi -1,0,5,5", 2, "-1,0,5,5"},
        {"expose -t 1 --roi 0,0,0,5", 2, "empty"},
        {"expose -t 1 -d serial:", 2, "serial:"},
        {"expose -t 1 -d index:x", 2, "index:x"},
        {"expose -t 1 -o nowhere/a.fits", 1, "no directory nowhere"},
        {"expose -t 1 --png .", 1, "directory"},
    };
    for (const Row& row : ROWS) {
        SCOPED_TRACE(row.arguments);
        const Outcome outcome = vornctl(row.arguments);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.errorLines(), 1U) << outcome.err;
        EXPECT_NE(outcome.err.find(row.says), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_TRUE(files().empty());
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

TEST_F(Arguments, NoCameraIsAnEmptyListButNothingToExposeWith)
{
    const Outcome list = simulated("--no-camera", "list");
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(list.out, "");
    EXPECT_EQ(list.errorLines(), 1U);
    EXPECT_EQ(simulated("--no-camera", "list --json").out, "{\"cameras\":[]}\n");
    for (const char* arguments : {"info", "expose -t 1", "expose -t 1 -d k12", "info -d 123456"}) {
        const Outcome outcome = simulated("--no-camera", arguments);
        EXPECT_EQ(outcome.status, 3) << arguments;
        EXPECT_EQ(outcome.errorLines(), 1U) << outcome.err;
    }
}

TEST_F(Arguments, CamerasAreToldApartWithoutOpeningThem)
{
    constexpr const char* THREE = "--camera k06 --camera k12 --camera k12 --log log";
    const auto list = nlohmann::json::parse(simulated(THREE, "list --json").out);
    ASSERT_EQ(list["cameras"].size(), 3U);
    std::multiset<std::string> names;  // the system lists them in an order of its own
    for (const auto& camera : list["cameras"])
        names.insert(camera["name"]);
    EXPECT_EQ(names, (std::multiset<std::string>{"Vorn K06", "Vorn K12", "Vorn K12"}));
    EXPECT_EQ(list["cameras"][2]["index"], 2);
    EXPECT_EQ(simulated(THREE, "info").status, 2);
    EXPECT_EQ(simulated(THREE, "info -d k12").status, 2);
    EXPECT_EQ(simulated(THREE, "info -d 3").status, 3);
    EXPECT_EQ(simulated(THREE, "info -d k13").status, 3);
    EXPECT_EQ(std::filesystem::file_size(path("log")), 0U);  // no simulated camera has noticed anything
}

}  // namespace
