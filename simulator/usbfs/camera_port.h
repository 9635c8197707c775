// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "device/usb/usb_device.h"
#include "poll_gate.h"
#include "usbfs_memory.h"
#include "usbfs_node.h"

// umockdev's types, named without its header so that only this room's sources need it.
struct _UMockdevIoctlClient;
struct _UMockdevIoctlData;

namespace vornsim {

/// One simulated device at its device node: takes the requests that umockdev catches in host programs, and answers
/// them in a thread of its own. That thread alone touches the device, so a device that computes for long holds up
/// neither the other devices nor umockdev. It sleeps until a request comes or the device's retry time has.
class CameraPort {
public:
    using Client = ::_UMockdevIoctlClient;  ///< one open file of a host program

    /// What the port reports, each once and in its own thread.
    struct Events {
        std::function<void()> unplugged;               ///< before any program can see it
        std::function<void(bool samePort)> pluggedIn;  ///< the device is back; from then on it is not this port's
    };

    /// @p slot, @p clock, @p log and @p memory must outlive the port.
    CameraPort(CameraSlot& slot, const UsbLayout& layout, const Clock& clock, DeviceLog& log, UsbfsMemory& memory,
               Events events);
    ~CameraPort();
    CameraPort(const CameraPort&) = delete;
    CameraPort& operator=(const CameraPort&) = delete;

    /// Makes a pollable file at @p path, which is to become the node, and starts the thread. @return 0 or an errno.
    int start(const std::string& path);

    /// Ends the thread. Requests that wait stay unanswered: their programs have ended.
    void stop();

    /// A host program makes a request. The answer comes later, and the client is kept until then. May be called
    /// from any thread, as the two below.
    void postRequest(Client* client);

    /// A host program reads from the node.
    void postRead(Client* client);

    /// A host program has closed the node or ended; only the address of @p client is used.
    void postClosed(const void* client);

private:
    enum class JobKind { REQUEST, READ, CLOSED };
    struct Job {
        JobKind kind;
        Client* client;  ///< with a reference to it, except for CLOSED
    };

    /// What an ioctl returns to the host.
    struct Answer {
        long result = 0;
        int error = 0;  ///< errno when result is -1
    };

    void post(JobKind kind, Client* client);
    void run();
    static void complete(Client* client, const Answer& answer);
    void handle(const Job& job);
    void handleRead(Client* client);

    /// Carries a request out. @return null when the answer has to wait for a transfer.
    std::optional<Answer> handleRequest(Client* client);
    int submitUrb(Client* client, _UMockdevIoctlData* record);

    /// Gives a finished transfer back to the host; EAGAIN or ENODEV when there is none.
    Answer reap(Client* client);

    /// Reports unplugging and plugging in, answers what waited and can be answered now, opens or closes the gate.
    void settle();
    void updateGate();
    int64_t nextWakeUs() const;

    CameraSlot& slot_;
    const Clock& clock_;
    const std::vector<uint8_t> descriptors_;
    UsbfsMemory& memory_;
    Events events_;
    UsbfsNode node_;
    PollGate gate_;
    bool unpluggedTold_ = false;
    std::optional<Replug> replug_;  ///< once the device is unplugged, until it is back
    std::deque<Client*> reapers_;   ///< that wait for a transfer to finish
    std::map<Client*, size_t> readOffsets_;

    std::mutex mutex_;  ///< guards what follows
    std::condition_variable posted_;
    std::deque<Job> jobs_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace vornsim
