// SPDX-License-Identifier: MIT
#include "exposure/exposure_code.h"

#include "transport/saturate.h"

#include <algorithm>

namespace vornccd {

// In each formula the request is first rounded to single precision; the arithmetic then is in double precision. The
// comparisons take the request as given. That decides the last unit, and cameras were measured with it.

ExposureCode quickerExposureCode(double seconds)
{
    const double s = toSingle(seconds);
    const int32_t code = std::clamp(saturatingTrunc<int32_t>(s * 3e6 / 1024.0), 1, 4095);
    return {.code = code, .seconds = code * 1024.0 / 3e6};
}

ExposureCode standardExposureCode(double seconds)
{
    const double s = toSingle(seconds);
    if (seconds < 0.05) {
        int32_t code = saturatingTrunc<int32_t>(s * 1e6 + 0.5);
        if (code == 0)
            code = 1;
        code &= 0xFFFF;
        return {.code = code, .microseconds = true, .seconds = code * 1e-6};
    }
    const int32_t code = std::clamp(saturatingTrunc<int32_t>(s * 1000.0 + 0.5), 1, 3000);
    return {.code = code, .seconds = code * 0.001};
}

ExposureCode classicExposureCode(double seconds)
{
    const double s = toSingle(seconds);
    const double exact = seconds < 0.01 ? s * 1000.0 + 0.5 : s * 100.0 + 9.5;
    const int32_t code = std::clamp(saturatingTrunc<int32_t>(exact), 1, 255);
    return {.code = code, .seconds = code <= 9 ? code * 0.001 : (code - 9) * 0.01};
}

}  // namespace vornccd
