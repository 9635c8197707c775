// SPDX-License-Identifier: MIT
#include "bridged_camera.h"

#include <algorithm>
#include <utility>

#include "device/parts/eight_bit.h"
#include "device/usb/bytes.h"
#include "device/usb/usb_function.h"

namespace vornsim {
namespace {

constexpr int64_t PREVIEW_SPEED_UP = 2;

// Precharge pairs.
constexpr int PRECHARGE_STEP = 32;
constexpr int RESET_LEVEL = 2000;
constexpr int RESET_SPREAD = 61;  // the reset level is a little different for every pixel

/// Boot header, serial number, colour record. What only some families keep there they add.
ConfigurationEeprom makeEeprom(const CameraModel& model, const CameraOptions& options)
{
    const uint16_t productId = model.eepromProductId != 0 ? model.eepromProductId : model.info.productId;
    ConfigurationEeprom eeprom(SIMULATED_VENDOR_ID, productId, serialNumber(model, options));
    if (model.info.colour)
        eeprom.setColourPattern(model.bayerCode);
    return eeprom;
}

}  // namespace

BridgedCamera::BridgedCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log)
    : model_(model),
      options_(options),
      clock_(clock),
      log_(log),
      eeprom_(makeEeprom(model, options)),
      sensor_(sensorModel(model), options.seed, options.scene),
      cooler_(model.cooler, options.ambientCelsius, clock.nowUs()),
      wheel_(model.filterCount, clock.nowUs())
{
}

bool BridgedCamera::i2cStart(uint8_t address, bool /*reading*/)
{
    eeprom_.start();
    return address == ConfigurationEeprom::I2C_ADDRESS;
}

void BridgedCamera::wordsReceived(std::span<const uint8_t> bytes)
{
    complain(std::to_string(bytes.size()) + " bytes on the parallel bus, which leads outwards only");
}

void BridgedCamera::portChanged(unsigned port, const PortLines& lines)
{
    if (port == 0)
        port_ = lines;
}

CameraTruth BridgedCamera::truth() const
{
    const int64_t now = clock_.nowUs();
    CameraTruth truth;
    truth.lastImage = image_;
    truth.imageWidth = sensor_.lastWidth();
    truth.imageHeight = sensor_.lastHeight();
    truth.frameCount = sensor_.frameCount();
    truth.lightSeconds = sensor_.lastIntegration().lightSeconds;
    truth.darkSeconds = sensor_.lastIntegration().darkSeconds;
    truth.sensorCelsius = cooler_.sensorCelsius(now);
    truth.coolerPower = cooler_.power(now);
    truth.filterPosition = wheel_.current(now);
    truth.filterMoving = wheel_.moving(now);
    truth.driftX = mount_.driftX(now);
    truth.driftY = mount_.driftY(now);
    return truth;
}

// ---- From the sensor to the bus ----

bool BridgedCamera::canRead(const Region& region)
{
    const auto number = [](uint32_t value) { return std::to_string(value); };
    if (region.binX < 1 || region.binX > model_.maxBinX || region.binY < 1 || region.binY > model_.maxBinY) {
        complain("binning " + number(region.binX) + " x " + number(region.binY) + " is not possible");
        return false;
    }
    const uint32_t columns = model_.info.pixelCountX;
    const uint32_t rows = model_.info.pixelCountY;
    const uint64_t right = uint64_t{region.x} + region.width;
    const uint64_t bottom = uint64_t{region.y} + region.height;
    const bool empty = region.width < region.binX || region.height < region.binY;
    if (empty || right > columns || bottom > rows)
        complain("region " + number(region.width) + " x " + number(region.height) + " at " + number(region.x) + ", " +
                 number(region.y) + " is empty or leaves the sensor");
    return !empty && right <= columns && bottom <= std::max(columns, rows);
}

int64_t BridgedCamera::sendImage(const ExposureTimes& times, const Readout& readout)
{
    const int64_t now = clock_.nowUs();
    Integration integration;
    integration.darkSeconds = static_cast<double>(times.endUs - times.beginUs) * 1e-6;
    integration.lightSeconds = times.lightSeconds.value_or(integration.darkSeconds);
    integration.celsius = cooler_.sensorCelsius(now);
    integration.driftX = (mount_.driftX(times.beginUs) + mount_.driftX(times.endUs)) / 2;
    integration.driftY = (mount_.driftY(times.beginUs) + mount_.driftY(times.endUs)) / 2;

    const Region& region = readout.region;
    uint32_t columns = (region.width + (readout.roundUp ? region.binX - 1 : 0)) / region.binX;
    if (readout.samples == Readout::Samples::BYTES)
        columns += columns % 2;  // a row ends with a whole bus word
    image_ = sensor_.expose(integration, region, columns, region.height / region.binY);
    std::vector<uint8_t> bytes = pack(readout);

    const int64_t pixelsPerSecond =
        std::max<int64_t>(model_.pixelsPerSecond, 1) * (readout.preview ? PREVIEW_SPEED_UP : 1);
    const int64_t firstUs = std::max(now, times.endUs) + readout.beginUs;
    const int64_t lastUs = firstUs + static_cast<int64_t>(image_.size()) * 1000000 / pixelsPerSecond;
    if (readout.frameMemory)
        output_.send(std::move(bytes), lastUs);
    else
        output_.send(std::move(bytes), firstUs, 1000000000 / pixelsPerSecond);
    note("readout after " + std::to_string(integration.darkSeconds) + " s, light for " +
         std::to_string(integration.lightSeconds) + " s");
    return lastUs;
}

/// Makes bus words of image_. What the format loses is lost in image_ as well: with precharge pairs the lowest bit,
/// because the host doubles the difference of the pair.
std::vector<uint8_t> BridgedCamera::pack(const Readout& readout)
{
    const auto lead = [&](size_t valueLength, size_t pixelLength) {
        return std::vector<uint8_t>(readout.leadingValues * valueLength + image_.size() * pixelLength, 0xFF);
    };
    std::vector<uint8_t> bytes;
    switch (readout.samples) {
        case Readout::Samples::WORDS: {
            bytes = lead(2, 2);
            const std::span words = std::span(bytes).last(image_.size() * 2);
            for (size_t i = 0; i < image_.size(); ++i)
                writeLe16(words, 2 * i, image_[i]);
            break;
        }
        case Readout::Samples::BYTES:
            for (uint16_t& value : image_)
                value = options_.scene == SceneKind::RAMP ? foldedRamp(value) : static_cast<uint16_t>(value >> 8);
            bytes = lead(1, 1);
            std::transform(image_.begin(), image_.end(), bytes.end() - static_cast<std::ptrdiff_t>(image_.size()),
                           [](uint16_t value) { return static_cast<uint8_t>(value); });
            break;
        case Readout::Samples::PRECHARGE_PAIRS: {
            bytes = lead(2, 4);
            const std::span words = std::span(bytes).last(image_.size() * 4);
            const int offset = static_cast<int8_t>(model_.prechargeCode) * PRECHARGE_STEP;
            for (size_t i = 0; i < image_.size(); ++i) {
                image_[i] &= 0xFFFE;
                const int difference = (image_[i] - offset) / 2;
                const int reset = std::max(RESET_LEVEL + static_cast<int>(i % RESET_SPREAD), -difference);
                writeLe16(words, 4 * i, static_cast<unsigned>(reset));
                writeLe16(words, 4 * i + 2, static_cast<unsigned>(reset + difference));
            }
            break;
        }
    }
    return bytes;
}

}  // namespace vornsim
