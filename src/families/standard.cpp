// SPDX-License-Identifier: MIT
// STANDARD cameras: most cameras. Commands and replies travel over the parallel bus, 16-bit numbers low byte first.
#include "accessories/cooling.h"
#include "accessories/filter_status.h"
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
#include "transport/liveness.h"
#include "transport/pause.h"
#include "transport/waveforms.h"

#include <array>

namespace vornccd {

namespace {

constexpr unsigned CONNECTING_I2C_TIMEOUT_MS = 100;
constexpr unsigned CONNECTING_PAR_TIMEOUT_MS = 1000;
constexpr CountingPing PING = {CMD_PING.code, 5, 20000, 1};
constexpr long SHUTTER_SETTLE_US = 500000;

// ---- opening ------------------------------------------------------------------------------------------------------

// Cameras whose own description gives the wrong size.
struct SizeOverride {
    uint32_t productId;
    uint32_t pixelCountX;
    uint32_t pixelCountY;
};
constexpr SizeOverride SIZE_OVERRIDES[] = {
    {0xdf31, 3326, 2504},
    {0xdf50, 4499, 3599},
};

void connect(StepRunner& steps)
{
    steps.run(&VornCameraImpl::i2cSetTimeout, CONNECTING_I2C_TIMEOUT_MS);
    steps.run(&VornCameraImpl::setParTimeout, CONNECTING_PAR_TIMEOUT_MS);
    steps.run(loadWaveformMode, WAVEFORM_MODE_9);
    steps.run(&VornCameraImpl::ping);
}

void storeFlags(VornCameraImpl& camera, unsigned flags)
{
    camera.hasShutter = (flags & HAS_SHUTTER) != 0;
    camera.hasGuidePort = (flags & NO_GUIDE_PORT) == 0;
    camera.hasFilterWheel = (flags & HAS_FILTER_WHEEL) != 0;
    camera.hasGPIO = false;  // deliberate: whatever the flags say
    camera.has8BitMode = false;
}

void overrideSize(VornCameraImpl& camera, uint32_t productId)
{
    for (const SizeOverride& size : SIZE_OVERRIDES) {
        if (productId == size.productId) {
            camera.pixelCountX = size.pixelCountX;
            camera.pixelCountY = size.pixelCountY;
        }
    }
}

void traceFlags(unsigned flags)
{
    TRACE_DETAIL("%s    flags: 0x%0x %s%s%s%s%s%s%s%s%s%s\n", flags, flagName(flags, FIFO, " FIFO"),
                 flagName(flags, INTERLACED, " INTERLACED"), flagName(flags, EXT_TRIGGER, " EXT_TRIGGER"),
                 flagName(flags, PREVIEW, " PREVIEW"), flagName(flags, SUBSAMPLE, " SUBSAMPLE"),
                 flagName(flags, OVERLAP, " OVERLAP"), flagName(flags, HAS_SHUTTER, " HAS_SHUTTER"),
                 flagName(~flags, NO_GUIDE_PORT, " HAS_GUIDE_PORT"), flagName(flags, HAS_GPIO, " HAS_GPIO"),
                 flagName(flags, HAS_FILTER_WHEEL, " HAS_FILTER_WHEEL"));
}

void identify(StepRunner& steps, uint32_t productId)
{
    constexpr CoolerDetailsLayout COOLER = {.capabilities = byteAt(0), .maxPower = byteAt(2), .minPower = byteAt(4)};
    VornCameraImpl& camera = steps.camera;
    steps.run(send<CMD_GET_DESCRIPTOR>);
    // deliberate: the fields take what was read also when a read failed.
    const StreamDescription description = readDescriptionStream(steps);
    storeFlags(camera, description.flags);
    storeDescription(camera, description);
    overrideSize(camera, productId);
    traceFlags(description.flags);
    traceDescription(camera, description);
    identifyEquipment(steps, COOLER);
    steps.run(waitForFilterWheel);
}

// ---- commands -----------------------------------------------------------------------------------------------------

/// "C" 0 "M" 0 "D" 0, the code and 0, the payload, one zero when its length is odd: the bus moves 16-bit words.
bool exchangeCommand(VornCameraImpl& camera, const CommandExchange& exchange)
{
    const uint8_t header[] = {'C', 0, 'M', 0, 'D', 0, static_cast<uint8_t>(exchange.code), 0};
    CommandFrame frame = commandFrame(header, exchange, exchange.payloadLength & 1);
    if (!frame.bytes)
        return false;
    const bool sent = camera.parOut(frame.bytes.get(), frame.length);
    frame.bytes.reset();
    if (!sent)
        return false;
    awaitMeasurement(exchange.code);
    return exchange.reply == nullptr || camera.parIn(exchange.reply, exchange.replyLength);
}

bool readData(VornCameraImpl& camera, uint8_t* buffer, unsigned length)
{
    return camera.parIn(buffer, length);
}

bool ping(VornCameraImpl& camera)
{
    return pingCounting(camera, PING);
}

// ---- exposure -----------------------------------------------------------------------------------------------------

// The readout command
constexpr Field CODE = le16At(0);
constexpr Field BIN_X = le16At(2);
constexpr Field BIN_Y = le16At(4);
constexpr Field FIRST_COLUMN = le16At(6);
constexpr Field FIRST_ROW = le16At(8);
constexpr Field WIDTH = le16At(10);
constexpr Field HEIGHT = le16At(12);
constexpr Field FLAGS = le16At(14);
static_assert(covers({CODE, BIN_X, BIN_Y, FIRST_COLUMN, FIRST_ROW, WIDTH, HEIGHT, FLAGS}, CMD_READ_CCD.payloadLength));

// its flags
constexpr uint32_t FLAGS_ALWAYS = 0x0043;
constexpr uint32_t FLAG_PREVIEW = 0x0100;
constexpr uint32_t FLAG_MICROSECONDS = 0x0400;
constexpr uint32_t FLAG_DARK = 0x1000;

bool sendReadout(VornCameraImpl& camera, const ReadoutRegion& region, const ExposureCode& exposure, bool dark)
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
         FLAGS_ALWAYS | (camera.previewMode ? FLAG_PREVIEW : 0) | (exposure.microseconds ? FLAG_MICROSECONDS : 0) |
             (dark ? FLAG_DARK : 0));
    return sendBytes<CMD_READ_CCD>(camera, payload);
}

