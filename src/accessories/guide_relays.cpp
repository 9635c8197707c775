// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/pause.h"

using namespace vornccd;

namespace {

constexpr long RELAY_PAUSE_US = 5000;
constexpr unsigned REGISTER_CONTROL = 2;  // QUICKER: relays in the low four bits

/// Two relays of one axis, of which at most one may be closed; the first has precedence.
struct RelayPair {
    unsigned firstBit;
    Command firstCommand;
    unsigned secondBit;
    Command secondCommand;
};

constexpr RelayPair RELAY_PAIRS[] = {
    {0x1, CMD_GUIDE_RELAY_1, 0x2, CMD_GUIDE_RELAY_2},
    {0x4, CMD_GUIDE_RELAY_3, 0x8, CMD_GUIDE_RELAY_4},
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
        switch (type) {
            case QUICKER:
                // Kept: exposures write the same register and must not end a pulse. deliberate: both bits of a pair
                // pass.
                guideRelayState = relayMask & 0x0F;
                ok = spiWrite(REGISTER_CONTROL, guideRelayState);
                break;
            case STANDARD:
            case ADVANCED:
                ok = switchGuideRelays(relayMask);
                break;
            case CLASSIC:
            case IIDC:
                break;
        }
    }
    if (!ok)
        lastError = "Failed to set guide relays";
    TRACE_EXIT("%s<- VornCameraImpl::setGuideRelays %d\n", ok);
    return ok;
}

/// Opens all relays, then closes one of each pair at most. A failure leaves the relays as they are then.
bool VornCameraImpl::switchGuideRelays(unsigned relayMask)
{
    bool ok = sendCommand(CMD_GUIDE_RELAYS_OFF);
    for (const RelayPair& pair : RELAY_PAIRS) {
        if (!ok || (relayMask & (pair.firstBit | pair.secondBit)) == 0)
            continue;
        sleepms(RELAY_PAUSE_US);
        ok = sendCommand((relayMask & pair.firstBit) != 0 ? pair.firstCommand : pair.secondCommand);
    }
    return ok;
}
