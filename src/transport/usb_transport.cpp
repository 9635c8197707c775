// SPDX-License-Identifier: MIT
#include "camera_impl.h"
#include "trace/trace.h"
#include "transport/bulk.h"

#include <algorithm>
#include <cerrno>
#include <limits>

using namespace vornccd;

namespace {

constexpr int64_t PACKET_LENGTH = 512;

}  // namespace

int64_t vornccd::chunkLimit(const VornCameraImpl& camera)
{
    constexpr int64_t LARGEST = std::numeric_limits<int>::max() / PACKET_LENGTH * PACKET_LENGTH;
    return camera.maxPacketSize < 1 ? PACKET_LENGTH : std::min<int64_t>(camera.maxPacketSize, LARGEST);
}

bool vornccd::bulkReadOnce(VornCameraImpl& camera, unsigned endpoint, int length, uint8_t* buffer, int& transferred)
{
    transferred = 0;
    const int result = libusb_bulk_transfer(camera.handle, static_cast<unsigned char>(endpoint), buffer, length,
                                            &transferred, camera.timeout);
    if (result < 0)
        TRACE_DETAIL("%s    libusb_bulk_transfer -> %s\n", libusb_error_name(result));
    return result >= 0;
}

bool VornCameraImpl::bulkRead(unsigned endpoint, unsigned length, uint8_t* buffer)
{
    const int64_t limit = chunkLimit(*this);
    int64_t remaining = length;
    uint8_t* cursor = buffer;
    if (handle == nullptr)
        return false;
    // A short transfer is no error: the rest is asked for again. Only libusb can end this loop early.
    while (remaining > 0) {
        int transferred = 0;
        if (!bulkReadOnce(*this, endpoint, static_cast<int>(std::min(remaining, limit)), cursor, transferred))
            return false;
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
    // The contract lets callers release what they have not taken.
    if (lockHeld.exchange(false))
        (void)pthread_mutex_unlock(&mutex);
}
