// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulated_camera.h"

namespace vorntest {

/// One operation of a host.
struct Step {
    std::string name;
    const char* error;  ///< text of its failure; null: a failure leaves the text as it was
    bool (*run)(VornCameraImpl& camera);
    bool (*supported)(const VornCameraImpl& camera) = [](const VornCameraImpl&) { return true; };
};
extern const std::vector<Step> LONG_EXPOSURE;
extern const std::vector<Step> SHORT_EXPOSURE;
extern const std::vector<Step> ACCESSORIES;

/// A model of each family, one with a small sensor.
struct Subject {
    CAMERA_TYPE family;
    const char* name;
    const char* model;
};

/// Works on each family in a process of its own, as many at a time as there are processors.
/// @param option that may be on the command line with a positive number, which @p work gets, else @p standard
/// @return whether all returned true
bool inProcesses(int argc, char** argv, const char* option, long standard,
                 const std::function<bool(const Subject& subject, long number)>& work);

/// What the library takes from the heap in steps.
struct Allocations {
    uint64_t count = 0;
    uint64_t failing = 0;                     ///< number of the one that gets nothing, from 1; 0 for none
    int64_t held = 0;                         ///< taken and not given back
    std::vector<size_t>* recorded = nullptr;  ///< when set, receives for each the number of @p calls before it
    const std::vector<BusCall>* calls = nullptr;
};
extern Allocations allocations;

}  // namespace vorntest
