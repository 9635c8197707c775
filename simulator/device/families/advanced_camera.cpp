// SPDX-License-Identifier: MIT
#include "advanced_camera.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "device/usb/bytes.h"

namespace vornsim {
namespace {

constexpr size_t HEAD_LENGTH = 4;
constexpr std::array<uint8_t, 3> FRAME_START = {'C', 'M', 'D'};

// Line 0 holds the controller in reset while it is high.
constexpr uint8_t RESET_LINE = 0x01;

constexpr uint8_t STATUS_STARTING = 'B';
constexpr uint8_t STATUS_UP = 'I';

// While the sensor is cleared, the first is ignored without a complaint and the second is served.
constexpr uint8_t PING = 80;
constexpr uint8_t KERNEL_PING = 253;

// Description flags
constexpr unsigned FLAG_PREVIEW = 0x0008;
constexpr unsigned FLAG_SUBSAMPLE = 0x0010;
constexpr unsigned FLAG_SHUTTER = 0x0080;
constexpr unsigned FLAG_NO_GUIDE_PORT = 0x0100;
constexpr unsigned FLAG_GPIO = 0x0200;
constexpr unsigned FLAG_EIGHT_BIT = 0x0800;
constexpr unsigned FLAG_FILTER_WHEEL = 0x1000;

// Readout
constexpr uint8_t READ_PREVIEW = 0x01;
constexpr uint8_t READ_MICROSECONDS = 0x04;
constexpr uint8_t READ_EIGHT_BIT = 0x20;
constexpr uint8_t MODE_LONG = 0x43;
constexpr uint8_t MODE_TIMED = 0x03;
constexpr unsigned LONGEST_TIMED_MS = 3000;
constexpr size_t LEADING_VALUES = 2;

constexpr unsigned GPIO_LINES = 8;
constexpr double OFFSET_ADU = 2.0;  // a step of the converter's offset
constexpr int64_t STARTING_US = 150000;
constexpr int64_t CLEARING_US = 60000;
// Firmware before 2 has no command for its clear time; hosts know it.
constexpr int64_t OLD_CLEAR_TIME_US = 300000;
constexpr int64_t NEW_CLEAR_TIME_US = 120000;

}  // namespace

AdvancedCamera::AdvancedCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock,
                               DeviceLog& log)
    : CommandCamera(Numbers::HIGH_FIRST, model, options, clock, log)
{
}

std::span<const Command> AdvancedCamera::commands() const
{
    // code, payload length, answer length
    static const Command COMMANDS[] = {
        {1, 0, 128, Command::EARLY, &AdvancedCamera::describe},
        {2, 2, 0, Command::LATE, &AdvancedCamera::prepareSensor},
        {4, 0, 0, Command::LATE, &AdvancedCamera::prepareExposure},
        {5, 0, 0, Command::LATE, &AdvancedCamera::startExposure},
        {6, 16, 0, Command::LATE, &AdvancedCamera::readOut},
        {20, 0, 0, Command::LATE, &AdvancedCamera::closeRelay},
        {21, 0, 0, Command::LATE, &AdvancedCamera::closeRelay},
        {22, 0, 0, Command::LATE, &AdvancedCamera::closeRelay},
        {23, 0, 0, Command::LATE, &AdvancedCamera::closeRelay},
        {24, 0, 0, Command::LATE, &AdvancedCamera::openRelays},
        {START_APPLICATION, 0, 0, Command::EARLY, &AdvancedCamera::startApplication},
        {52, 0, 6, Command::LATE, &AdvancedCamera::describeOwnCooler},
        {53, 0, 8, Command::LATE, &AdvancedCamera::reportCooling},
        {54, 0, 2, Command::LATE, &AdvancedCamera::countSensors},
        {55, 2, 6, Command::LATE, &AdvancedCamera::measureTemperature},
        {56, 2, 2, Command::LATE, &AdvancedCamera::setCooling},
        {57, 0, 0, Command::LATE, &AdvancedCamera::warmUp},
        {62, 0, 6, Command::LATE, &AdvancedCamera::reportSerialNumber},
        {PING, 2, 2, Command::EARLY, &AdvancedCamera::ping},
        {130, 0, 4, Command::LATE, &AdvancedCamera::reportGpio},
        {131, 2, 0, Command::LATE, &AdvancedCamera::setGpioDirection},
        {132, 2, 0, Command::LATE, &AdvancedCamera::setGpioLevels},
        {135, 0, 8, Command::LATE, &AdvancedCamera::reportFilter},
        {136, 2, 2, Command::LATE, &AdvancedCamera::setFilter},
        {140, 18, 0, Command::LATE, &AdvancedCamera::setGain},
        {141, 0, 16, Command::LATE, &AdvancedCamera::reportGain},
        {145, 0, 2, Command::EARLY, &AdvancedCamera::reportClearTime},
        {KERNEL_PING, 2, 2, Command::EARLY, &AdvancedCamera::pingKernel},
    };
    return COMMANDS;
}

