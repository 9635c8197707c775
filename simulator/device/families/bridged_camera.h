// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "camera_model.h"
#include "device/bridge/bus_output.h"
#include "device/parts/accessory_models.h"
#include "device/parts/configuration_eeprom.h"
#include "device/parts/cooler_model.h"
#include "device/parts/simulated_sensor.h"
#include "device/usb/simulated_camera.h"

namespace vornsim {

/// What all cameras behind a bridge consist of, whether a model has each part or not. The families add what they say
/// and understand.
class BridgedCamera : public BusCamera {
public:
    void bridgeStarted() override { output_.clear(); }
    bool i2cStart(uint8_t address, bool reading) override;
    bool i2cWrite(uint8_t byte) override { return eeprom_.write(byte); }
    uint8_t i2cRead() override { return eeprom_.read(); }
    OfferedWords offeredWords(int64_t nowUs) override { return output_.offered(nowUs); }
    void wordsTaken(size_t byteCount) override { output_.taken(byteCount); }
    void wordsReceived(std::span<const uint8_t> bytes) override;
    void portChanged(unsigned port, const PortLines& lines) override;
    CameraTruth truth() const override;

protected:
    /// @p clock and @p log must outlive the camera.
    BridgedCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log);

    void complain(const std::string& text) { log_.complain("camera: " + text); }
    void note(const std::string& text) { log_.note("camera: " + text); }

    /// @return what the temperature sensor @p number measures, from 1, in the model's encoding.
    uint16_t rawTemperature(unsigned number);
    /// @return the cooler's power between the model's least and highest reading.
    uint8_t rawCoolerPower() const;
    /// Cools to a temperature in the model's encoding. @return whether the cooler can be controlled.
    bool cool(uint16_t rawTarget);
    void warmUp();
    /// Closes guide relay @p relay, 0 to 3; the others stay as they are.
    void closeRelay(unsigned relay);

    CameraModel model_;
    ConfigurationEeprom eeprom_;  // the one I2C slave of most families
    const Clock& clock_;
    DeviceLog& log_;
    SimulatedSensor sensor_;
    CoolerModel cooler_;
    FilterWheel wheel_;
    GuidedMount mount_;
    BusOutput output_;
    PortLines port_;  // the bridge's lines 0 to 7
};

/// A camera whose answers leave over the parallel bus. While its application starts, every word that is read there is
/// the current status: 'B', then 'I'.
class AnsweringCamera : public BridgedCamera {
public:
    void bridgeStarted() override;
    OfferedWords offeredWords(int64_t nowUs) override;
    void wordsTaken(size_t byteCount) override;

protected:
    using BridgedCamera::BridgedCamera;

    /// The application is up in @p durationUs.
    void beginStart(int64_t durationUs);
    /// @return whether a command can be served now; complains if not.
    /// @param always it is served before the application was started
    /// @param start it starts the application
    bool mayServe(uint8_t code, bool always, bool start);
    /// A command is executed: whatever is left of the answer before it is lost.
    void beginAnswer(uint8_t code);

private:
    bool started_ = false;   // the application has been started since power-up
    bool starting_ = false;  // the host is polling for the end of the start
    int64_t startedAtUs_ = 0;
    std::array<uint8_t, 2> startStatus_{};
    uint8_t answeredCode_ = 0;  // the command whose answer is on the bus
};

/// @return how complaints call a command.
std::string commandName(uint8_t code);

}  // namespace vornsim
