// SPDX-License-Identifier: MIT
// Host programs on the real libusb-1.0, with loopback devices behind umockdev.
#include <gtest/gtest.h>

#include <filesystem>

#include "command_result.h"

namespace vornsim::test {
namespace {

const std::string RUN = USBFS_LOOPBACK_RUN " ";
const std::string HOST = USBFS_HOST " ";
const std::string LIST = USBFS_LOOPBACK_RUN " " USBFS_HOST " list";

TEST(RunWithLoopback, HostSeesTheDevices)
{
    const CommandResult result = runShell(LIST + " | sort");
    EXPECT_EQ(result.output, "1/1 1d6b:0002 speed 3\n1/2 1234:1001 speed 3\n1/3 1234:1002 speed 3\n");
}

class RunHost : public testing::TestWithParam<const char*> {};

TEST_P(RunHost, ChecksHold)
{
    const CommandResult result = runShell(RUN + HOST + GetParam());
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.exitStatus, 0);
}

INSTANTIATE_TEST_SUITE_P(Checks, RunHost, testing::Values("transfers", "waiting", "errors", "busy", "unplug"),
                         [](const auto& check) { return std::string(check.param); });

TEST(RunWithLoopback, TwoHostsDriveTwoDevicesAtOnce)
{
    const CommandResult result =
        runShell(RUN + "sh -c '" + HOST + "transfers 1001 & " + HOST + "transfers 1002 && wait $!'");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.exitStatus, 0);
}

TEST(RunWithLoopback, AKilledHostLeavesNoClaimBehind)
{
    const CommandResult result = runShell(RUN + "sh -c 'exec 2>/dev/null; for i in 1 2 3; do " + HOST +
                                          "bench & sleep 0.15; kill -9 $!; wait $!; done; " + HOST + "busy'");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.exitStatus, 0);
}

TEST(RunWithLoopback, ExitStatusAndSignalsAreTheProgrammes)
{
    struct Case {
        const char* label;
        const char* program;
        int exitStatus;
    };
    for (const Case& item : {
             Case{"exit status", "sh -c 'exit 7'", 7},
             Case{"killed program", "sh -c 'kill -KILL $$'", 128 + 9},
             Case{"terminal signals sent to vornsim are the program's to handle",
                  "sh -c 'trap \"exit 42\" TERM; kill -TERM $PPID; while :; do sleep 0.01; done'", 42},
             Case{"vornsim does not die before its program",
                  "sh -c 'trap \"\" INT; kill -INT $PPID; sleep 0.05; exit 3'", 3},
             Case{"program that is not there", "no-such-program", 98},
         }) {
        const CommandResult result = runShell(RUN + item.program);
        EXPECT_EQ(result.exitStatus, item.exitStatus) << item.label << ": " << result.output;
    }
}

TEST(RunWithLoopback, NothingIsLeftBehind)
{
    const std::filesystem::path folder = std::filesystem::path(testing::TempDir()) / "usbfs-left-behind";
    const std::filesystem::path deep = folder / std::string(60, 'x');  // too long for the sockets in it
    for (const std::filesystem::path& temporary : {folder, deep}) {
        std::filesystem::create_directories(temporary);
        const CommandResult result = runShell("export TMPDIR=" + temporary.string() + "; " + LIST + " | wc -l");
        EXPECT_EQ(result.output, "3\n");
    }
    std::filesystem::remove(deep);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace vornsim::test
