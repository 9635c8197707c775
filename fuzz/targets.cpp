// SPDX-License-Identifier: MIT
#include "targets.h"

namespace vornfuzz {

namespace {

template <CAMERA_TYPE family, Start start, Operations operations>
void host(Input& input)
{
    runHost(family, start, operations, input);
}

/// As above with the family from the input.
template <Start start, Operations operations>
void anyHost(Input& input)
{
    runHost(static_cast<CAMERA_TYPE>(CLASSIC + input.byte() % 5), start, operations, input);
}

constexpr Target TARGETS[] = {
    {"open_classic", host<CLASSIC, Start::OPEN, Operations::NONE>},
    {"open_standard", host<STANDARD, Start::OPEN, Operations::NONE>},
    {"open_quicker", host<QUICKER, Start::OPEN, Operations::NONE>},
    {"open_iidc", host<IIDC, Start::OPEN, Operations::NONE>},
    {"open_advanced", host<ADVANCED, Start::OPEN, Operations::NONE>},
    {"images", anyHost<Start::OPENED, Operations::IMAGES>},
    {"accessories", anyHost<Start::OPENED, Operations::ACCESSORIES>},
    {"night", anyHost<Start::OPEN, Operations::ALL>},
    {"firmware_packer", packFirmware},
    {"options", parseOptions},
    {"exposure_plan", planExposure},
    {"fault_rule", parseFaultRule},
    {"simulated_camera", driveSimulatedCamera},
    {"usbip", serveUsbIp},
};

}  // namespace

std::span<const Target> targets()
{
    return TARGETS;
}

const Target* findTarget(std::string_view name)
{
    for (const Target& target : TARGETS) {
        if (name == target.name)
            return &target;
    }
    return nullptr;
}

}  // namespace vornfuzz
