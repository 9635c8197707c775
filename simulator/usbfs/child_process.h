// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace vornsim {

/// How a child process ended, or why it did not start.
struct ChildResult {
    int startError = 0;  ///< errno of a program that could not be started, else 0
    int exitStatus = 0;  ///< its exit status, or 128 + the signal that ended it
};

/// Keeps the signals that a user or a shell sends to a program away from this process until run() hands them on.
/// Construct it before any thread starts, so that all threads inherit it.
class ChildProcess {
public:
    ChildProcess();
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Runs a program (looked up in PATH) with @p variables ("NAME=value") added to the environment, and waits for its
    /// end. Signals meant for it reach it: what the terminal sends goes to both processes, what `kill` sends to this
    /// one is passed on.
    ChildResult run(const std::vector<std::string>& arguments, const std::vector<std::string>& variables);

private:
    struct Signals;
    Signals* signals_;
};

}  // namespace vornsim
