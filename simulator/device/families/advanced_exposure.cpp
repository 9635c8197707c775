// SPDX-License-Identifier: MIT
// From the command that clears the sensor to the words of the image on the bus, for ADVANCED cameras.
#include <algorithm>
#include <utility>

#include "advanced_camera.h"
#include "device/parts/eight_bit.h"
#include "device/usb/bytes.h"
#include "readout_request.h"

namespace vornsim {
namespace {

constexpr uint8_t READ_PREVIEW = 0x01;
constexpr uint8_t READ_MICROSECONDS = 0x04;
constexpr uint8_t READ_EIGHT_BIT = 0x20;
constexpr uint8_t MODE_LONG = 0x43;
constexpr uint8_t MODE_TIMED = 0x03;
constexpr unsigned LONGEST_TIMED_MS = 3000;

constexpr size_t LEADING_VALUES = 2;
constexpr int64_t CLEARING_US = 60000;
constexpr double OFFSET_ADU = 2.0;  // a step of the converter's offset

}  // namespace

void AdvancedCamera::prepareExposure()
{
    if (!std::exchange(prepared_, false))
        return complain("exposure prepared before the sensor");
    cleared_ = true;
    busyUntilUs_ = clock_.nowUs() + CLEARING_US;
}

void AdvancedCamera::startExposure()
{
    if (!std::exchange(cleared_, false))
        return complain("exposure started without preparation");
    integratingSinceUs_ = clock_.nowUs();
    note("exposure started");
}

/// | Offset | Size | Payload, big-endian                                                   |
/// |--------|------|-----------------------------------------------------------------------|
/// | 0      | 2    | duration of a timed exposure in ms or, by flag, us; else 0            |
/// | 2      | 4    | binning in x and y                                                    |
/// | 6      | 8    | first column and row, width and height in sensor pixels               |
/// | 14     | 1    | flags: 0x01 preview, 0x04 duration in us, 0x20 8-bit samples          |
/// | 15     | 1    | 0x43: end the running exposure; 0x03: expose by the camera's own clock |
void AdvancedCamera::readOut(std::span<const uint8_t> payload)
{
    const unsigned duration = readBe16(payload, 0);
    const Region region{.x = readBe16(payload, 6),
                        .y = readBe16(payload, 8),
                        .width = readBe16(payload, 10),
                        .height = readBe16(payload, 12),
                        .binX = readBe16(payload, 2),
                        .binY = readBe16(payload, 4)};
    const uint8_t flags = payload[14];
    const uint8_t mode = payload[15];
    const bool microseconds = (flags & READ_MICROSECONDS) != 0;
    const bool eightBit = (flags & READ_EIGHT_BIT) != 0;
    output_.clear();

    if ((flags & ~(READ_PREVIEW | READ_MICROSECONDS | READ_EIGHT_BIT)) != 0)
        complain("readout with unknown flags " + std::to_string(flags));
    if (eightBit && !model_.eightBit)
        complain("8-bit readout of a camera that has none");
    if (const std::string fault = readoutFault(model_, region); !fault.empty())
        complain(fault);
    if (!canRead(model_, region))
        return;

    std::optional<ExposureTimes> times;
    if (mode == MODE_LONG)
        times = endExposure(duration, microseconds);
    else if (mode == MODE_TIMED)
        times = timedExposure(duration, microseconds);
    else
        complain("readout in mode " + std::to_string(mode));
    if (!times)
        return;
    const AdvancedConverter::Setting& setting = converter_.setting((flags & READ_PREVIEW) != 0);
    const SensorModel base = sensorModel(model_);
    sensor_.setConverter(base.electronsPerAdu / AdvancedConverter::amplification(setting.gain),
                         std::max(0.0, base.biasAdu + OFFSET_ADU * (static_cast<double>(setting.offset) - 256.0)));
    sendImage(region, *times, eightBit);
}

std::optional<AdvancedCamera::ExposureTimes> AdvancedCamera::endExposure(unsigned duration, bool microseconds)
{
    if (duration != 0 || microseconds)
        complain("readout of a running exposure with a duration");
    const std::optional<int64_t> since = std::exchange(integratingSinceUs_, std::nullopt);
    if (!since) {
        complain("readout without an exposure");
        return std::nullopt;
    }
    // The registers that carry the charge out are cleared first; meanwhile the pixels go on collecting.
    return ExposureTimes{*since, clock_.nowUs() + clearTimeUs()};
}

AdvancedCamera::ExposureTimes AdvancedCamera::timedExposure(unsigned duration, bool microseconds)
{
    if (duration < 1 || (!microseconds && duration > LONGEST_TIMED_MS))
        complain("timed exposure of " + std::to_string(duration) + (microseconds ? " us" : " ms"));
    if (integratingSinceUs_)
        note("a timed exposure ends the running one");
    integratingSinceUs_.reset();
    const int64_t now = clock_.nowUs();
    return {now, now + int64_t{duration} * (microseconds ? 1 : 1000)};
}

void AdvancedCamera::sendImage(const Region& region, const ExposureTimes& times, bool eightBit)
{
    Integration integration;
    integration.darkSeconds = static_cast<double>(times.endUs - times.beginUs) * 1e-6;
    integration.lightSeconds = integration.darkSeconds;  // there is no shutter
    integration.celsius = cooler_.sensorCelsius(clock_.nowUs());
    integration.driftX = (mount_.driftX(times.beginUs) + mount_.driftX(times.endUs)) / 2;
    integration.driftY = (mount_.driftY(times.beginUs) + mount_.driftY(times.endUs)) / 2;

    uint32_t columns = (region.width + region.binX - 1) / region.binX;
    if (eightBit)
        columns += columns % 2;  // a row ends with a whole bus word
    const uint32_t rows = region.height / region.binY;
    image_ = sensor_.expose(integration, region, columns, rows);
    const bool ramp = options_.scene == SceneKind::RAMP;
    if (eightBit)
        std::transform(image_.begin(), image_.end(), image_.begin(),
                       [ramp](uint16_t value) { return ramp ? foldedRamp(value) : static_cast<uint16_t>(value >> 8); });

    const size_t sampleLength = eightBit ? 1 : 2;
    std::vector<uint8_t> bytes((LEADING_VALUES + image_.size()) * sampleLength, 0xFF);
    const std::span samples = std::span(bytes).subspan(LEADING_VALUES * sampleLength);
    for (size_t i = 0; i < image_.size(); ++i) {
        if (eightBit)
            samples[i] = static_cast<uint8_t>(image_[i]);
        else
            writeLe16(samples, 2 * i, image_[i]);
    }
    output_.send(std::move(bytes), times.endUs, 1000000000 / std::max<int64_t>(model_.pixelsPerSecond, 1));
    note("readout after " + std::to_string(integration.darkSeconds) + " s");
}

}  // namespace vornsim
