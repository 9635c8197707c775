// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "camera_catalogue.h"
#include "device/parts/cooler_model.h"
#include "scene/scene.h"

namespace vornsim {

/// Everything that makes one model differ from the others of its family.
struct CameraModel {
    ModelInfo info;           ///< pixel counts are those of the real sensor
    uint32_t describedX = 0;  ///< pixel counts in the camera's own description; wrong on a few models
    uint32_t describedY = 0;
    uint16_t pixelSizeX = 0;  ///< hundredths of a micrometre
    uint16_t pixelSizeY = 0;
    uint8_t maxBinX = 1;
    uint8_t maxBinY = 1;
    uint8_t bayerCode = 0;  ///< colour models: column phase * 2 + row phase of RGGB
    CoolerKind cooler = CoolerKind::NONE;
    uint8_t minCoolerPower = 0;  ///< raw readings that stand for 0 % and 100 %
    uint8_t maxCoolerPower = 255;
    uint8_t sensorEncoding = 0;  ///< temperature readings: 1 = 10 bits, 2 = 12 bits; 0: no sensor
    uint8_t sensorCount = 0;     ///< temperature sensors: 1 the imaging sensor, 2 also the housing
    bool shutter = false;
    bool guidePort = false;
    bool gpio = false;
    bool eightBit = false;
    uint8_t filterCount = 0;       ///< positions of the filter wheel; 0: no wheel
    bool prechargePairs = false;   ///< QUICKER: every pixel is sent as reset level and signal level
    uint8_t prechargeCode = 0;     ///< QUICKER: offset in steps of 32 that the host adds to the difference
    uint16_t eepromProductId = 0;  ///< product id in the EEPROM where it is not the one on the bus; 0: the same
    uint8_t versionMajor = 1;
    uint8_t versionMinor = 0;
    uint16_t wellCapacity = 20000;       ///< electrons
    uint32_t pixelsPerSecond = 2000000;  ///< readout speed
};

/// @return the data behind an entry of models(); the entry must come from there.
const CameraModel& cameraModel(const ModelInfo& info);

/// @return the scene's view of this model's sensor.
SensorModel sensorModel(const CameraModel& model);

/// @return the serial number of a camera made with these options, never 0.
uint32_t serialNumber(const CameraModel& model, const CameraOptions& options);

}  // namespace vornsim
