// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "lifecycle/description.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/pause.h"
#include "transport/waveforms.h"

using namespace vornccd;

namespace {

constexpr long SETTLE_US = 200000;

}  // namespace

bool VornCameraImpl::identifyQuicker(bool ok)
{
    ok = ok && parInit(1U);
    ok = ok && parInit(ParInitQSlowData);
    ok = ok && setLineDirections();
    ok = ok && spiInit();
    ok = ok && setIOState(1, 1);
    ok = ok && setIOState(1, 0);
    ok = ok && setIOState(2, 1);
    ok = ok && ping();
    ok = ok && setParTimeout(2000);
    sleepms(SETTLE_US);  // after a failure too

    std::array<uint8_t, QUICKER_DESCRIPTION_LENGTH> bytes = {};
    ok = ok && eepRead(EEPROM_DESCRIPTION, bytes.data(), bytes.size());
    if (ok) {
        const QuickerDescription description = decodeQuickerDescription(bytes);
        const unsigned flags = description.flags;
        versionMajor = description.versionMajor;
        versionMinor = description.versionMinor;
        hasGuidePort = (flags & QUICKER_HAS_GUIDE_PORT) != 0;
        pcCds = (flags & QUICKER_PC_CDS) != 0;
        hasShutter = false;
        has8BitMode = false;
        hasFilterWheel = false;
        hasGPIO = false;
        tempSensorCount = 0;
        cooler = COOLER_NONE;
        pixelCountX = description.pixelCountX;
        pixelCountY = description.pixelCountY;
        pixelSizeX = description.pixelWidth / 10.0;
        pixelSizeY = description.pixelHeight / 10.0;
        maxBinX = description.maxBinX;
        maxBinY = description.maxBinY;
        prechargeOffset = description.prechargeOffset;
        TRACE_DETAIL("%s    version: %d.%d\n", versionMajor, versionMinor);
        TRACE_DETAIL("%s    model: %s\n", description.model.data());
        TRACE_DETAIL("%s    manufacturer: %s\n", description.manufacturer.data());
        TRACE_DETAIL("%s    flags: 0x%0x %s%s%s\n", flags, flagName(flags, QUICKER_HAS_GUIDE_PORT, " HAS_GUIDE_PORT"),
                     flagName(flags, QUICKER_NO_FAST_USB, " NO_FAST_USB"), flagName(flags, QUICKER_PC_CDS, " PC_CDS"));
        TRACE_DETAIL("%s    pixel count: %d x %d\n", pixelCountX, pixelCountY);
        TRACE_DETAIL("%s    pixel size: %3.1f x %3.1f\n", pixelSizeX, pixelSizeY);
        TRACE_DETAIL("%s    max bin: %d x %d\n", maxBinX, maxBinY);
        TRACE_DETAIL("%s    precharge offset: %d\n", prechargeOffset);
    }

    ok = ok && readSerialNumber();
    TRACE_DETAIL("%s    serial # %010u\n", serialNumber);
    ok = ok && setADC();
    return ok;
}
