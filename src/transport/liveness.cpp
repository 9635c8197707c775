// SPDX-License-Identifier: MIT
// Starting the camera's application, asking whether it answers, and draining what it left.
#include "transport/liveness.h"

#include "camera_impl.h"
#include "family.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/heap_bytes.h"
#include "transport/pause.h"

#include <atomic>
#include <cinttypes>

using namespace vornccd;

namespace {

constexpr unsigned APPINIT_POLLS = 64;
constexpr long APPINIT_PAUSE_US = 10000;
constexpr uint8_t APPINIT_DONE = 'I';

constexpr unsigned PING_FIRST_COUNTER = 100;

constexpr uint32_t FLUSH_TIMEOUT_MS = 100;
constexpr unsigned FLUSH_BLOCK_LENGTH = 200000;

}  // namespace

bool VornCameraImpl::appInit()
{
    TRACE_ENTER("%s-> VornCameraImpl::appInit()\n");
    if (refusesCommands(type))
        assertionFailed("Assertion failed (%s, %d)\n", 703);
    uint8_t status[2] = {};
    bool ok = send<CMD_APPINIT>(*this);
    {
        QuietTrace quiet;
        for (unsigned poll = 0; ok && poll < APPINIT_POLLS && status[0] != APPINIT_DONE; ++poll) {
            sleepms(APPINIT_PAUSE_US);
            ok = getData(status, factsOf(type).appInitStatusLength);
        }
    }
    ok = ok && status[0] == APPINIT_DONE;
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
    const bool ok = functionsOf(type).ping(*this);
    TRACE_EXIT("%s<- VornCameraImpl::ping %d\n", ok);
    return ok;
}

bool vornccd::pingCounting(VornCameraImpl& camera, const CountingPing& ping)
{
    for (unsigned i = 0; i < ping.tries; ++i) {
        const uint8_t counter[] = {static_cast<uint8_t>(PING_FIRST_COUNTER + i)};
        uint8_t reply[2] = {};
        TRACE_DETAIL("%s    ping -> %d\n", counter[0]);
        const bool sent = camera.sendCommand(ping.code, counter, nullptr, sizeof counter, 0);
        sleepms(ping.pauseUs);
        (void)camera.parIn(reply, sizeof reply);  // a failed read leaves no counter in the reply
        TRACE_DETAIL("%s    ping <- %d\n", reply[0]);
        if (sent && reply[0] == counter[0] + ping.increment)
            return true;
    }
    return false;
}

void VornCameraImpl::flush()
{
    TRACE_ENTER("%s-> VornCameraImpl::flush()\n");
    int64_t count = 0;
    timeout = FLUSH_TIMEOUT_MS;
    if (factsOf(type).flushesBlocks) {
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
