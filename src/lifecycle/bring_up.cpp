// SPDX-License-Identifier: MIT
#include "lifecycle/bring_up.h"

#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/commands.h"
#include "transport/waveforms.h"

namespace vornccd {

namespace {

constexpr unsigned STRING_LENGTH = 32;
constexpr long WHEEL_SETTLE_US = 5000000;
constexpr unsigned WHEEL_POLLS = 20;
constexpr long WHEEL_PAUSE_US = 100000;
constexpr unsigned LINE_COUNT = 8;
constexpr unsigned FIRST_INPUT_LINE = 3;
constexpr unsigned LAST_INPUT_LINE = 4;

// The version, as it begins the stream
constexpr size_t VERSION_LENGTH = 4;
constexpr Field VERSION_MINOR = byteAt(0);
constexpr Field VERSION_MAJOR = byteAt(2);

constexpr Field SENSOR_COUNT = byteAt(0);  // of the sensor details

bool setLineDirections(VornCameraImpl& camera)
{
    for (unsigned line = 0; line < LINE_COUNT; ++line) {
        const bool input = line >= FIRST_INPUT_LINE && line <= LAST_INPUT_LINE;
        if (!camera.setIODir(line, input ? 0 : 1))
            return false;
    }
    return true;
}

/// One 16-bit item of the description.
bool readItem(VornCameraImpl& camera, unsigned* item)
{
    return camera.getData(item);
}

bool readBytes(VornCameraImpl& camera, std::span<uint8_t> bytes)
{
    return camera.getData(bytes.data(), static_cast<unsigned>(bytes.size()));
}

}  // namespace

bool loadWaveformMode(VornCameraImpl& camera, unsigned mode)
{
    return camera.parInit(mode);
}

bool loadWaveformTable(VornCameraImpl& camera, const uint8_t* table)
{
    return camera.parInit(table);
}

void setUpLines(StepRunner& steps)
{
    steps.run(loadWaveformMode, WAVEFORM_MODE_1);
    steps.run(loadWaveformTable, ParInitQSlowData);
    steps.run(setLineDirections);
    steps.run(&VornCameraImpl::spiInit);
}

StreamDescription readDescriptionStream(StepRunner& steps)
{
    VornCameraImpl& camera = steps.camera;
    uint8_t version[VERSION_LENGTH] = {};
    steps.run(readBytes, std::span(version));
    camera.versionMinor = unpack(version, VERSION_MINOR);
    camera.versionMajor = unpack(version, VERSION_MAJOR);
    TRACE_DETAIL("%s    version: %d.%d\n", camera.versionMajor, camera.versionMinor);

    char text[STRING_LENGTH] = {};
    steps.run(&VornCameraImpl::getString, text, STRING_LENGTH);
    TRACE_DETAIL("%s    model: %s\n", text);
    steps.run(&VornCameraImpl::getString, text, STRING_LENGTH);
    TRACE_DETAIL("%s    manufacturer: %s\n", text);

    StreamDescription description;
    for (unsigned StreamDescription::*item : DESCRIPTION_ITEMS)
        steps.run(readItem, &(description.*item));
    return description;
}

void storeDescription(VornCameraImpl& camera, const StreamDescription& description)
{
    camera.pixelCountX = description.pixelCountX;
    camera.pixelCountY = description.pixelCountY;
    camera.pixelSizeX = description.pixelWidth / 100.0;
    camera.pixelSizeY = description.pixelHeight / 100.0;
    camera.maxBinX = description.maxBinX;
    camera.maxBinY = description.maxBinY;
}

void traceDescription(const VornCameraImpl& camera, const StreamDescription& description)
{
    TRACE_DETAIL("%s    pixel count: %d x %d\n", camera.pixelCountX, camera.pixelCountY);
    TRACE_DETAIL("%s    pixel size: %3.1f x %3.1f\n", camera.pixelSizeX, camera.pixelSizeY);
    TRACE_DETAIL("%s    max bin: %d x %d\n", camera.maxBinX, camera.maxBinY);
    TRACE_DETAIL("%s    well capacity: %d\n", description.wellCapacity);
}

void identifyEquipment(StepRunner& steps, const CoolerDetailsLayout& layout)
{
    VornCameraImpl& camera = steps.camera;
    steps.run(&VornCameraImpl::appInit);

    uint8_t reply[CMD_GET_COOLER_DETAILS.replyLength] = {};  // of both commands
    steps.run(ask<CMD_GET_TEMP_SENSOR_DETAILS>, std::span(reply).first<CMD_GET_TEMP_SENSOR_DETAILS.replyLength>());
    camera.tempSensorCount = unpack(reply, SENSOR_COUNT);
    learnTempSensorType(steps);

    steps.run(ask<CMD_GET_COOLER_DETAILS>, std::span(reply));
    storeCooler(camera, reply, layout);

    steps.run(readSerialNumber);
    traceSerialNumber(camera);
}

void learnTempSensorType(StepRunner& steps)
{
    VornCameraImpl& camera = steps.camera;
    TRACE_DETAIL("%s    temperature sensor count: %d\n", camera.tempSensorCount);
    if (!steps.ok() || camera.tempSensorCount == 0)
        return;
    steps.run(&VornCameraImpl::getTemperatureSensorStatus, 1U, nullptr);
    TRACE_DETAIL("%s    temperature sensor type: %d\n", camera.tempSensorType);
}

void storeCooler(VornCameraImpl& camera, std::span<const uint8_t> reply, const CoolerDetailsLayout& layout)
{
    const CoolerKind& kind = coolerKind(unpack(reply, layout.capabilities));
    camera.cooler = kind.cooler;
    camera.maxCoolerPower = unpack(reply, layout.maxPower);
    camera.minCoolerPower = unpack(reply, layout.minPower);
    TRACE_DETAIL("%s    cooler: %s\n", kind.name);
    TRACE_DETAIL("%s    min cooler power: %d\n", camera.minCoolerPower);
    TRACE_DETAIL("%s    max cooler power: %d\n", camera.maxCoolerPower);
}

bool readSerialNumber(VornCameraImpl& camera)
{
    uint8_t half[EEPROM_NUMBER_LENGTH] = {};
    const bool ok = camera.eepRead(EEPROM_SERIAL_LOW, half, sizeof half);
    camera.serialNumber = (camera.serialNumber & 0xFFFF0000U) | unpack(half, EEPROM_NUMBER);
    if (!ok || !camera.eepRead(EEPROM_SERIAL_HIGH, half, sizeof half))
        return false;
    camera.serialNumber = (camera.serialNumber & 0xFFFFU) | unpack(half, EEPROM_NUMBER) << 16;
    return true;
}

void traceSerialNumber(const VornCameraImpl& camera)
{
    TRACE_DETAIL("%s    serial # %010u\n", camera.serialNumber);
}

bool waitForFilterWheel(VornCameraImpl& camera)
{
    if (!camera.hasFilterWheel)
        return true;
    sleepms(WHEEL_SETTLE_US);
    for (unsigned poll = 0; poll < WHEEL_POLLS; ++poll) {
        bool moving = false;
        const bool ok = camera.getFilterWheelStatus(nullptr, &moving, nullptr, nullptr);
        if (!moving)  // as after a failure
            return ok;
        sleepms(WHEEL_PAUSE_US);
    }
    return true;
}

}  // namespace vornccd
