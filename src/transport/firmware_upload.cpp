// SPDX-License-Identifier: MIT
#include "camera_impl.h"
#include "trace/trace.h"
#include "transport/control_requests.h"
#include "transport/layout.h"

#include <span>

using namespace vornccd;

namespace {

// A record of the table; its data follow.
constexpr size_t RECORD_HEADER_LENGTH = 3;
constexpr Field RECORD_LENGTH = byteAt(0);  // of the data; 0 is the end mark
constexpr Field RECORD_ADDRESS = le16At(1);
static_assert(covers({RECORD_LENGTH, RECORD_ADDRESS}, RECORD_HEADER_LENGTH));

constexpr size_t TABLE_LENGTH = sizeof FIRMWARE;

bool writeMemory(libusb_device_handle* handle, uint16_t address, uint8_t* data, uint16_t length)
{
    return handle != nullptr &&
           libusb_control_transfer(handle, VENDOR_OUT, LOAD_REQUEST, address, 0, data, length, CONTROL_TIMEOUT_MS) > 0;
}

/// Length of the record at @p cursor; 0, the end mark, also where the table ends without one. A host may have copied
/// anything over the table.
size_t recordLength(size_t cursor)
{
    return cursor < TABLE_LENGTH ? unpack(std::span(FIRMWARE).subspan(cursor), RECORD_LENGTH) : 0;
}

uint16_t recordAddress(size_t cursor)
{
    return static_cast<uint16_t>(unpack(std::span(FIRMWARE).subspan(cursor), RECORD_ADDRESS));
}

}  // namespace

bool VornCameraImpl::writeFW()
{
    TRACE_ENTER("%s-> VornCameraImpl::writeFW()\n");
    uint8_t halt = 1;
    bool ok = writeMemory(handle, CPU_CONTROL, &halt, 1);
    TRACE_DETAIL("%s    cpu stopped %d\n", ok);

    size_t cursor = 0;
    while (ok && recordLength(cursor) != 0) {
        const size_t length = recordLength(cursor);
        const size_t next = cursor + RECORD_HEADER_LENGTH + length;
        // A record that runs over the end of the table is not sent.
        ok =
            next <= TABLE_LENGTH && writeMemory(handle, recordAddress(cursor), &FIRMWARE[cursor + RECORD_HEADER_LENGTH],
                                                static_cast<uint16_t>(length));
        cursor = next;
    }
    // deliberate: the cursor is past a failed record, so a failure of the last one is not traced.
    if (recordLength(cursor) != 0)
        TRACE_DETAIL("%s    incomplete firmware upload\n");

    if (ok) {
        uint8_t start = 0;
        ok = writeMemory(handle, CPU_CONTROL, &start, 1);
    }
    TRACE_DETAIL("%s    cpu started %d\n", ok);
    TRACE_EXIT("%s<- VornCameraImpl::writeFW %d\n", ok);
    return ok;
}
