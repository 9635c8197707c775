// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace vornsim {

/// What kind of cooler a camera has; the value is the capability bit it reports.
enum class CoolerKind : uint8_t { NONE = 0, ALWAYS_ON = 0x01, ON_OFF = 0x04, SELECT_POWER = 0x08, SET_POINT = 0x10 };

/// What the cooler is doing; the values are the status flags that cameras report.
enum CoolerFlag : uint8_t { COOLER_REGULATING = 0x80, COOLER_RUNNING = 0x40, COOLER_WARMING_UP = 0x20 };

/// Sensor, cooler and ambient air as a first-order thermal system: with constant power the sensor approaches
/// ambient - power * MAX_DROP_KELVIN exponentially. Evaluated in closed form whenever asked, so results do not depend
/// on how often that happens.
class CoolerModel {
public:
    static constexpr double TIME_CONSTANT_S = 60.0;
    static constexpr double MAX_DROP_KELVIN = 40.0;
    static constexpr double WARM_UP_KELVIN_PER_S = 5.0 / 60.0;

    CoolerModel(CoolerKind kind, double ambientCelsius, int64_t nowUs);

    /// Sets the target and starts cooling. SET_POINT regulates; SELECT_POWER takes the power that would hold the
    /// target; ON_OFF runs at full power for a target below ambient. @return false when there is nothing to control.
    bool setTarget(double celsius, int64_t nowUs);

    /// Starts the controlled warm-up, after which the cooler is off. @return false when there is nothing to control.
    bool warmUp(int64_t nowUs);

    double sensorCelsius(int64_t nowUs) const;
    double housingCelsius(int64_t nowUs) const;
    /// @return cooler power, 0 to 1.
    double power(int64_t nowUs) const;
    /// @return CoolerFlag bits.
    uint8_t flags(int64_t nowUs) const;
    double targetCelsius() const { return targetCelsius_; }

private:
    enum class Mode { OFF, CONSTANT, REGULATING, WARMING_UP };
    struct State {
        double celsius;
        double power;
        bool finished;  // a warm-up that has come to its end
    };
    State at(int64_t nowUs) const;
    void begin(Mode mode, double power, int64_t nowUs);

    CoolerKind kind_;
    double ambientCelsius_;
    double targetCelsius_;
    Mode mode_ = Mode::OFF;
    double constantPower_ = 0.0;
    double startCelsius_;  // when the mode began
    int64_t startUs_;
};

/// @return the raw reading for a temperature: encoding 1 has 10 bits, 2 has 12, both from -60 to +270 degrees.
uint16_t encodeCelsius(double celsius, uint8_t encoding);

/// @return the temperature of a raw value in that encoding.
double decodeCelsius(uint16_t raw, uint8_t encoding);

}  // namespace vornsim
