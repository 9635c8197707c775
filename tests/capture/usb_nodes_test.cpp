// SPDX-License-Identifier: MIT
#include "capture/usb_nodes.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <memory>
#include <tuple>

#include "test_directory.h"

namespace {

using namespace vorncapture;

class UsbNodes : public ::testing::Test, protected capturetest::TestDirectory {
protected:
    const UsbNode node_{"1234", "df2c", path("002"), "1-2", 480.0, ""};
};

/// @return what a command writes, without the line's end.
std::string outputOf(const std::string& command)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string text(1000, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), pipe.get()));
    return text.substr(0, text.find('\n'));
}

TEST_F(UsbNodes, TellWhoMayUseThem)
{
    EXPECT_EQ(node_.access(), "");
    EXPECT_FALSE(node_.usable());
    std::ofstream(node_.path) << "";
    EXPECT_TRUE(node_.usable());
    ASSERT_EQ(chmod(node_.path.c_str(), 0640), 0);
    EXPECT_EQ(node_.access(), outputOf("stat -c '%U:%G, mode 0%a' " + node_.path));
    if (chown(node_.path.c_str(), 12345, 23456) == 0) {  // works for root only
        EXPECT_EQ(node_.access(), "12345:23456, mode 0640");
    }
    const UserAccess user = userAccess();
    EXPECT_EQ(user.name, outputOf("id -un"));
    EXPECT_EQ(user.plugdevExists, !outputOf("getent group plugdev").empty());
    EXPECT_EQ(user.inPlugdev, (" " + outputOf("id -nG") + " ").find(" plugdev ") != std::string::npos);
}

TEST_F(UsbNodes, TellWhoUsesThem)
{
    EXPECT_FALSE(openInThisProcess(node_.path));
    const std::ofstream file(node_.path);
    EXPECT_TRUE(openInThisProcess(node_.path));
    EXPECT_TRUE(node_.holders().empty());
    const pid_t child = fork();
    if (child == 0) {
        (void)pause();
        _exit(0);
    }
    EXPECT_EQ(node_.holders(), std::vector<std::string>{std::to_string(child) + " (capture_test)"});
    (void)kill(child, SIGKILL);
    (void)waitpid(child, nullptr, 0);
    EXPECT_TRUE(node_.holders().empty());
}

TEST_F(UsbNodes, AreFoundByPortOrNumber)
{
    const UsbNode node{"", "", "/dev/bus/usb/001/023", "1-2.3", 0.0, ""};
    const std::pair<const char*, bool> rows[] = {{"1-2.3", true},  {"1-2", false},  {"1:23", true},
                                                 {"01:023", true}, {"23:1", false}, {"1:24", false}};
    for (const auto& [place, same] : rows)
        EXPECT_EQ(node.isAt(place), same) << place;
    EXPECT_FALSE(udevRuleInstalled("not an id"));
}

}  // namespace
