// SPDX-License-Identifier: MIT
// The register space of IIDC cameras: controls, video modes and the facts the camera reports of itself.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>

#include "device/usb/bytes.h"
#include "iidc_camera.h"

namespace vornsim {

namespace {

constexpr uint8_t VENDOR_REGISTER = 127;    // bRequest of a register access
constexpr uint8_t REQUEST_READ = 0xC0;      // vendor, device to host
constexpr uint8_t REQUEST_WRITE = 0x40;     // vendor, host to device
constexpr uint16_t REGISTER_PAGE = 0xF0F0;  // address bits 16 to 31 of the whole register space
constexpr size_t REGISTER_LENGTH = 4;

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

}  // namespace

void IidcCamera::initialise()
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

ControlResult IidcCamera::vendorRequest(const SetupPacket& setup, std::span<uint8_t> data)
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
    if (!reading)
        return writeRegister(setup.value, readLe32(data, 0)) ? ControlResult{TransferStatus::OK, REGISTER_LENGTH}
                                                             : REFUSED;
    const std::optional<uint32_t> value = readRegister(setup.value);
    if (!value)
        return REFUSED;
    writeLe16(data, 0, *value & 0xFFFF);
    writeLe16(data, 2, *value >> 16);
    return {TransferStatus::OK, REGISTER_LENGTH};
}

std::optional<uint32_t> IidcCamera::readRegister(uint16_t offset)
{
    for (const Feature& feature : features_) {
        if (offset == feature.control)
            return feature.word;
        const float absolute[3] = {feature.minimum, feature.maximum, feature.value};
        if (offset >= feature.absolute && offset < feature.absolute + sizeof absolute)
            return std::bit_cast<uint32_t>(absolute[(offset - feature.absolute) / REGISTER_LENGTH]);
    }
    switch (offset) {
        case REG_INITIALISE:
            return 0;
        case REG_MODE:
            return mode_ << SELECTOR_SHIFT;
        case REG_FORMAT:
            return format_ << SELECTOR_SHIFT;
        case REG_ONE_SHOT:
            return capture_ == Capture::EXPOSING && clock_.nowUs() < exposedAtUs_ ? TOP_BIT : 0;
        case REG_ERROR:
            return videoModeSupported() ? 0 : TOP_BIT;
        case REG_TEMPERATURE:
            return FEATURE_PRESENT | static_cast<uint32_t>(std::lround((celsius() + ZERO_CELSIUS_K) * 10.0));
        case REG_UP_TIME:
            return UP_TIME_RUNNING | static_cast<uint32_t>((clock_.nowUs() - poweredAtUs_) / 1000000);
        case REG_SERIAL:
            return serialNumber_;
        case REG_BOARD:
            return BOARD_WORD;
        case REG_VERSION:
            return VERSION_WORD;
        default:
            log_.complain("read of unknown register " + hex(offset));
            return std::nullopt;
    }
}

bool IidcCamera::writeRegister(uint16_t offset, uint32_t value)
{
    constexpr uint16_t VALUE_PLACE = 8;  // after minimum and maximum
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

void IidcCamera::writeFeatureValue(Feature& feature, float value)
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

void IidcCamera::setFrameRate(float wanted)
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

void IidcCamera::setShutter(float wanted)
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

bool IidcCamera::videoModeSupported() const
{
    return std::any_of(VIDEO_MODES.begin(), VIDEO_MODES.end(),
                       [this](const VideoMode& each) { return each.format == format_ && each.mode == mode_; });
}

bool IidcCamera::binned() const
{
    return format_ == VIDEO_MODES[1].format;
}

}  // namespace vornsim
