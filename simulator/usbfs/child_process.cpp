// SPDX-License-Identifier: MIT
#include "child_process.h"

#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string_view>

namespace vornsim {
namespace {

/// umockdev's library pauses for "no time" after each request, which costs the timer slack: 50 microseconds unless a
/// process requests less. A child inherits what its parent requested.
constexpr unsigned long TIMER_SLACK_NS = 1;

/// The environment with @p variables in place of those of the same names. The texts belong to the arguments.
std::vector<char*> mergeEnvironment(const std::vector<std::string>& variables)
{
    std::vector<char*> merged;
    for (char** entry = environ; *entry; ++entry) {
        const std::string_view present(*entry);
        const std::string_view name = present.substr(0, present.find('=') + 1);
        bool replaced = false;
        for (const std::string& variable : variables)
            replaced = replaced || variable.compare(0, name.size(), name) == 0;
        if (!replaced)
            merged.push_back(*entry);
    }
    for (const std::string& variable : variables)
        merged.push_back(const_cast<char*>(variable.c_str()));
    merged.push_back(nullptr);
    return merged;
}

/// The terminal signals every process in the foreground by itself, the child included.
bool cameFromTerminal(const siginfo_t& info)
{
    return info.si_code == SI_KERNEL;
}

}  // namespace

struct ChildProcess::Signals {
    sigset_t caught{};
    sigset_t before{};
};

ChildProcess::ChildProcess() : signals_(new Signals)
{
    sigemptyset(&signals_->caught);
    for (int signal : {SIGCHLD, SIGINT, SIGTERM, SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2})
        sigaddset(&signals_->caught, signal);
    (void)pthread_sigmask(SIG_BLOCK, &signals_->caught, &signals_->before);
}

ChildProcess::~ChildProcess()
{
    (void)pthread_sigmask(SIG_SETMASK, &signals_->before, nullptr);
    delete signals_;
}

ChildResult ChildProcess::run(const std::vector<std::string>& arguments, const std::vector<std::string>& variables)
{
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> environment = mergeEnvironment(variables);

    posix_spawnattr_t attributes;
    (void)posix_spawnattr_init(&attributes);
    (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    (void)posix_spawnattr_setsigmask(&attributes, &signals_->before);
    (void)prctl(PR_SET_TIMERSLACK, TIMER_SLACK_NS, 0, 0, 0);
    pid_t child = 0;
    const int error = posix_spawnp(&child, argv[0], nullptr, &attributes, argv.data(), environment.data());
    (void)posix_spawnattr_destroy(&attributes);
    if (error)
        return {error, 0};

    while (true) {
        int status = 0;
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child)
            return {0, WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status)};
        if (ended < 0 && errno != EINTR)
            return {errno, 0};
        siginfo_t info{};
        const int signal = sigwaitinfo(&signals_->caught, &info);
        if (signal > 0 && signal != SIGCHLD && !cameFromTerminal(info))
            (void)kill(child, signal);
    }
}

}  // namespace vornsim
