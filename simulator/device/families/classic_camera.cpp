// SPDX-License-Identifier: MIT
#include "classic_camera.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "device/usb/bytes.h"
#include "readout_request.h"

namespace vornsim {
namespace {

enum CommandCode : uint8_t {
    PREPARE_SENSOR = 2,
    PREPARE_EXPOSURE = 4,
    START_EXPOSURE = 5,
    READ_OUT = 6,
    DESCRIBE = 10,
    PING = 17,
    START_APPLICATION = 44,
    COOLER_DETAILS = 52,
    COOLING_STATUS = 53,
    SENSOR_COUNT = 54,
    TEMPERATURE = 55,
    SET_COOLING = 56,
    WARM_UP = 57,
    SETTLE = 66,
};

struct Command {
    uint8_t code;
    uint8_t payloadLength;
    bool early;  // served before the application was started
};
constexpr Command COMMANDS[] = {
    {PREPARE_SENSOR, 2, false},   {PREPARE_EXPOSURE, 0, false}, {START_EXPOSURE, 0, false},
    {READ_OUT, 13, false},        {DESCRIBE, 0, true},          {PING, 1, true},
    {START_APPLICATION, 0, true}, {COOLER_DETAILS, 0, false},   {COOLING_STATUS, 0, false},
    {SENSOR_COUNT, 0, false},     {TEMPERATURE, 2, false},      {SET_COOLING, 2, false},
    {WARM_UP, 0, false},          {SETTLE, 0, false},
};

constexpr std::array<uint8_t, 3> FRAME_START = {'H', 'S', 'C'};
constexpr size_t HEAD_LENGTH = 4;

// How the bridge's lines 0 to 7 have to stand for the bus to be enabled.
constexpr uint8_t PORT_DIRECTION = 0x9F;
constexpr uint8_t PORT_LATCH = 0x80;

// Description flags: a FIFO between converter and bus, preview, subsampling.
constexpr unsigned FLAGS = 0x01 | 0x08 | 0x10;
constexpr std::string_view MANUFACTURER = "Vorn";

constexpr uint8_t READOUT_END = 3;  // last payload byte of every readout
constexpr int64_t SETTLE_US = 2000000;
constexpr int64_t TEMPERATURE_US = 60000;  // conversion and averaging
constexpr int64_t APPLICATION_START_US = 45000;
constexpr int64_t READOUT_BEGIN_US = 20000;  // from the end of the exposure to the first word
constexpr int64_t PREVIEW_SPEED_UP = 2;

/// The duration behind a one-byte code: 1 to 9 milliseconds, then steps of 10 ms.
int64_t durationUs(uint8_t code)
{
    return code < 10 ? code * 1000 : (code - 9) * 10000;
}

}  // namespace

ClassicCamera::ClassicCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log)
    : AnsweringCamera(model, options, clock, log)
{
}

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
    if (std::exchange(addressed_, false))
        takeCommand(written_);
}

void ClassicCamera::takeCommand(std::span<const uint8_t> data)
{
    if (port_.direction != PORT_DIRECTION || port_.latch != PORT_LATCH)
        complain("command while the lines of the bridge do not enable the bus");
    if (data.size() < HEAD_LENGTH || !std::equal(FRAME_START.begin(), FRAME_START.end(), data.begin())) {
        complain("I2C write of " + std::to_string(data.size()) + " bytes that is no command");
        return;
    }
    const uint8_t code = data[FRAME_START.size()];
    const auto payload = data.subspan(HEAD_LENGTH);
    const auto* command = std::find_if(std::begin(COMMANDS), std::end(COMMANDS),
                                       [code](const Command& each) { return each.code == code; });
    if (command == std::end(COMMANDS))
        complain(commandName(code) + " is unknown");
    else if (payload.size() != command->payloadLength)
        complain(commandName(code) + " with " + std::to_string(payload.size()) + " bytes of payload");
    else if (mayServe(code, command->early, code == START_APPLICATION))
        execute(code, payload);
}

/// Puts bytes on the bus, one a word.
void ClassicCamera::answer(std::span<const uint8_t> bytes, int64_t afterUs)
{
    std::vector<uint8_t> words;
    words.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes)
        appendLe16(words, byte);
    output_.send(std::move(words), clock_.nowUs() + afterUs);
}

void ClassicCamera::execute(uint8_t code, std::span<const uint8_t> payload)
{
    beginAnswer(code);
    const uint16_t argument = payload.size() == 2 ? readLe16(payload, 0) : uint16_t{0};
    switch (code) {
        case DESCRIBE:
            return sendDescription();
        case PING:
            return answer({payload[0]});
        case START_APPLICATION:
            return startApplication();
        case COOLER_DETAILS:
            return answer({static_cast<uint8_t>(model_.cooler), model_.maxCoolerPower, model_.minCoolerPower});
        case COOLING_STATUS:
            return sendCoolingStatus();
        case SENSOR_COUNT:
            return answer({model_.sensorCount});
        case TEMPERATURE:
            return sendTemperature(argument);
        case SET_COOLING:
            return answer({static_cast<uint8_t>(cool(argument))});
        case WARM_UP:
            return warmUp();
        case PREPARE_SENSOR:
            return prepareSensor(argument);
        case PREPARE_EXPOSURE:
            return advance(Phase::CLEARED, Phase::READY, "exposure prepared before the sensor was");
        case START_EXPOSURE:
            integratingSinceUs_ = clock_.nowUs();
            return advance(Phase::READY, Phase::INTEGRATING, "exposure started without preparation");
        case SETTLE:
            settlingSinceUs_ = clock_.nowUs();
            return advance(Phase::INTEGRATING, Phase::SETTLING, "readout begun without an exposure");
        case READ_OUT:
            return readOut(payload);
        default:
            return;
    }
}

