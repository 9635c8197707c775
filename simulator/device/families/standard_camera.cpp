// SPDX-License-Identifier: MIT
#include "standard_camera.h"

#include <algorithm>
#include <utility>

#include "device/usb/bytes.h"

namespace vornsim {
namespace {

enum CommandCode : uint8_t {
    GET_DESCRIPTION = 1,
    PREPARE_SENSOR = 2,
    PREPARE_EXPOSURE = 4,
    START_EXPOSURE = 5,
    READ_OUT = 6,
    SET_SHUTTER = 9,
    CLOSE_RELAY_1 = 20,
    CLOSE_RELAY_2 = 21,
    CLOSE_RELAY_3 = 22,
    CLOSE_RELAY_4 = 23,
    OPEN_RELAYS = 24,
    START_APPLICATION = 44,
    GET_COOLER_DETAILS = 52,
    GET_COOLING_STATUS = 53,
    GET_SENSOR_COUNT = 54,
    GET_TEMPERATURE = 55,
    SET_COOLING = 56,
    WARM_UP = 57,
    PING = 80,
    GET_GPIO = 130,
    GET_FILTER_STATUS = 135,
    SET_FILTER = 136,
};

/// What the camera knows about a command before it executes it.
struct CommandRule {
    uint8_t code;
    uint8_t payloadLength;
    bool anyTime;  ///< also served before the application was started
};

constexpr CommandRule RULES[] = {
    {GET_DESCRIPTION, 0, true},
    {PREPARE_SENSOR, 2, false},
    {PREPARE_EXPOSURE, 0, false},
    {START_EXPOSURE, 0, false},
    {READ_OUT, 16, false},
    {SET_SHUTTER, 2, false},
    {CLOSE_RELAY_1, 0, false},
    {CLOSE_RELAY_2, 0, false},
    {CLOSE_RELAY_3, 0, false},
    {CLOSE_RELAY_4, 0, false},
    {OPEN_RELAYS, 0, false},
    {START_APPLICATION, 0, true},
    {GET_COOLER_DETAILS, 0, false},
    {GET_COOLING_STATUS, 0, false},
    {GET_SENSOR_COUNT, 0, false},
    {GET_TEMPERATURE, 2, false},
    {SET_COOLING, 2, false},
    {WARM_UP, 0, false},
    {PING, 1, true},
    {GET_GPIO, 0, false},
    {GET_FILTER_STATUS, 0, false},
    {SET_FILTER, 2, false},
};

// "CMD", one character a word, and the code.
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

constexpr int64_t ANSWER_US = 2000;
constexpr int64_t TEMPERATURE_US = 60000;  // conversion and averaging
constexpr int64_t APPLICATION_START_US = 35000;

}  // namespace

StandardCamera::StandardCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock,
                               DeviceLog& log)
    : AnsweringCamera(model, options, clock, log), shutter_(model.shutter)
{
}

// ---- The bus ----

void StandardCamera::answer(std::vector<uint8_t> bytes, int64_t afterUs)
{
    output_.send(std::move(bytes), clock_.nowUs() + afterUs);
}

void StandardCamera::wordsReceived(std::span<const uint8_t> bytes)
{
    if (port_.direction != PORT_A_DIRECTION || port_.latch != PORT_A_LATCH) {
        complain("words on a bus that port A does not enable");
        return;
    }
    while (!bytes.empty()) {
        constexpr uint8_t HEADER[] = {'C', 0, 'M', 0, 'D', 0};
        if (bytes.size() < FRAME_HEADER_LENGTH || !std::equal(std::begin(HEADER), std::end(HEADER), bytes.begin()) ||
            bytes[FRAME_CODE_OFFSET + 1] != 0) {
            complain("no command: " + std::to_string(bytes.size()) + " bytes");
            return;
        }
        const uint8_t code = bytes[FRAME_CODE_OFFSET];
        const auto* rule = std::find_if(std::begin(RULES), std::end(RULES),
                                        [&](const CommandRule& candidate) { return candidate.code == code; });
        if (rule == std::end(RULES)) {
            complain("unknown " + commandName(code));
            return;
        }
        const size_t padded = rule->payloadLength + rule->payloadLength % 2U;
        if (bytes.size() < FRAME_HEADER_LENGTH + padded) {
            complain(commandName(code) + " lacks its payload");
            return;
        }
        const auto payload = bytes.subspan(FRAME_HEADER_LENGTH, rule->payloadLength);
        bytes = bytes.subspan(FRAME_HEADER_LENGTH + padded);
        if (mayServe(code, rule->anyTime, code == START_APPLICATION))
            execute(code, payload);
    }
}

