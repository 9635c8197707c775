// SPDX-License-Identifier: MIT
#include "classic_camera.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "device/usb/bytes.h"

namespace vornsim {
namespace {

constexpr std::array<uint8_t, 3> FRAME_START = {'H', 'S', 'C'};
constexpr size_t HEAD_LENGTH = 4;

// How the bridge's lines 0 to 7 have to stand for the bus to be enabled.
constexpr uint8_t PORT_DIRECTION = 0x9F;
constexpr uint8_t PORT_LATCH = 0x80;

// Description flags: a FIFO between converter and bus, preview, subsampling.
constexpr unsigned FLAGS = 0x01 | 0x08 | 0x10;

constexpr uint8_t READOUT_END = 3;  // last payload byte of every readout
constexpr int64_t SETTLE_US = 2000000;
constexpr int64_t APPLICATION_START_US = 45000;
constexpr int64_t READOUT_BEGIN_US = 20000;  // from the end of the exposure to the first word

/// The duration of a one-byte code: 1 to 9 milliseconds, then steps of 10 ms.
int64_t durationUs(uint8_t code)
{
    return code < 10 ? code * 1000 : (code - 9) * 10000;
}

}  // namespace

ClassicCamera::ClassicCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log)
    : AnsweringCamera(Numbers::SHORT, model, options, clock, log)
{
}

std::span<const Command> ClassicCamera::commands() const
{
    // code, payload length, answer length
    static const Command COMMANDS[] = {
        {2, 2, 0, Command::LATE, &ClassicCamera::prepareSensor},
        {4, 0, 0, Command::LATE, &ClassicCamera::prepareExposure},
        {5, 0, 0, Command::LATE, &ClassicCamera::startExposure},
        {6, 13, 0, Command::LATE, &ClassicCamera::readOut},
        {10, 0, Command::UNFIXED, Command::EARLY, &ClassicCamera::describe},
        {17, 1, 1, Command::EARLY, &ClassicCamera::ping},
        {START_APPLICATION, 0, 0, Command::EARLY, &ClassicCamera::startApplication},
        {52, 0, 3, Command::LATE, &ClassicCamera::describeCooler},
        {53, 0, 4, Command::LATE, &ClassicCamera::reportCooling},
        {54, 0, 1, Command::LATE, &ClassicCamera::countSensors},
        {55, 2, 3, Command::LATE, &ClassicCamera::measureTemperature},
        {56, 2, 1, Command::LATE, &ClassicCamera::setCooling},
        {57, 0, 0, Command::LATE, &ClassicCamera::warmUp},
        {66, 0, 0, Command::LATE, &ClassicCamera::settle},
    };
    return COMMANDS;
}

// ---- Commands over I2C, answers over the parallel bus ----

void ClassicCamera::wordsReceived(std::span<const uint8_t> bytes)
{
    complain(std::to_string(bytes.size()) + " bytes on the parallel bus, but commands come over I2C");
}

bool ClassicCamera::i2cStart(uint8_t address, bool reading)
{
    addressed_ = address == I2C_ADDRESS && !reading;
    written_.clear();
    return addressed_ || AnsweringCamera::i2cStart(address, reading);
}

bool ClassicCamera::i2cWrite(uint8_t byte)
{
    if (!addressed_)
        return AnsweringCamera::i2cWrite(byte);
    written_.push_back(byte);
    return true;
}

void ClassicCamera::i2cStop()
{
    if (!std::exchange(addressed_, false))
        return;
    if (port_.direction != PORT_DIRECTION || port_.latch != PORT_LATCH)
        complain("command while the lines of the bridge do not enable the bus");
    if (written_.size() < HEAD_LENGTH || !std::equal(FRAME_START.begin(), FRAME_START.end(), written_.begin()))
        return complain("I2C write of " + std::to_string(written_.size()) + " bytes that is no command");
    const uint8_t code = written_[FRAME_START.size()];
    const auto payload = std::span(written_).subspan(HEAD_LENGTH);
    const Command* command = findCommand(code);
    if (command == nullptr)
        complain(commandName(code) + " is unknown");
    else if (payload.size() != command->payloadLength)
        complain(commandName(code) + " with " + std::to_string(payload.size()) + " bytes of payload");
    else
        execute(*command, payload);
}

