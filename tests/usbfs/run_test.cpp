// SPDX-License-Identifier: MIT
// Host programs on the real libusb-1.0, with loopback devices behind umockdev.
#include <gtest/gtest.h>

#include <filesystem>

#include "command_result.h"

namespace vornsim::test {
namespace {

TEST(RunWithLoopback, ProgramsFindDevicesAndEndAsTheyWould)
{
    const struct {
        const char* label;
        const char* program;
        int exitStatus;
        const char* output;
    } cases[] = {
        {"transfers", USBFS_HOST " transfers", 0, ""},
        {"waiting", USBFS_HOST " waiting", 0, ""},
        {"errors", USBFS_HOST " errors", 0, ""},
        {"busy", USBFS_HOST " busy", 0, ""},
        {"two hosts drive two devices at once",
         "sh -c '" USBFS_HOST " transfers 1001 & " USBFS_HOST " errors 1002 && wait $!'", 0, ""},
        {"programs that start at once do not disturb each other",
         "sh -c 'for i in 1 2 3 4 5 6; do " USBFS_HOST " starting & done; wait'", 0, ""},
        {"killed hosts leave no claim behind",
         "sh -c 'exec 2>/dev/null; for i in 1 2 3; do " USBFS_HOST
         " waiting & sleep 0.15; kill -9 $!; wait $!; done; " USBFS_HOST " busy'",
         0, ""},
        {"exit status", "sh -c 'exit 7'", 7, ""},
        {"killed program", "sh -c 'kill -KILL $$'", 128 + 9, ""},
        {"terminal signals sent to vornsim are the program's to handle",
         "sh -c 'trap \"exit 42\" TERM; kill -TERM $PPID; while :; do sleep 0.01; done'", 42, ""},
        {"vornsim does not die before its program", "sh -c 'trap \"\" INT; kill -INT $PPID; sleep 0.05; exit 3'", 3,
         ""},
        {"program that is not there", "no-such-program", 98, "no-such-program: No such file or directory\n"},
    };
    for (const auto& c : cases) {
        const CommandResult result = runShell(std::string(USBFS_LOOPBACK_RUN " ") + c.program);
        EXPECT_EQ(result.output, c.output) << c.label;
        EXPECT_EQ(result.exitStatus, c.exitStatus) << c.label;
    }
}

TEST(RunWithLoopback, HostSeesTheDevicesAndNothingIsLeftBehind)
{
    const std::filesystem::path folder = std::filesystem::path(testing::TempDir()) / "usbfs-left-behind";
    const std::filesystem::path deep = folder / std::string(60, 'x');  // too long for the sockets in it
    std::filesystem::create_directories(deep);
    for (const std::filesystem::path& temporary : {folder, deep}) {
        const CommandResult result =
            runShell("TMPDIR=" + temporary.string() + " " USBFS_LOOPBACK_RUN " " USBFS_HOST " list | sort");
        EXPECT_EQ(result.output, "1/1 1d6b:0002 speed 3\n1/2 1234:1001 speed 3\n1/3 1234:1002 speed 3\n");
    }
    EXPECT_TRUE(std::filesystem::remove(deep)) << "which works on an empty directory only";
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace vornsim::test
