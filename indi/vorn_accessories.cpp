// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <utility>

#include "capture/cooling.h"
#include "event_loop.h"
#include "vorn_ccd.h"

namespace vornindi {

using vorncapture::Error;
using vorncapture::ErrorKind;
using vorncapture::GuideRelay;
using vorncapture::Session;
using vorncapture::Status;
using vorncapture::Telemetry;

namespace {

/// Near its end an exposure is left alone: a reading that is under way would delay the end.
constexpr double QUIET_SECONDS = 1.5;

constexpr int PRESENCE_TRIES = 3;

bool ends(const Error& error)
{
    return error.kind == ErrorKind::DEVICE_LOST || error.kind == ErrorKind::TIMEOUT;
}

const char* guideProperty(Guider::Axis axis)
{
    return axis == Guider::Axis::NORTH_SOUTH ? "TELESCOPE_TIMED_GUIDE_NS" : "TELESCOPE_TIMED_GUIDE_WE";
}

}  // namespace

bool VornCcd::hasThermometer() const
{
    return info_.family == IIDC ||
           (info_.family != QUICKER && info_.caps.tempSensorCount > 0 && info_.temperatureEncoding != 0);
}

bool VornCcd::hasCooler() const
{
    return info_.caps.cooler > COOLER_ALWAYSON && info_.family != QUICKER && info_.family != IIDC && hasThermometer();
}

/// The base class would repeat an old pulse when a request names one direction only, so it is not asked.
bool VornCcd::guide(const char* name, const double* values, char** names, int count)
{
    if (!session_ || !info_.caps.hasGuidePort)
        return refuse(name, "the camera has no guide port");
    const auto axis = std::strcmp(name, guideProperty(Guider::Axis::NORTH_SOUTH)) == 0 ? Guider::Axis::NORTH_SOUTH
                                                                                       : Guider::Axis::WEST_EAST;
    INumberVectorProperty* property = getNumber(name).getNumber();
    std::array<double, 2> asked{};
    for (int i = 0; i < count; ++i) {
        const INumber* element = IUFindNumber(property, names[i]);
        if (element == nullptr)
            return refuse(name, "there is no such direction");
        asked[static_cast<size_t>(element - property->np)] = values[i];
    }
    if (asked[0] > 0.0 && asked[1] > 0.0)
        return refuse(name, "a pulse goes one way only");
    // The elements are north and south, west and east.
    constexpr GuideRelay RELAYS[2][2] = {{GuideRelay::Y_PLUS, GuideRelay::Y_MINUS},
                                         {GuideRelay::X_PLUS, GuideRelay::X_MINUS}};
    const size_t direction = asked[1] > 0.0 ? 1 : 0;
    const unsigned int number = ++pulseNumbers_[static_cast<size_t>(axis)];
    property->np[0].value = asked[0];
    property->np[1].value = asked[1];
    property->s = asked[direction] > 0.0 ? IPS_BUSY : IPS_OK;
    if (asked[direction] > 0.0)
        guider_.pulse(axis, RELAYS[static_cast<size_t>(axis)][direction], asked[direction] / 1000.0, number);
    else
        guider_.stop(axis);
    IDSetNumber(property, nullptr);
    return true;
}

void VornCcd::pulseEnded(Guider::Axis axis, unsigned int number, const std::optional<Error>& error)
{
    if (!session_ || (number != 0 && number != pulseNumbers_[static_cast<size_t>(axis)]))
        return;
    clearPulse(axis);
    auto property = getNumber(guideProperty(axis));
    if (property.isValid()) {
        property.getNumber()->s = error ? IPS_ALERT : IPS_IDLE;
        IDSetNumber(property.getNumber(), nullptr);
    }
    if (error && ends(*error))
        lose(*error);
    else if (error)
        report(*error);
}

/// A value that stayed would be taken for a pulse later.
void VornCcd::clearPulse(Guider::Axis axis)
{
    ++pulseNumbers_[static_cast<size_t>(axis)];
    auto property = getNumber(guideProperty(axis));
    if (!property.isValid())
        return;
    property.getNumber()->np[0].value = 0;
    property.getNumber()->np[1].value = 0;
    property.getNumber()->s = IPS_IDLE;
}

bool VornCcd::setGain(const char* name, double value)
{
    INumberVectorProperty* property = std::strcmp(name, gainNP_.name) == 0 ? &gainNP_ : &offsetNP_;
    property->np[0].value = value;
    property->s = IPS_BUSY;
    IDSetNumber(property, nullptr);
    ++settings_;
    commands_.post([this, property, value = static_cast<int>(value), session = session_, connection = connection_] {
        // The other of the two stays as the camera has it, which may not have been read yet.
        auto setting = vorncapture::readGain(*session);
        if (setting.ok())
            (property == &gainNP_ ? setting.value().gain : setting.value().offset) = value;
        const Status done = setting.ok() ? vorncapture::setGain(*session, setting.value()) : Status(setting.error());
        whileConnected(connection, [this, property, done] {
            property->s = done.ok() ? IPS_OK : IPS_ALERT;
            IDSetNumber(property, nullptr);
            if (!done.ok())
                ends(done.error()) ? lose(done.error()) : report(done.error());
        });
    });
    return true;
}

int VornCcd::SetTemperature(double celsius)
{
    if (!session_ || !hasCooler())
        return -1;
    ++settings_;
    target_ = celsius;
    coolerS_[0].s = ISS_ON;
    coolerS_[1].s = ISS_OFF;
    coolerSP_.s = IPS_BUSY;
    IDSetSwitch(&coolerSP_, nullptr);
    commands_.post([this, celsius, session = session_, connection = connection_] {
        const Status done = vorncapture::coolDown(*session, {.targetCelsius = celsius, .wait = false});
        whileConnected(connection, [this, done] {
            coolerSP_.s = done.ok() ? IPS_OK : IPS_ALERT;
            IDSetSwitch(&coolerSP_, nullptr);
            if (done.ok())
                return;
            m_TemperatureCheckTimer.stop();
            TemperatureNP.s = IPS_ALERT;
            IDSetNumber(&TemperatureNP, nullptr);
            ends(done.error()) ? lose(done.error()) : report(done.error());
        });
    });
    return 0;
}

bool VornCcd::switchCooler(bool on)
{
    if (!session_)
        return false;
    if (on) {
        // Without a target the sensor is held where it is.
        m_TargetTemperature = target_.value_or(TemperatureN[0].value);
        if (SetTemperature(m_TargetTemperature) < 0)
            return false;
        TemperatureNP.s = IPS_BUSY;
        m_TemperatureCheckTimer.start();
        m_TemperatureElapsedTimer.start();
        IDSetNumber(&TemperatureNP, nullptr);
        return true;
    }
    ++settings_;
    m_TemperatureCheckTimer.stop();
    TemperatureNP.s = IPS_IDLE;
    IDSetNumber(&TemperatureNP, nullptr);
    coolerS_[0].s = ISS_OFF;
    coolerS_[1].s = ISS_ON;
    coolerSP_.s = IPS_BUSY;
    IDSetSwitch(&coolerSP_, nullptr);
    commands_.post([this, session = session_, connection = connection_] {
        const Status done = vorncapture::warmUp(*session, false);
        whileConnected(connection, [this, done] {
            if (done.ok())
                return;  // the next reading tells how the warm-up goes
            coolerSP_.s = IPS_ALERT;
            IDSetSwitch(&coolerSP_, nullptr);
            ends(done.error()) ? lose(done.error()) : report(done.error());
        });
    });
    return true;
}

int VornCcd::QueryFilter()
{
    return static_cast<int>(FilterSlotN[0].value);
}

bool VornCcd::SelectFilter(int position)
{
    if (!session_)
        return false;
    sequence_.post([this, position, session = session_, connection = connection_] {
        const Status done = vorncapture::turnWheel(*session, static_cast<unsigned int>(position));
        whileConnected(connection, [this, position, done] {
            if (done.ok()) {
                SelectFilterDone(position);
                return;
            }
            FilterSlotNP.s = IPS_ALERT;
            IDSetNumber(&FilterSlotNP, nullptr);
            ends(done.error()) ? lose(done.error()) : report(done.error());
        });
    });
    return true;
}

void VornCcd::TimerHit()
{
    if (!isConnected())
        return;
    poll();
    SetTimer(getPollingPeriod());
}

/// Reads sensors and settings, one reading at a time.
void VornCcd::poll()
{
    if (polling_.exchange(true))
        return;
    commands_.post([this, session = session_, connection = connection_, exposure = exposure_,
                    thermometer = hasThermometer(), settings = settings_.load()] {
        polling_ = false;
        const double now = std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
        const bool present = !checkPresence_.exchange(false);
        if (exposure && !exposure->cancel.requested() && now > exposure->endsAt - QUIET_SECONDS)
            return;
        const Telemetry telemetry = session->readTelemetry();
        if (!telemetry.ccdCelsius() && (thermometer || !present)) {
            if (const auto lost = examinePresence(*session, exposure)) {
                whileConnected(connection, [this, error = *lost] { ends(error) ? lose(error) : report(error); });
                return;
            }
        }
        whileConnected(connection, [this, telemetry, settings] {
            if (settings == settings_)
                showTelemetry(telemetry);
        });
    });
}

/// Finds out whether a camera that gives no reading is still there. One lost transfer is no reason to end an exposure.
std::optional<Error> VornCcd::examinePresence(Session& session, const ExposurePointer& exposure)
{
    const auto answers = [info = session.info()](VornCamera& camera) {
        float celsius = 0.0F;
        if (info.family == QUICKER)  // it has nothing to read; with no pulse under way its relays are open
            return !info.caps.hasGuidePort || camera.setGuideRelays(0);
        return camera.getTemperatureSensorStatus(info.family == IIDC ? 0 : 1, &celsius);
    };
    if (session.info().family == QUICKER && !guider_.idle())
        return std::nullopt;
    for (int tries = 0; tries < PRESENCE_TRIES; ++tries) {
        const auto answer = session.call(answers);
        if (answer && *answer)
            return std::nullopt;
    }
    if (exposure)
        exposure->cancel.request();
    const Status status = session.operate("the camera does not answer", answers);
    return status.ok() ? std::nullopt : std::optional<Error>(status.error());
}

void VornCcd::showTelemetry(const Telemetry& telemetry)
{
    if (telemetry.ccdCelsius() && TemperatureN[0].value != *telemetry.ccdCelsius()) {
        TemperatureN[0].value = *telemetry.ccdCelsius();
        IDSetNumber(&TemperatureNP, nullptr);
    }
    bool sensorChanged = false;
    for (size_t i = 0; i < std::min(sensorsN_.size(), telemetry.celsius.size()); ++i) {
        const double celsius = telemetry.celsius[i].value_or(sensorsN_[i].value);
        sensorChanged = sensorChanged || celsius != sensorsN_[i].value;
        sensorsN_[i].value = celsius;
    }
    if (sensorChanged && sensorsN_.size() > 1) {
        sensorsNP_.s = IPS_OK;
        IDSetNumber(&sensorsNP_, nullptr);
    }
    if (telemetry.coolerPowerPercent && coolerPowerN_[0].value != *telemetry.coolerPowerPercent) {
        coolerPowerN_[0].value = *telemetry.coolerPowerPercent;
        coolerPowerNP_.s = coolerPowerN_[0].value > 0.0 ? IPS_BUSY : IPS_IDLE;
        IDSetNumber(&coolerPowerNP_, nullptr);
    }
    if (telemetry.coolingState && hasCooler()) {
        const bool on = *telemetry.coolingState == COOLING_ON || *telemetry.coolingState == COOLING_SETPOINT;
        const IPState state = on ? IPS_OK : (*telemetry.coolingState == WARMING_UP ? IPS_BUSY : IPS_IDLE);
        if (coolerSP_.s != state || (coolerS_[0].s == ISS_ON) != on) {
            coolerS_[0].s = on ? ISS_ON : ISS_OFF;
            coolerS_[1].s = on ? ISS_OFF : ISS_ON;
            coolerSP_.s = state;
            IDSetSwitch(&coolerSP_, nullptr);
        }
    }
    if (telemetry.targetCelsius && !target_)
        target_ = telemetry.targetCelsius;
    const std::pair<INumberVectorProperty*, std::optional<int>> settings[] = {{&gainNP_, telemetry.gain},
                                                                              {&offsetNP_, telemetry.offset}};
    for (const auto& [property, value] : settings) {
        if (!value || property->np[0].value == *value)
            continue;
        property->np[0].value = *value;
        property->s = IPS_OK;
        IDSetNumber(property, nullptr);
    }
}

}  // namespace vornindi
