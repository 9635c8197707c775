// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "command_result.h"
#include "programs.h"

namespace firmware {
namespace {

using testing::HasSubstr;

/// A directory of its own, with programs good and bad.
class PackCommand : public testing::Test {
protected:
    PackCommand()
    {
        char name[] = "/tmp/pack-firmware-XXXXXX";
        directory_ = mkdtemp(name);
        put("good.hex", IDLE_HEX);
        put("bad.hex", IDLE_HEX.substr(0, 30));
        put("large.bin", std::string(1'100'000, '\2'));
    }
    ~PackCommand() override { std::filesystem::remove_all(directory_); }

    void put(const std::string& name, const std::string& content) const
    {
        std::ofstream(directory_ / name, std::ios::binary) << content;
    }

    vornsim::test::CommandResult run(const std::string& arguments) const
    {
        return vornsim::test::runShell("cd " + directory_.string() + " && " PACK_COMMAND " " + arguments);
    }

    size_t fileCount() const
    {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(directory_), {}));
    }

    std::filesystem::path directory_;
};

TEST_F(PackCommand, WritesWhatWasAskedFor)
{
    const auto outcome = run("good.hex -o table.cpp --binary-out table.bin");
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(readFile(directory_ / "table.bin").size(), 18146u);
    EXPECT_EQ(run("table.bin --format table -o again.cpp --binary-out again.bin").exitStatus, 0);
    EXPECT_TRUE(readFile(directory_ / "again.bin") == readFile(directory_ / "table.bin"));
    EXPECT_EQ(fileCount(), 3u + 4u) << "no temporary file stays";
}

TEST_F(PackCommand, RefusesWithoutTouchingTheOutput)
{
    put("old.cpp", "old");
    std::filesystem::create_directory(directory_ / "taken");
    const struct {
        const char* arguments;
        int status;
        const char* message;
    } cases[] = {
        {"--help", 0, "Examples:"},
        {"", 2, "INPUT"},
        {"good.hex", 2, "-o or --binary-out"},
        {"good.hex -o old.cpp --binary-out old.cpp", 2, "another file"},
        {"good.hex -o old.cpp --colour", 2, "--colour"},
        {"good.hex -o old.cpp --format records", 1, "good.hex: record"},
        {"bad.hex -o old.cpp", 1, "bad.hex: line 2"},
        {"none.hex -o old.cpp", 1, "none.hex: cannot read: No such file"},
        {". -o old.cpp", 1, ".: cannot read: it is a directory"},
        {"large.bin -o old.cpp", 1, "large.bin: the file is larger than 1 MiB"},
        {"good.hex -o old.cpp --binary-out nowhere/table.bin", 1, "nowhere/table.bin: cannot write: No such file"},
        {"good.hex -o taken", 1, "taken: cannot put in place: Is a directory"},
    };
    const size_t before = fileCount();
    for (const auto& c : cases) {
        const auto outcome = run(c.arguments);
        EXPECT_EQ(outcome.exitStatus, c.status) << c.arguments;
        EXPECT_THAT(outcome.output, HasSubstr(c.message)) << c.arguments;
        if (c.status == 1) {
            EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 1) << c.arguments;
        }
        EXPECT_EQ(readFile(directory_ / "old.cpp"), bytesOf("old")) << c.arguments;
        EXPECT_EQ(fileCount(), before) << c.arguments;
    }
}

}  // namespace
}  // namespace firmware
