// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "camera_model.h"
#include "device/usb/simulated_camera.h"
#include "device/usb/usb_function.h"
#include "scene/scene.h"

namespace vornsim {

/// An uncooled 1280 x 960 camera without a bridge: 32-bit registers accessed by a vendor request, 8-bit frames on
/// endpoint 0x81. It makes one-shot captures only; it has no long exposures, no region of interest and no accessories.
class IidcCamera final : public UsbFunction {
public:
    /// @p clock and @p log must outlive the camera.
    IidcCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log);

    /// The truth's image holds the 8-bit values of the frame that was last begun to be sent.
    CameraTruth truth() const override;

protected:
    ControlResult vendorRequest(const SetupPacket& setup, std::span<uint8_t> data) override;
    BulkResult sendToEndpoint(uint8_t endpoint, std::span<const uint8_t> data) override;
    BulkResult readFromEndpoint(uint8_t endpoint, std::span<uint8_t> buffer) override;

private:
    /// One camera control: a control word and, in a block of its own, the physical value with its limits.
    struct Feature {
        const char* name;
        uint16_t control;   ///< offset of the control word
        uint16_t absolute;  ///< offset of minimum, maximum and value, four bytes each
        float minimum;
        float maximum;
        float initial;
        uint32_t word = 0;
        float value = 0.0F;
    };

    enum FeatureIndex { BRIGHTNESS, AUTO_EXPOSURE, GAMMA, SHUTTER, GAIN, FRAME_RATE, FEATURE_COUNT };

    enum class Capture { IDLE, EXPOSING, SENDING };

    std::optional<uint32_t> readRegister(uint16_t offset);
    bool writeRegister(uint16_t offset, uint32_t value);
    void writeFeatureValue(Feature& feature, float value);
    void setFrameRate(float wanted);
    void setShutter(float wanted);
    void initialise();
    void startCapture();
    void exposeFrame();
    bool binned() const;
    bool videoModeSupported() const;
    double celsius() const;

    CameraOptions options_;
    const Clock& clock_;
    DeviceLog& log_;
    SensorModel sensor_;
    Scene scene_;
    uint32_t serialNumber_ = 0;
    int64_t poweredAtUs_ = 0;
    int64_t readyAtUs_ = 0;  ///< end of the initialisation in progress
    std::array<Feature, FEATURE_COUNT> features_;
    uint32_t format_ = 0;          ///< 0 to 7
    uint32_t mode_ = 0;            ///< 0 to 7
    bool shutterWritten_ = false;  ///< since the last initialisation
    bool formatWritten_ = false;
    Capture capture_ = Capture::IDLE;
    int64_t exposedAtUs_ = 0;  ///< end of the exposure in progress
    Integration integration_;  ///< of the frame in progress, then of the last one
    uint64_t frameCount_ = 0;
    std::vector<uint16_t> image_;  ///< 8-bit values of the last frame
    uint32_t imageWidth_ = 0;
    size_t sentLength_ = 0;
};

}  // namespace vornsim
