// SPDX-License-Identifier: MIT
// libFuzzer's entry points. The target is named by an argument: fuzz --target=night corpus/
#include "targets.h"

#include <cstdio>
#include <cstdlib>

namespace vornfuzz {

namespace {

CAMERA_TYPE anyFamily(Input& input)
{
    return static_cast<CAMERA_TYPE>(CLASSIC + input.byte() % 5);
}

/// One way into the code. Returns normally for every input; a finding ends the process.
struct Target {
    const char* name;
    void (*run)(Input& input);
};
constexpr Target TARGETS[] = {
    {"open_classic", [](Input& input) { runHost(CLASSIC, Host::OPENS, input); }},
    {"open_standard", [](Input& input) { runHost(STANDARD, Host::OPENS, input); }},
    {"open_quicker", [](Input& input) { runHost(QUICKER, Host::OPENS, input); }},
    {"open_iidc", [](Input& input) { runHost(IIDC, Host::OPENS, input); }},
    {"open_advanced", [](Input& input) { runHost(ADVANCED, Host::OPENS, input); }},
    {"images", [](Input& input) { runHost(anyFamily(input), Host::TAKES_IMAGES, input); }},
    {"accessories", [](Input& input) { runHost(anyFamily(input), Host::USES_ACCESSORIES, input); }},
    {"night", [](Input& input) { runHost(anyFamily(input), Host::DOES_ALL, input); }},
    {"firmware_packer", packFirmware},
    {"options", parseOptions},
    {"exposure_plan", planExposure},
    {"fault_rule", parseFaultRule},
    {"simulated_camera", driveSimulatedCamera},
    {"usbip", serveUsbIp},
};
const Target* chosen = nullptr;

}  // namespace

void check(bool condition, const char* what)
{
    if (condition)
        return;
    (void)std::fprintf(stderr, "%s\n", what);
    std::abort();
}

}  // namespace vornfuzz

extern "C" int LLVMFuzzerInitialize(const int* argc, char*** argv)
{
    using namespace vornfuzz;
    for (const Target& target : TARGETS) {
        for (int i = 1; i < *argc; ++i) {
            if ((*argv)[i] == std::string("--target=") + target.name)
                chosen = &target;
        }
    }
    if (chosen != nullptr)
        return 0;
    (void)std::fprintf(stderr, "Name a target with --target=NAME. There are:\n");
    for (const Target& target : TARGETS)
        (void)std::fprintf(stderr, "  %s\n", target.name);
    std::exit(2);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    vornfuzz::Input input({data, size});
    vornfuzz::chosen->run(input);
    return 0;
}
