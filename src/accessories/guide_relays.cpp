// SPDX-License-Identifier: MIT
#include "accessories/guide_relays.h"

#include "camera_impl.h"
#include "family.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/device_lock.h"
#include "transport/pause.h"

using namespace vornccd;

namespace {

constexpr long RELAY_PAUSE_US = 5000;

/// Two relays of one axis, of which at most one may be closed; the first has precedence.
struct RelayPair {
    unsigned firstBit;
    bool (*closeFirst)(VornCameraImpl& camera);
    unsigned secondBit;
    bool (*closeSecond)(VornCameraImpl& camera);
};

constexpr RelayPair RELAY_PAIRS[] = {
    {0x1, send<CMD_GUIDE_RELAY_1>, 0x2, send<CMD_GUIDE_RELAY_2>},
    {0x4, send<CMD_GUIDE_RELAY_3>, 0x8, send<CMD_GUIDE_RELAY_4>},
};

}  // namespace

bool VornCameraImpl::setGuideRelays(unsigned short relayMask)
{
    TRACE_ENTER("%s-> VornCameraImpl::setGuideRelays(%d)\n", relayMask);
    if (!hasGuidePort) {
        lastError = "Unsupported operation";
        TRACE_EXIT("%s<- VornCameraImpl::setGuideRelays 00\n");
        return false;
    }
    bool ok = false;
    {
        DeviceLock held(*this);
        ok = functionsOf(type).setGuideRelays(*this, relayMask);
    }
    if (!ok)
        lastError = "Failed to set guide relays";
    TRACE_EXIT("%s<- VornCameraImpl::setGuideRelays %d\n", ok);
    return ok;
}

bool vornccd::switchGuideRelays(VornCameraImpl& camera, unsigned relayMask)
{
    bool ok = send<CMD_GUIDE_RELAYS_OFF>(camera);
    for (const RelayPair& pair : RELAY_PAIRS) {
        if (!ok || (relayMask & (pair.firstBit | pair.secondBit)) == 0)
            continue;
        sleepms(RELAY_PAUSE_US);
        ok = (relayMask & pair.firstBit) != 0 ? pair.closeFirst(camera) : pair.closeSecond(camera);
    }
    return ok;
}
