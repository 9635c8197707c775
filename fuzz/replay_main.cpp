// SPDX-License-Identifier: MIT
// Runs the committed inputs of one target once each, without libFuzzer: fuzz_replay TARGET DIRECTORY
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "targets.h"

int main(int argc, char** argv)
{
    const vornfuzz::Target* target = argc == 3 ? vornfuzz::findTarget(argv[1]) : nullptr;
    if (target == nullptr) {
        (void)std::fprintf(stderr, "usage: fuzz_replay TARGET DIRECTORY\n");
        return 2;
    }
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[2])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        (void)std::printf("%s\n", entry.path().c_str());
        (void)std::fflush(stdout);  // the last line names the input that ended the program
        vornfuzz::Input input({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
        target->run(input);
        ++count;
    }
    (void)std::printf("%d inputs of %s\n", count, target->name);
    return count == 0 ? 1 : 0;
}
