// SPDX-License-Identifier: MIT
// Numbered commands: what the families share. Their dialects stand in families/.
#include "camera_impl.h"
#include "family.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/command_frame.h"
#include "transport/commands.h"
#include "transport/layout.h"
#include "transport/pause.h"

#include <cstring>
#include <limits>

using namespace vornccd;

namespace {

constexpr long TEMPERATURE_PAUSE_US = 100000;

// No command comes near this; it keeps sums of lengths inside 32 bits.
constexpr unsigned LONGEST_BYTES = std::numeric_limits<unsigned>::max() / 4;

}  // namespace

CommandFrame vornccd::commandFrame(std::span<const uint8_t> header, const CommandExchange& exchange, unsigned padding)
{
    const auto headerLength = static_cast<unsigned>(header.size());
    const unsigned length = headerLength + exchange.payloadLength + padding;
    CommandFrame frame = {zeroedBytes(length), length};
    if (!frame.bytes)
        return frame;
    std::memcpy(frame.bytes.get(), header.data(), headerLength);
    if (exchange.payload != nullptr && exchange.payloadLength != 0)
        std::memcpy(&frame.bytes[headerLength], exchange.payload, exchange.payloadLength);
    return frame;
}

void vornccd::awaitMeasurement(unsigned code)
{
    if (code == CMD_GET_TEMPERATURE.code)
        sleepms(TEMPERATURE_PAUSE_US);
}

bool VornCameraImpl::sendCommand(unsigned cmd, const uint8_t* payload, uint8_t* reply, unsigned payloadLength,
                                 unsigned replyLength)
{
    TRACE_ENTER("%s-> VornCameraImpl::sendCommand(%d, %s, ..., %d, %d)\n", cmd, _d(payload, payloadLength),
                payloadLength, replyLength);
    bool ok = false;
    if (payloadLength < LONGEST_BYTES && replyLength < LONGEST_BYTES) {
        if (refusesCommands(type))
            assertionFailed("Assertion failed (%s, %d)\n", 486);
        ok = functionsOf(type).exchangeCommand(*this, {cmd, payload, reply, payloadLength, replyLength});
    }
    TRACE_EXIT("%s<- VornCameraImpl::sendCommand %d %s\n", ok, _d(reply, replyLength));
    return ok;
}

bool VornCameraImpl::sendCommand(unsigned cmd)
{
    return sendCommand(cmd, nullptr, nullptr, 0, 0);
}

bool VornCameraImpl::sendCommand(unsigned cmd, uint16_t value)
{
    if (refusesCommands(type))
        assertionFailed("Assertion failed (%s, %d)\n", 505);
    uint8_t payload[2];
    pack(payload, {0, sizeof payload, factsOf(type).payloadOrder}, value);
    return sendCommand(cmd, payload, nullptr, sizeof payload, 0);
}

bool VornCameraImpl::sendCommand(unsigned cmd, uint16_t value, uint8_t* reply, unsigned replyLength)
{
    // deliberate: low byte first on ADVANCED too; callers that need its order build the payload themselves.
    uint8_t payload[2];
    pack(payload, le16At(0), value);
    return sendCommand(cmd, payload, reply, sizeof payload, replyLength);
}
