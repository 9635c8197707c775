// SPDX-License-Identifier: MIT
#include <fstream>
#include <iterator>

#include "command_run.h"

namespace {

using namespace vornctltest;

class Stopping : public CommandLine {
protected:
    std::string log() const
    {
        std::ifstream file(path("log"));
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
};

TEST_F(Stopping, SignalsCloseTheShutterAndLeaveNoFile)
{
    // The exposure has begun when the log says so; a minute of it is never waited for.
    constexpr const char* TEXT = R"(
        "$VORNCTL" expose -t 60 -o a.fits --png a.png &
        i=0; until grep -q 'shutter open' log || [ $i -gt 300 ]; do sleep 0.05; i=$((i + 1)); done
        kill -SIGNAL $!; wait $!)";
    const std::pair<const char*, int> signals[] = {{"INT", 130}, {"TERM", 143}};
    for (const auto& [name, status] : signals) {
        std::string text = TEXT;
        // A shell lets its background jobs ignore the keyboard's interrupt, and vornctl takes it back.
        text.replace(text.find("SIGNAL"), 6, name);
        const Outcome outcome = script("--camera k12 --log log", text);
        EXPECT_EQ(outcome.status, status) << outcome.err;
        EXPECT_EQ(outcome.errorLines(), 1U) << outcome.err;
        EXPECT_EQ(files(), std::vector<std::string>{"log"});
        EXPECT_NE(log().find("shutter closed"), std::string::npos);
    }
}

TEST_F(Stopping, ASecondProgramIsToldThatTheCameraIsBusy)
{
    const Outcome outcome = script("--camera k12 --log log", R"(
        "$VORNCTL" expose -q -t 60 -o a.fits 2>/dev/null &
        i=0; until grep -q 'shutter open' log || [ $i -gt 300 ]; do sleep 0.05; i=$((i + 1)); done
        "$VORNCTL" info; status=$?
        kill -TERM $!; wait $!; exit $status)");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("used by another program"), std::string::npos) << outcome.err;
}

TEST_F(Stopping, ExistingFilesAreFoundBeforeTheExposure)
{
    std::ofstream(path("a.fits")) << "mine";
    const Outcome refused = simulated("--camera k12 --log log", "expose -t 0.01 -o a.fits");
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("--force"), std::string::npos);
    EXPECT_EQ(log(), "");
    EXPECT_EQ(std::filesystem::file_size(path("a.fits")), 4U);
    EXPECT_EQ(simulated("--camera k12", "expose -q -t 0.01 -o a.fits --force").status, 0);
    EXPECT_EQ(readFits("a.fits").width, 1392);
}

}  // namespace
