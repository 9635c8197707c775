// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "bus.h"
#include "device/usb/usb_device.h"

namespace vorntest {

/// The virtual time of the bus as simulated cameras see it.
class BusClock : public vornsim::Clock {
public:
    int64_t nowUs() const override { return bus().nowUs(); }
};

/// Keeps what a simulated camera says.
class CollectedLog : public vornsim::DeviceLog {
public:
    void note(const std::string& text) override { notes.push_back(text); }
    void complain(const std::string& text) override { complaints.push_back(text); }

    std::vector<std::string> notes;
    std::vector<std::string> complaints;
};

/// A simulated camera on the bus. An IN request that the camera answers with NAK waits, in virtual time, until the
/// camera has data or the transfer's timeout is over. Transfers on an interface that is not claimed fail as the kernel
/// lets them fail.
class SimulatedUsb : public Backend {
public:
    explicit SimulatedUsb(vornsim::UsbDevice& device) : device_(device) {}

    int serve(const BusCall& call, std::span<uint8_t> data, int& transferred) override;

private:
    int serveBulk(const BusCall& call, std::span<uint8_t> data, int& transferred);

    vornsim::UsbDevice& device_;
    bool claimed_ = false;
};

}  // namespace vorntest
