// SPDX-License-Identifier: MIT
#include <nlohmann/json.hpp>

#include "command_run.h"

namespace {

using namespace vornctltest;

class Doctor : public CommandLine {};

TEST_F(Doctor, FindsWhatIsWrongAndSaysWhatToType)
{
    struct Row {
        const char* simulator;
        int status;
        const char* level;
        const char* text;
        const char* cure;
    };
    constexpr Row ROWS[] = {
        {"--no-camera", 3, "problem", "no camera is seen", "lsusb"},
        {"--camera k12 --serial 4711", 0, "good", "serial number 4711", ""},
        {"--camera k12", 0, "hint", "stand-in", "-DVORNCCD_FIRMWARE="},
        {"--camera k33", 0, "hint", "usbfs_memory_mb is 16", "tee /sys/module/usbcore/parameters/usbfs_memory_mb"},
        {"--camera k12 --fault open=every,error=BUSY,times=ever", 1, "problem", "another program", "Close the other"},
        {"--camera k12 --fault endpoint=control,error=PIPE,times=ever", 5, "problem", "program", "unplug"},
        {"--camera k12 --fault open=every,endpoint=in,transfer=2,garbage,times=ever", 5, "problem", "description",
         "unplug"},
        {"--camera k12 --fault open=1,error=NO_DEVICE", 5, "problem", "no longer attached", "cable"},
    };
    for (const Row& row : ROWS) {
        SCOPED_TRACE(row.simulator);
        const Outcome outcome = simulated(row.simulator, "doctor --json");
        EXPECT_EQ(outcome.status, row.status) << outcome.out;
        bool found = false;
        const auto report = nlohmann::json::parse(outcome.out);
        for (const auto& finding : report["findings"]) {
            const std::string cure = finding["cure"].is_null() ? "" : finding["cure"].get<std::string>();
            found = found || (finding["level"] == row.level &&
                              finding["text"].get<std::string>().find(row.text) != std::string::npos &&
                              cure.find(row.cure) != std::string::npos);
        }
        EXPECT_TRUE(found) << outcome.out;
    }
}

}  // namespace
