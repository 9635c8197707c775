// SPDX-License-Identifier: MIT
// Takes one picture.
//     c++ -std=c++20 snap.cpp -o snap $(pkg-config --cflags --libs vornccd)
//     ./snap 10 m31.pgm
#include <cstdlib>

#include "camera.h"

int main(int argc, char** argv)
{
    const double seconds = argc == 3 ? std::atof(argv[1]) : 0.0;
    if (seconds <= 0.0) {
        std::cerr << "usage: snap SECONDS FILE.pgm\n";
        return 2;
    }
    const CameraPointer camera = openFirstCamera();
    if (!camera)
        return 1;

    const std::optional<Picture> picture = takePicture(*camera, seconds);
    if (!picture) {
        std::cerr << camera->getName() << ": " << camera->getLastError() << "\n";
        return 1;
    }
    if (!writePgm(*picture, argv[2])) {
        std::cerr << "could not write " << argv[2] << "\n";
        return 1;
    }

    const auto [darkest, brightest] = std::minmax_element(picture->pixels.begin(), picture->pixels.end());
    std::cout << argv[2] << ": " << picture->width << " x " << picture->height << ", values " << *darkest << " to "
              << *brightest << "\n";
    return 0;
}
