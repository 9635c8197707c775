// SPDX-License-Identifier: MIT
// A host program that takes a whole picture for each of its arguments, the bytes of the largest read that it allows the
// library, and says what came of each. Between two pictures it waits for a camera to be attached.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "vornccd.h"

int main(int argc, char** argv)
{
    int next = 1;
    for (int attempt = 0; next < argc && attempt < 200; ++attempt) {
        VornCamera* camera = nullptr;
        if (VornCamera::list(&camera, 1) == 1 && camera->setParam(MAX_PACKET_SIZE, std::atol(argv[next])) &&
            camera->open()) {
            VornCapabilities caps{};
            (void)camera->getCapabilities(nullptr, nullptr, &caps);
            std::vector<uint16_t> pixels(size_t{caps.pixelCountX} * caps.pixelCountY);
            const bool taken = camera->setPreviewMode(true) && camera->startExposure(false) &&
                               camera->readCCD(0, 0, caps.pixelCountX, caps.pixelCountY, 1, 1) &&
                               camera->getImage(pixels.data(), static_cast<unsigned>(pixels.size()));
            (void)std::printf("%s\n", taken ? "taken" : camera->getLastError());
            camera->close();
            ++next;
        }
        delete camera;
        (void)usleep(50000);
    }
    return next < argc;
}
