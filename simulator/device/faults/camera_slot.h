// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "fault_plan.h"

namespace vornsim {

/// A port with a simulated camera in it, and the plan of what goes wrong with the camera. Not thread-safe; the
/// transport that owns the port serialises calls.
class CameraSlot {
public:
    using Maker = std::function<std::unique_ptr<SimulatedCamera>()>;

    /// @p make gives the camera as it is after power-up, and does so again whenever it is plugged in again. @p clock
    /// and @p log must outlive the slot.
    CameraSlot(Maker make, const std::vector<FaultRule>& rules, const Clock& clock, DeviceLog& log)
        : make_(std::move(make)), faults_(rules, clock, log), camera_(make_())
    {
    }

    SimulatedCamera& camera() { return *camera_; }
    FaultPlan& faults() { return faults_; }

    /// An unplugged camera is plugged in again: a new one, as after power-up.
    void plugIn()
    {
        camera_ = make_();
        faults_.pluggedIn();
    }

private:
    Maker make_;
    FaultPlan faults_;
    std::unique_ptr<SimulatedCamera> camera_;
};

}  // namespace vornsim
