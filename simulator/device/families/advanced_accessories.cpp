// SPDX-License-Identifier: MIT
// Temperature, cooler, filter wheel and general-purpose lines of ADVANCED cameras. All values big-endian.
#include "advanced_camera.h"
#include "device/usb/bytes.h"

namespace vornsim {
namespace {

constexpr unsigned GPIO_LINES = 8;

}  // namespace

void AdvancedCamera::replyTemperature(unsigned sensorNumber, std::span<uint8_t> reply)
{
    writeBe16(reply, 0, model_.sensorEncoding);
    writeBe16(reply, 2, rawTemperature(sensorNumber));
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
    writeBe16(reply, 0, rawCoolerPower());
    writeBe16(reply, 2, cooler_.flags(clock_.nowUs()));
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

}  // namespace vornsim