/// One byte a word.
std::vector<uint8_t> ClassicCamera::words(std::vector<uint8_t> answer) const
{
    std::vector<uint8_t> words;
    for (const uint8_t byte : answer)
        appendLe16(words, byte);
    return words;
}

/// The pixel counts include one column and one row that no host may read.
void ClassicCamera::describe(CommandCall& call)
{
    putDescription(call, FLAGS, model_.describedX + 1, model_.describedY + 1);
}

void ClassicCamera::ping(CommandCall& call)
{
    put(call, call.payload[0]);
}

void ClassicCamera::startApplication(CommandCall& /*call*/)
{
    // Whatever an earlier session left under way ends; the cooler goes on.
    beginStart(APPLICATION_START_US);
    phase_ = Phase::IDLE;
}

// ---- Exposure ----

void ClassicCamera::advance(Phase from, Phase to, const char* fault)
{
    if (phase_ != from)
        return complain(fault);
    phase_ = to;
}

void ClassicCamera::prepareSensor(CommandCall& call)
{
    const unsigned step = argument(call);
    if (step > 1)
        return complain("sensor preparation " + std::to_string(step) + " is unknown");
    if (step == 0) {
        phase_ = Phase::CLEARED;
        return;
    }
    stoppedAtUs_ = clock_.nowUs();
    if (phase_ == Phase::SETTLING && stoppedAtUs_ - settlingSinceUs_ < SETTLE_US)
        complain("readout before the electronics have settled");
    advance(Phase::SETTLING, Phase::STOPPED, "exposure ended out of sequence");
}

void ClassicCamera::prepareExposure(CommandCall& /*call*/)
{
    advance(Phase::CLEARED, Phase::READY, "exposure prepared before the sensor was");
}

void ClassicCamera::startExposure(CommandCall& /*call*/)
{
    integratingSinceUs_ = clock_.nowUs();
    advance(Phase::READY, Phase::INTEGRATING, "exposure started without preparation");
}

void ClassicCamera::settle(CommandCall& /*call*/)
{
    settlingSinceUs_ = clock_.nowUs();
    advance(Phase::INTEGRATING, Phase::SETTLING, "readout begun without an exposure");
}

/// | Offset | Size | Payload, little-endian                                           |
/// |--------|------|------------------------------------------------------------------|
/// | 0      | 1    | duration code of an exposure by the camera's own clock; else 0   |
/// | 1      | 2    | binning in x and y                                               |
/// | 3      | 4    | first column and row, counted from 1                             |
/// | 7      | 4    | column and row after the last ones, counted from 1               |
/// | 11     | 1    | 1: preview, which reads faster                                   |
/// | 12     | 1    | 3                                                                |
void ClassicCamera::readOut(CommandCall& call)
{
    const uint8_t code = call.payload[0];
    const unsigned left = readLe16(call.payload, 3);
    const unsigned top = readLe16(call.payload, 5);
    const unsigned right = readLe16(call.payload, 7);
    const unsigned bottom = readLe16(call.payload, 9);
    const uint8_t preview = call.payload[11];
    if (left < 1 || top < 1 || right < left || bottom < top || preview > 1 || call.payload[12] != READOUT_END)
        return complain("readout request that makes no sense");
    const Readout readout{.region = {.x = left - 1,
                                     .y = top - 1,
                                     .width = right - left,
                                     .height = bottom - top,
                                     .binX = call.payload[1],
                                     .binY = call.payload[2]},
                          .preview = preview == 1,
                          .beginUs = READOUT_BEGIN_US};
    if (!canRead(readout.region))
        return;
    if (code == 0 && phase_ != Phase::STOPPED)
        return complain("readout without exposure");
    if (code != 0 && phase_ != Phase::IDLE)
        note("a timed exposure ends the running one");
    phase_ = Phase::IDLE;
    const int64_t now = clock_.nowUs();
    ExposureTimes times{.beginUs = integratingSinceUs_, .endUs = stoppedAtUs_};
    if (code != 0)
        times = {.beginUs = now, .endUs = now + durationUs(code)};
    sendImage(times, readout);
}

CameraTruth ClassicCamera::truth() const
{
    CameraTruth truth = AnsweringCamera::truth();
    truth.integrating = phase_ == Phase::INTEGRATING || phase_ == Phase::SETTLING || phase_ == Phase::STOPPED;
    return truth;
}

}  // namespace vornsim
