// SPDX-License-Identifier: MIT
// The command line of vornsim, and a camera behind it as far as any USB program sees one.
#include <gtest/gtest.h>

#include "command_result.h"

namespace vornsim::test {
namespace {

TEST(VornsimCommand, DoesWhatItIsAskedOrSaysWhatIsWrong)
{
    const struct {
        const char* arguments;
        int exitStatus;
        const char* says;
    } cases[] = {
        {"run --camera 'Vorn K1Z' -- true", 2, "Did you mean \"Vorn K1"},
        {"run --camera Nikon -- true", 2, "there is no camera \"Nikon\". Known cameras: Vorn K01, "},
        {"run --camera K12", 2, "Put it after --"},
        {"run --camera K12 -- no-such-program", 127, "cannot run \"no-such-program\": no such program"},
        {"run --camera K12 -- /etc/passwd", 126, "cannot run \"/etc/passwd\""},
        {"run --camera K12 --log /no/such/folder/log -- true", 125, "cannot write the log"},
        {"run --help", 0, "Examples:"},
        {"list", 0, "\nVorn K12 "},
        {"list --json", 0, "\"name\": \"Vorn K12\",\n    \"family\": "},
        {"run --camera K12 --camera 'Vorn K12' -- " USBFS_HOST " list | grep -c ' 1234:'", 0, "2\n"},
        {"run --no-camera -- " USBFS_HOST " list | grep -c ' 1234:'", 1, "0\n"},
        {"run --camera K12 -- sh -c 'printf \"%s|\" \"$@\"; exit 5' sh -- --camera ''", 5, "--|--camera||"},
    };
    for (const auto& c : cases) {
        const CommandResult result = runShell(std::string("env -u LD_PRELOAD " VORNSIM " ") + c.arguments);
        EXPECT_EQ(result.exitStatus, c.exitStatus) << c.arguments;
        EXPECT_NE(result.output.find(c.says), std::string::npos) << c.arguments << ": " << result.output;
    }
}

TEST(VornsimCommand, SumsUpWhatTheCameraComplainedAbout)
{
    const std::string log = testing::TempDir() + "vornsim-complaints.log";
    const std::string output =
        runShell(VORNSIM " run --camera K12 --log " + log + " -- " USBFS_HOST " refused df34; cat " + log).output;
    EXPECT_EQ(output.find("vornsim: camera 1 (Vorn K12): 1 request that real firmware could not serve ("), 0U)
        << output;
    EXPECT_NE(output.find(", see " + log + "\n"), std::string::npos) << output;
    EXPECT_NE(output.find("Z camera 1 (Vorn K12): COMPLAINT: "), std::string::npos) << output;
    (void)std::remove(log.c_str());
}

}  // namespace
}  // namespace vornsim::test
