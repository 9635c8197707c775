// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "lifecycle/description.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/waveforms.h"

using namespace vornccd;

/// Connection check; while it fails, open() starts all over again.
bool VornCameraImpl::connectClassic(bool ok)
{
    ok = ok && i2cSetTimeout(100);
    ok = ok && setParTimeout(1000);
    ok = ok && parInit(1U);
    ok = ok && parInit(ParInitData);
    ok = ok && ping();
    return ok;
}

bool VornCameraImpl::identifyClassic(bool ok)
{
    ok = ok && sendCommand(CMD_GET_DESCRIPTOR_CLASSIC);
    StreamDescription description;
    ok = readDescriptionStream(ok, description);
    const unsigned flags = description.flags;
    hasShutter = false;  // deliberate: the family has none of these, whatever the flags say
    hasGuidePort = false;
    has8BitMode = false;
    hasFilterWheel = false;
    hasGPIO = false;
    storeStreamDescription(description);
    pixelCountX -= 1;  // deliberate: the camera reports one too many
    pixelCountY -= 1;
    TRACE_DETAIL("%s    flags: 0x%0x %s%s%s%s%s%s\n", flags, flagName(flags, FIFO, " FIFO"),
                 flagName(flags, INTERLACED, " INTERLACED"), flagName(flags, EXT_TRIGGER, " EXT_TRIGGER"),
                 flagName(flags, PREVIEW, " PREVIEW"), flagName(flags, SUBSAMPLE, " SUBSAMPLE"),
                 flagName(flags, OVERLAP, " OVERLAP"));
    traceStreamDescription(description);
    return identifyEquipment(ok, 1, 2);
}
