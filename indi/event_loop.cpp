// SPDX-License-Identifier: MIT
#include "event_loop.h"

#include <eventloop.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

namespace vornindi {
namespace {

int wakeDescriptor = -1;
std::atomic<bool> asked{false};

std::mutex& queueMutex()
{
    static std::mutex mutex;
    return mutex;
}

std::vector<std::function<void()>>& queue()
{
    static auto* works = new std::vector<std::function<void()>>;  // outlives the threads, which nothing joins
    return *works;
}

void wake()
{
    const uint64_t one = 1;
    (void)!write(wakeDescriptor, &one, sizeof one);
}

void askToEnd(int /*signal*/)
{
    asked = true;
    wake();
}

void runQueue(int descriptor, void* /*unused*/)
{
    uint64_t count = 0;
    (void)!read(descriptor, &count, sizeof count);
    if (asked)
        std::exit(0);  // the shutdown object stops the cameras
    std::vector<std::function<void()>> works;
    {
        const std::lock_guard guard(queueMutex());
        works.swap(queue());
    }
    for (const auto& work : works)
        work();
}

}  // namespace

void startEventQueue()
{
    wakeDescriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    (void)addCallback(wakeDescriptor, runQueue, nullptr);
    // Ctrl-C reaches the driver as well as its server: no signal may leave an exposure or a guide pulse behind.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        (void)std::signal(signal, askToEnd);
    (void)std::signal(SIGPIPE, SIG_IGN);
}

void runInEventLoop(std::function<void()> work)
{
    {
        const std::lock_guard guard(queueMutex());
        queue().push_back(std::move(work));
    }
    wake();
}

}  // namespace vornindi
