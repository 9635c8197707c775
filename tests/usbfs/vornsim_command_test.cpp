// SPDX-License-Identifier: MIT
// The command line of vornsim, and a camera behind it as far as any USB program sees one.
#include <gtest/gtest.h>

#include "command_result.h"

namespace vornsim::test {
namespace {

const std::string SIM = VORNSIM " ";

TEST(VornsimCommand, SaysWhatIsWrong)
{
    struct Case {
        const char* arguments;
        int exitStatus;
        const char* says;
    };
    for (const Case& item : {
             Case{"run --camera 'Vorn K1Z' -- true", 2, "Did you mean \"Vorn K1"},
             Case{"run --camera Nikon -- true", 2, "there is no camera \"Nikon\". Known cameras: Vorn K01, "},
             Case{"run --camera K12", 2, "Put it after --"},
             Case{"run -- true", 2, "say which cameras"},
             Case{"run --camera K12 --scene moon -- true", 2, "moon"},
             Case{"run --camera K12 -- no-such-program", 127, "cannot run \"no-such-program\": no such program"},
             Case{"run --camera K12 -- /etc/passwd", 126, "cannot run \"/etc/passwd\""},
             Case{"run --camera K12 --log /no/such/folder/log -- true", 125, "cannot write the log"},
             Case{"", 2, "subcommand"},
             Case{"run --help", 0, "Examples:"},
         }) {
        const CommandResult result = runShell(SIM + item.arguments);
        EXPECT_EQ(result.exitStatus, item.exitStatus) << item.arguments;
        EXPECT_NE(result.output.find(item.says), std::string::npos) << item.arguments << ": " << result.output;
    }
}

TEST(VornsimCommand, ListsModels)
{
    EXPECT_EQ(runShell(SIM + "list | grep -w K12").output.find("Vorn K12 "), 0U);
    const std::string json = runShell(SIM + "list --json").output;
    EXPECT_NE(json.find("\"name\": \"Vorn K12\",\n    \"family\": "), std::string::npos);
}

TEST(VornsimCommand, PlugsInWhatWasAskedFor)
{
    const std::string program = " -- " USBFS_HOST " list | grep -c ' 1234:'";
    EXPECT_EQ(runShell(SIM + "run --camera K12 --camera vornk12 --camera 'Vorn K12'" + program).output, "3\n");
    EXPECT_EQ(runShell(SIM + "run --no-camera" + program).output, "0\n");
}

TEST(VornsimCommand, SumsUpWhatTheCameraComplainedAbout)
{
    const std::string host = " -- " USBFS_HOST " refused df34; cat ";
    const std::string log = testing::TempDir() + "vornsim-complaints.log";
    const std::string output = runShell(SIM + "run --camera K12 --log " + log + host + log + "; rm " + log).output;
    EXPECT_EQ(output.find("vornsim: camera 1 (Vorn K12): 1 request that real firmware could not serve ("), 0U)
        << output;
    EXPECT_NE(output.find(", see " + log + "\n"), std::string::npos) << output;
    EXPECT_NE(output.find("Z camera 1 (Vorn K12): COMPLAINT: "), std::string::npos) << output;
}

TEST(VornsimCommand, StartsItselfUnderUmockdevAndPassesAllArgumentsOn)
{
    const CommandResult result = runShell(
        "env -u LD_PRELOAD " + SIM + "run --camera K12 -- sh -c 'printf \"%s|\" \"$@\"; exit 5' sh -- --camera ''");
    EXPECT_EQ(result.output, "--|--camera||");
    EXPECT_EQ(result.exitStatus, 5);
}

}  // namespace
}  // namespace vornsim::test
