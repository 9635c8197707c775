// SPDX-License-Identifier: MIT
#include "capture/exposure_time.h"

#include <algorithm>

#include "exposure/exposure_code.h"

namespace vorncapture {
namespace {

/// Longest exposure that delay() still answers exactly lies above this; no family's lead comes near it.
constexpr double LEAD_PROBE_SECONDS = 1000.0;

}  // namespace

double shortExposureMade(CAMERA_TYPE family, double seconds)
{
    switch (family) {
        case CLASSIC:
            return vornccd::classicExposureCode(seconds).seconds;
        case STANDARD:
        case ADVANCED:
            return vornccd::standardExposureCode(seconds).seconds;
        case QUICKER:
            return vornccd::quickerExposureCode(seconds).seconds;
        case IIDC:  // the shutter register takes the seconds themselves, as a single-precision number
            return static_cast<double>(static_cast<float>(seconds));
    }
    return seconds;
}

double readoutLeadSeconds(VornCamera& camera)
{
    const double waitSeconds = static_cast<double>(camera.delay(LEAD_PROBE_SECONDS)) * 1e-6;
    return std::clamp(LEAD_PROBE_SECONDS - waitSeconds, 0.0, LEAD_PROBE_SECONDS);
}

}  // namespace vorncapture
