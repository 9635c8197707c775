// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "lifecycle/description.h"
#include "trace/trace.h"
#include "transport/commands.h"

using namespace vornccd;

namespace {

// Cameras whose own description gives the wrong size.
struct SizeOverride {
    uint32_t productId;
    uint32_t pixelCountX;
    uint32_t pixelCountY;
};
constexpr SizeOverride SIZE_OVERRIDES[] = {
    {0xdf31, 3326, 2504},
    {0xdf50, 4499, 3599},
};

}  // namespace

bool VornCameraImpl::identifyStandard(bool ok, uint32_t productId)
{
    ok = ok && i2cSetTimeout(100);
    ok = ok && setParTimeout(1000);
    ok = ok && parInit(9U);
    ok = ok && ping();

    ok = ok && sendCommand(CMD_GET_DESCRIPTOR);
    // deliberate: the fields take what was read also when a read failed.
    StreamDescription description;
    ok = readDescriptionStream(ok, description);
    const unsigned flags = description.flags;
    hasShutter = (flags & HAS_SHUTTER) != 0;
    hasGuidePort = (flags & NO_GUIDE_PORT) == 0;
    hasFilterWheel = (flags & HAS_FILTER_WHEEL) != 0;
    hasGPIO = false;  // deliberate: whatever the flags say
    has8BitMode = false;
    storeStreamDescription(description);
    for (const SizeOverride& size : SIZE_OVERRIDES) {
        if (productId == size.productId) {
            pixelCountX = size.pixelCountX;
            pixelCountY = size.pixelCountY;
        }
    }
    TRACE_DETAIL("%s    flags: 0x%0x %s%s%s%s%s%s%s%s%s%s\n", flags, flagName(flags, FIFO, " FIFO"),
                 flagName(flags, INTERLACED, " INTERLACED"), flagName(flags, EXT_TRIGGER, " EXT_TRIGGER"),
                 flagName(flags, PREVIEW, " PREVIEW"), flagName(flags, SUBSAMPLE, " SUBSAMPLE"),
                 flagName(flags, OVERLAP, " OVERLAP"), flagName(flags, HAS_SHUTTER, " HAS_SHUTTER"),
                 flagName(~flags, NO_GUIDE_PORT, " HAS_GUIDE_PORT"), flagName(flags, HAS_GPIO, " HAS_GPIO"),
                 flagName(flags, HAS_FILTER_WHEEL, " HAS_FILTER_WHEEL"));
    traceStreamDescription(description);
    return waitForFilterWheel(identifyEquipment(ok, 2, 4));
}
