// SPDX-License-Identifier: MIT
// ADVANCED cameras: the extended description. Commands travel over SPI, 16-bit numbers high byte first.
#include "accessories/cooling.h"
#include "accessories/filter_status.h"
#include "accessories/gpio.h"
#include "accessories/guide_relays.h"
#include "accessories/temperature.h"
#include "exposure/exposure_code.h"
#include "exposure/image_transfer.h"
#include "exposure/readout.h"
#include "family.h"
#include "lifecycle/bring_up.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/command_frame.h"
#include "transport/commands.h"
#include "transport/layout.h"
#include "transport/pause.h"

#include <array>
#include <cinttypes>
#include <cstring>

namespace vornccd {

namespace {

using Payload = std::array<uint8_t, 2>;

/// A 16-bit payload of a command with a reply.
constexpr Payload payloadOf(unsigned value)
{
    Payload payload = {};
    pack(payload, be16At(0), value);
    return payload;
}

// ---- opening ------------------------------------------------------------------------------------------------------

constexpr unsigned CONNECTED_PAR_TIMEOUT_MS = 2000;
constexpr long SETTLE_US = 200000;
constexpr unsigned LINE_HELD_LOW = 0;
constexpr int64_t VREG_CLEAR_TIME_DEFAULT_US = 300000;
constexpr unsigned VREG_CLEAR_TIME_SINCE = 2;  // major version that reports it

// One buffer for all replies. deliberate: the line count and the serial number are taken from it even when their
// command failed, stale bytes and all.
using Replies = std::array<uint8_t, CMD_GET_DESCRIPTOR_ADVANCED.replyLength>;

constexpr Field SENSOR_COUNT = be16At(0);     // of CMD_GET_TEMP_SENSOR_DETAILS
constexpr Field VREG_CLEAR_TIME = be16At(0);  // milliseconds
constexpr Field SERIAL_NUMBER = be16At(4);

/// Asks for a reply at the start of the buffer.
template <Command ROW>
bool askInto(VornCameraImpl& camera, Replies& replies)
{
    return ask<ROW>(camera, std::span(replies).template first<ROW.replyLength>());
}

void connect(StepRunner& steps)
{
    setUpLines(steps);
    steps.run(&VornCameraImpl::setIODir, LINE_HELD_LOW, 1U);
    steps.run(&VornCameraImpl::setIOState, LINE_HELD_LOW, 0U);
    steps.pause(SETTLE_US);
    steps.run(&VornCameraImpl::ping);
    steps.run(&VornCameraImpl::setParTimeout, CONNECTED_PAR_TIMEOUT_MS);
    steps.pause(SETTLE_US);
    steps.run(&VornCameraImpl::ping);
}

void storeFlags(VornCameraImpl& camera, unsigned flags)
{
    // deliberate: hasShutter stays as it was; the family never reports one.
    camera.hasGuidePort = (flags & NO_GUIDE_PORT) == 0;
    camera.hasGPIO = (flags & HAS_GPIO) != 0;
    camera.has8BitMode = (flags & HAS_8_BIT_MODE) != 0;
    camera.hasFilterWheel = (flags & HAS_FILTER_WHEEL) != 0;
    camera.tempSensorCount = 0;
}

void traceFlags(unsigned flags)
{
    TRACE_DETAIL("%s    flags: 0x%0x %s%s%s%s%s%s%s%s%s%s%s\n", flags, flagName(flags, INTERLACED, " INTERLACED"),
                 flagName(flags, EXT_TRIGGER, " EXT_TRIGGER"), flagName(flags, PREVIEW, " PREVIEW"),
                 flagName(flags, SUBSAMPLE, " SUBSAMPLE"), flagName(flags, OVERLAP, " OVERLAP"),
                 flagName(flags, HAS_SHUTTER, " HAS_SHUTTER"), flagName(~flags, NO_GUIDE_PORT, " HAS_GUIDE_PORT"),
                 flagName(flags, HAS_GPIO, " HAS_GPIO"), flagName(flags, HAS_WINDOW_HEATER, " HAS_WINDOW_HEATER"),
                 flagName(flags, HAS_8_BIT_MODE, " HAS_8_BIT_MODE"),
                 flagName(flags, HAS_FILTER_WHEEL, " HAS_FILTER_WHEEL"));
}

void storeVersion(VornCameraImpl& camera, const AdvancedDescription& description)
{
    camera.versionMajor = description.versionMajor;
    camera.versionMinor = description.versionMinor;
    TRACE_DETAIL("%s    version: %d.%d\n", camera.versionMajor, camera.versionMinor);
    TRACE_DETAIL("%s    model: %s\n", description.model.data());
    TRACE_DETAIL("%s    manufacturer: %s\n", description.manufacturer.data());
}

bool readDescription(VornCameraImpl& camera, Replies& replies)
{
    if (!askInto<CMD_GET_DESCRIPTOR_ADVANCED>(camera, replies))
        return false;
    const AdvancedDescription description = decodeAdvancedDescription(replies);
    storeVersion(camera, description);
    storeFlags(camera, description.items.flags);
    storeDescription(camera, description.items);
    traceFlags(description.items.flags);
    traceDescription(camera, description.items);
    return true;
}

/// Cameras that do not report the time get the default.
void readVregClearTime(StepRunner& steps, Replies& replies)
{
    VornCameraImpl& camera = steps.camera;
    camera.vregClearTime = VREG_CLEAR_TIME_DEFAULT_US;
    if (steps.ok() && camera.versionMajor >= VREG_CLEAR_TIME_SINCE) {
        steps.run(askInto<CMD_GET_VREG_CLEAR_TIME>, replies);
        if (steps.ok())
            camera.vregClearTime = unpack(replies, VREG_CLEAR_TIME) * int64_t{1000};
    }
    TRACE_DETAIL("%s    VReg clear time: %" PRId64 "us\n", camera.vregClearTime);
}

void readSensors(StepRunner& steps, Replies& replies)
{
    steps.run(askInto<CMD_GET_TEMP_SENSOR_DETAILS>, replies);
    if (!steps.ok())
        return;
    steps.camera.tempSensorCount = unpack(replies, SENSOR_COUNT);
    learnTempSensorType(steps);
}

bool readCooler(VornCameraImpl& camera, Replies& replies)
{
    constexpr CoolerDetailsLayout LAYOUT = {.capabilities = be16At(0), .maxPower = be16At(2), .minPower = be16At(4)};
    if (!askInto<CMD_GET_COOLER_DETAILS>(camera, replies))
        return false;
    storeCooler(camera, replies, LAYOUT);
    return true;
}

void readLineCount(StepRunner& steps, Replies& replies)
{
    if (!steps.camera.hasGPIO)
        return;
    steps.run(askInto<CMD_GET_GPIO>, replies);
    steps.camera.lineCount = unpack(replies, gpioLineCount(ByteOrder::BIG));
    TRACE_DETAIL("%s    GPIO line count: %d\n", steps.camera.lineCount);
}

void identify(StepRunner& steps, uint32_t /*productId*/)
{
    Replies replies = {};
    steps.run(readDescription, replies);
    readVregClearTime(steps, replies);
    steps.run(&VornCameraImpl::appInit);
    readSensors(steps, replies);
    steps.run(readCooler, replies);
    readLineCount(steps, replies);
    steps.run(askInto<CMD_GET_SERIAL>, replies);
    steps.camera.serialNumber = unpack(replies, SERIAL_NUMBER);
    traceSerialNumber(steps.camera);
    steps.run(waitForFilterWheel);
}

// ---- commands -----------------------------------------------------------------------------------------------------

/// One exchange of bytes both ways: as many come back as go out.
bool exchangeBytes(VornCameraImpl& camera, std::span<const uint8_t> sent, std::span<uint8_t> received)
{
    return exchange(camera, {.code = BRIDGE_SPI,
                             .subcode = SPI_EXCHANGE,
                             .value = SPI_EXCHANGE_VALUE,
                             .index = SPI_INDEX,
                             .payload = sent,
                             .reply = received});
}

/// "C" "M" "D", the code, the payload, zeros for the reply, which comes back in their place.
bool exchangeCommand(VornCameraImpl& camera, const CommandExchange& exchange)
{
    const uint8_t header[] = {'C', 'M', 'D', static_cast<uint8_t>(exchange.code)};
    const CommandFrame frame = commandFrame(header, exchange, exchange.replyLength);
    const HeapBytes answer = uninitialisedBytes(frame.length);
    if (!frame.bytes || !answer)
        return false;
    if (!exchangeBytes(camera, {frame.bytes.get(), frame.length}, {answer.get(), frame.length}))
        return false;
    if (exchange.reply != nullptr && exchange.replyLength != 0)
        std::memcpy(exchange.reply, &answer[frame.length - exchange.replyLength], exchange.replyLength);
    return true;
}

bool readData(VornCameraImpl& camera, uint8_t* buffer, unsigned length)
{
    return exchangeBytes(camera, {buffer, length}, {buffer, length});
}

constexpr uint8_t PING_HIGH = 0x00;
constexpr uint8_t PING_LOW = 0x7B;
constexpr Payload PING = {PING_HIGH, PING_LOW};

/// Both the kernel and the application of the camera must answer; the latter counts up.
bool ping(VornCameraImpl& camera)
{
    Payload reply = {};
    (void)askBytes<CMD_KERNEL_PING>(camera, PING, reply);  // the reply decides
    const bool kernelAnswers = reply == PING;
    if (kernelAnswers)
        TRACE_DETAIL("%s    kernel ping ok\n");
    else
        TRACE_DETAIL("%s    kernel ping failed (%d %d)\n", PING_LOW, reply[1]);

    const bool sent = askBytes<CMD_PING_ADVANCED>(camera, PING, reply);
    const bool applicationAnswers = sent && reply[0] == PING_HIGH && reply[1] == PING_LOW + 1;
    if (applicationAnswers)
        TRACE_DETAIL("%s    application ping ok\n");
    else
        TRACE_DETAIL("%s    application ping failed (%d %d)\n", PING_LOW, reply[1]);
    return kernelAnswers && applicationAnswers;
}

// ---- exposure -----------------------------------------------------------------------------------------------------

constexpr unsigned CLEARING_PING_RETRIES = 400;
constexpr long CLEARING_PING_PAUSE_US = 25000;

// The readout command
constexpr Field CODE = be16At(0);
constexpr Field BIN_X_HIGH = byteAt(2);  // always 0
constexpr Field BIN_X = byteAt(3);
constexpr Field BIN_Y_HIGH = byteAt(4);  // always 0
constexpr Field BIN_Y = byteAt(5);
constexpr Field FIRST_COLUMN = be16At(6);
constexpr Field FIRST_ROW = be16At(8);
constexpr Field WIDTH = be16At(10);
constexpr Field HEIGHT = be16At(12);
constexpr Field FLAGS = byteAt(14);
constexpr Field READOUT_MODE = byteAt(15);
static_assert(covers({CODE, BIN_X_HIGH, BIN_X, BIN_Y_HIGH, BIN_Y, FIRST_COLUMN, FIRST_ROW, WIDTH, HEIGHT, FLAGS,
                      READOUT_MODE},
                     CMD_READ_CCD.payloadLength));

// its flags
constexpr uint32_t FLAG_PREVIEW = 0x01;
constexpr uint32_t FLAG_MICROSECONDS = 0x04;
constexpr uint32_t FLAG_8_BIT = 0x20;

// its modes
constexpr uint32_t MODE_LONG = 0x43;
constexpr uint32_t MODE_SHORT = 0x03;

bool sendReadout(VornCameraImpl& camera, const ReadoutRegion& region, const ExposureCode& exposure, uint32_t mode)
{
    std::array<uint8_t, CMD_READ_CCD.payloadLength> payload = {};
    pack(payload, CODE, static_cast<uint32_t>(exposure.code));
    pack(payload, BIN_X, region.binX);
    pack(payload, BIN_Y, region.binY);
    pack(payload, FIRST_COLUMN, region.x);
    pack(payload, FIRST_ROW, region.y);
    pack(payload, WIDTH, region.width);
    pack(payload, HEIGHT, region.height);
    pack(payload, FLAGS,
         (camera.previewMode ? FLAG_PREVIEW : 0) | (exposure.microseconds ? FLAG_MICROSECONDS : 0) |
             (camera.eightBitMode ? FLAG_8_BIT : 0));
    pack(payload, READOUT_MODE, mode);
    return sendBytes<CMD_READ_CCD>(camera, payload);
}

/// The camera is busy clearing its sensor until it answers pings again, at most ten seconds.
bool startExposure(VornCameraImpl& camera)
{
    if (!sendValue<CMD_PREPARE_CCD>(camera, PREPARE_EXPOSURE) || !send<CMD_EXPOSURE_PREPARE>(camera))
        return false;
    unsigned retries = 0;
    while (!camera.ping()) {
        if (retries == CLEARING_PING_RETRIES) {
            TRACE_DETAIL("%s    Waited too long for ping\n");
            return false;
        }
        sleepms(CLEARING_PING_PAUSE_US);
        ++retries;
    }
    return send<CMD_EXPOSURE_START>(camera);
}

int64_t readoutLead(const VornCameraImpl& camera)
{
    return camera.vregClearTime;
}

bool endLongExposure(VornCameraImpl& camera, const ReadoutRegion& region)
{
    return sendReadout(camera, region, {}, MODE_LONG);
}

bool exposeShort(VornCameraImpl& camera, const ReadoutRegion& region, double seconds)
{
    const ExposureCode exposure = standardExposureCode(seconds);
    TRACE_DETAIL("%s    exp code, ms, delay: %d, %d, %g\n", exposure.code, exposure.microseconds, exposure.seconds);
    const bool ok = sendReadout(camera, region, exposure, MODE_SHORT);
    waitForExposure(exposure);
    return ok;
}

/// deliberate: this family rounds the width up, but never the height; in 8-bit mode up to an even count.
unsigned imageWidth(const VornCameraImpl& camera, unsigned width, unsigned binX)
{
    const unsigned binned = (width + binX - 1) / binX;
    return camera.eightBitMode ? (binned + 1) & ~1U : binned;
}

/// The camera sends two values before the image. What was received is moved also after a failure.
bool receiveImage(VornCameraImpl& camera, uint16_t* buffer, uint32_t pixels)
{
    if (pixels == 0)
        return false;
    bool ok = false;
    if (camera.eightBitMode) {
        ok = receiveBytes(camera, buffer, pixels);
        widenInPlace(buffer, pixels);
    } else {
        ok = receiveValues(camera, buffer, pixels);
    }
    dropLeadingValues(buffer, pixels);
    return ok;
}

// ---- accessories --------------------------------------------------------------------------------------------------

// The reply with a temperature
constexpr Field TEMPERATURE_TYPE = byteAt(1);
constexpr Field TEMPERATURE_RAW = be16At(2);

/// Without a sensor type the caller's temperature stays as it was.
bool readTemperature(VornCameraImpl& camera, unsigned sensor, float* celsius)
{
    uint8_t reply[CMD_GET_TEMPERATURE.replyLength] = {};
    if (!askBytes<CMD_GET_TEMPERATURE>(camera, payloadOf(sensor), reply))
        return false;
    camera.tempSensorType = unpack(reply, TEMPERATURE_TYPE);
    TRACE_DETAIL("%s    temperature senzor type: %d\n", camera.tempSensorType);
    if (camera.tempSensorType != 0)
        storeTemperature(camera, unpack(reply, TEMPERATURE_RAW), celsius);
    return true;
}

bool readCooling(VornCameraImpl& camera, CoolingReply& cooling)
{
    constexpr CoolingLayout LAYOUT = {.power = be16At(0), .flags = be16At(2), .target = be16At(4)};
    uint8_t reply[CMD_GET_COOLING_STATUS_LONG.replyLength] = {};
    const bool ok = ask<CMD_GET_COOLING_STATUS_LONG>(camera, reply);
    cooling = decodeCooling(reply, LAYOUT);
    return ok;
}

bool setCoolingTarget(VornCameraImpl& camera, float celsius, uint8_t& acknowledgement)
{
    uint8_t reply[CMD_SET_COOLING.replyLength] = {};
    const bool sent = askBytes<CMD_SET_COOLING>(camera, payloadOf(camera.celsiusToSensor(celsius)), reply);
    acknowledgement = reply[1];
    return sent;
}

bool readFilterStatus(VornCameraImpl& camera, FilterStatus& status)
{
    constexpr FilterStatusLayout LAYOUT = {
        .count = be16At(0), .moving = be16At(2), .current = be16At(4), .target = be16At(6)};
    uint8_t reply[CMD_GET_FILTER_STATUS.replyLength] = {};
    const bool ok = ask<CMD_GET_FILTER_STATUS>(camera, reply);
    status = decodeFilterStatus(reply, LAYOUT);
    return ok;
}

bool turnFilterWheel(VornCameraImpl& camera, unsigned index, bool& accepted)
{
    uint8_t reply[CMD_SET_FILTER.replyLength] = {};
    const bool sent = askBytes<CMD_SET_FILTER>(camera, payloadOf(index & 0xFF), reply);  // deliberate: low 8 bits only
    accepted = unpack(reply, be16At(0)) != 0;
    return sent;
}

}  // namespace

constexpr FamilyFunctions ADVANCED_FUNCTIONS = {
    .connect = connect,
    .identify = identify,
    .exchangeCommand = exchangeCommand,
    .readData = readData,
    .ping = ping,
    .startExposure = startExposure,
    .readoutLead = readoutLead,
    .endLongExposure = endLongExposure,
    .exposeShort = exposeShort,
    .imageWidth = imageWidth,
    .receiveImage = receiveImage,
    .readTemperature = readTemperature,
    .readCooling = readCooling,
    .setCoolingTarget = setCoolingTarget,
    .readFilterStatus = readFilterStatus,
    .turnFilterWheel = turnFilterWheel,
    .setGuideRelays = switchGuideRelays,
};

}  // namespace vornccd
