// SPDX-License-Identifier: MIT
#include "advanced_camera.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "device/usb/bytes.h"

namespace vornsim {
namespace {

enum CommandCode : uint8_t {
    DESCRIBE = 1,
    PREPARE_SENSOR = 2,
    PREPARE_EXPOSURE = 4,
    START_EXPOSURE = 5,
    READ_OUT = 6,
    RELAY_1 = 20,
    RELAY_2 = 21,
    RELAY_3 = 22,
    RELAY_4 = 23,
    RELAYS_OPEN = 24,
    START_APPLICATION = 44,
    COOLER_DETAILS = 52,
    COOLING_STATUS = 53,
    SENSOR_COUNT = 54,
    TEMPERATURE = 55,
    SET_COOLING = 56,
    WARM_UP = 57,
    SERIAL_NUMBER = 62,
    PING = 80,
    GPIO_STATUS = 130,
    GPIO_DIRECTION = 131,
    GPIO_LEVELS = 132,
    FILTER_STATUS = 135,
    SET_FILTER = 136,
    SET_GAIN = 140,
    GET_GAIN = 141,
    CLEAR_TIME = 145,
    KERNEL_PING = 253,
};

constexpr size_t HEAD_LENGTH = 4;
constexpr std::array<uint8_t, 3> FRAME_START = {'C', 'M', 'D'};

// Line 0 holds the controller in reset while it is high.
constexpr uint8_t RESET_LINE = 0x01;

constexpr uint8_t STATUS_STARTING = 'B';
constexpr uint8_t STATUS_UP = 'I';

// Description flags.
constexpr unsigned FLAG_PREVIEW = 0x0008;
constexpr unsigned FLAG_SUBSAMPLE = 0x0010;
constexpr unsigned FLAG_SHUTTER = 0x0080;
constexpr unsigned FLAG_NO_GUIDE_PORT = 0x0100;
constexpr unsigned FLAG_GPIO = 0x0200;
constexpr unsigned FLAG_EIGHT_BIT = 0x0800;
constexpr unsigned FLAG_FILTER_WHEEL = 0x1000;
constexpr std::string_view MANUFACTURER = "Vorn";

constexpr int64_t STARTING_US = 150000;
// Firmware before 2 has no command for its clear time; hosts know it.
constexpr int64_t OLD_CLEAR_TIME_US = 300000;
constexpr int64_t NEW_CLEAR_TIME_US = 120000;

void appendWide(std::vector<uint8_t>& bytes, std::string_view text)
{
    for (const char character : text)
        appendBe16(bytes, static_cast<uint8_t>(character));
    appendBe16(bytes, 0);
}

}  // namespace

struct AdvancedCamera::Command {
    uint8_t code;
    uint8_t payloadLength;
    uint8_t replyLength;
    bool early;  // served before the application was started

    static const Command* find(uint8_t code);
};

const AdvancedCamera::Command* AdvancedCamera::Command::find(uint8_t code)
{
    static constexpr Command COMMANDS[] = {
        {DESCRIBE, 0, 128, true},
        {PREPARE_SENSOR, 2, 0, false},
        {PREPARE_EXPOSURE, 0, 0, false},
        {START_EXPOSURE, 0, 0, false},
        {READ_OUT, 16, 0, false},
        {RELAY_1, 0, 0, false},
        {RELAY_2, 0, 0, false},
        {RELAY_3, 0, 0, false},
        {RELAY_4, 0, 0, false},
        {RELAYS_OPEN, 0, 0, false},
        {START_APPLICATION, 0, 0, true},
        {COOLER_DETAILS, 0, 6, false},
        {COOLING_STATUS, 0, 8, false},
        {SENSOR_COUNT, 0, 2, false},
        {TEMPERATURE, 2, 6, false},
        {SET_COOLING, 2, 2, false},
        {WARM_UP, 0, 0, false},
        {SERIAL_NUMBER, 0, 6, false},
        {PING, 2, 2, true},
        {GPIO_STATUS, 0, 4, false},
        {GPIO_DIRECTION, 2, 0, false},
        {GPIO_LEVELS, 2, 0, false},
        {FILTER_STATUS, 0, 8, false},
        {SET_FILTER, 2, 2, false},
        {SET_GAIN, 18, 0, false},
        {GET_GAIN, 0, 16, false},
        {CLEAR_TIME, 0, 2, true},
        {KERNEL_PING, 2, 2, true},
    };
    const auto* found = std::find_if(std::begin(COMMANDS), std::end(COMMANDS),
                                     [code](const Command& each) { return each.code == code; });
    return found == std::end(COMMANDS) ? nullptr : found;
}

AdvancedCamera::AdvancedCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock,
                               DeviceLog& log)
    : BridgedCamera(model, options, clock, log), options_(options)
{
}