// ---- Exchanges over SPI ----

void AdvancedCamera::spiSelect()
{
    received_.clear();
    reply_.clear();
    command_ = nullptr;
    inReset_ = (port_.direction & RESET_LINE) == 0 || (port_.latch & RESET_LINE) != 0;
    if (inReset_)
        complain("SPI exchange with line 0 not low");
}

/// The first byte of every exchange is the application's status: a host asks for it with an exchange of one byte.
uint8_t AdvancedCamera::spiOutput()
{
    if (inReset_)
        return 0xFF;
    if (received_.empty())
        return applicationStatus();
    const size_t before = HEAD_LENGTH + (command_ != nullptr ? command_->payloadLength : 0U);
    return received_.size() - before < reply_.size() ? reply_[received_.size() - before] : uint8_t{0xFF};
}

void AdvancedCamera::spiInput(uint8_t byte)
{
    received_.push_back(byte);
    if (inReset_)
        return;
    if (received_.size() == HEAD_LENGTH && framed())
        command_ = findCommand(byte);
    if (command_ == nullptr || received_.size() != HEAD_LENGTH + command_->payloadLength)
        return;
    reply_.assign(command_->replyLength, 0xFF);
    if (mayServe(*command_))
        reply_ = serve(*command_, std::span(received_).subspan(HEAD_LENGTH)).answer;
}

void AdvancedCamera::spiDeselect()
{
    const size_t length = received_.size();
    if (inReset_ || length == 0)  // the select line may move while a host sets its pins up; that means nothing
        return;
    if (length == 1) {
        if (!readyAtUs_)
            complain("status asked before the application was started");
    } else if (!framed()) {
        complain("SPI exchange of " + std::to_string(length) + " bytes that is no command");
    } else if (command_ == nullptr) {
        complain(commandName(received_[FRAME_START.size()]) + " is unknown");
    } else if (const size_t wanted = HEAD_LENGTH + command_->payloadLength + command_->replyLength; length != wanted) {
        complain(commandName(command_->code) + " in an exchange of " + std::to_string(length) + " bytes, not " +
                 std::to_string(wanted));
    }
}

/// @return whether what was received begins as a command does.
bool AdvancedCamera::framed() const
{
    return received_.size() >= HEAD_LENGTH && std::equal(FRAME_START.begin(), FRAME_START.end(), received_.begin());
}

bool AdvancedCamera::mayServe(const Command& command)
{
    if (!command.early && applicationStatus() != STATUS_UP) {
        complain(commandName(command.code) + " before the application is up");
        return false;
    }
    if (clock_.nowUs() >= busyUntilUs_ || command.code == KERNEL_PING)
        return true;
    if (command.code != PING)  // pinging is how a host finds out
        complain(commandName(command.code) + " while the sensor is being cleared");
    return false;
}

uint8_t AdvancedCamera::applicationStatus() const
{
    return readyAtUs_ && clock_.nowUs() >= *readyAtUs_ ? STATUS_UP : STATUS_STARTING;
}

// ---- Description and start ----

