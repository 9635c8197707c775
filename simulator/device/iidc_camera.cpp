// SPDX-License-Identifier: MIT
#include "iidc_camera.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>

#include "device_bytes.h"
#include "eight_bit.h"
#include "family_cameras.h"
#include "fx2_bridge.h"

namespace vornsim {

namespace {

constexpr uint8_t VENDOR_REGISTER = 127;    // bRequest of a register access
constexpr uint8_t REQUEST_READ = 0xC0;      // vendor, device to host
constexpr uint8_t REQUEST_WRITE = 0x40;     // vendor, host to device
constexpr uint16_t REGISTER_PAGE = 0xF0F0;  // address bits 16 to 31 of the whole register space
constexpr size_t REGISTER_LENGTH = 4;
constexpr uint8_t EP_FRAME = 0x81;
constexpr size_t PACKET_LENGTH = 512;

constexpr uint32_t SENSOR_WIDTH = 1280;
constexpr uint32_t SENSOR_HEIGHT = 960;

// Registers that are no feature, by their offset in the page.
constexpr uint16_t REG_INITIALISE = 0x000;
constexpr uint16_t REG_MODE = 0x604;
constexpr uint16_t REG_FORMAT = 0x608;
constexpr uint16_t REG_ONE_SHOT = 0x61C;
constexpr uint16_t REG_ERROR = 0x628;
constexpr uint16_t REG_TEMPERATURE = 0x82C;
constexpr uint16_t REG_UP_TIME = 0x12E0;
constexpr uint16_t REG_SERIAL = 0x1F20;
constexpr uint16_t REG_BOARD = 0x1F24;
constexpr uint16_t REG_VERSION = 0x1F60;

constexpr uint32_t BOARD_WORD = 0x01A00003;    // board 0x1A, revision 3
constexpr uint32_t VERSION_WORD = 0x0103000C;  // 1.3, revision 12
constexpr uint32_t UP_TIME_RUNNING = 1U << 28;
constexpr uint32_t TOP_BIT = 0x80000000;  // "do it" of initialise and one-shot, "wrong" of the error register

// Bits of a feature's control word.
constexpr uint32_t FEATURE_PRESENT = 0x80000000;
constexpr uint32_t FEATURE_ABSOLUTE = 0x40000000;  // the physical value rules, not the low bits of the word
constexpr uint32_t FEATURE_ON = 0x02000000;
constexpr uint32_t FEATURE_AUTO = 0x01000000;

constexpr double ZERO_CELSIUS_K = 273.15;
constexpr double SELF_HEATING_CELSIUS = 9.0;
constexpr double SELF_HEATING_SECONDS = 600.0;

constexpr int64_t INITIALISE_US = 1000;

/// The longest shutter time at each frame rate: a frame's period less what its readout keeps for itself.
struct RateRow {
    float framesPerSecond;
    double longestSeconds;
};
constexpr std::array<RateRow, 4> RATES = {{
    {15.0F, 0.066657},
    {7.5F, 0.133282},
    {3.75F, 0.266282},
    {1.875F, 0.532782},
}};

/// The two video modes of this sensor.
struct VideoMode {
    uint32_t format;
    uint32_t mode;
    uint32_t bin;
};
constexpr std::array<VideoMode, 2> VIDEO_MODES = {{
    {2, 2, 1},  // 1280 x 960, 8 bits
    {0, 5, 2},  // 640 x 480, 8 bits
}};
constexpr unsigned SELECTOR_SHIFT = 29;  // format and mode travel in the top three bits

std::string hex(uint32_t value)
{
    char text[16];
    (void)std::snprintf(text, sizeof text, "0x%X", value);
    return text;
}

/// The catalogue's sensor behind an 8-bit converter.
SensorModel narrowSensor(const CameraModel& model)
{
    SensorModel sensor = sensorModel(model);
    sensor.bits = 8;
    return sensor;
}

constexpr double FULL_SCALE_ADU = 255.0;

}  // namespace

IidcDevice::IidcDevice(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log)
    : UsbFunction({.vendorId = SIMULATED_VENDOR_ID,
                   .productId = model.info.productId,
                   .release = 0x0100,
                   .maxPowerHalfUnits = 250,
                   .alternates = {{{.address = EP_FRAME, .packetSize = PACKET_LENGTH}}}}),
      options_(options),
      clock_(clock),
      log_(log),
      sensor_(narrowSensor(model)),
      scene_(options.seed),
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

void IidcDevice::initialise()
{
    for (Feature& feature : features_) {
        feature.word = FEATURE_PRESENT | FEATURE_ON | FEATURE_AUTO;
        feature.value = feature.initial;
    }
    format_ = 0;
    mode_ = 0;
    shutterWritten_ = false;
    formatWritten_ = false;
    capture_ = Capture::IDLE;
    readyAtUs_ = clock_.nowUs() + INITIALISE_US;
}

ControlResult IidcDevice::vendorRequest(const SetupPacket& setup, std::span<uint8_t> data)
{
    constexpr ControlResult REFUSED{TransferStatus::STALL, 0};
    const bool reading = setup.requestType == REQUEST_READ;
    if (setup.request != VENDOR_REGISTER || (!reading && setup.requestType != REQUEST_WRITE)) {
        log_.complain("control request " + hex(setup.requestType) + " " + hex(setup.request) + " is unknown");
        return REFUSED;
    }
    if (setup.index != REGISTER_PAGE || setup.value % REGISTER_LENGTH != 0) {
        log_.complain("no register at " + hex(setup.index) + ":" + hex(setup.value));
        return REFUSED;
    }
    if (setup.length != REGISTER_LENGTH || data.size() < REGISTER_LENGTH) {
        log_.complain("register access of " + std::to_string(setup.length) + " bytes");
        return REFUSED;
    }
    if (clock_.nowUs() < readyAtUs_)
        log_.complain("register " + hex(setup.value) + " accessed while the camera initialises itself");
    uint32_t value = 0;
    if (!reading) {
        value = readLe32(data, 0);
        return writeRegister(setup.value, value) ? ControlResult{TransferStatus::OK, REGISTER_LENGTH} : REFUSED;
    }
    if (!readRegister(setup.value, value))
        return REFUSED;
    for (size_t i = 0; i < REGISTER_LENGTH; ++i)
        data[i] = static_cast<uint8_t>(value >> (8 * i));
    return {TransferStatus::OK, REGISTER_LENGTH};
}

bool IidcDevice::readRegister(uint16_t offset, uint32_t& value)
{
    for (const Feature& feature : features_) {
        if (offset == feature.control) {
            value = feature.word;
            return true;
        }
        const float absolute[3] = {feature.minimum, feature.maximum, feature.value};
        if (offset >= feature.absolute && offset < feature.absolute + sizeof absolute) {
            value = std::bit_cast<uint32_t>(absolute[(offset - feature.absolute) / REGISTER_LENGTH]);
            return true;
        }
    }
    switch (offset) {
        case REG_INITIALISE:
            value = 0;
            break;
        case REG_MODE:
            value = mode_ << SELECTOR_SHIFT;
            break;
        case REG_FORMAT:
            value = format_ << SELECTOR_SHIFT;
            break;
        case REG_ONE_SHOT:
            value = capture_ == Capture::EXPOSING && clock_.nowUs() < exposedAtUs_ ? TOP_BIT : 0;
            break;
        case REG_ERROR:
            value = videoModeSupported() ? 0 : TOP_BIT;
            break;
        case REG_TEMPERATURE:
            value = FEATURE_PRESENT | static_cast<uint32_t>(std::lround((celsius() + ZERO_CELSIUS_K) * 10.0));
            break;
        case REG_UP_TIME:
            value = UP_TIME_RUNNING | static_cast<uint32_t>((clock_.nowUs() - poweredAtUs_) / 1000000);
            break;
        case REG_SERIAL:
            value = serialNumber_;
            break;
        case REG_BOARD:
            value = BOARD_WORD;
            break;
        case REG_VERSION:
            value = VERSION_WORD;
            break;
        default:
            log_.complain("read of unknown register " + hex(offset));
            return false;
    }
    return true;
}

bool IidcDevice::writeRegister(uint16_t offset, uint32_t value)
{
    constexpr uint16_t VALUE_PLACE = 8;  // behind minimum and maximum
    for (Feature& feature : features_) {
        if (offset == feature.control) {
            feature.word = FEATURE_PRESENT | value;
            return true;
        }
        if (offset == feature.absolute + VALUE_PLACE) {
            writeFeatureValue(feature, std::bit_cast<float>(value));
            return true;
        }
    }
    switch (offset) {
        case REG_INITIALISE:
            if ((value & TOP_BIT) != 0) {
                log_.note("initialised");
                initialise();
            }
            return true;
        case REG_MODE:
            mode_ = value >> SELECTOR_SHIFT;
            return true;
        case REG_FORMAT:
            format_ = value >> SELECTOR_SHIFT;
            formatWritten_ = true;
            return true;
        case REG_ONE_SHOT:
            if ((value & TOP_BIT) != 0)
                startCapture();
            return true;
        default:
            log_.complain("write of " + hex(value) + " to unknown or read-only register " + hex(offset));
            return false;
    }
}

void IidcDevice::writeFeatureValue(Feature& feature, float value)
{
    const std::string name = feature.name;
    if (!std::isfinite(value)) {
        log_.complain(name + " is set to something that is no number");
        return;
    }
    if ((feature.word & FEATURE_ABSOLUTE) == 0 || (feature.word & FEATURE_AUTO) != 0)
        log_.complain(name + " is set to " + std::to_string(value) + " without manual absolute control");
    if (&feature == &features_[SHUTTER]) {
        setShutter(value);
        return;
    }
    if (&feature == &features_[FRAME_RATE]) {
        setFrameRate(value);
        return;
    }
    if (value < feature.minimum || value > feature.maximum)
        log_.complain(name + " of " + std::to_string(value) + " is out of range");
    feature.value = std::clamp(value, feature.minimum, feature.maximum);
}

void IidcDevice::setFrameRate(float wanted)
{
    Feature& rate = features_[FRAME_RATE];
    const auto row = std::find_if(RATES.begin(), RATES.end(),
                                  [wanted](const RateRow& each) { return each.framesPerSecond <= wanted; });
    rate.value = row == RATES.end() ? RATES.back().framesPerSecond : row->framesPerSecond;
    if (rate.value != wanted)
        log_.complain("frame rate " + std::to_string(wanted) + " becomes " + std::to_string(rate.value));
    // A faster rate shortens the shutter time in force. That is no fault: the host's next write sets it.
    const auto longest = std::find_if(RATES.begin(), RATES.end(), [&rate](const RateRow& each) {
                             return each.framesPerSecond == rate.value;
                         })->longestSeconds;
    Feature& shutter = features_[SHUTTER];
    shutter.maximum = static_cast<float>(longest);
    shutter.value = std::min(shutter.value, shutter.maximum);
}

void IidcDevice::setShutter(float wanted)
{
    Feature& shutter = features_[SHUTTER];
    if (wanted > shutter.maximum)
        log_.complain("shutter time " + std::to_string(wanted) + " s is longer than the " +
                      std::to_string(shutter.maximum) + " s that the frame rate allows");
    if (wanted < 0.0F)
        log_.complain("shutter time " + std::to_string(wanted) + " s is negative");
    // Zero is how hosts ask for the shortest time there is.
    shutter.value = std::clamp(wanted, shutter.minimum, shutter.maximum);
    shutterWritten_ = true;
}

bool IidcDevice::videoModeSupported() const
{
    return std::any_of(VIDEO_MODES.begin(), VIDEO_MODES.end(),
                       [this](const VideoMode& each) { return each.format == format_ && each.mode == mode_; });
}

bool IidcDevice::binned() const
{
    return format_ == VIDEO_MODES[1].format;
}

double IidcDevice::celsius() const
{
    const double seconds = static_cast<double>(clock_.nowUs() - poweredAtUs_) * 1e-6;
    return options_.ambientCelsius + SELF_HEATING_CELSIUS * (1.0 - std::exp(-seconds / SELF_HEATING_SECONDS));
}

void IidcDevice::startCapture()
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

void IidcDevice::exposeFrame()
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

CameraTruth IidcDevice::truth() const
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

BulkResult IidcDevice::sendToEndpoint(uint8_t /*endpoint*/, std::span<const uint8_t> /*data*/)
{
    return {TransferStatus::IO_ERROR, 0, true, NEVER};  // there is no OUT endpoint
}

BulkResult IidcDevice::readFromEndpoint(uint8_t /*endpoint*/, std::span<uint8_t> buffer)
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

namespace {

/// Gives the device its place among the cameras.
class IidcCamera final : public SimulatedCamera {
public:
    IidcCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log)
        : device_(model, options, clock, log)
    {
    }
    std::vector<uint8_t> descriptors() const override { return device_.descriptors(); }
    ControlResult control(const SetupPacket& setup, std::span<uint8_t> data) override
    {
        return device_.control(setup, data);
    }
    bool setInterface(unsigned interface, unsigned alternate) override
    {
        return device_.setInterface(interface, alternate);
    }
    BulkResult bulkOut(uint8_t endpoint, std::span<const uint8_t> data) override
    {
        return device_.bulkOut(endpoint, data);
    }
    BulkResult bulkIn(uint8_t endpoint, std::span<uint8_t> buffer) override { return device_.bulkIn(endpoint, buffer); }
    CameraTruth truth() const override { return device_.truth(); }

private:
    IidcDevice device_;
};

}  // namespace

std::unique_ptr<SimulatedCamera> makeIidcCamera(const CameraModel& model, const CameraOptions& options,
                                                const Clock& clock, DeviceLog& log)
{
    return std::make_unique<IidcCamera>(model, options, clock, log);
}

}  // namespace vornsim
