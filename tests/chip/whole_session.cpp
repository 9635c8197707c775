// SPDX-License-Identifier: MIT
// A host program that uses everything a camera has, in one session, through whatever libusb it is started with. What
// the camera answers and its pictures go to standard output, apart from what changes with the time.
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "vornccd.h"

namespace {

/// @return whether there is a picture.
bool picture(VornCamera& camera, bool exposed, unsigned width, unsigned height)
{
    std::vector<unsigned short> pixels(size_t{width} * height + 1);
    const bool done = exposed && camera.getImage(pixels.data(), width * height);
    std::printf("picture %d, %s\n", done ? 1 : 0, camera.getLastError());
    (void)std::fwrite(pixels.data(), sizeof pixels.front(), pixels.size(), stdout);
    return done;
}

}  // namespace

int main()
{
    VornCamera* camera = nullptr;
    if (VornCamera::list(&camera, 1) != 1 || !camera->open()) {
        std::printf("no camera opens\n");
        return 1;
    }
    VornCapabilities caps{};
    (void)camera->getCapabilities(nullptr, nullptr, &caps);
    std::printf("serial %u, %u x %u, %u sensors, guide port %d\n", camera->getSerialNumber(), caps.pixelCountX,
                caps.pixelCountY, caps.tempSensorCount, caps.hasGuidePort ? 1 : 0);

    float celsius = 0.0F, target = 0.0F;
    COOLING_STATE state = COOLING_INACTIVE;
    const bool cools = camera->setCooling(-5.0F);
    std::printf("cooling %d %d, %d to %.2f, %s\n", cools ? 1 : 0,
                camera->getCoolingStatus(&state, &target, nullptr) ? 1 : 0, static_cast<int>(state), double{target},
                camera->getLastError());
    if (caps.tempSensorCount > 0)
        std::printf("temperature %d\n", camera->getTemperatureSensorStatus(1, &celsius) ? 1 : 0);

    unsigned count = 0, current = 0, wanted = 0;
    bool moving = camera->setFilter(2);
    for (int i = 0; moving && i < 100; ++i) {
        (void)usleep(100'000);
        if (!camera->getFilterWheelStatus(&count, &moving, &current, &wanted))
            break;
    }
    std::printf("wheel of %u at %u, wanted %u, moving %d\n", count, current, wanted, moving ? 1 : 0);
    for (const unsigned relays : {9U, 0U})
        std::printf("relays %u: %d\n", relays, camera->setGuideRelays(static_cast<unsigned short>(relays)) ? 1 : 0);

    const unsigned width = caps.pixelCountX, height = caps.pixelCountY / 2;
    const bool started = camera->startExposure(false);
    (void)usleep(camera->delay(1.0));
    const bool whole = picture(*camera, started && camera->readCCD(0, 0, width, height, 1, 1), width, height);
    const bool part = picture(*camera, camera->readCCD(16, 8, 64, 64, 2, 2, 0.05), 32, 32);
    std::printf("warm-up %d\n", camera->initiateWarmUp() ? 1 : 0);
    camera->close();
    VornCamera_destroy(camera);
    return whole && part ? 0 : 1;
}
