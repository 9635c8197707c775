// SPDX-License-Identifier: MIT
#include "accessories/gain_record.h"
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/pause.h"

using namespace vornccd;

namespace {

constexpr unsigned POLLS_MAX = 100;
constexpr long POLL_PAUSE_US = 10000;
constexpr unsigned RECORD_OFFSET = 2;  // of the record in the payload that sets it
constexpr unsigned PAYLOAD_LEAD = 25;  // what stands before it there

}  // namespace

bool VornCameraImpl::getGain(int* gain, int* offset)
{
    TRACE_ENTER("%s-> VornCameraImpl::getGain(...)\n");
    bool ok = true;
    lock();
    if (type != ADVANCED) {
        lastError = "Unsupported operation";  // deliberate: and yet a success, with the outputs untouched
    } else {
        uint8_t record[GAIN_RECORD_LENGTH] = {};
        const GainPoll poll = pollGainRecord(record);
        if (poll == GainPoll::NO_RESPONSE)
            return failGainPoll();
        ok = poll == GainPoll::ANSWERED;
        if (ok) {
            const int position = gainPosition(previewMode);
            *gain = getInt16(record, position);
            *offset = codeToOffset(getInt16(record, position + OFFSET_AFTER_GAIN));
        }
    }
    unlock();
    TRACE_EXIT("%s<- VornCameraImpl::getGain %d -> %d, %d\n", ok, *gain, *offset);
    return ok;
}

bool VornCameraImpl::setGain(int gain, int offset)
{
    TRACE_ENTER("%s-> VornCameraImpl::setGain(%d, %d)\n", gain, offset);
    bool ok = true;
    lock();
    if (type != ADVANCED) {
        lastError = "Unsupported operation";  // deliberate: and yet a success
    } else if (gain < 0 || gain > GAIN_MAX || offset < 0 || offset > OFFSET_MAX) {
        unlock();
        lastError = "Invalid parameter";
        TRACE_EXIT("%s<- VornCameraImpl::setGain 00 // invalid parameter\n");
        return false;
    } else {
        uint8_t payload[RECORD_OFFSET + GAIN_RECORD_LENGTH] = {};
        uint8_t* record = payload + RECORD_OFFSET;
        const GainPoll poll = pollStableGainRecord(record);
        if (poll == GainPoll::NO_RESPONSE)
            return failGainPoll();
        ok = poll == GainPoll::ANSWERED;
        if (ok) {
            // The other readout mode's half and what we do not understand go back as they came.
            const int position = gainPosition(previewMode);
            setInt16(payload, 0, PAYLOAD_LEAD);
            setInt16(record, position, static_cast<unsigned>(gain));
            setInt16(record, position + OFFSET_AFTER_GAIN, static_cast<unsigned>(offsetToCode(offset)));
            ok = sendCommand(CMD_SET_GAIN, payload, nullptr, sizeof payload, 0);
        }
    }
    unlock();
    TRACE_EXIT("%s<- VornCameraImpl::setGain %d\n", ok);
    return ok;
}

/// Asks until the camera is ready, without pauses. The 101st answer is not looked at.
VornCameraImpl::GainPoll VornCameraImpl::pollGainRecord(uint8_t* record)
{
    bool ok = true;
    record[0] = 1;
    for (unsigned polls = 0; ok && gainRecordPending(record);) {
        ok = sendCommand(CMD_GET_GAIN, nullptr, record, 0, GAIN_RECORD_LENGTH);
        if (++polls > POLLS_MAX)
            return GainPoll::NO_RESPONSE;
    }
    return ok ? GainPoll::ANSWERED : GainPoll::FAILED;
}

/// Asks every 10 ms until a valid record came for the second time; the first is never used. A failed exchange leaves
/// the record as it was, so a valid one counts again then, and the result tells that the camera did not answer.
VornCameraImpl::GainPoll VornCameraImpl::pollStableGainRecord(uint8_t* record)
{
    bool seenValid = false;
    record[0] = 1;
    for (unsigned polls = 1;; ++polls) {
        const bool ok = sendCommand(CMD_GET_GAIN, nullptr, record, 0, GAIN_RECORD_LENGTH);
        sleepms(POLL_PAUSE_US);
        if (polls > POLLS_MAX)
            return GainPoll::NO_RESPONSE;
        if (!gainRecordValid(record))
            continue;
        if (seenValid)
            return ok ? GainPoll::ANSWERED : GainPoll::FAILED;
        seenValid = true;
    }
}

/// The camera never had a record. deliberate: getting and setting end with the same text and the same trace line.
bool VornCameraImpl::failGainPoll()
{
    unlock();
    lastError = "Failed to set gain";
    TRACE_EXIT("%s<- VornCameraImpl::getGain 00 //  no response\n");
    return false;
}
