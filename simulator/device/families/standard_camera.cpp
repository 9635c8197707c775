// SPDX-License-Identifier: MIT
#include "standard_camera.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "device/usb/bytes.h"

namespace vornsim {
namespace {

// "CMD", one character a word, and the code.
constexpr uint8_t FRAME_START[] = {'C', 0, 'M', 0, 'D', 0};
constexpr size_t FRAME_HEADER_LENGTH = 8;
constexpr size_t FRAME_CODE_OFFSET = 6;

// The port lines that enable the bus.
constexpr uint8_t PORT_A_DIRECTION = 0x9F;
constexpr uint8_t PORT_A_LATCH = 0x80;

// Description flags
constexpr unsigned HAS_FIFO = 0x0001;
constexpr unsigned HAS_PREVIEW = 0x0008;
constexpr unsigned HAS_SUBSAMPLING = 0x0010;
constexpr unsigned HAS_SHUTTER = 0x0080;
constexpr unsigned NO_GUIDE_PORT = 0x0100;
constexpr unsigned HAS_FILTER_WHEEL = 0x1000;

// Readout flags
constexpr unsigned READOUT_ALWAYS = 0x0043;
constexpr unsigned READOUT_PREVIEW = 0x0100;
constexpr unsigned READOUT_MICROSECONDS = 0x0400;
constexpr unsigned READOUT_DARK = 0x1000;
constexpr unsigned READOUT_TIMED_ONLY = READOUT_MICROSECONDS | READOUT_DARK;

constexpr int64_t APPLICATION_START_US = 35000;
constexpr int64_t READOUT_BEGIN_US = 20000;  // from the command to the first word

}  // namespace

StandardCamera::StandardCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock,
                               DeviceLog& log)
    : AnsweringCamera(Numbers::LOW_FIRST, model, options, clock, log), shutter_(model.shutter)
{
}

std::span<const Command> StandardCamera::commands() const
{
    // code, payload length, answer length
    static const Command COMMANDS[] = {
        {1, 0, Command::UNFIXED, Command::EARLY, &StandardCamera::describe},
        {2, 2, 0, Command::LATE, &StandardCamera::prepareSensor},
        {4, 0, 0, Command::LATE, &StandardCamera::prepareExposure},
        {5, 0, 0, Command::LATE, &StandardCamera::startExposure},
        {6, 16, 0, Command::LATE, &StandardCamera::readOut},
        {9, 2, 0, Command::LATE, &StandardCamera::setShutter},
        {20, 0, 0, Command::LATE, &StandardCamera::closeRelay},
        {21, 0, 0, Command::LATE, &StandardCamera::closeRelay},
        {22, 0, 0, Command::LATE, &StandardCamera::closeRelay},
        {23, 0, 0, Command::LATE, &StandardCamera::closeRelay},
        {24, 0, 0, Command::LATE, &StandardCamera::openRelays},
        {START_APPLICATION, 0, 0, Command::EARLY, &StandardCamera::startApplication},
        {52, 0, 6, Command::LATE, &StandardCamera::describeCooler},
        {53, 0, 6, Command::LATE, &StandardCamera::reportCooling},
        {54, 0, 2, Command::LATE, &StandardCamera::countSensors},
        {55, 2, 6, Command::LATE, &StandardCamera::measureTemperature},
        {56, 2, 2, Command::LATE, &StandardCamera::setCooling},
        {57, 0, 0, Command::LATE, &StandardCamera::warmUp},
        {80, 1, 2, Command::EARLY, &StandardCamera::ping},
        {130, 0, 0, Command::LATE, &StandardCamera::refuseGpio},
        {135, 0, 8, Command::LATE, &StandardCamera::reportFilter},
        {136, 2, 2, Command::LATE, &StandardCamera::setFilter},
    };
    return COMMANDS;
}

void StandardCamera::wordsReceived(std::span<const uint8_t> bytes)
{
    if (port_.direction != PORT_A_DIRECTION || port_.latch != PORT_A_LATCH)
        return complain("words on a bus that port A does not enable");
    while (!bytes.empty()) {
        if (bytes.size() < FRAME_HEADER_LENGTH ||
            !std::equal(std::begin(FRAME_START), std::end(FRAME_START), bytes.begin()) ||
            bytes[FRAME_CODE_OFFSET + 1] != 0)
            return complain("no command: " + std::to_string(bytes.size()) + " bytes");
        const uint8_t code = bytes[FRAME_CODE_OFFSET];
        const Command* command = findCommand(code);
        if (command == nullptr)
            return complain("unknown " + commandName(code));
        const size_t total = FRAME_HEADER_LENGTH + command->payloadLength + command->payloadLength % 2U;
        if (bytes.size() < total)
            return complain(commandName(code) + " lacks its payload");
        execute(*command, bytes.subspan(FRAME_HEADER_LENGTH));
        bytes = bytes.subspan(total);
    }
}