CameraTruth AdvancedCamera::truth() const
{
    CameraTruth truth = BridgedCamera::truth();
    truth.lastImage = image_;
    truth.integrating = integratingSinceUs_.has_value();
    return truth;
}

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
    if (command_ == nullptr)
        return 0xFF;
    const size_t before = HEAD_LENGTH + command_->payloadLength;
    return received_.size() < before || received_.size() - before >= reply_.size() ? uint8_t{0xFF}
                                                                                   : reply_[received_.size() - before];
}

void AdvancedCamera::spiInput(uint8_t byte)
{
    received_.push_back(byte);
    if (inReset_)
        return;
    if (received_.size() == HEAD_LENGTH && std::equal(FRAME_START.begin(), FRAME_START.end(), received_.begin()))
        command_ = Command::find(byte);
    if (command_ != nullptr && received_.size() == HEAD_LENGTH + command_->payloadLength)
        serve(*command_);
}

void AdvancedCamera::spiDeselect()
{
    const size_t length = received_.size();
    if (inReset_)
        return;
    if (length == 1) {
        if (!readyAtUs_)
            complain("status asked before the application was started");
    } else if (length < HEAD_LENGTH || !std::equal(FRAME_START.begin(), FRAME_START.end(), received_.begin())) {
        complain("SPI exchange of " + std::to_string(length) + " bytes that is no command");
    } else if (command_ == nullptr) {
        complain(commandName(received_[FRAME_START.size()]) + " is unknown");
    } else if (const size_t wanted = HEAD_LENGTH + command_->payloadLength + command_->replyLength; length != wanted) {
        complain(commandName(command_->code) + " in an exchange of " + std::to_string(length) + " bytes, not " +
                 std::to_string(wanted));
    }
}

void AdvancedCamera::serve(const Command& command)
{
    reply_.assign(command.replyLength, 0xFF);
    if (mayServe(command))
        execute(command.code, std::span(received_).subspan(HEAD_LENGTH), reply_);
}

bool AdvancedCamera::mayServe(const Command& command)
{
    if (!command.early && applicationStatus() != STATUS_UP) {
        complain(commandName(command.code) + " before the application is up");
        return false;
    }
    if (clock_.nowUs() < busyUntilUs_ && command.code != KERNEL_PING) {
        if (command.code != PING)  // pinging is how a host finds out
            complain(commandName(command.code) + " while the sensor is being cleared");
        return false;
    }
    return true;
}

