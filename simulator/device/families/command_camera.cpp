// SPDX-License-Identifier: MIT
#include "command_camera.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include "device/usb/bytes.h"

namespace vornsim {
namespace {

constexpr std::string_view MANUFACTURER = "Vorn";
constexpr int64_t TEMPERATURE_US = 60000;  // conversion and averaging
constexpr uint8_t FIRST_RELAY = 20;        // commands 20 to 23 close relays 0 to 3

}  // namespace

std::string commandName(uint8_t code)
{
    return "command " + std::to_string(code);
}

CommandCamera::CommandCamera(Numbers numbers, const CameraModel& model, const CameraOptions& options,
                             const Clock& clock, DeviceLog& log)
    : BridgedCamera(model, options, clock, log), numbers_(numbers)
{
}

const Command* CommandCamera::findCommand(uint8_t code) const
{
    const auto rows = commands();
    const auto found = std::find_if(rows.begin(), rows.end(), [code](const Command& row) { return row.code == code; });
    return found == rows.end() ? nullptr : &*found;
}

CommandCall CommandCamera::serve(const Command& command, std::span<const uint8_t> payload)
{
    CommandCall call{.code = command.code, .payload = payload.first(command.payloadLength), .answer = {}};
    (this->*command.serve)(call);
    if (command.replyLength != Command::UNFIXED)
        call.answer.resize(command.replyLength);
    return call;
}

void CommandCamera::put(CommandCall& call, unsigned value) const
{
    if (numbers_ == Numbers::SHORT)
        call.answer.push_back(static_cast<uint8_t>(value));
    else
        putWide(call, value);
}

void CommandCamera::putWide(CommandCall& call, unsigned value) const
{
    numbers_ == Numbers::HIGH_FIRST ? appendBe16(call.answer, value) : appendLe16(call.answer, value);
}

unsigned CommandCamera::argument(const CommandCall& call) const
{
    return numbers_ == Numbers::HIGH_FIRST ? readBe16(call.payload, 0) : readLe16(call.payload, 0);
}

void CommandCamera::putDescription(CommandCall& call, unsigned flags, unsigned columns, unsigned rows) const
{
    put(call, model_.versionMinor);
    put(call, model_.versionMajor);
    for (const std::string_view text : {std::string_view(model_.info.name), MANUFACTURER}) {
        for (const char character : text)
            put(call, static_cast<uint8_t>(character));
        put(call, 0);
    }
    for (const unsigned number : {flags, columns, rows, unsigned{model_.pixelSizeX}, unsigned{model_.pixelSizeY},
                                  unsigned{model_.maxBinX}, unsigned{model_.maxBinY}, unsigned{model_.wellCapacity}})
        putWide(call, number);
}

// ---- Temperature ----

void CommandCamera::countSensors(CommandCall& call)
{
    put(call, model_.sensorCount);
}

void CommandCamera::measureTemperature(CommandCall& call)
{
    unsigned number = argument(call);
    if (number < 1 || number > model_.sensorCount) {
        complain("there is no temperature sensor " + std::to_string(number));
        number = 1;
    }
    const int64_t now = clock_.nowUs();
    const double celsius = number == 1 ? cooler_.sensorCelsius(now) : cooler_.housingCelsius(now);
    put(call, model_.sensorEncoding);
    putWide(call, encodeCelsius(celsius, model_.sensorEncoding));
    call.afterUs = TEMPERATURE_US;
}

void CommandCamera::describeCooler(CommandCall& call)
{
    put(call, static_cast<uint8_t>(model_.cooler));
    put(call, model_.maxCoolerPower);
    put(call, model_.minCoolerPower);
}

void CommandCamera::reportCooling(CommandCall& call)
{
    const int64_t now = clock_.nowUs();
    const double range = model_.maxCoolerPower - model_.minCoolerPower;
    put(call, static_cast<unsigned>(model_.minCoolerPower + std::lround(cooler_.power(now) * range)));
    put(call, cooler_.flags(now));
    putWide(call, encodeCelsius(cooler_.targetCelsius(), model_.sensorEncoding));
}

void CommandCamera::setCooling(CommandCall& call)
{
    const double celsius = decodeCelsius(static_cast<uint16_t>(argument(call)), model_.sensorEncoding);
    const bool done = cooler_.setTarget(celsius, clock_.nowUs());
    if (done)
        note("cooling to " + std::to_string(celsius) + " degrees");
    else
        complain("cooling target, but the cooler cannot be controlled");
    put(call, done ? 1 : 0);
}

void CommandCamera::warmUp(CommandCall& /*call*/)
{
    if (cooler_.warmUp(clock_.nowUs()))
        note("warming up");
    else
        complain("warm-up, but the cooler cannot be controlled");
}

// ---- Guide port and filter wheel ----

void CommandCamera::closeRelay(CommandCall& call)
{
    if (!model_.guidePort)
        return complain("guide relays, but there is no guide port");
    const unsigned relay = call.code - unsigned{FIRST_RELAY};
    const unsigned opposite = relay ^ 1U;
    if (((mount_.relays() >> opposite) & 1U) != 0)
        complain("guide relays closed in opposite directions");
    mount_.setRelays(static_cast<uint8_t>(mount_.relays() | 1U << relay), clock_.nowUs());
}

void CommandCamera::openRelays(CommandCall& /*call*/)
{
    if (!model_.guidePort)
        complain("guide relays, but there is no guide port");
    mount_.setRelays(0, clock_.nowUs());
}

void CommandCamera::reportFilter(CommandCall& call)
{
    if (wheel_.count() == 0)
        complain("filter status, but there is no wheel");
    const int64_t now = clock_.nowUs();
    for (const unsigned number : {wheel_.count(), unsigned{wheel_.moving(now)}, wheel_.current(now), wheel_.target()})
        put(call, number);
}

void CommandCamera::setFilter(CommandCall& call)
{
    const unsigned position = argument(call);
    const bool done = wheel_.moveTo(position, clock_.nowUs());
    if (wheel_.count() == 0)
        complain("filter chosen, but there is no wheel");
    else
        note("filter " + std::to_string(position) + (done ? "" : " does not exist"));
    put(call, done ? 1 : 0);
}

// ---- Answers over the parallel bus ----

void AnsweringCamera::bridgeStarted()
{
    CommandCamera::bridgeStarted();
    starting_ = false;
}

OfferedWords AnsweringCamera::offeredWords(int64_t nowUs)
{
    if (!starting_)
        return CommandCamera::offeredWords(nowUs);
    startStatus_ = {static_cast<uint8_t>(nowUs < startedAtUs_ ? 'B' : 'I'), 0};
    return {startStatus_};
}

void AnsweringCamera::wordsTaken(size_t byteCount)
{
    if (!starting_) {
        CommandCamera::wordsTaken(byteCount);
    } else if (byteCount > 0 && startStatus_[0] == 'I') {
        starting_ = false;
        started_ = true;
    }
}

void AnsweringCamera::beginStart(int64_t durationUs)
{
    starting_ = true;
    startedAtUs_ = clock_.nowUs() + durationUs;
}

void AnsweringCamera::execute(const Command& command, std::span<const uint8_t> payload)
{
    if (starting_ && command.code != START_APPLICATION)
        return complain(commandName(command.code) + " while the application starts");
    if (!started_ && !command.early)
        return complain(commandName(command.code) + " before the application was started");
    if (output_.left() > 0) {
        complain(std::to_string(output_.left()) + " bytes of the answer to " + commandName(answeredCode_) +
                 " were not fetched before " + commandName(command.code));
        output_.clear();
    }
    answeredCode_ = command.code;
    CommandCall call = serve(command, payload);
    if (!call.answer.empty())
        output_.send(words(std::move(call.answer)), clock_.nowUs() + call.afterUs);
}

}  // namespace vornsim