void AdvancedCamera::describe(CommandCall& call)
{
    putDescription(call,
                   FLAG_PREVIEW | FLAG_SUBSAMPLE | (model_.shutter ? FLAG_SHUTTER : 0) |
                       (model_.guidePort ? 0 : FLAG_NO_GUIDE_PORT) | (model_.gpio ? FLAG_GPIO : 0) |
                       (model_.eightBit ? FLAG_EIGHT_BIT : 0) | (model_.filterCount > 0 ? FLAG_FILTER_WHEEL : 0),
                   model_.describedX, model_.describedY);
}

void AdvancedCamera::ping(CommandCall& call)
{
    call.answer = {call.payload[0], static_cast<uint8_t>(call.payload[1] + 1)};
}

void AdvancedCamera::pingKernel(CommandCall& call)
{
    call.answer = {call.payload[0], call.payload[1]};
}

void AdvancedCamera::startApplication(CommandCall& /*call*/)
{
    const int64_t now = clock_.nowUs();
    readyAtUs_ = now + STARTING_US;
    wheel_ = FilterWheel(model_.filterCount, now);  // it looks for its first position every time
    converter_.restart();
    mount_.setRelays(0, now);
    prepared_ = cleared_ = false;
    integratingSinceUs_.reset();
}

void AdvancedCamera::reportSerialNumber(CommandCall& call)
{
    for (const unsigned number : {0U, 0U, serialNumber(model_, options_) & 0xFFFF})
        put(call, number);
}

int64_t AdvancedCamera::clearTimeUs() const
{
    return model_.versionMajor < 2 ? OLD_CLEAR_TIME_US : NEW_CLEAR_TIME_US;
}

void AdvancedCamera::reportClearTime(CommandCall& call)
{
    if (model_.versionMajor < 2)
        complain(commandName(call.code) + " is unknown to firmware 1");
    put(call, static_cast<unsigned>(clearTimeUs() / 1000));
}

// ---- Accessories ----

/// A cooler that regulates can also be switched.
void AdvancedCamera::describeOwnCooler(CommandCall& call)
{
    describeCooler(call);
    if (model_.cooler == CoolerKind::SET_POINT || model_.cooler == CoolerKind::SELECT_POWER)
        call.answer[1] |= static_cast<uint8_t>(CoolerKind::ON_OFF);
}

uint16_t AdvancedCamera::gpioMask() const
{
    return model_.gpio ? (1U << GPIO_LINES) - 1 : 0;
}

void AdvancedCamera::reportGpio(CommandCall& call)
{
    if (!model_.gpio)
        complain("GPIO asked for, but there are no lines");
    put(call, model_.gpio ? GPIO_LINES : 0);
    put(call, gpioOutputs() | (gpioInputs_ & ~gpioDirection_ & gpioMask()));
}

void AdvancedCamera::setGpioDirection(CommandCall& call)
{
    gpioDirection_ = readBe16(call.payload, 0);
}

void AdvancedCamera::setGpioLevels(CommandCall& call)
{
    gpioLatch_ = readBe16(call.payload, 0);
}

void AdvancedCamera::reportGain(CommandCall& call)
{
    const AdvancedConverter::Record record = converter_.read();
    call.answer.assign(record.begin(), record.end());
}

void AdvancedCamera::setGain(CommandCall& call)
{
    if (const std::string fault = converter_.update(call.payload); !fault.empty())
        complain(fault);
}

// ---- Exposure ----

void AdvancedCamera::prepareSensor(CommandCall& call)
{
    if (argument(call) != 0)
        complain("sensor prepared in mode " + std::to_string(argument(call)));
    integratingSinceUs_.reset();
    cleared_ = false;
    prepared_ = true;
}

void AdvancedCamera::prepareExposure(CommandCall& /*call*/)
{
    if (!std::exchange(prepared_, false))
        return complain("exposure prepared before the sensor");
    cleared_ = true;
    busyUntilUs_ = clock_.nowUs() + CLEARING_US;
}

