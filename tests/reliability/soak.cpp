// SPDX-License-Identifier: MIT
// A year of nights with each family, in virtual time: cool, filter, exposures of 300 s, guide pulses, warm up, close.
// What the process holds may not grow. Each family has a process of its own.
//
// usage: soak [--nights N]
#include <malloc.h>
#include <unistd.h>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "scenarios.h"

namespace vorntest {

namespace {

constexpr int EXPOSURES = 96;  // eight hours
constexpr int64_t EXPOSURE_US = 300'000'000;
constexpr int64_t DAY_US = 86'400'000'000;
constexpr int SETTLED_NIGHT = 2;           // by then every buffer of the simulator and of libc has its size
constexpr size_t HEAP_SLACK_BYTES = 4096;  // blocks are not always cut the same way
constexpr long RSS_SLACK_KIB = 512;

/// What may not grow from night to night.
struct Holdings {
    size_t heapBytes = 0;
    long files = 0;
    int64_t buffers = 0;
    long rssKib = 0;
};

Holdings holdings()
{
    Holdings now = {.heapBytes = mallinfo2().uordblks, .buffers = allocations.held};
    for ([[maybe_unused]] const auto& file : std::filesystem::directory_iterator("/proc/self/fd"))
        now.files++;
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    now.rssKib = pages * (sysconf(_SC_PAGESIZE) / 1024);
    return now;
}

bool runAll(const std::vector<Step>& steps, VornCameraImpl& camera)
{
    for (const Step& step : steps) {
        if (step.supported(camera) && !step.run(camera)) {
            std::printf("%s: %s fails: %s\n", camera.getName(), step.name.c_str(), camera.getLastError());
            return false;
        }
    }
    return true;
}

/// One night. Cameras without long exposures take a short one as often.
bool observe(const Subject& subject, SimulatedCamera& simulated, int64_t startUs)
{
    bus().advanceTo(startUs);
    const std::vector<Step>& exposure = subject.family == IIDC ? SHORT_EXPOSURE : LONG_EXPOSURE;
    bool ok = simulated.camera.open();
    for (int i = 0; ok && i < EXPOSURES; i++) {
        bus().advanceTo(startUs + (i + 1) * EXPOSURE_US);
        ok = runAll(ACCESSORIES, simulated.camera) && runAll(exposure, simulated.camera);
    }
    simulated.camera.close();
    simulated.log.notes = {};
    return ok && simulated.lockFree() && simulated.device.openCount == 0;
}

bool soak(const Subject& subject, long nights)
{
    SimulatedCamera simulated(subject.model);
    Holdings settled;
    Holdings now;
    for (long night = 0; night < nights; night++) {
        if (!observe(subject, simulated, night * DAY_US))
            return false;
        now = holdings();
        if (night < SETTLED_NIGHT)
            settled = now;
    }
    std::printf(
        "%-9s %ld nights, %ld exposures, %llu allocations; heap %zu to %zu bytes, resident %ld to %ld KiB, "
        "files %ld to %ld, %lld buffers held\n",
        subject.name, nights, nights * EXPOSURES, static_cast<unsigned long long>(allocations.count), settled.heapBytes,
        now.heapBytes, settled.rssKib, now.rssKib, settled.files, now.files, static_cast<long long>(now.buffers));
    for (const std::string& complaint : simulated.log.complaints)
        std::printf("%s complains: %s\n", subject.name, complaint.c_str());
    (void)std::fflush(stdout);
    // The sanitizers and valgrind keep what is freed for a while, in a heap of their own, and find leaks themselves.
    const bool ownHeap = now.heapBytes == 0;
    return simulated.log.complaints.empty() && now.heapBytes <= settled.heapBytes + HEAP_SLACK_BYTES &&
           now.files <= settled.files && now.buffers == 0 && (ownHeap || now.rssKib <= settled.rssKib + RSS_SLACK_KIB);
}

}  // namespace

}  // namespace vorntest

int main(int argc, char** argv)
{
    const bool ok = vorntest::inProcesses(argc, argv, "--nights", 365, vorntest::soak);
    std::printf("%s\n", ok ? "nothing grew" : "FAILED, see above");
    return ok ? 0 : 1;
}
