// SPDX-License-Identifier: MIT
/// @file bring_up.h
/// Steps that the bring-up scripts of several families share. What stands in a script as a step returns whether it
/// worked; what takes the StepRunner also does something after a failure, and says what.
#pragma once

#include "lifecycle/description.h"
#include "lifecycle/step_runner.h"
#include "transport/layout.h"

#include <cstdint>

namespace vornccd {

/// Waveforms of the parallel interface, by mode or as a table.
bool loadWaveformMode(VornCameraImpl& camera, unsigned mode);
bool loadWaveformTable(VornCameraImpl& camera, const uint8_t* table);

/// Waveforms, line directions (3 and 4 are inputs) and SPI of QUICKER and ADVANCED cameras.
void setUpLines(StepRunner& steps);

/// Reads the items that follow the describe command of STANDARD and CLASSIC cameras, version and strings first. After a
/// failed read the items stay 0; the version is stored in any case.
StreamDescription readDescriptionStream(StepRunner& steps);
void storeDescription(VornCameraImpl& camera, const StreamDescription& description);
void traceDescription(const VornCameraImpl& camera, const StreamDescription& description);

/// Where the details of a cooler stand in the reply; the families differ.
struct CoolerDetailsLayout {
    Field capabilities;
    Field maxPower;
    Field minPower;
};

/// What follows the description stream: the application's start, sensors, cooler and serial number. After a failure the
/// fields take what is in the reply's buffer.
void identifyEquipment(StepRunner& steps, const CoolerDetailsLayout& layout);

/// Reads sensor 1 once, only for the encoding that it reports. Traces the sensor count in any case; nothing else to do
/// without sensors or after a failure.
void learnTempSensorType(StepRunner& steps);

/// Stores and traces the cooler's details.
void storeCooler(VornCameraImpl& camera, std::span<const uint8_t> reply, const CoolerDetailsLayout& layout);

/// Reads the serial number from the EEPROM; the high half only when the low half came.
bool readSerialNumber(VornCameraImpl& camera);
void traceSerialNumber(const VornCameraImpl& camera);

/// Gives the wheel, if there is one, 5 s to find its place, then polls up to 20 times every 0.1 s. A wheel that goes on
/// turning does not fail the open; a failed poll does.
bool waitForFilterWheel(VornCameraImpl& camera);

}  // namespace vornccd