void AdvancedCamera::startExposure(CommandCall& /*call*/)
{
    if (!std::exchange(cleared_, false))
        return complain("exposure started without preparation");
    integratingSinceUs_ = clock_.nowUs();
    note("exposure started");
}

/// | Offset | Size | Payload, big-endian                                                   |
/// |--------|------|-----------------------------------------------------------------------|
/// | 0      | 2    | duration of a timed exposure in ms or, by flag, us; else 0            |
/// | 2      | 4    | binning in x and y                                                    |
/// | 6      | 8    | first column and row, width and height in sensor pixels               |
/// | 14     | 1    | flags: 0x01 preview, 0x04 duration in us, 0x20 8-bit samples          |
/// | 15     | 1    | 0x43: end the running exposure; 0x03: expose by the camera's own clock |
void AdvancedCamera::readOut(CommandCall& call)
{
    const unsigned duration = readBe16(call.payload, 0);
    const uint8_t flags = call.payload[14];
    const uint8_t mode = call.payload[15];
    const bool microseconds = (flags & READ_MICROSECONDS) != 0;
    const bool eightBit = (flags & READ_EIGHT_BIT) != 0;
    const Readout readout{.region = {.x = readBe16(call.payload, 6),
                                     .y = readBe16(call.payload, 8),
                                     .width = readBe16(call.payload, 10),
                                     .height = readBe16(call.payload, 12),
                                     .binX = readBe16(call.payload, 2),
                                     .binY = readBe16(call.payload, 4)},
                          .roundUp = true,
                          .preview = (flags & READ_PREVIEW) != 0,
                          .samples = eightBit ? Readout::Samples::BYTES : Readout::Samples::WORDS,
                          .leadingValues = LEADING_VALUES};
    output_.clear();
    if ((flags & ~(READ_PREVIEW | READ_MICROSECONDS | READ_EIGHT_BIT)) != 0)
        complain("readout with unknown flags " + std::to_string(flags));
    if (eightBit && !model_.eightBit)
        complain("8-bit readout of a camera that has none");
    if (!canRead(readout.region))
        return;

    std::optional<ExposureTimes> times;
    if (mode == MODE_LONG)
        times = endExposure(duration, microseconds);
    else if (mode == MODE_TIMED)
        times = timedExposure(duration, microseconds);
    else
        complain("readout in mode " + std::to_string(mode));
    if (!times)
        return;
    const AdvancedConverter::Setting& setting = converter_.setting(readout.preview);
    const SensorModel base = sensorModel(model_);
    sensor_.setConverter(base.electronsPerAdu / AdvancedConverter::amplification(setting.gain),
                         std::max(0.0, base.biasAdu + OFFSET_ADU * (static_cast<double>(setting.offset) - 256.0)));
    sendImage(*times, readout);
}

std::optional<ExposureTimes> AdvancedCamera::endExposure(unsigned duration, bool microseconds)
{
    if (duration != 0 || microseconds)
        complain("readout of a running exposure with a duration");
    const std::optional<int64_t> since = std::exchange(integratingSinceUs_, std::nullopt);
    if (!since) {
        complain("readout without an exposure");
        return std::nullopt;
    }
    // The registers that carry the charge out are cleared first; meanwhile the pixels go on collecting.
    return ExposureTimes{.beginUs = *since, .endUs = clock_.nowUs() + clearTimeUs()};
}

ExposureTimes AdvancedCamera::timedExposure(unsigned duration, bool microseconds)
{
    if (duration < 1 || (!microseconds && duration > LONGEST_TIMED_MS))
        complain("timed exposure of " + std::to_string(duration) + (microseconds ? " us" : " ms"));
    if (integratingSinceUs_)
        note("a timed exposure ends the running one");
    integratingSinceUs_.reset();
    const int64_t now = clock_.nowUs();
    return {.beginUs = now, .endUs = now + int64_t{duration} * (microseconds ? 1 : 1000)};
}

CameraTruth AdvancedCamera::truth() const
{
    CameraTruth truth = CommandCamera::truth();
    truth.integrating = integratingSinceUs_.has_value();
    return truth;
}

}  // namespace vornsim
