// SPDX-License-Identifier: MIT
#include "poll_gate.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace vornsim {
namespace {

constexpr int PIPE_SIZE = 4096;  // one page, the least a pipe can have

}  // namespace

PollGate::~PollGate()
{
    if (fd_ >= 0)
        (void)close(fd_);
}

int PollGate::create(const std::string& path)
{
    if (unlink(path.c_str()) != 0 && errno != ENOENT)
        return errno;
    if (mkfifo(path.c_str(), 0666) != 0 || chmod(path.c_str(), 0666) != 0)  // whatever the umask is
        return errno;
    fd_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0)
        return errno;
    (void)fcntl(fd_, F_SETPIPE_SZ, PIPE_SIZE);  // a larger pipe works as well, only slower
    setReady(false);
    return 0;
}

void PollGate::setReady(bool ready)
{
    if (ready == ready_ || fd_ < 0)
        return;
    ready_ = ready;
    if (ready)
        drain();
    else
        fill();
}

void PollGate::fill()
{
    static constexpr std::array<char, PIPE_SIZE> BLOCK{};
    while (write(fd_, BLOCK.data(), BLOCK.size()) > 0) {
    }
}

void PollGate::drain()
{
    std::array<char, PIPE_SIZE> block{};
    while (read(fd_, block.data(), block.size()) > 0) {
    }
}

}  // namespace vornsim
