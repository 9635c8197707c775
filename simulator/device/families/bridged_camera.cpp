// SPDX-License-Identifier: MIT
#include "bridged_camera.h"

#include <cmath>

#include "device/usb/usb_function.h"

namespace vornsim {

namespace {

/// Boot header, serial number, colour record. What only some families keep there they add.
ConfigurationEeprom makeEeprom(const CameraModel& model, const CameraOptions& options)
{
    const uint16_t productId = model.eepromProductId != 0 ? model.eepromProductId : model.info.productId;
    ConfigurationEeprom eeprom(SIMULATED_VENDOR_ID, productId, serialNumber(model, options));
    if (model.info.colour)
        eeprom.setColourPattern(model.bayerCode);
    return eeprom;
}

}  // namespace

BridgedCamera::BridgedCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock, DeviceLog& log)
    : model_(model),
      eeprom_(makeEeprom(model, options)),
      clock_(clock),
      log_(log),
      sensor_(model, options),
      cooler_(model.cooler, options.ambientCelsius, clock.nowUs()),
      wheel_(model.filterCount, clock.nowUs())
{
}

bool BridgedCamera::i2cStart(uint8_t address, bool /*reading*/)
{
    eeprom_.start();
    return address == ConfigurationEeprom::I2C_ADDRESS;
}

void BridgedCamera::wordsReceived(std::span<const uint8_t> bytes)
{
    complain(std::to_string(bytes.size()) + " bytes on the parallel bus, which leads outwards only");
}

void BridgedCamera::portChanged(unsigned port, const PortLines& lines)
{
    if (port == 0)
        port_ = lines;
}

CameraTruth BridgedCamera::truth() const
{
    const int64_t now = clock_.nowUs();
    CameraTruth truth;
    truth.lastImage = sensor_.lastImage();
    truth.imageWidth = sensor_.lastWidth();
    truth.imageHeight = sensor_.lastHeight();
    truth.frameCount = sensor_.frameCount();
    truth.lightSeconds = sensor_.lastIntegration().lightSeconds;
    truth.darkSeconds = sensor_.lastIntegration().darkSeconds;
    truth.sensorCelsius = cooler_.sensorCelsius(now);
    truth.coolerPower = cooler_.power(now);
    truth.filterPosition = wheel_.current(now);
    truth.filterMoving = wheel_.moving(now);
    truth.driftX = mount_.driftX(now);
    truth.driftY = mount_.driftY(now);
    return truth;
}

uint16_t BridgedCamera::rawTemperature(unsigned number)
{
    if (number < 1 || number > model_.sensorCount) {
        complain("there is no temperature sensor " + std::to_string(number));
        number = 1;
    }
    const int64_t now = clock_.nowUs();
    const double celsius = number == 1 ? cooler_.sensorCelsius(now) : cooler_.housingCelsius(now);
    return encodeCelsius(celsius, model_.sensorEncoding);
}

uint8_t BridgedCamera::rawCoolerPower() const
{
    const double range = model_.maxCoolerPower - model_.minCoolerPower;
    return static_cast<uint8_t>(model_.minCoolerPower + std::lround(cooler_.power(clock_.nowUs()) * range));
}

bool BridgedCamera::cool(uint16_t rawTarget)
{
    const double celsius = decodeCelsius(rawTarget, model_.sensorEncoding);
    const bool done = cooler_.setTarget(celsius, clock_.nowUs());
    if (done)
        note("cooling to " + std::to_string(celsius) + " degrees");
    else
        complain("cooling target, but the cooler cannot be controlled");
    return done;
}

void BridgedCamera::warmUp()
{
    if (cooler_.warmUp(clock_.nowUs()))
        note("warming up");
    else
        complain("warm-up, but the cooler cannot be controlled");
}

void BridgedCamera::closeRelay(unsigned relay)
{
    if (!model_.guidePort) {
        complain("guide relays, but there is no guide port");
        return;
    }
    const unsigned opposite = relay ^ 1U;
    if (((mount_.relays() >> opposite) & 1U) != 0)
        complain("guide relays closed in opposite directions");
    mount_.setRelays(static_cast<uint8_t>(mount_.relays() | 1U << relay), clock_.nowUs());
}

// ---- Answers over the parallel bus ----

void AnsweringCamera::bridgeStarted()
{
    BridgedCamera::bridgeStarted();
    starting_ = false;
}

OfferedWords AnsweringCamera::offeredWords(int64_t nowUs)
{
    if (!starting_)
        return BridgedCamera::offeredWords(nowUs);
    startStatus_ = {static_cast<uint8_t>(nowUs < startedAtUs_ ? 'B' : 'I'), 0};
    return {startStatus_};
}

void AnsweringCamera::wordsTaken(size_t byteCount)
{
    if (!starting_) {
        BridgedCamera::wordsTaken(byteCount);
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

bool AnsweringCamera::mayServe(uint8_t code, bool always, bool start)
{
    if (starting_ && !start)
        complain(commandName(code) + " while the application starts");
    else if (!started_ && !always)
        complain(commandName(code) + " before the application was started");
    else
        return true;
    return false;
}

void AnsweringCamera::beginAnswer(uint8_t code)
{
    if (output_.left() > 0) {
        complain(std::to_string(output_.left()) + " bytes of the answer to " + commandName(answeredCode_) +
                 " were not fetched before " + commandName(code));
        output_.clear();
    }
    answeredCode_ = code;
}

std::string commandName(uint8_t code)
{
    return "command " + std::to_string(code);
}

}  // namespace vornsim
