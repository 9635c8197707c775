// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace {

constexpr int64_t PACKET_LENGTH = 512;

/// Largest chunk of one libusb call. A host may have set anything: below one byte one packet is asked for, and what
/// does not fit libusb's signed length is cut to whole packets.
int64_t chunkLimit(int64_t maxPacketSize)
{
    constexpr int64_t LARGEST = std::numeric_limits<int>::max() / PACKET_LENGTH * PACKET_LENGTH;
    return maxPacketSize < 1 ? PACKET_LENGTH : std::min(maxPacketSize, LARGEST);
}

}  // namespace

bool VornCameraImpl::bulkRead(unsigned endpoint, unsigned length, uint8_t* buffer)
{
    const int64_t limit = chunkLimit(maxPacketSize);
    int64_t remaining = length;
    uint8_t* cursor = buffer;
    if (handle == nullptr)
        return false;
    while (remaining > 0) {
        const int chunk = static_cast<int>(std::min(remaining, limit));
        int transferred = 0;
        const int result =
            libusb_bulk_transfer(handle, static_cast<unsigned char>(endpoint), cursor, chunk, &transferred, timeout);
        if (result < 0) {
            TRACE_DETAIL("%s    libusb_bulk_transfer -> %s\n", libusb_error_name(result));
            return false;
        }
        // A short transfer is no error: the rest is asked for again. Only libusb can end this loop early.
        remaining -= transferred;
        cursor += transferred;
    }
    return true;
}

bool VornCameraImpl::bulkWrite(unsigned endpoint, unsigned length, const uint8_t* buffer)
{
    if (handle == nullptr || length > static_cast<unsigned>(std::numeric_limits<int>::max()))
        return false;
    int transferred = 0;
    // libusb takes one buffer type for both directions; an OUT transfer only reads it.
    const int result =
        libusb_bulk_transfer(handle, static_cast<unsigned char>(endpoint & 0xFF), const_cast<unsigned char*>(buffer),
                             static_cast<int>(length), &transferred, timeout);
    if (result < 0) {
        TRACE_DETAIL("%s    libusb_bulk_transfer -> %s \n", libusb_error_name(result));
        return false;
    }
    return true;  // deliberate: a short write counts as success
}

void VornCameraImpl::lock()
{
    if (pthread_mutex_trylock(&mutex) == EBUSY) {
        TRACE_DETAIL("%s    lock()\n");
        TRACE_DETAIL("%s    lock busy\n");
        (void)pthread_mutex_lock(&mutex);
    } else {
        TRACE_DETAIL("%s    lock()\n");
    }
    lockHeld = true;
}

void VornCameraImpl::unlock()
{
    TRACE_DETAIL("%s    unlock()\n");
    // Releasing a mutex that nobody holds is undefined; some callers release without having taken, so the flag decides.
    if (lockHeld.exchange(false))
        (void)pthread_mutex_unlock(&mutex);
}
