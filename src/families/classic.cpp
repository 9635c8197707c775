// SPDX-License-Identifier: MIT
// CLASSIC cameras: the older ones with the bridge, commanded over I2C. A byte of a reply comes as a 16-bit word.
#include "accessories/cooling.h"
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
constexpr CountingPing PING = {CMD_PING_CLASSIC.code, 10, 50000, 0};  // answers the number as it is
constexpr long SETTLE_US = 2000000;                                   // between the end of an exposure and its readout

// ---- opening ------------------------------------------------------------------------------------------------------

/// While this fails, open() begins again.
void connect(StepRunner& steps)
{
    steps.run(&VornCameraImpl::i2cSetTimeout, CONNECTING_I2C_TIMEOUT_MS);
    steps.run(&VornCameraImpl::setParTimeout, CONNECTING_PAR_TIMEOUT_MS);
    steps.run(loadWaveformMode, WAVEFORM_MODE_1);
    steps.run(loadWaveformTable, ParInitData);
    steps.run(&VornCameraImpl::ping);
}

void storeFlags(VornCameraImpl& camera)
{
    camera.hasShutter = false;  // deliberate: the family has none of these, whatever the flags say
    camera.hasGuidePort = false;
    camera.has8BitMode = false;
    camera.hasFilterWheel = false;
    camera.hasGPIO = false;
}

void traceFlags(unsigned flags)
{
    TRACE_DETAIL("%s    flags: 0x%0x %s%s%s%s%s%s\n", flags, flagName(flags, FIFO, " FIFO"),
                 flagName(flags, INTERLACED, " INTERLACED"), flagName(flags, EXT_TRIGGER, " EXT_TRIGGER"),
                 flagName(flags, PREVIEW, " PREVIEW"), flagName(flags, SUBSAMPLE, " SUBSAMPLE"),
                 flagName(flags, OVERLAP, " OVERLAP"));
}

void identify(StepRunner& steps, uint32_t /*productId*/)
{
    constexpr CoolerDetailsLayout COOLER = {.capabilities = byteAt(0), .maxPower = byteAt(1), .minPower = byteAt(2)};
    VornCameraImpl& camera = steps.camera;
    steps.run(send<CMD_GET_DESCRIPTOR_CLASSIC>);
    const StreamDescription description = readDescriptionStream(steps);
    storeFlags(camera);
    storeDescription(camera, description);
    camera.pixelCountX -= 1;  // deliberate: the camera reports one too many
    camera.pixelCountY -= 1;
    traceFlags(description.flags);
    traceDescription(camera, description);
    identifyEquipment(steps, COOLER);
}

// ---- commands -----------------------------------------------------------------------------------------------------

/// "H" "S" "C", the code and the payload over I2C; the reply comes over the parallel bus.
bool exchangeCommand(VornCameraImpl& camera, const CommandExchange& exchange)
{
    const uint8_t header[] = {'H', 'S', 'C', static_cast<uint8_t>(exchange.code)};
    CommandFrame frame = commandFrame(header, exchange, 0);
    if (!frame.bytes)
        return false;
    const bool sent = camera.i2cWrite(I2C_CLASSIC, frame.bytes.get(), frame.length);
    frame.bytes.reset();
    if (!sent)
        return false;
    awaitMeasurement(exchange.code);
    if (exchange.reply == nullptr)
        return true;
    if (!camera.parIn(exchange.reply, exchange.replyLength))
        return false;
    // The first half of the reply then holds the data bytes.
    for (unsigned i = 0; i < exchange.replyLength / 2; ++i)
        exchange.reply[i] = exchange.reply[size_t{2} * i];
    return true;
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

// The readout command. Columns and rows count from 1; the ends are one past the last.
constexpr Field CODE = byteAt(0);
constexpr Field BIN_X = byteAt(1);
constexpr Field BIN_Y = byteAt(2);
constexpr Field FIRST_COLUMN = le16At(3);
constexpr Field FIRST_ROW = le16At(5);
constexpr Field END_COLUMN = le16At(7);
constexpr Field END_ROW = le16At(9);
constexpr Field PREVIEW_MODE = byteAt(11);
constexpr Field READOUT_MODE = byteAt(12);
static_assert(covers({CODE, BIN_X, BIN_Y, FIRST_COLUMN, FIRST_ROW, END_COLUMN, END_ROW, PREVIEW_MODE, READOUT_MODE},
                     CMD_READ_CCD_CLASSIC.payloadLength));
constexpr uint32_t READOUT_MODE_ALWAYS = 3;

bool sendReadout(VornCameraImpl& camera, const ReadoutRegion& region, const ExposureCode& exposure)
{
    std::array<uint8_t, CMD_READ_CCD_CLASSIC.payloadLength> payload = {};
    pack(payload, CODE, static_cast<uint32_t>(exposure.code));
    pack(payload, BIN_X, region.binX);
    pack(payload, BIN_Y, region.binY);
    pack(payload, FIRST_COLUMN, region.x + 1);
    pack(payload, FIRST_ROW, region.y + 1);
    pack(payload, END_COLUMN, region.x + region.width + 1);
    pack(payload, END_ROW, region.y + region.height + 1);
    pack(payload, PREVIEW_MODE, camera.previewMode ? 1 : 0);
    pack(payload, READOUT_MODE, READOUT_MODE_ALWAYS);
    return sendBytes<CMD_READ_CCD_CLASSIC>(camera, payload);
}

int64_t readoutLead(const VornCameraImpl& /*camera*/)
{
    return SETTLE_US;
}

bool endLongExposure(VornCameraImpl& camera, const ReadoutRegion& region)
{
    if (!send<CMD_READ_CCD_DEFAULT>(camera))
        return false;
    sleepms(SETTLE_US);
    return sendValue<CMD_PREPARE_CCD>(camera, PREPARE_READOUT) && sendReadout(camera, region, {});
}

bool exposeShort(VornCameraImpl& camera, const ReadoutRegion& region, double seconds)
{
    const ExposureCode exposure = classicExposureCode(seconds);
    const bool ok = sendReadout(camera, region, exposure);
    waitForExposure(exposure);
    return ok;
}

// ---- accessories --------------------------------------------------------------------------------------------------

// The reply with a temperature
constexpr Field TEMPERATURE_TYPE = byteAt(0);
constexpr Field TEMPERATURE_RAW = le16At(1);

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
    constexpr CoolingLayout LAYOUT = {.power = byteAt(0), .flags = byteAt(1), .target = le16At(2)};
    uint8_t reply[CMD_GET_COOLING_STATUS_LONG.replyLength] = {};
    const bool ok = ask<CMD_GET_COOLING_STATUS_LONG>(camera, reply);
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

}  // namespace

constexpr FamilyFunctions CLASSIC_FUNCTIONS = {
    .connect = connect,
    .identify = identify,
    .exchangeCommand = exchangeCommand,
    .readData = readData,
    .ping = ping,
    .startExposure = prepareAndStart,
    .readoutLead = readoutLead,
    .endLongExposure = endLongExposure,
    .exposeShort = exposeShort,
    .receiveImage = receiveValues,
    .readTemperature = readTemperature,
    .readCooling = readCooling,
    .setCoolingTarget = setCoolingTarget,
};

}  // namespace vornccd
