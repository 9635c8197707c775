// SPDX-License-Identifier: MIT
// Temperature, cooler, filter wheel, general-purpose lines and guide relays of ADVANCED cameras. All values big-endian.
#include <cmath>

#include "advanced_camera.h"
#include "device_bytes.h"

namespace vornsim {
namespace {

constexpr unsigned GPIO_LINES = 8;

}  // namespace

void AdvancedCamera::replyTemperature(unsigned sensorNumber, std::span<uint8_t> reply)
{
    if (sensorNumber < 1 || sensorNumber > model_.sensorCount) {
        complain("there is no temperature sensor " + std::to_string(sensorNumber));
        sensorNumber = 1;
    }
    const int64_t now = clock_.nowUs();
    const double celsius = sensorNumber == 1 ? cooler_.sensorCelsius(now) : cooler_.housingCelsius(now);
    writeBe16(reply, 0, model_.sensorEncoding);
    writeBe16(reply, 2, encodeCelsius(celsius, model_.sensorEncoding));
}

void AdvancedCamera::replyCoolerDetails(std::span<uint8_t> reply) const
{
    // A cooler that regulates can also be switched.
    const auto kind = static_cast<unsigned>(model_.cooler);
    const bool switched = model_.cooler == CoolerKind::SET_POINT || model_.cooler == CoolerKind::SELECT_POWER;
    writeBe16(reply, 0, kind | (switched ? static_cast<unsigned>(CoolerKind::ON_OFF) : 0));
    writeBe16(reply, 2, model_.maxCoolerPower);
    writeBe16(reply, 4, model_.minCoolerPower);
}

void AdvancedCamera::replyCoolingStatus(std::span<uint8_t> reply) const
{
    const int64_t now = clock_.nowUs();
    const double span = model_.maxCoolerPower - model_.minCoolerPower;
    writeBe16(reply, 0, static_cast<unsigned>(model_.minCoolerPower + std::lround(cooler_.power(now) * span)));
    writeBe16(reply, 2, cooler_.flags(now));
    writeBe16(reply, 4, encodeCelsius(cooler_.targetCelsius(), model_.sensorEncoding));
}

void AdvancedCamera::replyFilterStatus(std::span<uint8_t> reply)
{
    const int64_t now = clock_.nowUs();
    if (wheel_.count() == 0)
        complain("filter status, but there is no wheel");
    writeBe16(reply, 0, wheel_.count());
    writeBe16(reply, 2, wheel_.moving(now) ? 1 : 0);
    writeBe16(reply, 4, wheel_.current(now));
    writeBe16(reply, 6, wheel_.target());
}

uint16_t AdvancedCamera::gpioMask() const
{
    return model_.gpio ? (1U << GPIO_LINES) - 1 : 0;
}

void AdvancedCamera::replyGpio(std::span<uint8_t> reply)
{
    if (!model_.gpio)
        complain("GPIO asked for, but there are no lines");
    writeBe16(reply, 0, model_.gpio ? GPIO_LINES : 0);
    writeBe16(reply, 2, gpioOutputs() | (gpioInputs_ & ~gpioDirection_ & gpioMask()));
}

void AdvancedCamera::closeRelay(unsigned relay)
{
    const unsigned closed = mount_.relays() | 1U << relay;
    if (!model_.guidePort) {
        complain("guide relays, but there is no guide port");
        return;
    }
    if ((closed & 3U) == 3U || (closed & 12U) == 12U)
        complain("guide relays closed in opposite directions");
    mount_.setRelays(static_cast<uint8_t>(closed), clock_.nowUs());
}

void AdvancedCamera::setCooling(uint16_t rawTarget, std::span<uint8_t> reply)
{
    const double celsius = decodeCelsius(rawTarget, model_.sensorEncoding);
    const bool done = cooler_.setTarget(celsius, clock_.nowUs());
    if (done)
        note("cooling to " + std::to_string(celsius) + " degrees");
    else
        complain("cooling target, but the cooler cannot be controlled");
    writeBe16(reply, 0, done ? 1 : 0);
}

void AdvancedCamera::warmUp()
{
    if (cooler_.warmUp(clock_.nowUs()))
        note("warming up");
    else
        complain("warm-up, but the cooler cannot be controlled");
}

}  // namespace vornsim
