// SPDX-License-Identifier: MIT
#include "capture/exposure_time.h"

#include <algorithm>
#include <cstdint>

namespace vorncapture {
namespace {

constexpr double QUICKER_STEP_SECONDS = 1024.0 / 3e6;
constexpr int QUICKER_MAX_CODE = 4095;
constexpr double MICROSECOND_CODES_BELOW_SECONDS = 0.05;  // STANDARD, ADVANCED
constexpr int MAX_MILLISECOND_CODE = 3000;                // STANDARD, ADVANCED
constexpr double MILLISECOND_CODES_BELOW_SECONDS = 0.01;  // CLASSIC
constexpr int CLASSIC_LAST_MILLISECOND_CODE = 9;
constexpr int CLASSIC_MAX_CODE = 255;

/// Longest exposure that delay() still answers exactly lies above this; no family's lead comes near it.
constexpr double LEAD_PROBE_SECONDS = 1000.0;

/// Codes wrap and truncate; a request beyond every camera's range is held where the conversion is still defined.
int truncated(double value)
{
    return static_cast<int>(std::clamp(value, 0.0, 2e9));
}

double standardExposureMade(double seconds, double single)
{
    if (seconds < MICROSECOND_CODES_BELOW_SECONDS)
        return std::max(truncated(single * 1e6 + 0.5), 1) * 1e-6;
    return std::clamp(truncated(single * 1000.0 + 0.5), 1, MAX_MILLISECOND_CODE) * 0.001;
}

double classicExposureMade(double seconds, double single)
{
    const double rawCode = seconds < MILLISECOND_CODES_BELOW_SECONDS ? single * 1000.0 + 0.5 : single * 100.0 + 9.5;
    const int code = std::clamp(truncated(rawCode), 1, CLASSIC_MAX_CODE);
    if (code <= CLASSIC_LAST_MILLISECOND_CODE)
        return code * 0.001;
    return (code - CLASSIC_LAST_MILLISECOND_CODE) * 0.01;
}

}  // namespace

double shortExposureMade(CAMERA_TYPE family, double seconds)
{
    // The library rounds the request to single precision before it makes the code.
    const double single = static_cast<double>(static_cast<float>(seconds));
    switch (family) {
        case CLASSIC:
            return classicExposureMade(seconds, single);
        case STANDARD:
        case ADVANCED:
            return standardExposureMade(seconds, single);
        case QUICKER:
            return std::clamp(truncated(single * 3e6 / 1024.0), 1, QUICKER_MAX_CODE) * QUICKER_STEP_SECONDS;
        case IIDC:  // the shutter register takes the seconds themselves, as a single-precision number
            return single;
    }
    return seconds;
}

double readoutLeadSeconds(VornCamera& camera)
{
    const double waitSeconds = static_cast<double>(camera.delay(LEAD_PROBE_SECONDS)) * 1e-6;
    return std::clamp(LEAD_PROBE_SECONDS - waitSeconds, 0.0, LEAD_PROBE_SECONDS);
}

}  // namespace vorncapture
