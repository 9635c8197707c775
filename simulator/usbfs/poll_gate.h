// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace vornsim {

/// Lets a host program sleep in poll() on a device node until a transfer is finished.
///
/// usbfs reports "writable" when a finished transfer waits to be collected. The nodes that umockdev makes for USB
/// devices are regular files, always writable, so a host with a pending transfer would spin. This one is a named pipe
/// instead, kept full while there is nothing to collect and emptied when there is: poll() then means what it means on
/// usbfs.
class PollGate {
public:
    PollGate() = default;
    ~PollGate();
    PollGate(const PollGate&) = delete;
    PollGate& operator=(const PollGate&) = delete;

    /// Replaces the file at @p path by a closed gate that everybody may open. @return 0 or an errno.
    int create(const std::string& path);

    /// Opens or closes the gate; cheap when it does not change.
    void setReady(bool ready);

private:
    void fill();
    void drain();

    int fd_ = -1;
    bool ready_ = true;  ///< an empty pipe is writable
};

}  // namespace vornsim
