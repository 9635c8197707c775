// SPDX-License-Identifier: MIT
// Steps that the identifications of several families share.
#include "lifecycle/camera_impl.h"
#include "lifecycle/description.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/commands.h"
#include "transport/pause.h"
#include "transport/wire.h"

using namespace vornccd;

namespace {

constexpr unsigned STRING_LENGTH = 32;
constexpr long WHEEL_SETTLE_US = 5000000;
constexpr unsigned WHEEL_POLLS = 20;
constexpr long WHEEL_PAUSE_US = 100000;

}  // namespace

/// Reads the items that follow the describe command of STANDARD and CLASSIC cameras, version and strings first. After a
/// failed read the items stay 0; the version is stored in any case.
bool VornCameraImpl::readDescriptionStream(bool ok, StreamDescription& description)
{
    uint8_t version[4] = {};  // minor, -, major, -
    ok = ok && getData(version, sizeof version);
    versionMinor = version[0];
    versionMajor = version[2];
    TRACE_DETAIL("%s    version: %d.%d\n", versionMajor, versionMinor);

    char text[STRING_LENGTH] = {};
    ok = ok && getString(text, sizeof text);
    TRACE_DETAIL("%s    model: %s\n", text);
    ok = ok && getString(text, sizeof text);
    TRACE_DETAIL("%s    manufacturer: %s\n", text);

    for (unsigned* item :
         {&description.flags, &description.pixelCountX, &description.pixelCountY, &description.pixelWidth,
          &description.pixelHeight, &description.maxBinX, &description.maxBinY, &description.wellCapacity})
        ok = ok && getData(item);
    return ok;
}

void VornCameraImpl::storeStreamDescription(const StreamDescription& description)
{
    pixelCountX = description.pixelCountX;
    pixelCountY = description.pixelCountY;
    pixelSizeX = description.pixelWidth / 100.0;
    pixelSizeY = description.pixelHeight / 100.0;
    maxBinX = description.maxBinX;
    maxBinY = description.maxBinY;
}

void VornCameraImpl::traceStreamDescription(const StreamDescription& description)
{
    TRACE_DETAIL("%s    pixel count: %d x %d\n", pixelCountX, pixelCountY);
    TRACE_DETAIL("%s    pixel size: %3.1f x %3.1f\n", pixelSizeX, pixelSizeY);
    TRACE_DETAIL("%s    max bin: %d x %d\n", maxBinX, maxBinY);
    TRACE_DETAIL("%s    well capacity: %d\n", description.wellCapacity);
}

/// What follows the description stream: the application's start, sensors, cooler and serial number. The cooler's bounds
/// lie at these bytes of its reply.
bool VornCameraImpl::identifyEquipment(bool ok, size_t maxPowerOffset, size_t minPowerOffset)
{
    ok = ok && appInit();

    uint8_t reply[6] = {};
    ok = ok && sendCommand(CMD_GET_TEMP_SENSOR_DETAILS, nullptr, reply, 0, 2);
    tempSensorCount = reply[0];
    ok = learnTempSensorType(ok);

    ok = ok && sendCommand(CMD_GET_COOLER_DETAILS, nullptr, reply, 0, sizeof reply);
    storeCooler(reply[0], reply[maxPowerOffset], reply[minPowerOffset]);

    ok = ok && readSerialNumber();
    TRACE_DETAIL("%s    serial # %010u\n", serialNumber);
    return ok;
}

/// Reads sensor 1 once, only for the encoding it reports. Nothing to do without sensors or after a failure.
bool VornCameraImpl::learnTempSensorType(bool ok)
{
    TRACE_DETAIL("%s    temperature sensor count: %d\n", tempSensorCount);
    if (!ok || tempSensorCount == 0)
        return ok;
    ok = getTemperatureSensorStatus(1, nullptr);
    TRACE_DETAIL("%s    temperature sensor type: %d\n", tempSensorType);
    return ok;
}

void VornCameraImpl::storeCooler(unsigned capabilities, uint32_t maxPower, uint32_t minPower)
{
    const CoolerKind& kind = coolerKind(capabilities);
    cooler = kind.cooler;
    maxCoolerPower = maxPower;
    minCoolerPower = minPower;
    TRACE_DETAIL("%s    cooler: %s\n", kind.name);
    TRACE_DETAIL("%s    min cooler power: %d\n", minCoolerPower);
    TRACE_DETAIL("%s    max cooler power: %d\n", maxCoolerPower);
}

/// Reads the serial number from the EEPROM; the high half only when the low half came.
bool VornCameraImpl::readSerialNumber()
{
    uint8_t half[2] = {};
    bool ok = eepRead(EEPROM_SERIAL_LOW, half, sizeof half);
    serialNumber = (serialNumber & 0xFFFF0000U) | getLe16(half, 0);
    if (ok) {
        ok = eepRead(EEPROM_SERIAL_HIGH, half, sizeof half);
        if (ok)
            serialNumber = (serialNumber & 0xFFFFU) | static_cast<uint32_t>(getLe16(half, 0)) << 16;
    }
    return ok;
}

/// I/O lines of QUICKER and ADVANCED cameras: 3 and 4 are inputs.
bool VornCameraImpl::setLineDirections()
{
    bool ok = true;
    for (unsigned line = 0; line < 8; ++line)
        ok = ok && setIODir(line, line == 3 || line == 4 ? 0 : 1);
    return ok;
}

/// Gives the wheel 5 s to find its place, then polls up to 20 times every 0.1 s. A wheel that goes on turning does not
/// fail the open; a failed poll does.
bool VornCameraImpl::waitForFilterWheel(bool ok)
{
    if (!hasFilterWheel)
        return ok;
    if (ok)
        sleepms(WHEEL_SETTLE_US);
    for (unsigned poll = 0; ok && poll < WHEEL_POLLS; ++poll) {
        bool moving = false;
        ok = getFilterWheelStatus(nullptr, &moving, nullptr, nullptr);
        if (!moving)
            break;
        sleepms(WHEEL_PAUSE_US);
    }
    return ok;
}
