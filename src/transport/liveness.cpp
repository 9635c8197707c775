// SPDX-License-Identifier: MIT
// Starting the camera's application, asking whether it lives, and draining what it left behind.
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/commands.h"
#include "transport/heap_bytes.h"
#include "transport/pause.h"
#include "transport/wire.h"

#include <atomic>
#include <cinttypes>

using namespace vornccd;

namespace {

constexpr unsigned APPINIT_POLLS = 64;
constexpr long APPINIT_PAUSE_US = 10000;

constexpr unsigned PING_FIRST_COUNTER = 100;
constexpr unsigned PING_TRIES_STANDARD = 5;
constexpr long PING_PAUSE_STANDARD_US = 20000;
constexpr unsigned PING_TRIES_CLASSIC = 10;
constexpr long PING_PAUSE_CLASSIC_US = 50000;

constexpr uint8_t pingOut[2] = {0x00, 0x7B};

constexpr uint32_t FLUSH_TIMEOUT_MS = 100;
constexpr unsigned FLUSH_BLOCK_LENGTH = 200000;

}  // namespace

bool VornCameraImpl::appInit()
{
    TRACE_ENTER("%s-> VornCameraImpl::appInit()\n");
    unsigned statusLength = 0;
    switch (type) {
        case STANDARD:
        case CLASSIC:
            statusLength = 2;
            break;
        case ADVANCED:
            statusLength = 1;
            break;
        case QUICKER:
        case IIDC:
            assertionFailed("Assertion failed (%s, %d)\n", 703);
    }
    uint8_t status[2] = {};
    bool ok = sendCommand(CMD_APPINIT);
    {
        QuietTrace quiet;
        for (unsigned poll = 0; ok && poll < APPINIT_POLLS && status[0] != 'I'; ++poll) {
            sleepms(APPINIT_PAUSE_US);
            ok = getData(status, statusLength);
        }
    }
    ok = ok && status[0] == 'I';
    if (ok)
        TRACE_DETAIL("%s    APPINIT completed\n");
    else
        TRACE_DETAIL("%s    failed to get APPINIT completion status\n");
    TRACE_EXIT("%s<- VornCameraImpl::appInit %d\n", ok);
    return ok;
}

bool VornCameraImpl::ping()
{
    TRACE_ENTER("%s-> VornCameraImpl::ping()\n");
    bool ok = false;
    switch (type) {
        case QUICKER:
            ok = pingQuicker();
            break;
        case ADVANCED:
            ok = pingAdvanced();
            break;
        case STANDARD:
            ok = pingCounting(CMD_PING, PING_TRIES_STANDARD, PING_PAUSE_STANDARD_US, 1);
            break;
        case CLASSIC:  // answers the counter as it is
            ok = pingCounting(CMD_PING_CLASSIC, PING_TRIES_CLASSIC, PING_PAUSE_CLASSIC_US, 0);
            break;
        case IIDC:
            assertionFailed("Assertion failed (%s, %d)\n", 842);
    }
    TRACE_EXIT("%s<- VornCameraImpl::ping %d\n", ok);
    return ok;
}

bool VornCameraImpl::pingQuicker()
{
    uint8_t productId[2] = {};
    (void)eepRead(EEPROM_PRODUCT_ID, productId, sizeof productId);  // deliberate: only the value counts
    const uint16_t value = getLe16(productId, 0);
    if (value != 0xDF2E && value != 0xDF2F)
        return false;
    TRACE_DETAIL("%s    ping ok\n");
    return true;
}

bool VornCameraImpl::pingAdvanced()
{
    uint8_t reply[2] = {};
    (void)sendCommand(CMD_KERNEL_PING, pingOut, reply, sizeof pingOut, sizeof reply);  // the reply tells
    const bool kernelAlive = reply[0] == pingOut[0] && reply[1] == pingOut[1];
    if (kernelAlive)
        TRACE_DETAIL("%s    kernel ping ok\n");
    else
        TRACE_DETAIL("%s    kernel ping failed (%d %d)\n", pingOut[1], reply[1]);

    const bool sent = sendCommand(CMD_PING, pingOut, reply, sizeof pingOut, sizeof reply);
    const bool applicationAlive = sent && reply[0] == pingOut[0] && reply[1] == pingOut[1] + 1;
    if (applicationAlive)
        TRACE_DETAIL("%s    application ping ok\n");
    else
        TRACE_DETAIL("%s    application ping failed (%d %d)\n", pingOut[1], reply[1]);
    return kernelAlive && applicationAlive;
}

bool VornCameraImpl::pingCounting(unsigned cmd, unsigned tries, long pauseUs, unsigned increment)
{
    for (unsigned i = 0; i < tries; ++i) {
        const auto counter = static_cast<uint8_t>(PING_FIRST_COUNTER + i);
        uint8_t reply[2] = {};
        TRACE_DETAIL("%s    ping -> %d\n", counter);
        const bool sent = sendCommand(cmd, &counter, nullptr, sizeof counter, 0);
        sleepms(pauseUs);
        (void)parIn(reply, sizeof reply);  // a failed read leaves no counter in the reply
        TRACE_DETAIL("%s    ping <- %d\n", reply[0]);
        if (sent && reply[0] == counter + increment)
            return true;
    }
    return false;
}

void VornCameraImpl::flush()
{
    TRACE_ENTER("%s-> VornCameraImpl::flush()\n");
    int64_t count = 0;
    timeout = FLUSH_TIMEOUT_MS;
    if (type == QUICKER) {
        HeapBytes block = uninitialisedBytes(FLUSH_BLOCK_LENGTH);
        while (block && parIn(block.get(), FLUSH_BLOCK_LENGTH))
            count += FLUSH_BLOCK_LENGTH;
    }
    uint8_t byte = 0;
    while (parIn(&byte, 1))
        ++count;
    TRACE_DETAIL("%s    %" PRId64 " bytes flushed\n", count);
    // deliberate: back to the host's global value, not to what this camera had before.
    timeout = static_cast<uint32_t>(std::atomic_ref<int>(VornHostBulkTimeout).load(std::memory_order_relaxed));
    TRACE_EXIT("%s<- VornCameraImpl::flush\n");
}
