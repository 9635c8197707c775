// SPDX-License-Identifier: MIT
// Numbered commands in the three dialects of the camera's application.
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/commands.h"
#include "transport/heap_bytes.h"
#include "transport/pause.h"
#include "transport/wire.h"

#include <cstring>
#include <limits>

using namespace vornccd;

namespace {

constexpr long TEMPERATURE_PAUSE_US = 100000;

// No command comes near this; it keeps the sums below inside 32 bits.
constexpr unsigned LONGEST_BYTES = std::numeric_limits<unsigned>::max() / 4;

/// Payload area of a frame: the payload, or zeros without one.
void putPayload(uint8_t* area, const uint8_t* payload, unsigned length)
{
    if (payload != nullptr && length != 0)
        std::memcpy(area, payload, length);
    else
        std::memset(area, 0, length);
}

/// The camera measures after it was asked.
void awaitMeasurement(unsigned cmd)
{
    if (cmd == CMD_GET_TEMPERATURE)
        sleepms(TEMPERATURE_PAUSE_US);
}

}  // namespace

bool VornCameraImpl::sendCommand(unsigned cmd, const uint8_t* payload, uint8_t* reply, unsigned payloadLength,
                                 unsigned replyLength)
{
    TRACE_ENTER("%s-> VornCameraImpl::sendCommand(%d, %s, ..., %d, %d)\n", cmd, _d(payload, payloadLength),
                payloadLength, replyLength);
    bool ok = false;
    if (payloadLength < LONGEST_BYTES && replyLength < LONGEST_BYTES) {
        switch (type) {
            case STANDARD:
                ok = sendStandard(cmd, payload, reply, payloadLength, replyLength);
                break;
            case CLASSIC:
                ok = sendClassic(cmd, payload, reply, payloadLength, replyLength);
                break;
            case ADVANCED:
                ok = sendAdvanced(cmd, payload, reply, payloadLength, replyLength);
                break;
            case QUICKER:
            case IIDC:
                assertionFailed("Assertion failed (%s, %d)\n", 486);
        }
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
    uint8_t payload[2] = {};
    switch (type) {
        case STANDARD:
        case CLASSIC:
            putLe16(payload, 0, value);
            break;
        case ADVANCED:
            putBe16(payload, 0, value);
            break;
        case QUICKER:
        case IIDC:
            assertionFailed("Assertion failed (%s, %d)\n", 505);
    }
    return sendCommand(cmd, payload, nullptr, sizeof payload, 0);
}

bool VornCameraImpl::sendCommand(unsigned cmd, uint16_t value, uint8_t* reply, unsigned replyLength)
{
    // deliberate: low byte first on ADVANCED too; callers that need its order build the payload themselves.
    uint8_t payload[2];
    putLe16(payload, 0, value);
    return sendCommand(cmd, payload, reply, sizeof payload, replyLength);
}

/// "C" 0 "M" 0 "D" 0 cmd 0, the payload, one zero when its length is odd: the bus moves 16-bit words.
bool VornCameraImpl::sendStandard(unsigned cmd, const uint8_t* payload, uint8_t* reply, unsigned payloadLength,
                                  unsigned replyLength)
{
    const uint8_t header[8] = {'C', 0, 'M', 0, 'D', 0, static_cast<uint8_t>(cmd), 0};
    const unsigned padding = payloadLength & 1;
    const unsigned length = static_cast<unsigned>(sizeof header) + payloadLength + padding;
    HeapBytes frame = uninitialisedBytes(length);
    if (!frame)
        return false;
    std::memcpy(frame.get(), header, sizeof header);
    putPayload(&frame[sizeof header], payload, payloadLength);
    if (padding != 0)
        frame[length - 1] = 0;
    const bool sent = parOut(frame.get(), length);
    frame.reset();
    if (!sent)
        return false;
    awaitMeasurement(cmd);
    return reply == nullptr || parIn(reply, replyLength);
}

/// "H" "S" "C" cmd, then the payload, over I2C; the reply comes over the parallel bus, a byte a word.
bool VornCameraImpl::sendClassic(unsigned cmd, const uint8_t* payload, uint8_t* reply, unsigned payloadLength,
                                 unsigned replyLength)
{
    const uint8_t header[4] = {'H', 'S', 'C', static_cast<uint8_t>(cmd)};
    const unsigned length = static_cast<unsigned>(sizeof header) + payloadLength;
    HeapBytes frame = uninitialisedBytes(length);
    if (!frame)
        return false;
    std::memcpy(frame.get(), header, sizeof header);
    putPayload(&frame[sizeof header], payload, payloadLength);
    const bool sent = i2cWrite(I2C_CLASSIC, frame.get(), length);
    frame.reset();
    if (!sent)
        return false;
    awaitMeasurement(cmd);
    if (reply == nullptr)
        return true;
    if (!parIn(reply, replyLength))
        return false;
    for (unsigned i = 0; i < replyLength / 2; ++i)
        reply[i] = reply[2UL * i];
    return true;
}

/// "C" "M" "D" cmd, the payload, zeros for the reply: one exchange both ways, the reply behind the frame's bytes.
bool VornCameraImpl::sendAdvanced(unsigned cmd, const uint8_t* payload, uint8_t* reply, unsigned payloadLength,
                                  unsigned replyLength)
{
    const uint8_t header[4] = {'C', 'M', 'D', static_cast<uint8_t>(cmd)};
    const unsigned replyOffset = static_cast<unsigned>(sizeof header) + payloadLength;
    const unsigned length = replyOffset + replyLength;
    HeapBytes frame = zeroedBytes(length);
    HeapBytes answer = uninitialisedBytes(length);
    if (!frame || !answer)
        return false;
    std::memcpy(frame.get(), header, sizeof header);
    if (payload != nullptr && payloadLength != 0)
        std::memcpy(&frame[sizeof header], payload, payloadLength);
    if (!bulkTransfer(BRIDGE_SPI, false, 2, 3, 1, frame.get(), answer.get(), length, length))
        return false;
    if (reply != nullptr && replyLength != 0)
        std::memcpy(reply, &answer[replyOffset], replyLength);
    return true;
}