void StandardCamera::describe(CommandCall& call)
{
    putDescription(call,
                   HAS_FIFO | HAS_PREVIEW | HAS_SUBSAMPLING | (model_.shutter ? HAS_SHUTTER : 0) |
                       (model_.guidePort ? 0 : NO_GUIDE_PORT) | (model_.filterCount > 0 ? HAS_FILTER_WHEEL : 0),
                   model_.describedX, model_.describedY);
}

void StandardCamera::startApplication(CommandCall& /*call*/)
{
    // Whatever an earlier session left under way ends; the cooler goes on.
    const int64_t now = clock_.nowUs();
    beginStart(APPLICATION_START_US);
    phase_ = Phase::IDLE;
    shutter_.set(false, now);
    mount_.setRelays(0, now);
}

void StandardCamera::ping(CommandCall& call)
{
    put(call, static_cast<uint8_t>(call.payload[0] + 1));
}

void StandardCamera::refuseGpio(CommandCall& /*call*/)
{
    complain("GPIO asked for, but there are no lines");
}

void StandardCamera::setShutter(CommandCall& call)
{
    const unsigned open = argument(call);
    if (!shutter_.present() || open > 1)
        return complain("shutter set to " + std::to_string(open) +
                        (shutter_.present() ? "" : ", but there is no shutter"));
    shutter_.set(open == 1, clock_.nowUs());
    note(open == 1 ? "shutter open" : "shutter closed");
}

// ---- Exposure ----

void StandardCamera::prepareSensor(CommandCall& call)
{
    const unsigned step = argument(call);
    if (step == 0)
        phase_ = Phase::CLEARED;
    else if (step == 1 && phase_ == Phase::INTEGRATING)
        phase_ = Phase::STOPPED;
    else
        complain("sensor preparation " + std::to_string(step) + " out of sequence");
}

void StandardCamera::prepareExposure(CommandCall& /*call*/)
{
    if (phase_ != Phase::CLEARED)
        return complain("exposure prepared before the sensor was");
    phase_ = Phase::READY;
}

void StandardCamera::startExposure(CommandCall& /*call*/)
{
    if (phase_ != Phase::READY)
        return complain("exposure started without preparation");
    phase_ = Phase::INTEGRATING;
    integratingSinceUs_ = clock_.nowUs();
    shutter_.beginIntegration(integratingSinceUs_);
    note("exposure started");
}

/// | Offset | Size | Payload, little-endian                              |
/// |--------|------|-----------------------------------------------------|
/// | 0      | 2    | exposure code; 0 ends an exposure already begun     |
/// | 2, 4   | 2, 2 | binning, columns and rows                           |
/// | 6, 8   | 2, 2 | first column and row                                |
/// | 10, 12 | 2, 2 | columns and rows of the sensor                      |
/// | 14     | 2    | flags                                               |
void StandardCamera::readOut(CommandCall& call)
{
    const unsigned code = readLe16(call.payload, 0);
    const unsigned flags = readLe16(call.payload, 14);
    const Readout readout{.region = {.x = readLe16(call.payload, 6),
                                     .y = readLe16(call.payload, 8),
                                     .width = readLe16(call.payload, 10),
                                     .height = readLe16(call.payload, 12),
                                     .binX = readLe16(call.payload, 2),
                                     .binY = readLe16(call.payload, 4)},
                          .preview = (flags & READOUT_PREVIEW) != 0,
                          .beginUs = READOUT_BEGIN_US};
    const bool timed = code != 0;
    const unsigned known = READOUT_ALWAYS | READOUT_PREVIEW | (timed ? READOUT_TIMED_ONLY : 0);
    if (phase_ != (timed ? Phase::INTEGRATING : Phase::STOPPED))
        return complain("readout without exposure");
    if ((flags & READOUT_ALWAYS) != READOUT_ALWAYS || (flags & ~known) != 0)
        return complain("readout with flags " + std::to_string(flags));
    if (!canRead(readout.region))
        return;
    if (!timed && shutter_.present() && shutter_.open())
        complain("readout with the shutter open");
    phase_ = Phase::IDLE;

    // With a code the camera clears the sensor once more and times the exposure itself.
    const int64_t now = clock_.nowUs();
    ExposureTimes times{.beginUs = integratingSinceUs_, .endUs = now};
    if (timed)
        times = {.beginUs = now, .endUs = now + int64_t{code} * ((flags & READOUT_MICROSECONDS) != 0 ? 1 : 1000)};
    else
        times.lightSeconds = shutter_.lightSeconds(now);
    if ((flags & READOUT_DARK) != 0 && shutter_.present())
        times.lightSeconds = 0.0;
    sendImage(times, readout);
}

CameraTruth StandardCamera::truth() const
{
    CameraTruth truth = AnsweringCamera::truth();
    truth.shutterOpen = shutter_.present() && shutter_.open();
    truth.integrating = phase_ == Phase::INTEGRATING || phase_ == Phase::STOPPED;
    return truth;
}

}  // namespace vornsim
