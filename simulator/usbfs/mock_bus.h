// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "device/faults/camera_slot.h"

namespace vornsim {

/// A simulated USB bus that host programs see in place of the machine's own: sysfs, udev and device nodes come from
/// umockdev, the requests on the nodes go to simulated devices. A host program sees it when it is started with the
/// variables of environment().
class MockBus {
public:
    /// What a stock kernel sets aside for transfers under way.
    static constexpr unsigned USUAL_MEMORY_MIB = 16;

    /// Makes an empty bus on which all transfers under way may take up @p memoryMib MiB, 0 for no limit. @p clock must
    /// outlive it.
    explicit MockBus(const Clock& clock, unsigned memoryMib = USUAL_MEMORY_MIB);

    /// Ends all devices and removes the temporary files. Host programs must have ended.
    ~MockBus();
    MockBus(const MockBus&) = delete;
    MockBus& operator=(const MockBus&) = delete;

    /// Plugs a camera in, on the next free port. Its plan may unplug it and plug it in again: then it has a new
    /// address, as on any bus, and programs see both events. @p slot and @p log must outlive the bus.
    /// @return an empty text, or what went wrong.
    std::string attach(CameraSlot& slot, DeviceLog& log);

    /// @return "NAME=value" for each variable that makes a program see this bus instead of the machine's.
    std::vector<std::string> environment() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vornsim
