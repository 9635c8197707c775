// SPDX-License-Identifier: MIT
// Exposure and readout of the STANDARD cameras.
//
// | Offset | Size | Payload of the readout command, little-endian       |
// |--------|------|-----------------------------------------------------|
// | 0      | 2    | exposure code; 0 ends an exposure already begun     |
// | 2, 4   | 2, 2 | binning, columns and rows                           |
// | 6, 8   | 2, 2 | first column and row                                |
// | 10, 12 | 2, 2 | columns and rows of the sensor                      |
// | 14     | 2    | flags                                               |
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "device/usb/bytes.h"
#include "standard_camera.h"

namespace vornsim {
namespace {

// Readout flags
constexpr unsigned READOUT_ALWAYS = 0x0043;
constexpr unsigned READOUT_PREVIEW = 0x0100;
constexpr unsigned READOUT_MICROSECONDS = 0x0400;
constexpr unsigned READOUT_DARK = 0x1000;
constexpr unsigned READOUT_TIMED_ONLY = READOUT_MICROSECONDS | READOUT_DARK;

constexpr int64_t READOUT_BEGIN_US = 20000;  // from the command to the first word
constexpr int64_t PREVIEW_SPEED_UP = 2;

}  // namespace

void StandardCamera::prepareSensor(uint16_t step)
{
    if (step == 0) {
        phase_ = Phase::CLEARED;
    } else if (step == 1 && phase_ == Phase::INTEGRATING) {
        phase_ = Phase::STOPPED;
    } else {
        complain("sensor preparation " + std::to_string(step) + " out of sequence");
    }
}

void StandardCamera::prepareExposure()
{
    if (phase_ == Phase::CLEARED)
        phase_ = Phase::READY;
    else
        complain("exposure prepared before the sensor was");
}

void StandardCamera::startExposure()
{
    if (phase_ != Phase::READY) {
        complain("exposure started without preparation");
        return;
    }
    phase_ = Phase::INTEGRATING;
    integrationStartUs_ = clock_.nowUs();
    shutter_.beginIntegration(integrationStartUs_);
    note("exposure started");
}

void StandardCamera::readOut(std::span<const uint8_t> payload)
{
    Readout readout;
    readout.exposureCode = readLe16(payload, 0);
    readout.region = {.x = readLe16(payload, 6),
                      .y = readLe16(payload, 8),
                      .width = readLe16(payload, 10),
                      .height = readLe16(payload, 12),
                      .binX = readLe16(payload, 2),
                      .binY = readLe16(payload, 4)};
    readout.flags = readLe16(payload, 14);
    if (!acceptable(readout))
        return;
    phase_ = Phase::IDLE;

    // With a code the camera clears the sensor once more and times the exposure itself.
    const bool timed = readout.exposureCode != 0;
    const int64_t unitUs = (readout.flags & READOUT_MICROSECONDS) != 0 ? 1 : 1000;
    const int64_t now = clock_.nowUs();
    const int64_t begin = timed ? now : integrationStartUs_;
    const int64_t end = timed ? now + readout.exposureCode * unitUs : now;
    Integration integration;
    integration.darkSeconds = static_cast<double>(end - begin) * 1e-6;
    integration.lightSeconds = timed ? integration.darkSeconds : shutter_.lightSeconds(now);
    if ((readout.flags & READOUT_DARK) != 0 && shutter_.present())
        integration.lightSeconds = 0.0;
    integration.celsius = cooler_.sensorCelsius(now);
    integration.driftX = (mount_.driftX(begin) + mount_.driftX(end)) / 2;
    integration.driftY = (mount_.driftY(begin) + mount_.driftY(end)) / 2;

    const Region& region = readout.region;
    const std::vector<uint16_t>& image =
        sensor_.expose(integration, region, region.width / region.binX, region.height / region.binY);
    std::vector<uint8_t> bytes(image.size() * 2);
    for (size_t i = 0; i < image.size(); ++i)
        writeLe16(bytes, 2 * i, image[i]);
    int64_t nsPerWord = int64_t{1000000000} / model_.pixelsPerSecond;
    if ((readout.flags & READOUT_PREVIEW) != 0)
        nsPerWord /= PREVIEW_SPEED_UP;
    output_.send(std::move(bytes), end + READOUT_BEGIN_US, nsPerWord);
    note("readout after " + std::to_string(integration.darkSeconds) + " s, light for " +
         std::to_string(integration.lightSeconds) + " s");
}

/// Complains about a readout that cannot be done. One that only reaches below the sensor is done all the same.
bool StandardCamera::acceptable(const Readout& readout)
{
    const Region& region = readout.region;
    const bool timed = readout.exposureCode != 0;
    const unsigned known = READOUT_ALWAYS | READOUT_PREVIEW | (timed ? READOUT_TIMED_ONLY : 0);
    if (phase_ != (timed ? Phase::INTEGRATING : Phase::STOPPED)) {
        complain("readout without exposure");
        return false;
    }
    if ((readout.flags & READOUT_ALWAYS) != READOUT_ALWAYS || (readout.flags & ~known) != 0) {
        complain("readout with flags " + std::to_string(readout.flags));
        return false;
    }
    if (region.binX < 1 || region.binX > model_.maxBinX || region.binY < 1 || region.binY > model_.maxBinY ||
        region.width < region.binX || region.height < region.binY) {
        complain("readout with a binning the sensor does not have, or of no pixels");
        return false;
    }
    if (!timed && shutter_.present() && shutter_.open())
        complain("readout with the shutter open");
    const ModelInfo& sensor = model_.info;
    if (region.x + region.width <= sensor.pixelCountX && region.y + region.height <= sensor.pixelCountY)
        return true;
    complain("readout beyond the edge of the sensor");
    return region.x + region.width <= sensor.pixelCountX &&
           region.y + region.height <= std::max(sensor.pixelCountX, sensor.pixelCountY);
}

}  // namespace vornsim
