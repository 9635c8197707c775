// SPDX-License-Identifier: MIT
#pragma once

namespace vornsim {

/// While it lives, Ctrl-C and the like do not end the process but make a file descriptor readable. Make it before any
/// thread starts.
class StopSignals {
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// Readable, and stays so, once somebody asked to stop.
    int fd() const { return fd_; }

private:
    int fd_;
};

}  // namespace vornsim
