// SPDX-License-Identifier: MIT
// Loaded into host programs in front of umockdev's library, which gives the socket on which a program learns of devices
// that come and go a name made of nothing but the descriptor's number. Two programs have the same numbers: the second
// one takes the name from the first, and when both are about to, libusb cannot be initialised in one of them. Here the
// name has the process in it. It uses nothing but libc, as it meets programs of all kinds.
#include <dlfcn.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int MAX_DESCRIPTORS = 1024;

/// The process that named the socket with this descriptor, 0 for all others. A child does not own what it inherits.
std::array<std::atomic<pid_t>, MAX_DESCRIPTORS> owners;

bool nameOf(int descriptor, sockaddr_un& name)
{
    const char* directory = std::getenv("UMOCKDEV_DIR");
    if (!directory)
        return false;
    name = {};
    name.sun_family = AF_UNIX;
    const int length = std::snprintf(name.sun_path, sizeof name.sun_path, "%s/event%d-%d", directory,
                                     static_cast<int>(getpid()), descriptor);
    return length > 0 && length < static_cast<int>(sizeof name.sun_path);
}

/// Whether the address is a device monitor's, and umockdev has put a local socket in the place of the real one.
bool isReplacedMonitor(int descriptor, const sockaddr* address, socklen_t length)
{
    int domain = 0;
    socklen_t size = sizeof domain;
    return address && length >= sizeof(sockaddr_nl) && address->sa_family == AF_NETLINK && descriptor >= 0 &&
           descriptor < MAX_DESCRIPTORS && getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 &&
           domain == AF_UNIX;
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's names are not for us
extern "C" {

[[gnu::visibility("default")]] int bind(int descriptor, const sockaddr* address, socklen_t length)
{
    sockaddr_un name{};
    if (isReplacedMonitor(descriptor, address, length) && nameOf(descriptor, name)) {
        owners[static_cast<size_t>(descriptor)] = getpid();
        return static_cast<int>(syscall(SYS_bind, descriptor, &name, sizeof name));
    }
    static const auto next = reinterpret_cast<int (*)(int, const sockaddr*, socklen_t)>(dlsym(RTLD_NEXT, "bind"));
    return next(descriptor, address, length);
}

[[gnu::visibility("default")]] int close(int descriptor)
{
    sockaddr_un name{};
    if (descriptor >= 0 && descriptor < MAX_DESCRIPTORS &&
        owners[static_cast<size_t>(descriptor)].exchange(0) == getpid() && nameOf(descriptor, name))
        (void)unlink(name.sun_path);
    static const auto next = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "close"));
    return next(descriptor);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
