// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "device/usb/usb_device.h"

namespace vornsim {

/// A conversation with one peer over a stream socket that carries a device's transfers. It never blocks, and is called
/// when there is something to do; functions that return false end it.
class StreamSession {
public:
    StreamSession() = default;
    virtual ~StreamSession() = default;
    StreamSession(const StreamSession&) = delete;
    StreamSession& operator=(const StreamSession&) = delete;

    /// Bytes have come, or the peer has closed its end.
    virtual bool onReadable() = 0;

    /// There is room for what the session wants to write.
    virtual bool onWritable() = 0;

    /// The time of nextWakeUs() has come.
    virtual bool onTime() = 0;

    virtual bool wantsToWrite() const = 0;

    /// @return the clock time at which onTime() wants to be called, or NEVER.
    virtual int64_t nextWakeUs() const = 0;
};

/// Serves @p session on the socket @p fd until it ends or @p stopFd becomes readable. Sleeps in between.
void serveStream(int fd, StreamSession& session, const Clock& clock, int stopFd);

}  // namespace vornsim
