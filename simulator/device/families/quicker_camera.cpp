// SPDX-License-Identifier: MIT
#include "quicker_camera.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "device/usb/bytes.h"

namespace vornsim {
namespace {

constexpr uint8_t RESET_LINE = 1U << 1;
constexpr uint8_t BUSY_LINE = 1U << 4;

constexpr unsigned REGISTER_CONTROL = 2;
constexpr unsigned REGISTER_START = 5;
constexpr unsigned REGISTER_BINNING = 8;

// Register 2.
constexpr unsigned RELAYS = 0x00F;
constexpr unsigned ACTION = 0xFF0;
constexpr unsigned CLEAR = 0x400;
constexpr unsigned CLEAR_AMPLIFIER_ON = 0x420;
constexpr unsigned INTEGRATE = 0x200;
constexpr unsigned READ = 0x4A0;
constexpr unsigned TIMED = 0x7A0;

constexpr unsigned READ_ARGUMENT = 1000;
constexpr int64_t UNIT_NUMERATOR_US = 1024;  // a third of this is the unit of exposure times
constexpr int64_t UNIT_DENOMINATOR = 3;
constexpr int64_t READOUT_BEGIN_US = 5000;

// Description flags and texts.
constexpr uint8_t HAS_GUIDE_PORT = 0x01;
constexpr uint8_t HAS_PRECHARGE_PAIRS = 0x04;
constexpr std::string_view MANUFACTURER = "Vorn";

/// | Offset | Size | Description in the EEPROM, little-endian                               |
/// |--------|------|------------------------------------------------------------------------|
/// | 0      | 2    | minor and major version                                                |
/// | 2      | ...  | model and manufacturer, each ended by 0                                |
/// | next   | 1    | flags: 0x01 guide port, 0x04 precharge pairs                           |
/// | + 1    | 4    | columns and rows                                                       |
/// | + 5    | 2    | pixel width and height in tenths of a micrometre                       |
/// | + 7    | 2    | highest binnings                                                       |
/// | + 9    | 1    | precharge offset in steps of 32, signed                                |
std::vector<uint8_t> description(const CameraModel& model)
{
    std::vector<uint8_t> bytes = {model.versionMinor, model.versionMajor};
    for (const std::string_view text : {std::string_view(model.info.name), MANUFACTURER}) {
        bytes.insert(bytes.end(), text.begin(), text.end());
        bytes.push_back(0);
    }
    bytes.push_back(static_cast<uint8_t>((model.guidePort ? HAS_GUIDE_PORT : 0) |
                                         (model.prechargePairs ? HAS_PRECHARGE_PAIRS : 0)));
    appendLe16(bytes, model.describedX);
    appendLe16(bytes, model.describedY);
    const auto tenths = [](unsigned hundredths) { return static_cast<uint8_t>((hundredths + 5) / 10); };
    bytes.insert(bytes.end(), {tenths(model.pixelSizeX), tenths(model.pixelSizeY), model.maxBinX, model.maxBinY,
                               model.prechargeCode});
    return bytes;
}

}  // namespace

QuickerCamera::QuickerCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log)
    : BridgedCamera(model, options, clock, log)
{
    std::vector<uint8_t> words;
    for (const uint16_t word : QuickerConverter::SETUP_WORDS)
        appendBe16(words, word);
    eeprom_.program(ConfigurationEeprom::CONVERTER_WORDS_OFFSET, words);
    eeprom_.program(ConfigurationEeprom::DESCRIPTION_OFFSET, description(model));
}

void QuickerCamera::bridgeStarted()
{
    BridgedCamera::bridgeStarted();
    converter_.restart();
    reset_ = false;
}

void QuickerCamera::portChanged(unsigned port, const PortLines& lines)
{
    if (port != 0)
        return;
    const unsigned before = port_.latch & port_.direction;
    BridgedCamera::portChanged(port, lines);
    const unsigned after = port_.latch & port_.direction;
    if ((before & RESET_LINE) != 0 && (after & RESET_LINE) == 0) {
        reset_ = true;
        phase_ = Phase::IDLE;
        control_ = 0;
        binningWrites_ = 0;
        mount_.setRelays(0, clock_.nowUs());
    }
    // Pins that nobody drives are pulled up.
    const auto levels = static_cast<uint8_t>(lines.latch | static_cast<uint8_t>(~lines.direction));
    if (const std::string fault = converter_.linesChanged(levels); !fault.empty())
        complain(fault);
}

