// SPDX-License-Identifier: MIT
// Programs that lose their camera, or do not get what they ask the system for, on the real libusb.
#include <gtest/gtest.h>

#include <cstdlib>
#include <future>
#include <vector>

#include "command_result.h"

namespace vornsim::test {
namespace {

/// For builds with sanitizers; others take no notice.
const std::string SANITIZED = "export LSAN_OPTIONS=print_suppressions=0:suppressions=" LEAKS "; ";

/// Takes a picture into an empty directory. @return what was said, the exit status and the files there are then.
std::string expose(const std::string& model, const std::string& fault)
{
    return runShell(SANITIZED + "cd $(mktemp -d) || exit; timeout 30 " VORNSIM " run --camera " + model + " --fault " +
                    fault +
                    " -- " VORNCTL " expose -q -t 0.05 -o a.fits --png a.png; echo exit $?; ls -A; rm -r \"$PWD\"")
        .output;
}

/// Unplugs the camera at one transfer after the other, @p stride apart, until a picture is taken all the same.
void sweep(const std::string& model, const std::string& since, unsigned stride)
{
    constexpr unsigned AT_ONCE = 4;
    for (unsigned first = 1;; first += AT_ONCE * stride) {
        std::vector<std::future<std::string>> runs;
        for (unsigned i = 0; i < AT_ONCE; ++i)
            runs.push_back(std::async(std::launch::async, expose, model,
                                      since + ",transfer=" + std::to_string(first + i * stride) + ",error=NO_DEVICE"));
        bool taken = false;
        for (unsigned i = 0; i < AT_ONCE; ++i) {
            const std::string said = runs[i].get();
            if (said == "a.fits\na.png\nexit 0\na.fits\na.png\n")
                taken = true;
            else
                EXPECT_TRUE(said.starts_with("vornctl: the camera ") && said.ends_with("again.\nexit 5\n"))
                    << model << " " << since << " transfer " << first + i * stride << ": " << said;
        }
        if (taken || testing::Test::HasFailure())
            break;
    }
}

/// VORNCCD_UNPLUG_STRIDE=1 unplugs cameras of all families at every transfer, which takes half an hour.
TEST(Unplugging, EndsAnExposureAtOnceAndLeavesNoFileBehind)
{
    const char* stride = std::getenv("VORNCCD_UNPLUG_STRIDE");
    const std::vector<std::string> models = {"K12", "K03", "K27", "XRM", "K30"};
    for (const std::string& model : stride ? models : std::vector(1, models[0])) {
        sweep(model, "open=1", stride ? static_cast<unsigned>(std::atoi(stride)) : 173);
        sweep(model, "exposure=1", 1);
    }
}

TEST(Unplugging, LetsTheSameProgramUseTheCameraWhenItIsBack)
{
    const std::string unplug = " --fault endpoint=0x88,error=NO_DEVICE,replug=0.3,exposure=";
    EXPECT_EQ(runShell(SANITIZED + VORNSIM " run --camera K12" + unplug + "1,port=next" + unplug +
                       "2 -- " FAULT_HOST " 1048576 1048576 1048576")
                  .output,
              "Failed to get image\nFailed to get image\ntaken\n");
}

TEST(UsbfsMemory, IsTooLittleForTheUsualReadOfALargeSensorUntilSomebodyRaisesIt)
{
    const std::string parameter = "/sys/module/usbcore/parameters/usbfs_memory_mb";
    const std::string said = runShell(SANITIZED + VORNSIM " run --camera K33 -- sh -c 'cat " + parameter +
                                      "; " FAULT_HOST " 25165824; echo 64 >" + parameter + "; " FAULT_HOST " 25165824'")
                                 .output;
    EXPECT_TRUE(said.starts_with("16\nFailed to get image\ntaken\n")) << said;
}

}  // namespace
}  // namespace vornsim::test
