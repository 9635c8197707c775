// SPDX-License-Identifier: MIT
// libFuzzer's entry points. The target is named by the first argument: fuzz --target=night corpus/
#include <cstdio>
#include <cstdlib>

#include "targets.h"

namespace {
const vornfuzz::Target* chosen = nullptr;
}

extern "C" int LLVMFuzzerInitialize(const int* argc, char*** argv)
{
    constexpr std::string_view OPTION = "--target=";
    for (int i = 1; i < *argc; ++i) {
        const std::string_view argument = (*argv)[i];
        if (argument.substr(0, OPTION.size()) == OPTION)
            chosen = vornfuzz::findTarget(argument.substr(OPTION.size()));
    }
    if (chosen != nullptr)
        return 0;
    (void)std::fprintf(stderr, "Name a target with --target=NAME. There are:\n");
    for (const vornfuzz::Target& target : vornfuzz::targets())
        (void)std::fprintf(stderr, "  %s\n", target.name);
    std::exit(2);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    vornfuzz::Input input({data, size});
    chosen->run(input);
    return 0;
}