void StandardCamera::execute(uint8_t code, std::span<const uint8_t> payload)
{
    beginAnswer(code);
    const uint16_t argument = payload.size() == 2 ? readLe16(payload, 0) : uint16_t{0};
    switch (code) {
        case GET_DESCRIPTION:
            return sendDescription();
        case PREPARE_SENSOR:
            return prepareSensor(argument);
        case PREPARE_EXPOSURE:
            return prepareExposure();
        case START_EXPOSURE:
            return startExposure();
        case READ_OUT:
            return readOut(payload);
        case SET_SHUTTER:
            return setShutter(argument);
        case CLOSE_RELAY_1:
        case CLOSE_RELAY_2:
        case CLOSE_RELAY_3:
        case CLOSE_RELAY_4:
            return closeRelay(code - unsigned{CLOSE_RELAY_1});
        case OPEN_RELAYS:
            if (!model_.guidePort)
                complain("guide relays, but there is no guide port");
            return mount_.setRelays(0, clock_.nowUs());
        case START_APPLICATION:
            return startApplication();
        case GET_COOLER_DETAILS:
            return sendCoolerDetails();
        case GET_COOLING_STATUS:
            return sendCoolingStatus();
        case GET_SENSOR_COUNT:
            return answer({model_.sensorCount, 0}, ANSWER_US);
        case GET_TEMPERATURE:
            return sendTemperature(argument);
        case SET_COOLING:
            return answer({static_cast<uint8_t>(cool(argument)), 0}, ANSWER_US);
        case WARM_UP:
            return warmUp();
        case PING:
            return answer({static_cast<uint8_t>(payload[0] + 1), 0}, ANSWER_US);
        case GET_GPIO:
            return complain("GPIO asked for, but there are no lines");
        case GET_FILTER_STATUS:
            return sendFilterStatus();
        case SET_FILTER:
            return setFilter(argument);
        default:
            return;
    }
}

// ---- Description and start ----

void StandardCamera::startApplication()
{
    // Whatever an earlier session left under way ends; the cooler goes on.
    const int64_t now = clock_.nowUs();
    beginStart(APPLICATION_START_US);
    phase_ = Phase::IDLE;
    shutter_.set(false, now);
    mount_.setRelays(0, now);
}

void StandardCamera::sendDescription()
{
    std::vector<uint8_t> bytes;
    const auto appendText = [&](const char* text) {
        do {
            appendLe16(bytes, static_cast<uint8_t>(*text));
        } while (*text++ != '\0');
    };
    unsigned flags = HAS_FIFO | HAS_PREVIEW | HAS_SUBSAMPLING;
    flags |= model_.shutter ? HAS_SHUTTER : 0;
    flags |= model_.guidePort ? 0 : NO_GUIDE_PORT;
    flags |= model_.filterCount > 0 ? HAS_FILTER_WHEEL : 0;

    appendLe16(bytes, model_.versionMinor);
    appendLe16(bytes, model_.versionMajor);
    appendText(model_.info.name);
    appendText("Vorn");
    for (const unsigned word : {flags, unsigned{model_.describedX}, unsigned{model_.describedY},
                                unsigned{model_.pixelSizeX}, unsigned{model_.pixelSizeY}, unsigned{model_.maxBinX},
                                unsigned{model_.maxBinY}, unsigned{model_.wellCapacity}})
        appendLe16(bytes, word);
    answer(std::move(bytes), ANSWER_US);
}

// ---- Temperature ----

void StandardCamera::sendTemperature(unsigned sensor)
{
    std::vector<uint8_t> bytes = {model_.sensorEncoding, 0};
    appendLe16(bytes, rawTemperature(sensor));
    appendLe16(bytes, 0);
    answer(std::move(bytes), TEMPERATURE_US);
}

void StandardCamera::sendCoolerDetails()
{
    answer({static_cast<uint8_t>(model_.cooler), 0, model_.maxCoolerPower, 0, model_.minCoolerPower, 0}, ANSWER_US);
}

void StandardCamera::sendCoolingStatus()
{
    std::vector<uint8_t> bytes = {rawCoolerPower(), 0, cooler_.flags(clock_.nowUs()), 0};
    appendLe16(bytes, encodeCelsius(cooler_.targetCelsius(), model_.sensorEncoding));
    answer(std::move(bytes), ANSWER_US);
}

// ---- Accessories ----

void StandardCamera::setShutter(uint16_t open)
{
    if (!shutter_.present() || open > 1) {
        complain("shutter set to " + std::to_string(open) + (shutter_.present() ? "" : ", but there is no shutter"));
        return;
    }
    shutter_.set(open == 1, clock_.nowUs());
    note(open == 1 ? "shutter open" : "shutter closed");
}

void StandardCamera::sendFilterStatus()
{
    if (wheel_.count() == 0)
        complain("filter status, but there is no wheel");
    const int64_t now = clock_.nowUs();
    std::vector<uint8_t> bytes;
    for (const unsigned word : {wheel_.count(), unsigned{wheel_.moving(now)}, wheel_.current(now), wheel_.target()})
        appendLe16(bytes, word);
    answer(std::move(bytes), ANSWER_US);
}

void StandardCamera::setFilter(uint16_t position)
{
    const bool done = wheel_.moveTo(position, clock_.nowUs());
    if (wheel_.count() == 0)
        complain("filter chosen, but there is no wheel");
    else
        note("filter " + std::to_string(position) + (done ? "" : " does not exist"));
    answer({static_cast<uint8_t>(done), 0}, ANSWER_US);
}

CameraTruth StandardCamera::truth() const
{
    CameraTruth truth = AnsweringCamera::truth();
    truth.shutterOpen = shutter_.present() && shutter_.open();
    truth.integrating = phase_ == Phase::INTEGRATING || phase_ == Phase::STOPPED;
    return truth;
}

}  // namespace vornsim
