// SPDX-License-Identifier: MIT
#include "iidc_camera.h"

#include <algorithm>
#include <cmath>

#include "device/parts/eight_bit.h"

namespace vornsim {

namespace {

constexpr uint8_t EP_FRAME = 0x81;
constexpr size_t PACKET_LENGTH = 512;

constexpr uint32_t SENSOR_WIDTH = 1280;
constexpr uint32_t SENSOR_HEIGHT = 960;

constexpr double SELF_HEATING_CELSIUS = 9.0;
constexpr double SELF_HEATING_SECONDS = 600.0;

/// The catalogue's sensor with an 8-bit converter.
SensorModel narrowSensor(const CameraModel& model)
{
    SensorModel sensor = sensorModel(model);
    sensor.bits = 8;
    return sensor;
}

constexpr double FULL_SCALE_ADU = 255.0;

}  // namespace

IidcCamera::IidcCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log)
    : UsbFunction({.vendorId = SIMULATED_VENDOR_ID,
                   .productId = model.info.productId,
                   .release = 0x0100,
                   .maxPowerHalfUnits = 250,
                   .alternates = {{{.address = EP_FRAME, .packetSize = PACKET_LENGTH}}}}),
      options_(options),
      clock_(clock),
      log_(log),
      sensor_(narrowSensor(model)),
      scene_(options.seed, options.scene == SceneKind::FLAT),
      serialNumber_(serialNumber(model, options)),
      poweredAtUs_(clock.nowUs()),
      readyAtUs_(poweredAtUs_),
      features_{{
          {"brightness", 0x800, 0x930, 0.0F, 6.24F, 1.0F},
          {"auto exposure", 0x804, 0x900, -7.5F, 2.4F, 0.0F},
          {"gamma", 0x818, 0x940, 0.5F, 4.0F, 1.0F},
          {"shutter", 0x81C, 0x910, 0.00001F, 0.066657F, 0.03F},
          {"gain", 0x820, 0x920, 0.0F, 24.0F, 0.0F},
          {"frame rate", 0x83C, 0x960, 1.875F, 15.0F, 15.0F},
      }}
{
    initialise();
    readyAtUs_ = poweredAtUs_;
}

double IidcCamera::celsius() const
{
    const double seconds = static_cast<double>(clock_.nowUs() - poweredAtUs_) * 1e-6;
    return options_.ambientCelsius + SELF_HEATING_CELSIUS * (1.0 - std::exp(-seconds / SELF_HEATING_SECONDS));
}

void IidcCamera::startCapture()
{
    if (capture_ == Capture::EXPOSING && clock_.nowUs() < exposedAtUs_)
        log_.complain("one-shot capture during an exposure");
    else if (capture_ != Capture::IDLE)
        log_.note("a frame that nobody fetched is dropped");
    if (!shutterWritten_)
        log_.complain("one-shot capture without a shutter time");
    if (!formatWritten_ || !videoModeSupported()) {
        log_.complain("one-shot capture without a supported video mode (format " + std::to_string(format_) + ", mode " +
                      std::to_string(mode_) + ")");
        capture_ = Capture::IDLE;
        return;
    }
    const double shutterSeconds = static_cast<double>(features_[SHUTTER].value);
    capture_ = Capture::EXPOSING;
    exposedAtUs_ = clock_.nowUs() + std::llround(shutterSeconds * 1e6);
    integration_ = {};
    integration_.lightSeconds = shutterSeconds;
    integration_.darkSeconds = shutterSeconds;
    integration_.celsius = celsius();
    integration_.frameNumber = frameCount_++;
    log_.note("exposure of " + std::to_string(shutterSeconds) + " s started");
}

void IidcCamera::exposeFrame()
{
    const uint32_t bin = binned() ? 2 : 1;
    const Region region{0, 0, SENSOR_WIDTH, SENSOR_HEIGHT, bin, bin};
    const bool ramp = options_.scene == SceneKind::RAMP;
    SensorModel sensor = sensor_;
    sensor.electronsPerAdu =
        sensor.fullWell / FULL_SCALE_ADU / std::pow(10.0, static_cast<double>(features_[GAIN].value) / 20.0);
    sensor.biasAdu = FULL_SCALE_ADU * static_cast<double>(features_[BRIGHTNESS].value) / 100.0;
    const uint32_t columns = SENSOR_WIDTH / bin;
    const uint32_t rows = SENSOR_HEIGHT / bin;
    image_ = ramp ? rampPattern(region, columns, rows) : scene_.expose(sensor, integration_, region, columns, rows);
    if (ramp)
        std::transform(image_.begin(), image_.end(), image_.begin(), foldedRamp);
    imageWidth_ = columns;
    sentLength_ = 0;
    capture_ = Capture::SENDING;
}

CameraTruth IidcCamera::truth() const
{
    CameraTruth truth;
    truth.lastImage = image_;
    truth.imageWidth = imageWidth_;
    truth.imageHeight = imageWidth_ == 0 ? 0 : static_cast<uint32_t>(image_.size()) / imageWidth_;
    truth.frameCount = frameCount_;
    truth.lightSeconds = integration_.lightSeconds;
    truth.darkSeconds = integration_.darkSeconds;
    truth.sensorCelsius = celsius();
    truth.integrating = capture_ == Capture::EXPOSING;
    return truth;
}

BulkResult IidcCamera::sendToEndpoint(uint8_t /*endpoint*/, std::span<const uint8_t> /*data*/)
{
    return {TransferStatus::IO_ERROR, 0, true, NEVER};  // there is no OUT endpoint
}

BulkResult IidcCamera::readFromEndpoint(uint8_t /*endpoint*/, std::span<uint8_t> buffer)
{
    if (buffer.empty())
        return {TransferStatus::OK, 0, true, NEVER};
    if (capture_ == Capture::IDLE)
        return {};
    if (capture_ == Capture::EXPOSING) {
        if (clock_.nowUs() < exposedAtUs_)
            return {TransferStatus::OK, 0, false, exposedAtUs_};
        exposeFrame();
    }
    const size_t left = image_.size() - sentLength_;
    const size_t length = std::min(left, buffer.size());
    for (size_t i = 0; i < length; ++i)
        buffer[i] = static_cast<uint8_t>(image_[sentLength_ + i]);
    sentLength_ += length;
    if (length == left) {
        capture_ = Capture::IDLE;
        return {TransferStatus::OK, length, length == buffer.size(), NEVER};
    }
    // Frames go out in whole packets: the rest of one that the host has no room for is lost.
    const size_t cut = length % PACKET_LENGTH;
    if (cut == 0)
        return {TransferStatus::OK, length, true, NEVER};
    log_.complain("the host's buffer ends within a packet");
    sentLength_ += std::min(PACKET_LENGTH - cut, image_.size() - sentLength_);
    return {TransferStatus::BABBLE, length, true, NEVER};
}

}  // namespace vornsim
