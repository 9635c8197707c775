// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/saturate.h"
#include "transport/wire.h"

using namespace vornccd;

namespace {

// State flags
constexpr unsigned COOLING_FLAG_SETPOINT = 0x80;
constexpr unsigned COOLING_FLAG_WARMING_UP = 0x20;
constexpr unsigned COOLING_FLAG_ON = 0x40;

/// What the camera says about its cooler, in raw values.
struct CoolingReply {
    unsigned power = 0;
    unsigned flags = 0;
    int target = 0;
};

/// STANDARD: 0 power, 2 flags, 4 target (little-endian).
CoolingReply decodeStandard(const uint8_t* reply)
{
    return {reply[0], reply[2], getLe16(reply, 4)};
}

/// CLASSIC, after compaction: 0 power, 1 flags, 2 target (little-endian).
CoolingReply decodeClassic(const uint8_t* reply)
{
    return {reply[0], reply[1], getLe16(reply, 2)};
}

/// ADVANCED: 0 power, 2 flags, 4 target, each 16 bits, big-endian.
CoolingReply decodeAdvanced(const uint8_t* reply)
{
    return {getBe16(reply, 0), getBe16(reply, 2), getBe16(reply, 4)};
}

struct StateName {
    unsigned bit;
    COOLING_STATE state;
    const char* name;
};

/// The first flag that is set decides.
const StateName& coolingState(unsigned flags)
{
    static constexpr StateName STATES[] = {
        // in order of priority
        {COOLING_FLAG_SETPOINT, COOLING_SETPOINT, "COOLING_SETPOINT"},
        {COOLING_FLAG_WARMING_UP, WARMING_UP, "WARMING_UP"},
        {COOLING_FLAG_ON, COOLING_ON, "COOLING_ON"},
    };
    static constexpr StateName INACTIVE = {0, COOLING_INACTIVE, "COOLING_INACTIVE"};
    for (const StateName& state : STATES) {
        if ((flags & state.bit) != 0)
            return state;
    }
    return INACTIVE;
}

/// Per cent between the bounds. deliberate: not clamped; equal bounds give infinity or not-a-number.
float powerPercent(unsigned power, uint32_t minPower, uint32_t maxPower)
{
    return 100.0F * (static_cast<float>(power) - static_cast<float>(minPower)) /
           static_cast<float>(maxPower - minPower);
}

}  // namespace

bool VornCameraImpl::getCoolingStatus(COOLING_STATE* state, float* targetTemp, float* power)
{
    TRACE_ENTER("%s-> VornCameraImpl::getCoolingStatus(...)\n");
    if (cooler <= COOLER_ALWAYSON) {
        lastError = "Unsupported operation";
        TRACE_EXIT("%s<- VornCameraImpl::getCoolingStatus 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        ok = readCoolingStatus(state, targetTemp, power);
    }
    if (!ok)
        lastError = "Failed to set cooling status";  // deliberate: "set"
    TRACE_EXIT("%s<- VornCameraImpl::getCoolingStatus %d\n", ok);
    return ok;
}

bool VornCameraImpl::readCoolingStatus(COOLING_STATE* state, float* targetTemp, float* power)
{
    uint8_t reply[8] = {};
    CoolingReply cooling;
    switch (type) {
        case STANDARD:
            if (!sendCommand(CMD_GET_COOLING_STATUS, nullptr, reply, 0, 6))
                return false;
            cooling = decodeStandard(reply);
            break;
        case CLASSIC:
            if (!sendCommand(CMD_GET_COOLING_STATUS, nullptr, reply, 0, 8))
                return false;
            cooling = decodeClassic(reply);
            break;
        case ADVANCED:
            if (!sendCommand(CMD_GET_COOLING_STATUS, nullptr, reply, 0, 8))
                return false;
            cooling = decodeAdvanced(reply);
            break;
        default:  // QUICKER and IIDC have no cooler to ask
            return false;
    }
    if (state == nullptr)  // deliberate: suppresses the other two as well
        return true;

    const StateName& found = coolingState(cooling.flags);
    *state = found.state;
    TRACE_DETAIL("%s    cooler state: %s\n", found.name);
    if (targetTemp != nullptr) {
        *targetTemp = sensorToCelsius(cooling.target);
        TRACE_DETAIL("%s    target temperature: %4.1f\n", static_cast<double>(*targetTemp));
    }
    if (power != nullptr) {
        *power = powerPercent(cooling.power, minCoolerPower, maxCoolerPower);
        TRACE_DETAIL("%s    power: %d%%\n", saturatingTrunc<int32_t>(static_cast<double>(*power)));
    }
    return true;
}

bool VornCameraImpl::setCooling(float targetTemp)
{
    TRACE_ENTER("%s-> vornSetCooling(%4.1f)\n", static_cast<double>(targetTemp));  // deliberate: the name
    if (cooler <= COOLER_ALWAYSON) {
        lastError = "Unsupported operation";
        TRACE_EXIT("%s<- VornCameraImpl::vornSetCooling 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        ok = sendCoolingTarget(targetTemp);
    }
    if (!ok)
        lastError = "Failed to set temperature";
    TRACE_EXIT("%s<- VornCameraImpl::setCooling %d\n", ok);
    return ok;
}

/// Every kind of cooler gets the same set-point command; the low 16 bits of the raw target travel.
bool VornCameraImpl::sendCoolingTarget(float targetTemp)
{
    uint8_t reply[2] = {};
    bool sent = false;
    uint8_t acknowledgement = 0;
    switch (type) {
        case STANDARD:
        case CLASSIC:
            sent =
                sendCommand(CMD_SET_COOLING, static_cast<uint16_t>(celsiusToSensor(targetTemp)), reply, sizeof reply);
            acknowledgement = reply[0];
            break;
        case ADVANCED: {
            uint8_t payload[2];
            putBe16(payload, 0, celsiusToSensor(targetTemp));
            sent = sendCommand(CMD_SET_COOLING, payload, reply, sizeof payload, sizeof reply);
            acknowledgement = reply[1];
            break;
        }
        case QUICKER:
        case IIDC:
            break;
    }
    if (sent && acknowledgement != 1)
        TRACE_DETAIL("%s    invalid response\n");
    return sent && acknowledgement == 1;
}

bool VornCameraImpl::initiateWarmUp()
{
    TRACE_ENTER("%s-> VornCameraImpl::initiateWarmUp()\n");
    if (cooler <= COOLER_ALWAYSON) {
        lastError = "Unsupported operation";
        TRACE_EXIT("%s<- VornCameraImpl::initiateWarmUp 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        switch (type) {
            case STANDARD:
            case CLASSIC:
            case ADVANCED:
                ok = sendCommand(CMD_WARM_UP);
                break;
            case QUICKER:
            case IIDC:
                break;
        }
    }
    if (!ok)
        lastError = "Failed to initiate warmup";
    TRACE_EXIT("%s<- VornCameraImpl::initiateWarmUp %d\n", ok);
    return ok;
}
