// SPDX-License-Identifier: MIT
#include "stream_session.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace vornsim {
namespace {

constexpr int64_t LONGEST_SLEEP_US = 3'600'000'000;  // of one poll; only so that numbers stay small

/// How long to sleep, or null for ever.
const timespec* sleepUntil(int64_t wakeUs, const Clock& clock, timespec& storage)
{
    if (wakeUs == NEVER)
        return nullptr;
    const int64_t leftUs = std::clamp<int64_t>(wakeUs - clock.nowUs(), 0, LONGEST_SLEEP_US);
    storage = {static_cast<time_t>(leftUs / 1'000'000), static_cast<long>(leftUs % 1'000'000 * 1000)};
    return &storage;
}

}  // namespace

void serveStream(int fd, StreamSession& session, const Clock& clock, int stopFd)
{
    bool going = true;
    while (going) {
        const auto interest = static_cast<short>(POLLIN | (session.wantsToWrite() ? POLLOUT : 0));
        pollfd watched[] = {{fd, interest, 0}, {stopFd, POLLIN, 0}};
        timespec storage{};
        if (ppoll(watched, 2, sleepUntil(session.nextWakeUs(), clock, storage), nullptr) < 0 && errno != EINTR)
            return;
        if (watched[1].revents != 0)
            return;
        if ((watched[0].revents & POLLOUT) != 0)
            going = session.onWritable();
        if (going && (watched[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0)
            going = session.onReadable();
        if (going && clock.nowUs() >= session.nextWakeUs())
            going = session.onTime();
    }
}

}  // namespace vornsim