bool startExposure(VornCameraImpl& camera)
{
    if (!prepareAndStart(camera))
        return false;
    if (!camera.hasShutter)
        return true;
    sleepms(SHUTTER_SETTLE_US);
    return sendValue<CMD_SET_SHUTTER>(camera, camera.darkFrameMode ? SHUTTER_CLOSED : SHUTTER_OPEN);
}

/// deliberate: a failure leaves lastError as it was.
bool abortExposure(VornCameraImpl& camera)
{
    return !camera.hasShutter || sendValue<CMD_SET_SHUTTER>(camera, SHUTTER_CLOSED);
}

bool endLongExposure(VornCameraImpl& camera, const ReadoutRegion& region)
{
    if (!sendValue<CMD_PREPARE_CCD>(camera, PREPARE_READOUT))
        return false;
    if (camera.hasShutter && !sendValue<CMD_SET_SHUTTER>(camera, SHUTTER_CLOSED))
        return false;
    // The shutter has already kept the light out of a dark frame.
    return sendReadout(camera, region, {}, false);
}

bool exposeShort(VornCameraImpl& camera, const ReadoutRegion& region, double seconds)
{
    if (!prepareAndStart(camera))
        return false;
    const ExposureCode exposure = standardExposureCode(seconds);
    const bool ok = sendReadout(camera, region, exposure, camera.darkFrameMode);
    waitForExposure(exposure);
    return ok;
}

// ---- accessories --------------------------------------------------------------------------------------------------

// The reply with a temperature
constexpr Field TEMPERATURE_TYPE = byteAt(0);
constexpr Field TEMPERATURE_RAW = le16At(2);

bool readTemperature(VornCameraImpl& camera, unsigned sensor, float* celsius)
{
    uint8_t reply[CMD_GET_TEMPERATURE.replyLength] = {};
    if (!askValue<CMD_GET_TEMPERATURE>(camera, sensor, reply))
        return false;
    camera.tempSensorType = unpack(reply, TEMPERATURE_TYPE);
    storeTemperature(camera, unpack(reply, TEMPERATURE_RAW), celsius);
    return true;
}

bool readCooling(VornCameraImpl& camera, CoolingReply& cooling)
{
    constexpr CoolingLayout LAYOUT = {.power = byteAt(0), .flags = byteAt(2), .target = le16At(4)};
    uint8_t reply[CMD_GET_COOLING_STATUS.replyLength] = {};
    const bool ok = ask<CMD_GET_COOLING_STATUS>(camera, reply);
    cooling = decodeCooling(reply, LAYOUT);
    return ok;
}

bool setCoolingTarget(VornCameraImpl& camera, float celsius, uint8_t& acknowledgement)
{
    uint8_t reply[CMD_SET_COOLING.replyLength] = {};
    const bool sent = askValue<CMD_SET_COOLING>(camera, camera.celsiusToSensor(celsius), reply);
    acknowledgement = reply[0];
    return sent;
}

bool readFilterStatus(VornCameraImpl& camera, FilterStatus& status)
{
    // The low byte of each word counts.
    constexpr FilterStatusLayout LAYOUT = {
        .count = byteAt(0), .moving = byteAt(2), .current = byteAt(4), .target = byteAt(6)};
    uint8_t reply[CMD_GET_FILTER_STATUS.replyLength] = {};
    const bool ok = ask<CMD_GET_FILTER_STATUS>(camera, reply);
    status = decodeFilterStatus(reply, LAYOUT);
    return ok;
}

bool turnFilterWheel(VornCameraImpl& camera, unsigned index, bool& accepted)
{
    uint8_t reply[CMD_SET_FILTER.replyLength] = {};
    const bool sent = askValue<CMD_SET_FILTER>(camera, index, reply);
    accepted = reply[0] != 0;
    return sent;
}

}  // namespace

constexpr FamilyFunctions STANDARD_FUNCTIONS = {
    .connect = connect,
    .identify = identify,
    .exchangeCommand = exchangeCommand,
    .readData = readData,
    .ping = ping,
    .startExposure = startExposure,
    .abortExposure = abortExposure,
    .endLongExposure = endLongExposure,
    .exposeShort = exposeShort,
    .receiveImage = receiveValues,
    .readTemperature = readTemperature,
    .readCooling = readCooling,
    .setCoolingTarget = setCoolingTarget,
    .readFilterStatus = readFilterStatus,
    .turnFilterWheel = turnFilterWheel,
    .setGuideRelays = switchGuideRelays,
};

}  // namespace vornccd
