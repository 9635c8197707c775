// SPDX-License-Identifier: MIT
#include "stop_signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace vornsim {

StopSignals::StopSignals()
{
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGINT);
    (void)sigaddset(&signals, SIGTERM);
    (void)sigaddset(&signals, SIGHUP);
    (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    fd_ = signalfd(-1, &signals, SFD_CLOEXEC);
}

StopSignals::~StopSignals()
{
    (void)close(fd_);
}

}  // namespace vornsim
