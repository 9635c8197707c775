// SPDX-License-Identifier: MIT
// Cools the sensor, waits until it holds its temperature, takes pictures, and warms it up slowly.
//     c++ -std=c++20 cooled_sequence.cpp -o cooled_sequence $(pkg-config --cflags --libs vornccd)
//     ./cooled_sequence -10 5 60 m31-
#include <cmath>
#include <cstdlib>

#include "camera.h"

namespace {

constexpr int SETTLE_LIMIT_S = 900;
constexpr float SETTLED_KELVIN = 0.3F;

/// @return whether the sensor came to @p target degrees Celsius.
bool waitUntilCold(VornCamera& camera, float target)
{
    for (int waited = 0; waited < SETTLE_LIMIT_S; waited++) {
        float celsius = 0.0F;
        float power = 0.0F;
        COOLING_STATE state{};
        if (!camera.getTemperatureSensorStatus(1, &celsius) || !camera.getCoolingStatus(&state, nullptr, &power))
            return false;
        std::cout << celsius << " C, cooler at " << power << " %" << std::endl;
        if (std::fabs(celsius - target) < SETTLED_KELVIN)
            return true;
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    std::cerr << "the sensor does not get that cold: is the air around the camera too warm?\n";
    return false;
}

/// Takes pictures into PREFIX1.pgm, PREFIX2.pgm ... @return whether all came.
bool takeSequence(VornCamera& camera, int count, double seconds, const std::string& prefix)
{
    for (int number = 1; number <= count; number++) {
        const std::string path = prefix + std::to_string(number) + ".pgm";
        const std::optional<Picture> picture = takePicture(camera, seconds);
        if (!picture || !writePgm(*picture, path))
            return false;
        std::cout << path << std::endl;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::cerr << "usage: cooled_sequence CELSIUS COUNT SECONDS PREFIX\n";
        return 2;
    }
    const CameraPointer camera = openFirstCamera();
    if (!camera)
        return 1;
    const auto target = static_cast<float>(std::atof(argv[1]));
    const bool taken = camera->setCooling(target) && waitUntilCold(*camera, target) &&
                       takeSequence(*camera, std::atoi(argv[2]), std::atof(argv[3]), argv[4]);
    if (!taken)
        std::cerr << camera->getName() << ": " << camera->getLastError() << "\n";
    // The camera goes on by itself: it warms the sensor slowly, whether we stay or not.
    const bool warming = camera->initiateWarmUp();
    return taken && warming ? 0 : 1;
}
