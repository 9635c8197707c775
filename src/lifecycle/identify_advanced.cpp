// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "lifecycle/description.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/pause.h"
#include "transport/waveforms.h"
#include "transport/wire.h"

#include <cinttypes>

using namespace vornccd;

namespace {

constexpr long SETTLE_US = 200000;
constexpr int64_t VREG_CLEAR_TIME_DEFAULT_US = 300000;

}  // namespace

bool VornCameraImpl::identifyAdvanced(bool ok)
{
    ok = ok && parInit(1U);
    ok = ok && parInit(ParInitQSlowData);
    ok = ok && setLineDirections();
    ok = ok && spiInit();
    ok = ok && setIODir(0, 1);
    ok = ok && setIOState(0, 0);
    if (ok)
        sleepms(SETTLE_US);
    ok = ok && ping();
    ok = ok && setParTimeout(2000);
    if (ok)
        sleepms(SETTLE_US);
    ok = ok && ping();

    // One buffer for all replies. deliberate: the line count and the serial number are taken from it even when their
    // command failed, stale bytes and all.
    std::array<uint8_t, ADVANCED_DESCRIPTION_LENGTH> reply = {};
    ok = ok && sendCommand(CMD_GET_DESCRIPTOR, nullptr, reply.data(), 0, reply.size());
    if (ok) {
        const AdvancedDescription description = decodeAdvancedDescription(reply);
        versionMajor = description.versionMajor;
        versionMinor = description.versionMinor;
        TRACE_DETAIL("%s    version: %d.%d\n", versionMajor, versionMinor);
        TRACE_DETAIL("%s    model: %s\n", description.model.data());
        TRACE_DETAIL("%s    manufacturer: %s\n", description.manufacturer.data());
        const unsigned flags = description.items.flags;
        // deliberate: hasShutter stays as it was; the family never reports one.
        hasGuidePort = (flags & NO_GUIDE_PORT) == 0;
        hasGPIO = (flags & HAS_GPIO) != 0;
        has8BitMode = (flags & HAS_8_BIT_MODE) != 0;
        hasFilterWheel = (flags & HAS_FILTER_WHEEL) != 0;
        tempSensorCount = 0;
        storeStreamDescription(description.items);
        TRACE_DETAIL("%s    flags: 0x%0x %s%s%s%s%s%s%s%s%s%s%s\n", flags, flagName(flags, INTERLACED, " INTERLACED"),
                     flagName(flags, EXT_TRIGGER, " EXT_TRIGGER"), flagName(flags, PREVIEW, " PREVIEW"),
                     flagName(flags, SUBSAMPLE, " SUBSAMPLE"), flagName(flags, OVERLAP, " OVERLAP"),
                     flagName(flags, HAS_SHUTTER, " HAS_SHUTTER"), flagName(~flags, NO_GUIDE_PORT, " HAS_GUIDE_PORT"),
                     flagName(flags, HAS_GPIO, " HAS_GPIO"), flagName(flags, HAS_WINDOW_HEATER, " HAS_WINDOW_HEATER"),
                     flagName(flags, HAS_8_BIT_MODE, " HAS_8_BIT_MODE"),
                     flagName(flags, HAS_FILTER_WHEEL, " HAS_FILTER_WHEEL"));
        traceStreamDescription(description.items);
    }

    vregClearTime = VREG_CLEAR_TIME_DEFAULT_US;
    if (ok && versionMajor > 1) {
        ok = sendCommand(CMD_GET_VREG_CLEAR_TIME, nullptr, reply.data(), 0, 2);
        if (ok)
            vregClearTime = getBe16(reply.data(), 0) * int64_t{1000};
    }
    TRACE_DETAIL("%s    VReg clear time: %" PRId64 "us\n", vregClearTime);

    ok = ok && appInit();

    ok = ok && sendCommand(CMD_GET_TEMP_SENSOR_DETAILS, nullptr, reply.data(), 0, 2);
    if (ok) {
        tempSensorCount = getBe16(reply.data(), 0);
        ok = learnTempSensorType(ok);
    }

    ok = ok && sendCommand(CMD_GET_COOLER_DETAILS, nullptr, reply.data(), 0, 6);
    if (ok)
        storeCooler(getBe16(reply.data(), 0), getBe16(reply.data(), 2), getBe16(reply.data(), 4));

    if (hasGPIO) {
        ok = ok && sendCommand(CMD_GET_GPIO, nullptr, reply.data(), 0, 4);
        lineCount = getBe16(reply.data(), 0);
        TRACE_DETAIL("%s    GPIO line count: %d\n", lineCount);
    }
    ok = ok && sendCommand(CMD_GET_SERIAL, nullptr, reply.data(), 0, 6);
    serialNumber = getBe16(reply.data(), 4);
    TRACE_DETAIL("%s    serial # %010u\n", serialNumber);
    return waitForFilterWheel(ok);
}
