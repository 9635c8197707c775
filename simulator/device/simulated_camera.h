// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "bridge_peripheral.h"
#include "camera_model.h"
#include "configuration_eeprom.h"
#include "fx2_bridge.h"
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

/// A complete camera. Every device that makeCamera() returns is one, so that a test may
/// `dynamic_cast<SimulatedCamera*>` and ask for the truth.
class SimulatedCamera : public UsbDevice {
public:
    virtual CameraTruth truth() const = 0;
};

/// The camera side of a bridge: everything behind it.
class CameraApplication : public BridgePeripheral {
public:
    virtual CameraTruth truth() const = 0;
};

/// A camera with a bridge: owns its EEPROM, its application and the bridge between them and the host.
class Fx2Camera final : public SimulatedCamera {
public:
    /// @p clock and @p log must outlive the camera.
    Fx2Camera(uint16_t productId, const ConfigurationEeprom& eeprom, std::unique_ptr<CameraApplication> application,
              const Clock& clock, DeviceLog& log);

    std::vector<uint8_t> descriptors() const override { return bridge_.descriptors(); }
    ControlResult control(const SetupPacket& setup, std::span<uint8_t> data) override;
    bool setInterface(unsigned interface, unsigned alternate) override;
    BulkResult bulkOut(uint8_t endpoint, std::span<const uint8_t> data) override;
    BulkResult bulkIn(uint8_t endpoint, std::span<uint8_t> buffer) override;
    CameraTruth truth() const override { return application_->truth(); }

    const Fx2Bridge& bridge() const { return bridge_; }

private:
    ConfigurationEeprom eeprom_;
    std::unique_ptr<CameraApplication> application_;
    Fx2Bridge bridge_;
};

/// @return the EEPROM of a camera of this model: boot header, serial number, colour record. What only some families
/// keep there is added by their factories.
ConfigurationEeprom makeEeprom(const CameraModel& model, const CameraOptions& options);

}  // namespace vornsim
