// SPDX-License-Identifier: MIT
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bus/real_clock.h"
#include "bus/usb_layout.h"
#include "redir/redir_session.h"
#include "stop_signals.h"
#include "subcommand.h"

namespace vornsim {
namespace {

constexpr auto SOCKET_PATIENCE = std::chrono::seconds(10);  // for a QEMU that is only starting
constexpr auto SOCKET_PAUSE = std::chrono::milliseconds(50);

/// A connected socket, or -1 with errno.
int connectTo(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::copy(path.begin(), path.end(), address.sun_path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto deadline = std::chrono::steady_clock::now() + SOCKET_PATIENCE;
    while (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        if ((error != ENOENT && error != ECONNREFUSED) || std::chrono::steady_clock::now() > deadline) {
            (void)close(fd);
            errno = error;
            return -1;
        }
        std::this_thread::sleep_for(SOCKET_PAUSE);
    }
    return fd;
}

/// @return false when @p stopFd became readable before that time, or the time never comes.
bool waitUntil(int64_t timeUs, const Clock& clock, int stopFd)
{
    if (timeUs == NEVER)
        return false;
    pollfd stop{stopFd, POLLIN, 0};
    const int64_t leftMs = std::clamp<int64_t>((timeUs - clock.nowUs()) / 1000, 0, INT_MAX);
    return poll(&stop, 1, static_cast<int>(leftMs)) == 0;
}

/// Keeps one camera plugged in until QEMU or the user ends it; a camera that comes back is plugged in again.
/// @return an empty text, or what went wrong.
std::string serveCamera(const std::string& path, CameraSlot& slot, DeviceLog& log, const Clock& clock, int stopFd)
{
    const std::optional<UsbLayout> layout = parseDescriptors(slot.camera().descriptors());
    if (!layout)
        return "the camera has no valid descriptors";
    for (bool there = true; there;) {
        const int fd = connectTo(path);
        if (fd < 0)
            return "cannot connect to " + path + ": " + std::strerror(errno) +
                   "; is QEMU running, and is this the path of its -chardev socket,...,server=on?";
        {
            RedirSession session(fd, slot, *layout, clock, log);
            serveStream(fd, session, clock, stopFd);
            there = session.unplugged() && waitUntil(slot.faults().replug().atUs, clock, stopFd);
        }
        (void)close(fd);
        if (there)
            slot.plugIn();
    }
    return "";
}

}  // namespace

int redirCommand(const Options& options)
{
    const CameraChoice& choice = options.choice;
    const std::vector<std::string>& sockets = options.sockets;
    if (sockets.size() != choice.cameras.size())
        return fail(EXIT_USAGE, "there are " + std::to_string(choice.cameras.size()) + " cameras for " +
                                    std::to_string(sockets.size()) + " sockets; each camera needs one of its own");
    const StopSignals stop;
    const RealClock clock;
    CameraSet cameras(clock);
    if (const int exitStatus = cameras.make(choice))
        return exitStatus;
    std::vector<std::string> problems(sockets.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < sockets.size(); ++i)
        threads.emplace_back(
            [&, i] { problems[i] = serveCamera(sockets[i], cameras.camera(i), cameras.log(i), clock, stop.fd()); });
    for (std::thread& thread : threads)
        thread.join();
    cameras.reportComplaints();
    int exitStatus = 0;
    for (const std::string& problem : problems)
        if (!problem.empty())
            exitStatus = fail(EXIT_OWN_FAILURE, problem);
    return exitStatus;
}

}  // namespace vornsim