void AdvancedCamera::execute(uint8_t code, std::span<const uint8_t> payload, std::span<uint8_t> reply)
{
    const int64_t now = clock_.nowUs();
    std::fill(reply.begin(), reply.end(), uint8_t{0});
    switch (code) {
        case KERNEL_PING:
            std::copy(payload.begin(), payload.end(), reply.begin());
            break;
        case PING:
            reply[0] = payload[0];
            reply[1] = static_cast<uint8_t>(payload[1] + 1);
            break;
        case DESCRIBE: {
            const std::vector<uint8_t> bytes = description();
            std::copy_n(bytes.begin(), std::min(bytes.size(), reply.size()), reply.begin());
            break;
        }
        case CLEAR_TIME:
            if (model_.versionMajor < 2)
                complain(commandName(code) + " is unknown to firmware 1");
            writeBe16(reply, 0, static_cast<unsigned>(clearTimeUs() / 1000));
            break;
        case START_APPLICATION:
            startApplication();
            break;
        case SERIAL_NUMBER:
            writeBe16(reply, 4, serialNumber(model_, options_) & 0xFFFF);
            break;
        case SENSOR_COUNT:
            writeBe16(reply, 0, model_.sensorCount);
            break;
        case TEMPERATURE:
            replyTemperature(readBe16(payload, 0), reply);
            break;
        case COOLER_DETAILS:
            replyCoolerDetails(reply);
            break;
        case COOLING_STATUS:
            replyCoolingStatus(reply);
            break;
        case SET_COOLING:
            writeBe16(reply, 0, cool(readBe16(payload, 0)) ? 1 : 0);
            break;
        case WARM_UP:
            warmUp();
            break;
        case RELAY_1:
        case RELAY_2:
        case RELAY_3:
        case RELAY_4:
            closeRelay(code - RELAY_1);
            break;
        case RELAYS_OPEN:
            mount_.setRelays(0, now);
            break;
        case GPIO_STATUS:
            replyGpio(reply);
            break;
        case GPIO_DIRECTION:
            gpioDirection_ = readBe16(payload, 0);
            break;
        case GPIO_LEVELS:
            gpioLatch_ = readBe16(payload, 0);
            break;
        case FILTER_STATUS:
            replyFilterStatus(reply);
            break;
        case SET_FILTER:
            reply[1] = wheel_.moveTo(readBe16(payload, 0), now) ? 1 : 0;
            break;
        case GET_GAIN: {
            const AdvancedConverter::Record record = converter_.read();
            std::copy(record.begin(), record.end(), reply.begin());
            break;
        }
        case SET_GAIN:
            if (const std::string fault = converter_.update(payload); !fault.empty())
                complain(fault);
            break;
        case PREPARE_SENSOR:
            if (readBe16(payload, 0) != 0)
                complain("sensor prepared in mode " + std::to_string(readBe16(payload, 0)));
            integratingSinceUs_.reset();
            cleared_ = false;
            prepared_ = true;
            break;
        case PREPARE_EXPOSURE:
            prepareExposure();
            break;
        case START_EXPOSURE:
            startExposure();
            break;
        case READ_OUT:
            readOut(payload);
            break;
        default:
            break;
    }
}

uint8_t AdvancedCamera::applicationStatus() const
{
    return readyAtUs_ && clock_.nowUs() >= *readyAtUs_ ? STATUS_UP : STATUS_STARTING;
}

void AdvancedCamera::startApplication()
{
    const int64_t now = clock_.nowUs();
    readyAtUs_ = now + STARTING_US;
    wheel_ = FilterWheel(model_.filterCount, now);  // it looks for its first position every time
    converter_.restart();
    mount_.setRelays(0, now);
    prepared_ = cleared_ = false;
    integratingSinceUs_.reset();
}

/// | Offset | Size | Description, big-endian                                             |
/// |--------|------|---------------------------------------------------------------------|
/// | 0      | 4    | 0, minor version, 0, major version                                  |
/// | 4      | ...  | model and manufacturer, a character in the low byte of each unit,   |
/// |        |      | each ended by a unit of 0                                           |
/// | next   | 16   | flags, columns, rows, pixel width and height in 0.01 micrometre,    |
/// |        |      | highest binnings, well capacity                                     |
std::vector<uint8_t> AdvancedCamera::description() const
{
    std::vector<uint8_t> bytes = {0, model_.versionMinor, 0, model_.versionMajor};
    appendWide(bytes, model_.info.name);
    appendWide(bytes, MANUFACTURER);
    appendBe16(bytes, FLAG_PREVIEW | FLAG_SUBSAMPLE | (model_.shutter ? FLAG_SHUTTER : 0) |
                          (model_.guidePort ? 0 : FLAG_NO_GUIDE_PORT) | (model_.gpio ? FLAG_GPIO : 0) |
                          (model_.eightBit ? FLAG_EIGHT_BIT : 0) | (model_.filterCount > 0 ? FLAG_FILTER_WHEEL : 0));
    appendBe16(bytes, model_.describedX);
    appendBe16(bytes, model_.describedY);
    appendBe16(bytes, model_.pixelSizeX);
    appendBe16(bytes, model_.pixelSizeY);
    appendBe16(bytes, model_.maxBinX);
    appendBe16(bytes, model_.maxBinY);
    appendBe16(bytes, model_.wellCapacity);
    return bytes;
}

int64_t AdvancedCamera::clearTimeUs() const
{
    return model_.versionMajor < 2 ? OLD_CLEAR_TIME_US : NEW_CLEAR_TIME_US;
}

}  // namespace vornsim
