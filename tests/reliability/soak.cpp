// SPDX-License-Identifier: MIT
// A year of nights with each family, in virtual time: cool, filter, exposures of 300 s, guide pulses, warm up, close.
// What the process holds may not grow. Each family has a process of its own.
//
// usage: soak [--nights N]
#include <malloc.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
        if (applies(step, camera) && !step.run(camera)) {
            std::printf("%s: %s fails: %s\n", camera.getName(), step.name, camera.getLastError());
            return false;
        }
    }
    return true;
}

/// One night. Cameras without long exposures take a short one as often.
bool observe(const Subject& subject, FaultyCamera& faulty, int64_t startUs)
{
    bus().advanceTo(startUs);
    const std::vector<Step> exposure =
        stepsOf(subject.family, subject.family == IIDC ? "short exposure" : "long exposure");
    const std::vector<Step> accessories = stepsOf(subject.family, "accessories");
    bool ok = runAll(stepsOf(subject.family, "open"), faulty.camera);
    for (int i = 0; ok && i < EXPOSURES; i++) {
        bus().advanceTo(startUs + (i + 1) * EXPOSURE_US);
        ok = runAll(accessories, faulty.camera) && runAll(exposure, faulty.camera);
    }
    faulty.camera.close();
    faulty.log.notes = {};
    return ok && faulty.lockFree() && faulty.device.openCount == 0;
}

bool soak(const Subject& subject, int nights)
{
    FaultyCamera faulty(subject.model);
    Holdings settled;
    Holdings now;
    for (int night = 0; night < nights; night++) {
        if (!observe(subject, faulty, night * DAY_US))
            return false;
        now = holdings();
        if (night < SETTLED_NIGHT)
            settled = now;
    }
    std::printf(
        "%-9s %d nights, %d exposures, %llu allocations; heap %zu to %zu bytes, resident %ld to %ld KiB, "
        "files %ld to %ld, %lld buffers held\n",
        subject.name, nights, nights * EXPOSURES, static_cast<unsigned long long>(allocations.count), settled.heapBytes,
        now.heapBytes, settled.rssKib, now.rssKib, settled.files, now.files, static_cast<long long>(now.buffers));
    for (const std::string& complaint : faulty.log.complaints)
        std::printf("%s complains: %s\n", subject.name, complaint.c_str());
    (void)std::fflush(stdout);
    // The sanitizers and valgrind, with a heap of their own, keep what is freed for a while; they find leaks
    // themselves.
    const bool ownHeap = now.heapBytes == 0;
    return faulty.log.complaints.empty() && now.heapBytes <= settled.heapBytes + HEAP_SLACK_BYTES &&
           now.files <= settled.files && now.buffers == 0 && (ownHeap || now.rssKib <= settled.rssKib + RSS_SLACK_KIB);
}

}  // namespace

void reportMisuse(const std::string& text)
{
    std::printf("misuse of libusb: %s\n", text.c_str());
    std::abort();
}

}  // namespace vorntest

int main(int argc, char** argv)
{
    using namespace vorntest;
    const bool chosen = argc == 3 && std::strcmp(argv[1], "--nights") == 0;
    const int nights = chosen ? std::atoi(argv[2]) : 365;
    if ((argc != 1 && !chosen) || nights <= 0) {
        std::fprintf(stderr, "usage: %s [--nights N]\n", argv[0]);
        return 2;
    }
    const bool ok = inProcesses([nights](const Subject& subject) { return soak(subject, nights); });
    std::printf("%d nights of each family: %s\n", nights, ok ? "nothing grew" : "FAILED, see above");
    return ok ? 0 : 1;
}
