// SPDX-License-Identifier: MIT
#include "accessories/gain_record.h"
#include "camera_impl.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/commands.h"
#include "transport/device_lock.h"
#include "transport/pause.h"

using namespace vornccd;

namespace {

constexpr unsigned POLLS_MAX = 100;
constexpr long POLL_PAUSE_US = 10000;

/// How asking for the gain record ended.
enum class GainPoll { ANSWERED, FAILED, NO_RESPONSE };

/// Asks until the camera is ready, without pauses. The 101st answer is ignored.
GainPoll pollGainRecord(VornCameraImpl& camera, GainRecord record)
{
    bool ok = true;
    markPending(record);
    for (unsigned polls = 0; ok && gainRecordPending(record);) {
        ok = ask<CMD_GET_GAIN>(camera, record);
        if (++polls > POLLS_MAX)
            return GainPoll::NO_RESPONSE;
    }
    return ok ? GainPoll::ANSWERED : GainPoll::FAILED;
}

/// Asks every 10 ms until a valid record came for the second time; the first is never used. A failed exchange leaves
/// the record as it was, so a valid one counts again then, and the result says that the camera did not answer.
GainPoll pollStableGainRecord(VornCameraImpl& camera, GainRecord record)
{
    bool seenValid = false;
    markPending(record);
    for (unsigned polls = 1;; ++polls) {
        const bool ok = ask<CMD_GET_GAIN>(camera, record);
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
bool failGainPoll(VornCameraImpl& camera, DeviceLock& held)
{
    held.release();
    camera.lastError = "Failed to set gain";
    TRACE_EXIT("%s<- VornCameraImpl::getGain 00 //  no response\n");
    return false;
}

}  // namespace

bool VornCameraImpl::getGain(int* gain, int* offset)
{
    TRACE_ENTER("%s-> VornCameraImpl::getGain(...)\n");
    bool ok = true;
    DeviceLock held(*this);
    if (!factsOf(type).hasGain) {
        lastError = "Unsupported operation";  // deliberate: and yet a success, with the outputs untouched
    } else {
        uint8_t record[GAIN_RECORD_LENGTH] = {};
        const GainPoll poll = pollGainRecord(*this, record);
        if (poll == GainPoll::NO_RESPONSE)
            return failGainPoll(*this, held);
        ok = poll == GainPoll::ANSWERED;
        if (ok) {
            const GainHalf& half = gainHalf(previewMode);
            *gain = getInt16(record, half.gain);
            *offset = codeToOffset(getInt16(record, half.offsetCode));
        }
    }
    held.release();
    TRACE_EXIT("%s<- VornCameraImpl::getGain %d -> %d, %d\n", ok, *gain, *offset);
    return ok;
}

bool VornCameraImpl::setGain(int gain, int offset)
{
    TRACE_ENTER("%s-> VornCameraImpl::setGain(%d, %d)\n", gain, offset);
    bool ok = true;
    DeviceLock held(*this);
    if (!factsOf(type).hasGain) {
        lastError = "Unsupported operation";  // deliberate: and yet a success
    } else if (gain < 0 || gain > GAIN_MAX || offset < 0 || offset > OFFSET_MAX) {
        held.release();
        lastError = "Invalid parameter";
        TRACE_EXIT("%s<- VornCameraImpl::setGain 00 // invalid parameter\n");
        return false;
    } else {
        uint8_t payload[CMD_SET_GAIN.payloadLength] = {};
        const GainRecord record = std::span(payload).subspan<GAIN_PAYLOAD_RECORD, GAIN_RECORD_LENGTH>();
        const GainPoll poll = pollStableGainRecord(*this, record);
        if (poll == GainPoll::NO_RESPONSE)
            return failGainPoll(*this, held);
        ok = poll == GainPoll::ANSWERED;
        if (ok) {
            // The other readout mode's half and what we do not understand go back as they came.
            const GainHalf& half = gainHalf(previewMode);
            setInt16(payload, GAIN_PAYLOAD_LEAD, GAIN_PAYLOAD_LEAD_VALUE);
            setInt16(record, half.gain, gain);
            setInt16(record, half.offsetCode, offsetToCode(offset));
            ok = sendBytes<CMD_SET_GAIN>(*this, payload);
        }
    }
    held.release();
    TRACE_EXIT("%s<- VornCameraImpl::setGain %d\n", ok);
    return ok;
}
