// SPDX-License-Identifier: MIT
#include <fstream>

#include "command_run.h"

namespace {

using namespace vornctltest;

class Stopping : public CommandLine {};

TEST_F(Stopping, SignalsCloseTheShutterAndLeaveNoFile)
{
    // The exposure has begun when the log says so; a minute of it is never waited for. A shell lets its background
    // jobs ignore the keyboard's interrupt, and vornctl takes it back.
    const std::pair<std::string, int> signals[] = {{"INT", 130}, {"TERM", 143}};
    for (const auto& [name, status] : signals) {
        const Outcome outcome = script("--camera k12 --log log", R"(
            "$VORNCTL" expose -t 60 -o a.fits --png a.png &
            i=0; until grep -q 'shutter open' log || [ $i -gt 300 ]; do sleep 0.05; i=$((i + 1)); done
            "$VORNCTL" info 2>busy && exit 99
            kill -)" + name + " $!; wait $!");
        EXPECT_TRUE(outcome.refused(status, ""));
        EXPECT_NE(contents("busy").find("used by another program"), std::string::npos) << contents("busy");
        EXPECT_EQ(names(), (std::vector<std::string>{"busy", "log"}));
        EXPECT_NE(contents("log").find("shutter closed"), std::string::npos);
    }
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
