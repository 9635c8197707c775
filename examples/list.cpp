// SPDX-License-Identifier: MIT
// Lists the attached cameras and what each can do.
//     c++ -std=c++20 list.cpp -o list $(pkg-config --cflags --libs vornccd)
#include <vornccd.h>

#include <iostream>

namespace {

const char* familyName(CAMERA_TYPE family)
{
    switch (family) {
        case CLASSIC:
            return "CLASSIC";
        case STANDARD:
            return "STANDARD";
        case QUICKER:
            return "QUICKER";
        case IIDC:
            return "IIDC";
        case ADVANCED:
            return "ADVANCED";
    }
    return "unknown";
}

void describe(VornCamera& camera)
{
    if (!camera.open()) {
        // listing works without permission to use the device, opening does not
        std::cout << camera.getName() << ": " << camera.getLastError() << "\n";
        return;
    }
    const char* name = nullptr;
    CAMERA_TYPE family{};
    VornCapabilities caps;
    camera.getCapabilities(&name, &family, &caps);
    std::cout << name << " (" << familyName(family) << "), serial number " << camera.getSerialNumber() << ": "
              << caps.pixelCountX << " x " << caps.pixelCountY << " pixels of " << caps.pixelSizeX << " um"
              << (caps.colour == COLOUR_RGGB ? ", colour" : "")
              << (caps.cooler == COOLER_SETPOINT ? ", regulated cooler" : "") << (caps.hasShutter ? ", shutter" : "")
              << (caps.hasFilterWheel ? ", filter wheel" : "") << (caps.hasGuidePort ? ", guide port" : "") << "\n";
    camera.close();
}

}  // namespace

int main()
{
    VornCamera* cameras[8];
    const int count = VornCamera::list(cameras, 8);
    if (count <= 0) {
        std::cerr << "no camera found\n";
        return 1;
    }
    for (int i = 0; i < count; i++) {
        describe(*cameras[i]);
        VornCamera_destroy(cameras[i]);
    }
    return 0;
}
