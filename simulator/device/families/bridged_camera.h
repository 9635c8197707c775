// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "camera_model.h"
#include "device/bridge/bus_camera.h"
#include "device/bridge/bus_output.h"
#include "device/parts/accessory_models.h"
#include "device/parts/configuration_eeprom.h"
#include "device/parts/cooler_model.h"
#include "device/parts/simulated_sensor.h"

namespace vornsim {

/// When the sensor collects light and dark current, in clock time.
struct ExposureTimes {
    int64_t beginUs = 0;
    int64_t endUs = 0;
    std::optional<double> lightSeconds = std::nullopt;  ///< empty: there is no shutter in between
};

/// What is read out and how it leaves over the parallel bus.
struct Readout {
    enum class Samples {
        WORDS,            ///< a word each
        BYTES,            ///< 8 bits, two a word
        PRECHARGE_PAIRS,  ///< reset level and signal level, a word each
    };
    Region region;
    bool roundUp = false;      ///< columns that do not fill a bin make one more
    bool preview = false;      ///< reads faster
    bool frameMemory = false;  ///< nothing leaves before the whole frame has been read
    Samples samples = Samples::WORDS;
    size_t leadingValues = 0;  ///< values of all ones ahead of the image
    int64_t beginUs = 0;       ///< from the end of the exposure to the first word
};

/// What all cameras behind a bridge consist of, whether a model has each part or not. The families add their commands.
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

    /// @return whether the sensor's clocks can be driven for @p region; complains about one that is not possible or
    /// not wholly on the sensor. The clocks can run on past the sensor's last row, as far as the sensor is wide: those
    /// rows hold nothing but bias.
    bool canRead(const Region& region);

    /// The one way from the sensor to the bus: exposes, reads and offers a frame.
    /// @return the clock time at which its last word is ready.
    int64_t sendImage(const ExposureTimes& times, const Readout& readout);

    CameraModel model_;
    CameraOptions options_;
    const Clock& clock_;
    DeviceLog& log_;
    ConfigurationEeprom eeprom_;  // the one I2C slave of most families
    SimulatedSensor sensor_;
    CoolerModel cooler_;
    FilterWheel wheel_;
    GuidedMount mount_;
    BusOutput output_;
    PortLines port_;  // the bridge's lines 0 to 7

private:
    std::vector<uint8_t> pack(const Readout& readout);

    std::vector<uint16_t> image_;  // the last frame as a host sees it
};

}  // namespace vornsim
