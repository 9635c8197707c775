// SPDX-License-Identifier: MIT
#include "cooler_model.h"

#include <algorithm>
#include <cmath>

namespace vornsim {
namespace {

constexpr double HOUSING_RISE_KELVIN = 12.0;  // warm side at full power
constexpr double WARM_ENOUGH_KELVIN = 0.5;    // below ambient, where a warm-up ends
// During a warm-up the cooler holds the ramp until even without power the sensor warms no faster.
constexpr double RAMP_END_KELVIN = CoolerModel::WARM_UP_KELVIN_PER_S * CoolerModel::TIME_CONSTANT_S;

constexpr double ENCODING_SPAN_KELVIN = 330.0;
constexpr double ENCODING_LOW_CELSIUS = -60.0;

double fullScale(uint8_t encoding)
{
    return encoding == 1 ? 1023.0 : 4095.0;
}

}  // namespace

CoolerModel::CoolerModel(CoolerKind kind, double ambientCelsius, int64_t nowUs)
    : kind_(kind),
      ambientCelsius_(ambientCelsius),
      targetCelsius_(ambientCelsius),
      startCelsius_(ambientCelsius),
      startUs_(nowUs)
{
    if (kind == CoolerKind::ALWAYS_ON)
        begin(Mode::CONSTANT, 1.0, nowUs);
}

void CoolerModel::begin(Mode mode, double power, int64_t nowUs)
{
    startCelsius_ = at(nowUs).celsius;
    startUs_ = nowUs;
    mode_ = mode;
    constantPower_ = power;
}

bool CoolerModel::setTarget(double celsius, int64_t nowUs)
{
    const double holding = std::clamp((ambientCelsius_ - celsius) / MAX_DROP_KELVIN, 0.0, 1.0);
    switch (kind_) {
        case CoolerKind::SET_POINT:
            begin(Mode::REGULATING, 0.0, nowUs);
            break;
        case CoolerKind::SELECT_POWER:
            begin(Mode::CONSTANT, holding, nowUs);
            break;
        case CoolerKind::ON_OFF:
            begin(Mode::CONSTANT, holding > 0.0 ? 1.0 : 0.0, nowUs);
            break;
        case CoolerKind::NONE:
        case CoolerKind::ALWAYS_ON:
            return false;
    }
    targetCelsius_ = celsius;
    return true;
}

bool CoolerModel::warmUp(int64_t nowUs)
{
    if (kind_ == CoolerKind::NONE || kind_ == CoolerKind::ALWAYS_ON)
        return false;
    begin(Mode::WARMING_UP, 0.0, nowUs);
    return true;
}

CoolerModel::State CoolerModel::at(int64_t nowUs) const
{
    const double seconds = std::max(0.0, static_cast<double>(nowUs - startUs_) * 1e-6);
    // With constant power the distance to the final temperature shrinks exponentially.
    const auto relaxed = [&](double power, double from, double elapsed) {
        const double final = ambientCelsius_ - power * MAX_DROP_KELVIN;
        return final + (from - final) * std::exp(-elapsed / TIME_CONSTANT_S);
    };
    switch (mode_) {
        case Mode::OFF:
            return {relaxed(0.0, startCelsius_, seconds), 0.0, false};
        case Mode::CONSTANT:
            return {relaxed(constantPower_, startCelsius_, seconds), constantPower_, false};
        case Mode::REGULATING: {
            // All or nothing until the target is reached, then what holds it.
            const double drive = startCelsius_ > targetCelsius_ ? 1.0 : 0.0;
            const double driven = relaxed(drive, startCelsius_, seconds);
            const bool reached = drive > 0.0 ? driven <= targetCelsius_ : driven >= targetCelsius_;
            if (!reached)
                return {driven, drive, false};
            return {targetCelsius_, std::clamp((ambientCelsius_ - targetCelsius_) / MAX_DROP_KELVIN, 0.0, 1.0), false};
        }
        case Mode::WARMING_UP: {
            const double rampKelvin = std::max(0.0, ambientCelsius_ - RAMP_END_KELVIN - startCelsius_);
            const double rampSeconds = rampKelvin / WARM_UP_KELVIN_PER_S;
            if (seconds < rampSeconds) {
                const double celsius = startCelsius_ + seconds * WARM_UP_KELVIN_PER_S;
                return {celsius, (ambientCelsius_ - celsius - RAMP_END_KELVIN) / MAX_DROP_KELVIN, false};
            }
            const double celsius = relaxed(0.0, startCelsius_ + rampKelvin, seconds - rampSeconds);
            return {celsius, 0.0, ambientCelsius_ - celsius < WARM_ENOUGH_KELVIN};
        }
    }
    return {ambientCelsius_, 0.0, false};
}

double CoolerModel::sensorCelsius(int64_t nowUs) const
{
    return at(nowUs).celsius;
}

double CoolerModel::housingCelsius(int64_t nowUs) const
{
    return ambientCelsius_ + HOUSING_RISE_KELVIN * at(nowUs).power;
}

double CoolerModel::power(int64_t nowUs) const
{
    return at(nowUs).power;
}

uint8_t CoolerModel::flags(int64_t nowUs) const
{
    switch (mode_) {
        case Mode::OFF:
            return 0;
        case Mode::CONSTANT:
            return constantPower_ > 0.0 ? COOLER_RUNNING : 0;
        case Mode::REGULATING:
            return COOLER_REGULATING | COOLER_RUNNING;
        case Mode::WARMING_UP:
            return at(nowUs).finished ? 0 : COOLER_WARMING_UP | COOLER_RUNNING;
    }
    return 0;
}

uint16_t encodeCelsius(double celsius, uint8_t encoding)
{
    const double scale = fullScale(encoding);
    const double raw = (celsius - ENCODING_LOW_CELSIUS) * scale / ENCODING_SPAN_KELVIN;
    return static_cast<uint16_t>(std::lround(std::clamp(raw, 0.0, scale)));
}

double decodeCelsius(uint16_t raw, uint8_t encoding)
{
    return raw * ENCODING_SPAN_KELVIN / fullScale(encoding) + ENCODING_LOW_CELSIUS;
}

}  // namespace vornsim
