// SPDX-License-Identifier: MIT
#include "camera_impl.h"
#include "family.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/bulk.h"
#include "transport/heap_bytes.h"
#include "transport/waveforms.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>

using namespace vornccd;

namespace {

// A reply carries one leading byte without information and three trailing ones.
constexpr unsigned REPLY_LEAD = 1;
constexpr unsigned REPLY_EXTRA = 4;

// Numbers the requests of all cameras; the bridge ignores it and replies do not carry it.
std::atomic<uint8_t> transactionNumber{0};

// A 16-bit item of what a camera offers, as one word or as a word for each of its bytes
constexpr Field DATA_WORD = le16At(0);
constexpr Field LOW_DATA_BYTE = byteAt(0);
constexpr Field HIGH_DATA_BYTE = byteAt(2);

}  // namespace

bool VornCameraImpl::bulkTransfer(unsigned request, bool flag, unsigned subcode, unsigned value, unsigned index,
                                  const uint8_t* out, uint8_t* in, unsigned outLength, unsigned inLength)
{
    constexpr unsigned HEADER = REQUEST_HEADER_LENGTH;
    constexpr unsigned LONGEST = std::numeric_limits<unsigned>::max() - HEADER;
    if (outLength > LONGEST || inLength > LONGEST)
        return false;

    HeapBytes frame = uninitialisedBytes(uint64_t{outLength} + HEADER);
    if (!frame)
        return false;
    const std::span header(frame.get(), HEADER);
    pack(header, REQUEST_CODE, request);
    pack(header, REQUEST_SEQUENCE, transactionNumber.fetch_add(1, std::memory_order_relaxed));
    pack(header, REQUEST_FLAG, flag ? 0xFF : 0x00);
    pack(header, REQUEST_SUBCODE, subcode);
    pack(header, REQUEST_VALUE, value);
    pack(header, REQUEST_INDEX, index);
    pack(header, REQUEST_REPLY_LENGTH, inLength);
    pack(header, REQUEST_PAYLOAD_LENGTH, outLength);
    if (outLength != 0)
        std::memcpy(&frame[HEADER], out, outLength);
    const bool sent = bulkWrite(EP_BRIDGE_OUT, outLength + HEADER, frame.get());
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
    const bool ok = exchange(*this, {.code = BRIDGE_SET_TIMEOUT, .subcode = TIMEOUT_PARALLEL, .value = ms});
    TRACE_EXIT("%s<- VornCameraImpl::setParTimeout %d\n", ok);
    return ok;
}

bool VornCameraImpl::i2cSetTimeout(unsigned ms)
{
    TRACE_ENTER("%s-> VornCameraImpl::i2cSetTimeout(%d)\n", ms);
    const bool ok = exchange(*this, {.code = BRIDGE_SET_TIMEOUT, .subcode = TIMEOUT_I2C, .value = ms});
    TRACE_EXIT("%s<- VornCameraImpl::i2cSetTimeout %d\n", ok);
    return ok;
}

bool VornCameraImpl::parInit(const uint8_t* table)
{
    TRACE_ENTER("%s-> VornCameraImpl::parInit(...)\n");
    const bool ok =
        exchange(*this, {.code = BRIDGE_PAR_INIT, .flag = true, .payload = {table, waveformLength(table[0])}});
    TRACE_EXIT("%s<- VornCameraImpl::parInit %d\n", ok);
    return ok;
}

bool VornCameraImpl::parInit(unsigned mode)
{
    TRACE_ENTER("%s-> VornCameraImpl::parInit(%d)\n", mode);
    bool ok = false;
    if (mode == WAVEFORM_MODE_1)
        ok = parInit(GpifMode1);
    else if (mode == WAVEFORM_MODE_9)
        ok = parInit(GpifMode9);
    TRACE_EXIT("%s<- VornCameraImpl::parInit %d\n", ok);
    return ok;
}

bool VornCameraImpl::parIn(uint8_t* buffer, unsigned n)
{
    if (n == std::numeric_limits<unsigned>::max())
        return false;
    const int64_t total = int64_t{n} + 1;
    const int64_t limit = chunkLimit(*this);
    // Only the last transfer brings the bridge's trailing byte, for which the caller has no room. Zeros, since the copy
    // below is made also of a partly filled buffer. Taken before the request: without a buffer to read them into, the
    // data would stay in the bridge.
    HeapBytes last = zeroedBytes(static_cast<uint64_t>(std::min(total, limit)));
    if (!last || !exchange(*this, {.code = BRIDGE_PAR_IN, .value = n >> 16, .index = n & 0xFFFF}))
        return false;
    int64_t received = 0;
    while (total - received > limit) {
        int transferred = 0;
        const bool ok = bulkReadOnce(*this, EP_PAR_IN, static_cast<int>(limit), buffer + received, transferred);
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
    return bulkWrite(EP_PAR_OUT, n, data) && exchange(*this, {.code = BRIDGE_PAR_OUT, .flag = true});
}

bool VornCameraImpl::getData(uint8_t* buffer, unsigned n)
{
    return functionsOf(type).readData(*this, buffer, n);
}

bool VornCameraImpl::getData(unsigned* value)
{
    if (factsOf(type).bytesComeAsWords) {
        uint8_t words[4] = {};
        const bool ok = getData(words, sizeof words);
        *value = unpack(words, LOW_DATA_BYTE) | unpack(words, HIGH_DATA_BYTE) << 8;
        return ok;
    }
    uint8_t word[2];
    pack(word, DATA_WORD, *value);
    const bool ok = getData(word, sizeof word);
    *value = (*value & 0xFFFF0000U) | unpack(word, DATA_WORD);
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