// ---- Description and start ----

void ClassicCamera::startApplication()
{
    // Whatever an earlier session left under way ends; the cooler goes on.
    beginStart(APPLICATION_START_US);
    phase_ = Phase::IDLE;
}

/// Versions, strings and numbers, a byte a word; the pixel counts include one column and one row that no host may
/// read.
void ClassicCamera::sendDescription()
{
    std::vector<uint8_t> bytes = {model_.versionMinor, model_.versionMajor};
    for (const std::string_view text : {std::string_view(model_.info.name), MANUFACTURER}) {
        bytes.insert(bytes.end(), text.begin(), text.end());
        bytes.push_back(0);
    }
    for (const unsigned number : {FLAGS, unsigned{model_.describedX} + 1, unsigned{model_.describedY} + 1,
                                  unsigned{model_.pixelSizeX}, unsigned{model_.pixelSizeY}, unsigned{model_.maxBinX},
                                  unsigned{model_.maxBinY}, unsigned{model_.wellCapacity}})
        appendLe16(bytes, number);
    answer(bytes, ANSWER_US);
}

// ---- Temperature ----

void ClassicCamera::sendTemperature(unsigned sensor)
{
    std::vector<uint8_t> bytes = {model_.sensorEncoding};
    appendLe16(bytes, rawTemperature(sensor));
    answer(bytes, TEMPERATURE_US);
}

void ClassicCamera::sendCoolingStatus()
{
    std::vector<uint8_t> bytes = {rawCoolerPower(), cooler_.flags(clock_.nowUs())};
    appendLe16(bytes, encodeCelsius(cooler_.targetCelsius(), model_.sensorEncoding));
    answer(bytes, ANSWER_US);
}

// ---- Exposure ----

void ClassicCamera::advance(Phase from, Phase to, const char* fault)
{
    if (phase_ == from)
        phase_ = to;
    else
        complain(fault);
}

void ClassicCamera::prepareSensor(uint16_t step)
{
    if (step == 0) {
        phase_ = Phase::CLEARED;
        return;
    }
    if (step != 1) {
        complain("sensor preparation " + std::to_string(step) + " is unknown");
        return;
    }
    stoppedAtUs_ = clock_.nowUs();
    if (phase_ == Phase::SETTLING && stoppedAtUs_ - settlingSinceUs_ < SETTLE_US)
        complain("readout before the electronics have settled");
    advance(Phase::SETTLING, Phase::STOPPED, "exposure ended out of sequence");
}

/// | Offset | Size | Payload, little-endian                                           |
/// |--------|------|------------------------------------------------------------------|
/// | 0      | 1    | duration code of an exposure by the camera's own clock; else 0   |
/// | 1      | 2    | binning in x and y                                               |
/// | 3      | 4    | first column and row, counted from 1                             |
/// | 7      | 4    | column and row behind the last ones, counted from 1              |
/// | 11     | 1    | 1: preview, which reads faster                                   |
/// | 12     | 1    | 3                                                                |
void ClassicCamera::readOut(std::span<const uint8_t> payload)
{
    const uint8_t code = payload[0];
    const unsigned left = readLe16(payload, 3);
    const unsigned top = readLe16(payload, 5);
    const unsigned right = readLe16(payload, 7);
    const unsigned bottom = readLe16(payload, 9);
    const uint8_t preview = payload[11];
    if (left < 1 || top < 1 || right < left || bottom < top || preview > 1 || payload[12] != READOUT_END) {
        complain("readout request that makes no sense");
        return;
    }
    const Region region{.x = left - 1,
                        .y = top - 1,
                        .width = right - left,
                        .height = bottom - top,
                        .binX = payload[1],
                        .binY = payload[2]};
    if (const std::string fault = readoutFault(model_, region); !fault.empty())
        complain(fault);
    if (!canRead(model_, region))
        return;
    if (code == 0 && phase_ != Phase::STOPPED) {
        complain("readout without exposure");
        return;
    }
    const int64_t now = clock_.nowUs();
    const int64_t begin = code == 0 ? integratingSinceUs_ : now;
    const int64_t end = code == 0 ? stoppedAtUs_ : now + durationUs(code);
    if (code != 0 && phase_ != Phase::IDLE)
        note("a timed exposure ends the running one");
    phase_ = Phase::IDLE;

    Integration integration;
    integration.darkSeconds = static_cast<double>(end - begin) * 1e-6;
    integration.lightSeconds = integration.darkSeconds;  // there is no shutter
    integration.celsius = cooler_.sensorCelsius(now);
    const std::vector<uint16_t>& image =
        sensor_.expose(integration, region, region.width / region.binX, region.height / region.binY);
    std::vector<uint8_t> bytes(image.size() * 2);
    for (size_t i = 0; i < image.size(); ++i)
        writeLe16(bytes, 2 * i, image[i]);
    const int64_t nsPerWord = 1000000000 / std::max<int64_t>(model_.pixelsPerSecond, 1);
    output_.send(std::move(bytes), std::max(now, end) + READOUT_BEGIN_US,
                 preview == 1 ? nsPerWord / PREVIEW_SPEED_UP : nsPerWord);
    note("readout after " + std::to_string(integration.darkSeconds) + " s");
}

CameraTruth ClassicCamera::truth() const
{
    CameraTruth truth = AnsweringCamera::truth();
    truth.integrating = phase_ == Phase::INTEGRATING || phase_ == Phase::SETTLING || phase_ == Phase::STOPPED;
    return truth;
}

}  // namespace vornsim
