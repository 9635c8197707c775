// SPDX-License-Identifier: MIT
#include "vorn_ccd.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>
#include <string_view>
#include <utility>

#include "capture/cooling.h"
#include "capture/trace_capture.h"
#include "event_loop.h"

namespace vornindi {

using vorncapture::Done;
using vorncapture::Error;
using vorncapture::ErrorKind;
using vorncapture::Result;
using vorncapture::Status;

namespace {

constexpr double LONGEST_EXPOSURE_SECONDS = 86400.0;
constexpr size_t LONGEST_TEXT = 255;  // the base class has no room for longer ones in places
constexpr uint32_t POLLING_PERIOD_MS = 1000;
constexpr int LARGEST_GAIN = 63;
constexpr int LARGEST_OFFSET = 512;

const char* const MAIN_GROUP = "Main Control";
const char* const IMAGE_GROUP = "Image Settings";
const char* const INFO_GROUP = "General Info";

bool is(const char* name, const char* other)
{
    return std::strcmp(name, other) == 0;
}

/// @return whether one of the switches named is @p wanted and on.
bool turnsOn(const char* wanted, const ISState* states, char** names, int count)
{
    for (int i = 0; i < count; ++i) {
        if (is(names[i], wanted) && states[i] == ISS_ON)
            return true;
    }
    return false;
}

}  // namespace

VornCcd::VornCcd(CameraNames& names, const std::string& name, std::function<void(const std::string&)> addDevice)
    : INDI::FilterInterface(this),
      names_(names),
      name_(name),
      addDevice_(std::move(addDevice)),
      guider_([this](Guider::Axis axis, unsigned int number, const std::optional<Error>& error) {
          runInEventLoop([=, this] { pulseEnded(axis, number, error); });
      })
{
    setVersion(INDI_VORN_VERSION_MAJOR, INDI_VORN_VERSION_MINOR);
    setDeviceName(name_.c_str());
}

bool VornCcd::initProperties()
{
    INDI::CCD::initProperties();
    INDI::FilterInterface::initProperties(FILTER_TAB);
    const char* device = getDeviceName();

    IUFillSwitch(&coolerS_[0], "COOLER_ON", "On", ISS_OFF);
    IUFillSwitch(&coolerS_[1], "COOLER_OFF", "Off, warm up", ISS_ON);
    IUFillSwitchVector(&coolerSP_, coolerS_, 2, device, "CCD_COOLER", "Cooler", MAIN_GROUP, IP_RW, ISR_1OFMANY, 0,
                       IPS_IDLE);
    IUFillNumber(&coolerPowerN_[0], "CCD_COOLER_VALUE", "Power (%)", "%.0f", 0, 100, 1, 0);
    IUFillNumberVector(&coolerPowerNP_, coolerPowerN_, 1, device, "CCD_COOLER_POWER", "Cooler power", MAIN_GROUP, IP_RO,
                       0, IPS_IDLE);
    IUFillNumber(&gainN_[0], "GAIN", "Gain", "%.0f", 0, LARGEST_GAIN, 1, 0);
    IUFillNumberVector(&gainNP_, gainN_, 1, device, "CCD_GAIN", "Gain", MAIN_GROUP, IP_RW, 60, IPS_IDLE);
    IUFillNumber(&offsetN_[0], "OFFSET", "Offset", "%.0f", 0, LARGEST_OFFSET, 1, 0);
    IUFillNumberVector(&offsetNP_, offsetN_, 1, device, "CCD_OFFSET", "Offset", MAIN_GROUP, IP_RW, 60, IPS_IDLE);
    IUFillSwitch(&qualityS_[0], "QUALITY_HIGH", "Normal", ISS_ON);
    IUFillSwitch(&qualityS_[1], "QUALITY_LOW", "Preview (fast)", ISS_OFF);
    IUFillSwitchVector(&qualitySP_, qualityS_, 2, device, "READOUT_QUALITY", "Readout", IMAGE_GROUP, IP_RW, ISR_1OFMANY,
                       0, IPS_IDLE);
    IUFillText(&cameraT_[0], "SERIAL_NUMBER", "Serial number", "");
    IUFillText(&cameraT_[1], "FIRMWARE_VERSION", "Firmware", "");
    IUFillText(&cameraT_[2], "FAMILY", "Family", "");
    IUFillTextVector(&cameraTP_, cameraT_, 3, device, "CAMERA_INFO", "Camera", INFO_GROUP, IP_RO, 0, IPS_IDLE);

    // Simulated devices' names stand here by default and would get into the header.
    for (IText& text : ActiveDeviceT)
        IUSaveText(&text, "");
    IUSaveText(&ActiveDeviceT[ACTIVE_FILTER], device);
    EncodeFormatSP.reset();
    EncodeFormatSP[FORMAT_FITS].setState(ISS_ON);

    setDefaultPollingPeriod(POLLING_PERIOD_MS);
    setDriverInterface(CCD_INTERFACE);
    addAuxControls();
    return true;
}

/// Runs @p work in the event loop, unless the connection with that number has ended by then.
void VornCcd::whileConnected(unsigned int connection, std::function<void()> work)
{
    runInEventLoop([this, connection, work = std::move(work)] {
        if (connection == connection_)
            work();
    });
}

void VornCcd::beginConnect()
{
    connecting_ = true;
    ++connection_;
    setConnected(false, IPS_BUSY, "Opening the camera");
    sequence_.post([this, connection = connection_] {
        std::string stranger;
        auto session = names_.open(name_, stranger);
        Result<Opened> opened =
            session.ok() ? Result<Opened>(Opened{std::move(session.value()), {}}) : Result<Opened>(session.error());
        if (opened.ok() && opened.value().session->info().caps.hasFilterWheel) {
            const auto wheel = vorncapture::readWheel(*opened.value().session);
            if (wheel.ok())
                opened.value().wheel = wheel.value();
            else
                opened = wheel.error();
        }
        runInEventLoop([this, connection, opened, stranger] {
            if (!stranger.empty())
                addDevice_(stranger);
            if (connection == connection_)
                finishConnect(opened);
            else if (opened.ok())
                sequence_.post([session = opened.value().session] {});  // closes the camera
        });
    });
}

void VornCcd::finishConnect(const Result<Opened>& opened)
{
    connecting_ = false;
    if (!opened.ok()) {
        report(opened.error());
        setConnected(false, IPS_ALERT);
        return;
    }
    session_ = opened.value().session;
    info_ = session_->info();
    FilterSlotN[0].min = 1;
    FilterSlotN[0].max = std::max(opened.value().wheel.count, 1U);
    FilterSlotN[0].value = opened.value().wheel.current;
    guider_.attach(info_.caps.hasGuidePort ? session_ : nullptr);
    target_.reset();
    learnCamera();
    setConnected(true, IPS_OK);
    updateProperties();
    LOGF_INFO("%s is connected, serial number %u, firmware %u.%u", info_.name.c_str(), info_.serialNumber,
              info_.versionMajor, info_.versionMinor);
    poll();
    SetTimer(getPollingPeriod());
}

/// Fits properties to the camera before they are shown.
void VornCcd::learnCamera()
{
    const VornCapabilities& caps = info_.caps;
    uint32_t can = CCD_CAN_ABORT | CCD_CAN_SUBFRAME;
    can |= caps.maxBinX > 1 || caps.maxBinY > 1 ? CCD_CAN_BIN : 0;
    can |= caps.hasGuidePort ? CCD_HAS_ST4_PORT : 0;
    can |= caps.hasShutter ? CCD_HAS_SHUTTER : 0;
    can |= hasCooler() ? CCD_HAS_COOLER : 0;
    can |= caps.colour == COLOUR_RGGB ? CCD_HAS_BAYER : 0;
    SetCCDCapability(can);
    int interfaces = CCD_INTERFACE;
    interfaces |= caps.hasGuidePort ? GUIDER_INTERFACE : 0;
    interfaces |= caps.hasFilterWheel ? FILTER_INTERFACE : 0;
    setDriverInterface(static_cast<uint16_t>(interfaces));
    syncDriverInfo();

    const double longest = caps.supportsLongExposure ? LONGEST_EXPOSURE_SECONDS : caps.maxShortExposure;
    PrimaryCCD.setMinMaxStep("CCD_EXPOSURE", "CCD_EXPOSURE_VALUE", caps.minShortExposure, longest, 0.001, false);
    PrimaryCCD.setMinMaxStep("CCD_BINNING", "HOR_BIN", 1, caps.maxBinX, 1, false);
    PrimaryCCD.setMinMaxStep("CCD_BINNING", "VER_BIN", 1, caps.maxBinY, 1, false);
    SetCCDParams(static_cast<int>(caps.pixelCountX), static_cast<int>(caps.pixelCountY), 16,
                 static_cast<float>(caps.pixelSizeX), static_cast<float>(caps.pixelSizeY));
    PrimaryCCD.setMinMaxStep("CCD_FRAME", "X", 0, caps.pixelCountX - 1, 1, false);
    PrimaryCCD.setMinMaxStep("CCD_FRAME", "Y", 0, caps.pixelCountY - 1, 1, false);
    PrimaryCCD.setMinMaxStep("CCD_FRAME", "WIDTH", 1, caps.pixelCountX, 1, false);
    PrimaryCCD.setMinMaxStep("CCD_FRAME", "HEIGHT", 1, caps.pixelCountY, 1, false);
    TemperatureN[0].min = vorncapture::LOWEST_TARGET_CELSIUS;
    TemperatureN[0].max = vorncapture::HIGHEST_TARGET_CELSIUS;
    TemperatureNP.p = hasCooler() ? IP_RW : IP_RO;
    IUSaveText(&cameraT_[0], std::to_string(info_.serialNumber).c_str());
    IUSaveText(&cameraT_[1], (std::to_string(info_.versionMajor) + "." + std::to_string(info_.versionMinor)).c_str());
    IUSaveText(&cameraT_[2], vorncapture::familyName(info_.family));
    addCaptureFormats();
    eightBit_ = false;
    showBayer();

    sensorsN_.assign(caps.tempSensorCount, {});
    for (size_t i = 0; i < sensorsN_.size(); ++i) {
        const std::string number = std::to_string(i + 1);
        IUFillNumber(&sensorsN_[i], ("SENSOR_" + number).c_str(), ("Sensor " + number + " (degC)").c_str(), "%.2f",
                     -273, 100, 0, 0);
    }
    IUFillNumberVector(&sensorsNP_, sensorsN_.data(), static_cast<int>(sensorsN_.size()), getDeviceName(),
                       "CCD_SENSORS", "Temperature sensors", INFO_GROUP, IP_RO, 0, IPS_IDLE);
}

/// Formats cannot be taken away again, and a device keeps its model.
void VornCcd::addCaptureFormats()
{
    if (!m_CaptureFormats.empty())
        return;
    const bool colour = info_.caps.colour == COLOUR_RGGB;
    addCaptureFormat({colour ? "INDI_RAW" : "INDI_MONO", colour ? "Raw 16" : "Mono 16", 16, true});
    if (info_.caps.has8BitMode)
        addCaptureFormat({colour ? "INDI_RAW_8" : "INDI_MONO_8", colour ? "Raw 8" : "Mono 8", 8, false});
}

bool VornCcd::updateProperties()
{
    INDI::CCD::updateProperties();
    if (isConnected())
        showOwnProperties();
    else
        hideOwnProperties();
    return true;
}

void VornCcd::showOwnProperties()
{
    // In 1.9.9 it starts the next exposure from a thread that it may then wait for itself.
    deleteProperty(FastExposureToggleSP.name);
    deleteProperty(FastExposureCountNP.name);
    if (hasCooler()) {
        defineProperty(&coolerSP_);
        defineProperty(&coolerPowerNP_);
    } else if (hasThermometer()) {
        defineProperty(&TemperatureNP);
    }
    if (info_.family == ADVANCED) {
        defineProperty(&gainNP_);
        defineProperty(&offsetNP_);
        loadConfig(true, gainNP_.name);
        loadConfig(true, offsetNP_.name);
    }
    if (info_.family != QUICKER && info_.family != IIDC) {
        defineProperty(&qualitySP_);
        loadConfig(true, qualitySP_.name);
    }
    if (sensorsN_.size() > 1)
        defineProperty(&sensorsNP_);
    if (info_.caps.hasFilterWheel) {
        FilterSlotNP.s = IPS_IDLE;
        INDI::FilterInterface::updateProperties();
    }
    defineProperty(&cameraTP_);
}

void VornCcd::hideOwnProperties()
{
    if (info_.caps.hasFilterWheel)
        INDI::FilterInterface::updateProperties();
    deleteProperty(coolerSP_.name);
    deleteProperty(coolerPowerNP_.name);
    if (!hasCooler())
        deleteProperty(TemperatureNP.name);
    deleteProperty(gainNP_.name);
    deleteProperty(offsetNP_.name);
    deleteProperty(qualitySP_.name);
    deleteProperty(sensorsNP_.name);
    deleteProperty(cameraTP_.name);
}

void VornCcd::report(const Error& error)
{
    LOGF_ERROR("%s: %s", name_.c_str(), error.text.c_str());
    std::istringstream advice(error.advice);
    for (std::string line; std::getline(advice, line);)
        LOGF_ERROR("%s", line.c_str());
}

void VornCcd::release(const std::function<void()>& released)
{
    if (exposure_)
        exposure_->cancel.request();
    exposure_.reset();
    guider_.attach(nullptr);
    const SessionPointer session = std::exchange(session_, nullptr);
    ++connection_;
    connecting_ = false;
    if (!session) {
        if (released)
            released();
        return;
    }
    // Relays do not wait for the exposure to end.
    if (info_.caps.hasGuidePort)
        commands_.post([session] { (void)session->call([](VornCamera& camera) { return camera.setGuideRelays(0); }); });
    sequence_.post([session, released] {
        (void)session->call([](VornCamera& camera) { return camera.abortExposure(); });
        if (released)
            released();
    });
}

/// Leaves no trace of the camera in properties that the next connection shows.
void VornCcd::forgetCamera()
{
    release();
    if (auto exposure = getNumber("CCD_EXPOSURE"); exposure.isValid()) {
        exposure.getNumber()->s = IPS_IDLE;
        exposure.getNumber()->np[0].value = 0;
    }
    m_TemperatureCheckTimer.stop();
    for (INumberVectorProperty* property : {&TemperatureNP, &coolerPowerNP_, &gainNP_, &offsetNP_, &FilterSlotNP})
        property->s = IPS_IDLE;
    for (const auto axis : {Guider::Axis::NORTH_SOUTH, Guider::Axis::WEST_EAST})
        clearPulse(axis);
}

bool VornCcd::Disconnect()
{
    forgetCamera();
    return true;
}

void VornCcd::lose(const Error& error)
{
    if (PrimaryCCD.isExposing())
        PrimaryCCD.setExposureFailed();
    report(error);
    forgetCamera();
    setConnected(false, IPS_ALERT);
    updateProperties();
}

void VornCcd::debugTriggered(bool enable)
{
    vorncapture::setTrace(enable);
}

void VornCcd::simulationTriggered(bool enable)
{
    if (enable)
        LOG_INFO("For simulated cameras start the server with: vornsim run --camera K12 -- indiserver indi_vorn_ccd");
}

bool VornCcd::saveConfigItems(FILE* file)
{
    INDI::CCD::saveConfigItems(file);
    if (info_.caps.hasFilterWheel)
        INDI::FilterInterface::saveConfigItems(file);
    if (info_.family == ADVANCED) {
        IUSaveConfigNumber(file, &gainNP_);
        IUSaveConfigNumber(file, &offsetNP_);
    }
    IUSaveConfigSwitch(file, &qualitySP_);
    return true;
}

/// Answers a request that is not carried out: a message, and the property as it stays.
bool VornCcd::refuse(const char* name, const std::string& why)
{
    LOGF_ERROR("%s: %s", name, why.c_str());
    const auto tell = [](auto property, auto send) {
        if (!property)
            return;
        if (property->s != IPS_BUSY)
            property->s = IPS_ALERT;
        send(property);
    };
    if (auto number = getNumber(name); number.isValid())
        tell(number.getNumber(), [](INumberVectorProperty* property) { IDSetNumber(property, nullptr); });
    else if (auto choice = getSwitch(name); choice.isValid())
        tell(choice.getSwitch(), [](ISwitchVectorProperty* property) { IDSetSwitch(property, nullptr); });
    else if (auto text = getText(name); text.isValid())
        tell(text.getText(), [](ITextVectorProperty* property) { IDSetText(property, nullptr); });
    return false;
}

/// @return what is wrong with numbers that a client sent. The base class lets some through that nothing can do.
std::optional<std::string> VornCcd::objection(const INDI::PropertyNumber& property, const double* values, char** names,
                                              int count)
{
    for (int i = 0; i < count; ++i) {
        if (!std::isfinite(values[i]))
            return "not a number";
        const INumber* element = property.findWidgetByName(names[i]);
        if (element == nullptr || element->min >= element->max)
            continue;
        if (values[i] < element->min || values[i] > element->max) {
            std::ostringstream text;
            text << values[i] << " is not in the range from " << element->min << " to " << element->max;
            return text.str();
        }
    }
    return std::nullopt;
}

bool VornCcd::ISNewNumber(const char* dev, const char* name, double values[], char* names[], int n)
{
    if (dev == nullptr || !is(dev, getDeviceName()))
        return INDI::CCD::ISNewNumber(dev, name, values, names, n);
    const auto property = getNumber(name);
    if (!property.isValid() || n < 1)
        return false;
    // The shortest exposure is what a bias frame gets, whatever is asked for.
    const bool bias = is(name, "CCD_EXPOSURE") && PrimaryCCD.getFrameType() == INDI::CCDChip::BIAS_FRAME;
    if (const auto wrong = objection(property, values, names, n); wrong && !(bias && std::isfinite(values[0])))
        return refuse(name, *wrong);
    const bool geometry = is(name, "CCD_FRAME") || is(name, "CCD_BINNING");
    if (geometry && PrimaryCCD.isExposing())
        return refuse(name, "not while an exposure is under way; stop it first");
    if (property.getPermission() == IP_RO)
        return refuse(name, "this can be read only");
    if (is(name, "TELESCOPE_TIMED_GUIDE_NS") || is(name, "TELESCOPE_TIMED_GUIDE_WE"))
        return guide(name, values, names, n);
    if (is(name, gainNP_.name) || is(name, offsetNP_.name))
        return setGain(name, values[0]);
    if (is(name, FilterSlotNP.name))
        return INDI::FilterInterface::processNumber(dev, name, values, names, n);
    return INDI::CCD::ISNewNumber(dev, name, values, names, n);
}

bool VornCcd::ISNewSwitch(const char* dev, const char* name, ISState* states, char* names[], int n)
{
    if (dev == nullptr || !is(dev, getDeviceName()))
        return INDI::CCD::ISNewSwitch(dev, name, states, names, n);
    const auto property = getSwitch(name);
    if (!property.isValid())
        return false;
    const auto on = std::count(states, states + n, ISS_ON);
    if (property.getRule() == ISR_1OFMANY && on != 1)
        return refuse(name, "exactly one of the switches must be on");

    if (is(name, "CONNECTION")) {
        if (turnsOn("CONNECT", states, names, n) && !isConnected()) {
            if (connecting_)
                setConnected(false, IPS_BUSY);
            else
                beginConnect();
            return true;
        }
        if (turnsOn("DISCONNECT", states, names, n) && connecting_) {
            forgetCamera();  // the camera is closed again when it has been opened
            setConnected(false, IPS_IDLE);
            return true;
        }
    }
    if (is(name, "CCD_TRANSFER_FORMAT") && !turnsOn("FORMAT_FITS", states, names, n))
        return refuse(name, "this version of INDI ends the driver with native pictures; FITS is sent");
    if (is(name, "CCD_CAPTURE_FORMAT") && PrimaryCCD.isExposing())
        return refuse(name, "not while an exposure is under way; stop it first");
    if (is(name, coolerSP_.name))
        return switchCooler(turnsOn("COOLER_ON", states, names, n));
    if (is(name, qualitySP_.name)) {
        IUUpdateSwitch(&qualitySP_, states, names, n);
        qualitySP_.s = IPS_OK;
        IDSetSwitch(&qualitySP_, nullptr);
        return true;
    }
    return INDI::CCD::ISNewSwitch(dev, name, states, names, n);
}

bool VornCcd::ISNewText(const char* dev, const char* name, char* texts[], char* names[], int n)
{
    if (dev == nullptr || !is(dev, getDeviceName()))
        return INDI::CCD::ISNewText(dev, name, texts, names, n);
    if (!getText(name).isValid())
        return false;
    for (int i = 0; i < n; ++i) {
        if (std::string_view(texts[i]).size() > LONGEST_TEXT)
            return refuse(name, "a text of more than 255 characters is not taken");
    }
    if (is(name, "FILTER_NAME") && info_.caps.hasFilterWheel)
        return INDI::FilterInterface::processText(dev, name, texts, names, n);
    return INDI::CCD::ISNewText(dev, name, texts, names, n);
}

}  // namespace vornindi
