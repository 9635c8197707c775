// SPDX-License-Identifier: MIT
#include "accessories/cooling.h"

#include "camera_impl.h"
#include "family.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/device_lock.h"
#include "transport/saturate.h"

using namespace vornccd;

namespace {

constexpr uint8_t COOLING_ACCEPTED = 1;

// State flags
constexpr unsigned COOLING_FLAG_SETPOINT = 0x80;
constexpr unsigned COOLING_FLAG_WARMING_UP = 0x20;
constexpr unsigned COOLING_FLAG_ON = 0x40;

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

/// Asks the camera. deliberate: without a place for the state the other two are not stored either.
bool readCoolingStatus(VornCameraImpl& camera, COOLING_STATE* state, float* targetTemp, float* power)
{
    CoolingReply cooling;
    if (!functionsOf(camera.type).readCooling(camera, cooling))
        return false;
    if (state == nullptr)
        return true;

    const StateName& found = coolingState(cooling.flags);
    *state = found.state;
    TRACE_DETAIL("%s    cooler state: %s\n", found.name);
    if (targetTemp != nullptr) {
        *targetTemp = camera.sensorToCelsius(cooling.target);
        TRACE_DETAIL("%s    target temperature: %4.1f\n", static_cast<double>(*targetTemp));
    }
    if (power != nullptr) {
        *power = powerPercent(cooling.power, camera.minCoolerPower, camera.maxCoolerPower);
        TRACE_DETAIL("%s    power: %d%%\n", saturatingTrunc<int32_t>(static_cast<double>(*power)));
    }
    return true;
}

/// Every kind of cooler gets the same set-point command.
bool sendCoolingTarget(VornCameraImpl& camera, float targetTemp)
{
    uint8_t acknowledgement = 0;
    const bool sent = functionsOf(camera.type).setCoolingTarget(camera, targetTemp, acknowledgement);
    if (sent && acknowledgement != COOLING_ACCEPTED)
        TRACE_DETAIL("%s    invalid response\n");
    return sent && acknowledgement == COOLING_ACCEPTED;
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
        ok = readCoolingStatus(*this, state, targetTemp, power);
    }
    if (!ok)
        lastError = "Failed to set cooling status";  // deliberate: "set"
    TRACE_EXIT("%s<- VornCameraImpl::getCoolingStatus %d\n", ok);
    return ok;
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
        ok = sendCoolingTarget(*this, targetTemp);
    }
    if (!ok)
        lastError = "Failed to set temperature";
    TRACE_EXIT("%s<- VornCameraImpl::setCooling %d\n", ok);
    return ok;
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
        ok = factsOf(type).takesCommands && send<CMD_WARM_UP>(*this);
    }
    if (!ok)
        lastError = "Failed to initiate warmup";
    TRACE_EXIT("%s<- VornCameraImpl::initiateWarmUp %d\n", ok);
    return ok;
}
