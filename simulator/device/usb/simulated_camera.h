// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "usb_device.h"

namespace vornsim {

/// What is really the case inside a camera at this moment, for tests that compare it with what a host believes.
struct CameraTruth {
    std::span<const uint16_t> lastImage;  ///< sensor values of the last frame read out, row after row; valid until the
                                          ///< next one. Without what a family adds on the wire
    uint32_t imageWidth = 0;              ///< values a row
    uint32_t imageHeight = 0;
    uint64_t frameCount = 0;    ///< frames read out since power-up
    double lightSeconds = 0.0;  ///< of the last frame
    double darkSeconds = 0.0;
    double sensorCelsius = 0.0;
    double coolerPower = 0.0;  ///< 0 to 1
    bool shutterOpen = false;
    bool integrating = false;     ///< an exposure has begun and was not read out
    unsigned filterPosition = 0;  ///< numbered from 1; 0: no wheel
    bool filterMoving = false;
    double driftX = 0.0;  ///< how far guiding has moved the stars, in pixels
    double driftY = 0.0;
};

/// A complete camera on the bus.
class SimulatedCamera : public UsbDevice {
public:
    virtual CameraTruth truth() const = 0;
};

}  // namespace vornsim
