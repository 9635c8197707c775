// SPDX-License-Identifier: MIT
// The first step of guiding: closes one relay of the guide port for a while and measures how far the brightest star
// moved. Which relay drives which motor is up to the mount's cable, so every guiding program begins by trying.
//     c++ -std=c++20 guide.cpp -o guide $(pkg-config --cflags --libs vornccd)
//     ./guide 1 500
#include <cstdlib>

#include "camera.h"

namespace {

constexpr double EXPOSURE_S = 0.5;

/// All relays are open again when it goes, whatever happened.
class GuidePulse {
public:
    explicit GuidePulse(VornCamera& camera) : camera_(camera) {}
    ~GuidePulse() { camera_.setGuideRelays(0); }
    GuidePulse(const GuidePulse&) = delete;
    GuidePulse& operator=(const GuidePulse&) = delete;

    bool give(int relay, int milliseconds)
    {
        if (!camera_.setGuideRelays(static_cast<unsigned short>(1U << (relay - 1))))
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        return camera_.setGuideRelays(0);
    }

private:
    VornCamera& camera_;
};

struct Position {
    double x = 0.0;
    double y = 0.0;
};

/// @return the centre of light around the brightest pixel.
Position brightestStar(const Picture& picture)
{
    const auto peak = std::max_element(picture.pixels.begin(), picture.pixels.end()) - picture.pixels.begin();
    const auto column = static_cast<unsigned int>(peak % picture.width);
    const auto row = static_cast<unsigned int>(peak / picture.width);
    Position sum;
    double light = 0.0;
    for (unsigned int y = row - std::min(row, 5U); y < std::min(row + 6, picture.height); y++) {
        for (unsigned int x = column - std::min(column, 5U); x < std::min(column + 6, picture.width); x++) {
            const double value = picture.pixels[size_t{y} * picture.width + x];
            light += value;
            sum.x += value * x;
            sum.y += value * y;
        }
    }
    return light > 0.0 ? Position{sum.x / light, sum.y / light} : Position{};
}

}  // namespace

int main(int argc, char** argv)
{
    const int relay = argc == 3 ? std::atoi(argv[1]) : 0;
    const int milliseconds = argc == 3 ? std::atoi(argv[2]) : 0;
    if (relay < 1 || relay > 4 || milliseconds < 1 || milliseconds > 60000) {
        std::cerr << "usage: guide RELAY(1-4) MILLISECONDS(1-60000)\n";
        return 2;
    }
    const CameraPointer camera = openFirstCamera();
    if (!camera)
        return 1;
    const std::optional<Picture> before = takePicture(*camera, EXPOSURE_S);
    const bool pulsed = before && GuidePulse(*camera).give(relay, milliseconds);
    const std::optional<Picture> after = pulsed ? takePicture(*camera, EXPOSURE_S) : std::nullopt;
    if (!after) {
        std::cerr << camera->getName() << ": " << camera->getLastError() << "\n";
        return 1;
    }
    const Position from = brightestStar(*before);
    const Position to = brightestStar(*after);
    std::cout << "relay " << relay << " for " << milliseconds << " ms: the star moved by " << to.x - from.x << ", "
              << to.y - from.y << " pixels\n";
    return 0;
}
