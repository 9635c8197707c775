// SPDX-License-Identifier: MIT
#include "accessories/temperature.h"

#include "accessories/temperature_conversion.h"
#include "camera_impl.h"
#include "family.h"
#include "trace/trace.h"
#include "transport/device_lock.h"

using namespace vornccd;

float VornCameraImpl::sensorToCelsius(int value)
{
    if (tempSensorType == 0)
        assertionFailed("Assertion \"tempSensorType!=0\" failed (%s, %d)\n", 225);
    return rawToCelsius(tempSensorType, value);
}

unsigned VornCameraImpl::celsiusToSensor(float celsius)
{
    if (tempSensorType == 0)
        assertionFailed("Assertion \"tempSensorType!=0\" failed (%s, %d)\n", 236);
    return celsiusToRaw(tempSensorType, celsius);
}

bool VornCameraImpl::getTemperatureSensorStatus(unsigned int sensor, float* currentTemp)
{
    TRACE_ENTER("%s-> VornCameraImpl::getTemperatureSensorStatus(%d, ...)\n", sensor);
    if (sensor > tempSensorCount) {
        lastError = "Invalid parameter";
        TRACE_EXIT("%s<- VornCameraImpl::getTemperatureSensorStatus 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        ok = functionsOf(type).readTemperature(*this, sensor, currentTemp);
    }
    if (!ok)
        lastError = "Failed to read temperature sensor status";
    TRACE_EXIT("%s<- VornCameraImpl::getTemperatureSensorStatus %d\n", ok);
    return ok;
}

void vornccd::storeTemperature(VornCameraImpl& camera, uint32_t raw, float* celsius)
{
    if (celsius == nullptr)
        return;
    *celsius = camera.sensorToCelsius(static_cast<int>(raw));
    TRACE_DETAIL("%s    current temperature: %4.1f\n", static_cast<double>(*celsius));
}
