// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/heap_bytes.h"
#include "transport/waveforms.h"
#include "transport/wire.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>

using namespace vornccd;

namespace {

// Request header, little-endian: 0 code, 1 sequence, 2 direction flag, 3 sub-code, 4 value (2), 6 index (2),
// 8 reply length (4), 12 payload length (4); the payload follows.
constexpr unsigned HEADER_LENGTH = 16;

// A reply carries one leading byte without information and three trailing ones.
constexpr unsigned REPLY_LEAD = 1;
constexpr unsigned REPLY_EXTRA = 4;

// Tags the requests of all cameras; the bridge does not look at it and replies do not carry it.
std::atomic<uint8_t> transactionNumber{0};

constexpr unsigned TIMEOUT_PARALLEL = 0;
constexpr unsigned TIMEOUT_I2C = 1;

}  // namespace

bool VornCameraImpl::bulkTransfer(unsigned request, bool flag, unsigned subcode, unsigned value, unsigned index,
                                  const uint8_t* out, uint8_t* in, unsigned outLength, unsigned inLength)
{
    constexpr unsigned LONGEST = std::numeric_limits<unsigned>::max() - HEADER_LENGTH;
    if (outLength > LONGEST || inLength > LONGEST)
        return false;

    HeapBytes frame = uninitialisedBytes(uint64_t{outLength} + HEADER_LENGTH);
    if (!frame)
        return false;
    frame[0] = static_cast<uint8_t>(request);
    frame[1] = transactionNumber.fetch_add(1, std::memory_order_relaxed);
    frame[2] = flag ? 0xFF : 0x00;
    frame[3] = static_cast<uint8_t>(subcode);
    putLe16(frame.get(), 4, value);
    putLe16(frame.get(), 6, index);
    putLe32(frame.get(), 8, inLength);
    putLe32(frame.get(), 12, outLength);
    if (outLength != 0)
        std::memcpy(&frame[HEADER_LENGTH], out, outLength);
    const bool sent = bulkWrite(EP_BRIDGE_OUT, outLength + HEADER_LENGTH, frame.get());
    frame.reset();
    if (!sent)
        return false;
    if (inLength == 0 && !flag)
        return true;

    HeapBytes reply = uninitialisedBytes(uint64_t{inLength} + REPLY_EXTRA);
    if (!reply || !bulkRead(EP_BRIDGE_IN, inLength + REPLY_EXTRA, reply.get()))
        return false;
    if (inLength != 0)
        std::memcpy(in, &reply[REPLY_LEAD], inLength);
    return true;
}

bool VornCameraImpl::setParTimeout(unsigned ms)
{
    TRACE_ENTER("%s-> VornCameraImpl::setParTimeout(%d)\n", ms);
    const bool ok = bulkTransfer(BRIDGE_SET_TIMEOUT, false, TIMEOUT_PARALLEL, ms, 0, nullptr, nullptr, 0, 0);
    TRACE_EXIT("%s<- VornCameraImpl::setParTimeout %d\n", ok);
    return ok;
}

bool VornCameraImpl::i2cSetTimeout(unsigned ms)
{
    TRACE_ENTER("%s-> VornCameraImpl::i2cSetTimeout(%d)\n", ms);
    const bool ok = bulkTransfer(BRIDGE_SET_TIMEOUT, false, TIMEOUT_I2C, ms, 0, nullptr, nullptr, 0, 0);
    TRACE_EXIT("%s<- VornCameraImpl::i2cSetTimeout %d\n", ok);
    return ok;
}

bool VornCameraImpl::parInit(const uint8_t* table)
{
    TRACE_ENTER("%s-> VornCameraImpl::parInit(...)\n");
    const auto length = static_cast<unsigned>(waveformLength(table[0]));
    const bool ok = bulkTransfer(BRIDGE_PAR_INIT, true, 0, 0, 0, table, nullptr, length, 0);
    TRACE_EXIT("%s<- VornCameraImpl::parInit %d\n", ok);
    return ok;
}

bool VornCameraImpl::parInit(unsigned mode)
{
    TRACE_ENTER("%s-> VornCameraImpl::parInit(%d)\n", mode);
    bool ok = false;
    if (mode == 1)
        ok = parInit(GpifMode1);
    else if (mode == 9)
        ok = parInit(GpifMode9);
    TRACE_EXIT("%s<- VornCameraImpl::parInit %d\n", ok);
    return ok;
}

bool VornCameraImpl::parIn(uint8_t* buffer, unsigned n)
{
    if (n == std::numeric_limits<unsigned>::max())
        return false;
    const int64_t total = int64_t{n} + 1;
    const int64_t limit = chunkLimit();
    // Only the last transfer brings the bridge's trailing byte, for which the caller has no room. Zeros, since the copy
    // below is made also of a partly filled buffer. Taken before the request: a request that nobody can read the
    // answer of would leave it in the bridge.
    HeapBytes last = zeroedBytes(static_cast<uint64_t>(std::min(total, limit)));
    if (!last || !bulkTransfer(BRIDGE_PAR_IN, false, 0, n >> 16, n & 0xFFFF, nullptr, nullptr, 0, 0))
        return false;
    int64_t received = 0;
    while (total - received > limit) {
        int transferred = 0;
        const bool ok = bulkReadOnce(EP_PAR_IN, static_cast<int>(limit), buffer + received, transferred);
        received += transferred;
        if (!ok) {
            std::memset(buffer + received, 0, static_cast<size_t>(n - received));
            return false;
        }
    }
    const bool ok = bulkRead(EP_PAR_IN, static_cast<unsigned>(total - received), last.get());
    if (received < n)
        std::memcpy(buffer + received, last.get(), static_cast<size_t>(n - received));
    return ok;
}

bool VornCameraImpl::parOut(const uint8_t* data, unsigned n)
{
    return bulkWrite(EP_PAR_OUT, n, data) && bulkTransfer(BRIDGE_PAR_OUT, true, 0, 0, 0, nullptr, nullptr, 0, 0);
}

bool VornCameraImpl::getData(uint8_t* buffer, unsigned n)
{
    switch (type) {
        case STANDARD:
        case CLASSIC:
            return parIn(buffer, n);
        case ADVANCED:
            return bulkTransfer(BRIDGE_SPI, false, 2, 3, 1, buffer, buffer, n, n);
        case QUICKER:
        case IIDC:
            break;
    }
    assertionFailed("Assertion failed (%s, %d)\n", 623);
}

bool VornCameraImpl::getData(unsigned* value)
{
    if (type == CLASSIC) {
        uint8_t word[4] = {};  // each data byte in the low half of a 16-bit word
        const bool ok = getData(word, sizeof word);
        *value = word[0] | static_cast<unsigned>(word[2]) << 8;
        return ok;
    }
    uint8_t word[2];
    putLe16(word, 0, *value);
    const bool ok = getData(word, sizeof word);
    *value = (*value & 0xFFFF0000U) | getLe16(word, 0);
    return ok;
}

bool VornCameraImpl::getString(char* buffer, unsigned max)
{
    unsigned i = 0;
    do {
        // Two bytes a character; the next read overwrites the second.
        if (!getData(reinterpret_cast<uint8_t*>(&buffer[i]), 2))
            return false;
        ++i;
    } while (buffer[i - 1] != '\0' && i < max - 3);
    return true;
}
