// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "faulty_usb.h"
#include "simulated_camera.h"

namespace vorntest {

/// What the library takes from the heap in steps.
struct Allocations {
    uint64_t count = 0;
    uint64_t failing = 0;                     ///< number of the one that gets nothing, from 1; 0 for none
    int64_t held = 0;                         ///< taken and not given back
    std::vector<size_t>* recorded = nullptr;  ///< when set, receives for each the number of @p calls before it
    const std::vector<BusCall>* calls = nullptr;
};
extern Allocations allocations;

/// A closed camera object on a simulated camera whose calls can go wrong.
struct FaultyCamera : SimulatedCamera {
    explicit FaultyCamera(const char* name) : SimulatedCamera(name) { device.backend = &faulty; }

    FaultyUsb faulty{usb};
};

/// One operation of a host.
struct Step {
    const char* name;
    const char* error;  ///< text of its failure; null: a failure leaves the text as it was
    bool (*run)(VornCameraImpl& camera);
    bool (*supported)(const VornCameraImpl& camera) = nullptr;  ///< null: by every camera that has the step
};

/// What a host does in a row, and what it did before that.
struct Scenario {
    const char* name;
    std::vector<Step> before;
    std::vector<Step> steps;
};

/// @return the scenarios of a family.
std::vector<Scenario> scenariosOf(CAMERA_TYPE family);
/// @return the steps of the scenario of that name.
std::vector<Step> stepsOf(CAMERA_TYPE family, std::string_view scenario);

/// A model of each family, one with a small sensor.
struct Subject {
    CAMERA_TYPE family;
    const char* name;
    const char* model;
};
std::span<const Subject> subjects();

/// Works on each family in a process of its own, as many at a time as there are processors.
/// @return whether all returned true
bool inProcesses(const std::function<bool(const Subject&)>& work);

/// @return whether a scenario's step is one this camera does.
bool applies(const Step& step, const VornCameraImpl& camera);

/// How an operation ended.
enum class Outcome {
    DONE,
    FAILED,
    EXITED,  ///< the library wanted to end the process, which some nonsense from a camera makes it do by contract
};

/// Runs a step; survives exit().
Outcome runStep(const Step& step, VornCameraImpl& camera);

}  // namespace vorntest
