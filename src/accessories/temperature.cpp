// SPDX-License-Identifier: MIT
#include "accessories/temperature_conversion.h"
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/iidc_registers.h"
#include "transport/wire.h"

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
        ok = readTemperature(sensor, currentTemp);
    }
    if (!ok)
        lastError = "Failed to read temperature sensor status";
    TRACE_EXIT("%s<- VornCameraImpl::getTemperatureSensorStatus %d\n", ok);
    return ok;
}

/// Asks one sensor. deliberate: on STANDARD and CLASSIC a reply without a sensor type ends the process when a
/// temperature is asked for; on ADVANCED it leaves the caller's temperature alone.
bool VornCameraImpl::readTemperature(unsigned sensor, float* currentTemp)
{
    uint8_t reply[6] = {};
    int raw = 0;
    switch (type) {
        case STANDARD:  // 0 type, 2 raw value (little-endian)
            if (!sendCommand(CMD_GET_TEMPERATURE, static_cast<uint16_t>(sensor), reply, sizeof reply))
                return false;
            tempSensorType = reply[0];
            raw = getLe16(reply, 2);
            break;
        case CLASSIC:  // 0 type, 1 raw value (little-endian), after compaction
            if (!sendCommand(CMD_GET_TEMPERATURE, static_cast<uint16_t>(sensor), reply, sizeof reply))
                return false;
            tempSensorType = reply[0];
            raw = getLe16(reply, 1);
            break;
        case ADVANCED: {  // 1 type, 2 raw value (big-endian)
            uint8_t payload[2];
            putBe16(payload, 0, sensor);
            if (!sendCommand(CMD_GET_TEMPERATURE, payload, reply, sizeof payload, sizeof reply))
                return false;
            tempSensorType = reply[1];
            TRACE_DETAIL("%s    temperature senzor type: %d\n", tempSensorType);
            if (tempSensorType == 0)
                return true;
            raw = getBe16(reply, 2);
            break;
        }
        case IIDC: {
            // deliberate: a failed register read gives 0, hence -273.15 degrees and success.
            const uint32_t tenthsKelvin = readRegister(IIDC_TEMPERATURE) & 0xFFF;
            const auto celsius = static_cast<float>(tenthsKelvin / 10.0 - 273.15);
            if (currentTemp != nullptr)
                *currentTemp = celsius;
            TRACE_DETAIL("%s    current temperature: %4.1f\n", static_cast<double>(celsius));
            return true;
        }
        default:  // QUICKER has no sensors
            return false;
    }
    if (currentTemp != nullptr) {
        *currentTemp = sensorToCelsius(raw);
        TRACE_DETAIL("%s    current temperature: %4.1f\n", static_cast<double>(*currentTemp));
    }
    return true;
}
