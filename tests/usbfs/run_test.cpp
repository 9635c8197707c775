// SPDX-License-Identifier: MIT
// `vornsim run`: host programs on the real libusb-1.0, with simulated cameras that may go wrong or go away.
#include <gtest/gtest.h>

#include <cstdlib>
#include <future>
#include <map>
#include <vector>

#include "command_result.h"

namespace vornsim::test {
namespace {

/// For builds with sanitizers; others take no notice.
const std::string RUN =
    "export LSAN_OPTIONS=print_suppressions=0:suppressions=" LEAKS "; env -u LD_PRELOAD " VORNSIM " run --camera ";

TEST(VornsimRun, EndsAsTheProgramDoesOrSaysWhatIsWrong)
{
    const struct {
        const char* arguments;
        int exitStatus;
        const char* says;
    } cases[] = {
        {"'Vorn K1Z' -- true", 2, "Did you mean \"Vorn K1"},
        {"Zeta -- true", 2, "there is no camera \"Zeta\". Known cameras: Vorn K01, "},
        {"K12", 2, "Put it after --"},
        {"K12 -- no-such-program", 127, "cannot run \"no-such-program\": no such program"},
        {"K12 -- /etc/passwd", 126, "cannot run \"/etc/passwd\""},
        {"K12 --log /no/such/folder/log -- true", 125, "cannot write the log"},
        {"K12 --help", 0, "Examples:"},
        {"K12 -- true; " VORNSIM " list", 0, "\nVorn K12 "},
        {"K12 -- true; " VORNSIM " list --json", 0, "\"name\": \"Vorn K12\",\n    \"family\": "},
        {"K12 -- sh -c 'printf \"%s|\" \"$@\"; exit 5' sh -- --camera ''", 5, "--|--camera||"},
        {"K12 -- sh -c 'kill -KILL $$'", 128 + 9, ""},
        // terminal signals sent to vornsim are the program's to handle, and vornsim does not die before it
        {"K12 -- sh -c 'trap \"exit 42\" TERM; kill -TERM $PPID; while :; do sleep 0.01; done'", 42, ""},
        {"K12 -- sh -c 'trap \"\" INT; kill -INT $PPID; sleep 0.05; exit 3'", 3, ""},
        {"K12 -- " USB_HOST " waiting", 0, ""},
        // killed programs leave no claim behind
        {"K12 -- sh -c 'exec 2>/dev/null; for i in 1 2 3; do " USB_HOST
         " waiting & sleep 0.15; kill -9 $!; wait $!; done; " USB_HOST " busy'",
         0, "vornsim: camera 1 (Vorn K12): 1 request that real firmware could not serve ("},
        // programs that start at once do not disturb each other
        {"K12 -- sh -c 'for i in 1 2 3 4 5 6; do " USB_HOST " starting & all=\"$all $!\"; done; "
         "for i in $all; do wait $i || exit; done'",
         0, ""},
        // what is said of complaints names the log that has them
        {"K12 --log /tmp/complaints-$$ -- " USB_HOST " busy 2>&1 | sed -n 's/.*), see //p' | xargs cat; "
         "rm /tmp/complaints-$$",
         0, "Z camera 1 (Vorn K12): COMPLAINT: "},
        // the same program can use a camera that is back
        {"K12 --fault endpoint=0x88,error=NO_DEVICE,replug=0.3,exposure=1,port=next"
         " --fault endpoint=0x88,error=NO_DEVICE,replug=0.3,exposure=2 -- " USB_HOST
         " pictures 1048576 1048576 1048576",
         0, "Failed to get image\nFailed to get image\ntaken\n"},
        // too little memory for the usual read of a large sensor, until somebody raises it
        {"K33 --scene ramp -- sh -c 'cd /sys/module/usbcore/parameters; cat usbfs_memory_mb; " KERNEL_CHECK
         " exposure 0 NO_MEM; echo 64 >usbfs_memory_mb; " KERNEL_CHECK " exposure 0 NONE && echo the ramp'",
         0, "16\nthe ramp\n"},
        {"K12 --fault endpoint=0x86,transfer=1,error=PIPE --fault endpoint=0x86,transfer=2,error=OVERFLOW "
         "--fault endpoint=0x86,transfer=3,error=TIMEOUT --fault endpoint=0x86,transfer=4,error=IO "
         "--fault endpoint=0x86,transfer=5,error=NO_DEVICE -- " KERNEL_CHECK
         " errors PIPE OVERFLOW TIMEOUT IO NO_DEVICE NO_DEVICE",
         0, ""},
    };
    for (const auto& c : cases) {
        const CommandResult result = runShell(RUN + c.arguments);
        EXPECT_EQ(result.exitStatus, c.exitStatus) << c.arguments << ": " << result.output;
        EXPECT_NE(result.output.find(c.says), std::string::npos) << c.arguments << ": " << result.output;
    }
}

TEST(VornsimRun, HostSeesTheDevicesAndNothingIsLeftBehind)
{
    const std::string deep(90, 'x');  // too long for the sockets in it
    const std::string list = RUN + "K12 --camera K06 -- " USB_HOST " list | sort; ";
    const std::string devices = "1/1 1d6b:0002 speed 3\n1/2 1234:df34 speed 3\n1/3 1234:df29 speed 3\n";
    // rmdir works, and says nothing, on empty directories only
    EXPECT_EQ(runShell("cd $(mktemp -d) && mkdir " + deep + " && export TMPDIR=$PWD; " + list + "TMPDIR=$PWD/" + deep +
                       "; " + list + "rmdir " + deep + " \"$PWD\"")
                  .output,
              devices + devices);
}

/// Takes a picture into an empty directory. @return what was said, the exit status and the files there are then.
std::string expose(const std::string& model, const std::string& fault)
{
    return runShell("cd $(mktemp -d) || exit; timeout 30 sh -c '" + RUN + model + " --fault " + fault +
                    " -- " VORNCTL " expose -q -t 0.05 -o a.fits --png a.png'; echo exit $?; ls -A; rm -r \"$PWD\"")
        .output;
}

/// Unplugs the camera at transfers @p stride apart, four at a time, until a picture is taken all the same.
void sweep(const std::string& model, const std::string& since, unsigned stride)
{
    bool taken = false;
    for (unsigned transfer = 1; !taken && !testing::Test::HasFailure();) {
        std::map<std::string, std::future<std::string>> runs;
        for (; runs.size() < 4; transfer += stride) {
            const std::string fault = since + ",transfer=" + std::to_string(transfer) + ",error=NO_DEVICE";
            runs[fault] = std::async(std::launch::async, expose, model, fault);
        }
        for (auto& [fault, run] : runs) {
            const std::string said = run.get();
            const bool whole = said == "a.fits\na.png\nexit 0\na.fits\na.png\n";
            EXPECT_TRUE(whole || (said.starts_with("vornctl: the camera ") && said.ends_with("again.\nexit 5\n")))
                << model << " " << fault << ": " << said;
            taken |= whole;
        }
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

}  // namespace
}  // namespace vornsim::test
