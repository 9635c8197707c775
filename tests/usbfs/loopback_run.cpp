// SPDX-License-Identifier: MIT
// Runs a host program with two loopback devices in place of cameras: usbfs_loopback_run PROGRAM ARGS...
#include <cstdio>
#include <cstring>
#include <memory>

#include "loopback_device.h"
#include "usbfs/child_process.h"
#include "usbfs/mock_bus.h"
#include "usbfs/preload.h"
#include "usbfs/real_clock.h"

namespace {

class QuietLog : public vornsim::DeviceLog {
public:
    void note(const std::string& /*text*/) override {}
    void complain(const std::string& text) override { std::fprintf(stderr, "complaint: %s\n", text.c_str()); }
};

}  // namespace

int main(int argc, char** argv)
{
    const std::string missing = vornsim::ensurePreload(argv);
    if (!missing.empty()) {
        std::fprintf(stderr, "%s\n", missing.c_str());
        return 97;
    }
    vornsim::ChildProcess child;
    const vornsim::RealClock clock;
    QuietLog log;
    vornsim::test::LoopbackDevice first(clock, 0x1001);
    vornsim::test::LoopbackDevice second(clock, 0x1002);
    vornsim::MockBus bus(clock);
    for (vornsim::UsbDevice* device : {&first, &second}) {
        const std::string problem = bus.attach(*device, log);
        if (!problem.empty()) {
            std::fprintf(stderr, "%s\n", problem.c_str());
            return 99;
        }
    }
    const vornsim::ChildResult result = child.run({argv + 1, argv + argc}, bus.environment());
    if (result.startError)
        std::fprintf(stderr, "%s: %s\n", argv[1], std::strerror(result.startError));
    return result.startError ? 98 : result.exitStatus;
}