uint8_t QuickerCamera::portInputs(unsigned port)
{
    const bool idle = port == 0 && clock_.nowUs() >= busyUntilUs_;
    return idle ? static_cast<uint8_t>(~BUSY_LINE) : uint8_t{0xFF};
}

void QuickerCamera::spiDeselect()
{
    if (written_.empty())  // the select line may move while a host sets its pins up; that means nothing
        return;
    if (written_.size() != 2)
        return complain("SPI exchange that is no register write");
    if (converter_.selected())
        complain("register write while the converter is selected on the same lines");
    if (!reset_)
        complain("register write before a reset on line 1");
    const unsigned word = readBe16(written_, 0);
    writeRegister(word >> 12, word & 0xFFF);
}

void QuickerCamera::writeRegister(unsigned number, unsigned value)
{
    switch (number) {
        case REGISTER_CONTROL:
            control_ = value;
            mount_.setRelays(static_cast<uint8_t>(value & RELAYS), clock_.nowUs());
            if ((value & RELAYS) != 0 && !model_.guidePort)
                complain("guide relays, but there is no guide port");
            return;
        case REGISTER_START:
            return start(value);
        case REGISTER_BINNING:
            return setBinning(value);
        default:
            complain("write of " + std::to_string(value) + " to unknown register " + std::to_string(number));
    }
}

void QuickerCamera::setBinning(unsigned value)
{
    const unsigned binX = ((value >> 4) & 0xF) + 1;
    const unsigned binY = (value >> 8) + 1;
    if ((value & 0xF) != 0 || binX > model_.maxBinX || binY > model_.maxBinY)
        complain("binning " + std::to_string(binX) + " x " + std::to_string(binY) + " is not possible");
    binningWrites_ = value == binning_ ? binningWrites_ + 1 : 1;
    binning_ = value;
}

void QuickerCamera::start(unsigned argument)
{
    const int64_t now = clock_.nowUs();
    const unsigned action = control_ & ACTION;
    const bool takesArgument = action == READ || action == TIMED;
    if (!takesArgument && argument != 0)
        complain("start with argument " + std::to_string(argument));
    switch (action) {
        case CLEAR:
        case CLEAR_AMPLIFIER_ON:
            output_.clear();
            busyUntilUs_ = now;
            phase_ = Phase::CLEARING;
            return;
        case INTEGRATE:
            if (phase_ != Phase::CLEARING)
                complain("exposure started without clearing the sensor");
            phase_ = Phase::INTEGRATING;
            integratingSinceUs_ = now;
            note("exposure started");
            return;
        case READ:
            if (phase_ != Phase::INTEGRATING)
                return complain("readout without exposure");
            if (argument != READ_ARGUMENT)
                complain("readout with argument " + std::to_string(argument));
            return endExposure(integratingSinceUs_, now);
        case TIMED:
            if (phase_ != Phase::IDLE)
                note("a timed exposure ends the running one");
            if (argument < 1)
                return complain("timed exposure without a time");
            return endExposure(now, now + int64_t{argument} * UNIT_NUMERATOR_US / UNIT_DENOMINATOR);
        default:
            complain("start with " + std::to_string(action) + " in register 2");
    }
}

void QuickerCamera::endExposure(int64_t beginUs, int64_t endUs)
{
    phase_ = Phase::IDLE;
    if (!converter_.configured())
        complain("readout before the converter was set up");
    if (binningWrites_ < 2)
        complain("binning is not in force: register 8 was not written twice");
    const uint32_t binX = std::min(((binning_ >> 4) & 0xF) + 1, unsigned{model_.maxBinX});
    const uint32_t binY = std::min((binning_ >> 8) + 1, unsigned{model_.maxBinY});
    busyUntilUs_ =
        sendImage({.beginUs = beginUs, .endUs = endUs},
                  {.region = {.x = 0,
                              .y = 0,
                              .width = model_.info.pixelCountX,
                              .height = model_.info.pixelCountY,
                              .binX = binX,
                              .binY = binY},
                   .frameMemory = true,
                   .samples = model_.prechargePairs ? Readout::Samples::PRECHARGE_PAIRS : Readout::Samples::WORDS,
                   .leadingValues = 1,
                   .beginUs = READOUT_BEGIN_US});
}

CameraTruth QuickerCamera::truth() const
{
    CameraTruth truth = BridgedCamera::truth();
    truth.integrating = phase_ == Phase::INTEGRATING;
    return truth;
}

}  // namespace vornsim
