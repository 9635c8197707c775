// SPDX-License-Identifier: MIT
// The lines of one operation of each kind, whole.
#include <functional>

#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::Script;
using vorntest::Steps;
using vorntest::TraceCapture;
using Lines = std::vector<std::string>;

struct LinesCase {
    const char* label;
    std::function<void(Steps&)> conversation;
    std::function<void(VornCameraImpl&)> act;
    Lines expected;
};

void runLines(const LinesCase& row)
{
    SCOPED_TRACE(row.label);
    OpenedCamera standard;
    row.conversation(standard.usb);
    TraceCapture trace;
    row.act(standard.camera);
    EXPECT_EQ(trace.lines(), row.expected);
    EXPECT_TRUE(standard.usb.done());
}

TEST(TraceLines, OfTheConstructor)
{
    Script usb;
    TraceCapture trace;
    const VornCameraImpl quicker(&usb.device, "Vorn K01", QUICKER);
    const VornCameraImpl standard(&usb.device, "Vorn K12", STANDARD);
    const Lines expected = {
        "-> VornCameraImpl::VornCameraImpl(..., Vorn K01, 3)",
        "    quickerStartExposureDelay = 200000",
        "    quickerReadCCDDelay = 100000",
        "    maxPacketSize = 25165824",
        "<- VornCameraImpl::VornCameraImpl",
        "-> VornCameraImpl::VornCameraImpl(..., Vorn K12, 2)",
        "    maxPacketSize = 25165824",
        "<- VornCameraImpl::VornCameraImpl",
    };
    EXPECT_EQ(trace.lines(), expected);
}

TEST(TraceLines, OfOperationsWithoutTraffic)
{
    const auto silent = [](Steps&) {};
    const LinesCase CASES[] = {
        {"setParam",
         silent,
         [](VornCameraImpl& camera) { camera.setParam(MAX_PACKET_SIZE, 512); },
         {"-> VornCameraImpl::setParam(3, 512)", "    maxPacketSize = 512", "<- VornCameraImpl::setParam -> 1"}},
        {"setParam refused",
         silent,
         [](VornCameraImpl& camera) { camera.setParam(QUICKER_READ_CCD_DELAY, -1); },
         {"-> VornCameraImpl::setParam(2, -1)", "<- VornCameraImpl::setParam -> 00"}},
        {"getParam",
         silent,
         [](VornCameraImpl& camera) { camera.getParam(MAX_PACKET_SIZE); },
         {"-> VornCameraImpl::getParam(3)", "    maxPacketSize = 25165824", "<- VornCameraImpl::getParam -> 25165824"}},
        {"getParam refused",
         silent,
         [](VornCameraImpl& camera) { camera.getParam(QUICKER_START_EXPOSURE_DELAY); },
         {"-> VornCameraImpl::getParam(1)", "<- VornCameraImpl::getParam -> 00"}},
        {"getCapabilities, record form",
         silent,
         [](VornCameraImpl& camera) {
             VornCapabilities capabilities;
             camera.getCapabilities(nullptr, nullptr, &capabilities);
         },
         {"-> VornCameraImpl::getCapabilities(...)", "<- VornCameraImpl::getCapabilities 1"}},
        {"setFilter without a wheel",
         silent,
         [](VornCameraImpl& camera) { camera.setFilter(1); },
         {"-> VornCameraImpl::setFilter(1)", "<- VornCameraImpl::setFilter 00"}},
        {"getImage out of sequence",
         silent,
         [](VornCameraImpl& camera) { camera.getImage(nullptr, 4); },
         {"-> VornCameraImpl::getImage(..., 4)", "<- VornCameraImpl::getImage 00"}},
        {"readCCD out of sequence",
         silent,
         [](VornCameraImpl& camera) { camera.readCCD(1, 2, 3, 4, 5, 6); },
         {"-> VornCameraImpl::readCCD(1, 2, 3, 4, 5, 6)", "<- VornCameraImpl::readCCD 00"}},
        {"readCCD refused, short",
         silent,
         [](VornCameraImpl& camera) { camera.readCCD(1, 2, 3, 4, 5, 6, 0.25); },
         {"-> VornCameraImpl::readCCD(1, 2, 3, 4, 5, 6, 0.250000)", "<- VornCameraImpl::readCCD 00"}},
        {"preview mode twice",
         silent,
         [](VornCameraImpl& camera) {
             camera.setPreviewMode(true);
             camera.setPreviewMode(true);
         },
         {"-> VornCameraImpl::setPreviewMode(1)", "<- VornCameraImpl::setPreviewMode 1",
          "-> VornCameraImpl::setPreviewMode(1)", "    not changed", "<- VornCameraImpl::setPreviewMode 1"}},
        {"set-point without a cooler: two names",
         silent,
         [](VornCameraImpl& camera) { camera.setCooling(-10.0F); },
         {"-> vornSetCooling(-10.0)", "<- VornCameraImpl::vornSetCooling 00"}},
        {"shutter without a shutter",
         silent,
         [](VornCameraImpl& camera) { camera.setShutter(true); },
         {"-> VornCameraImpl::shutter(1)", "<- VornCameraImpl::shutter 00"}},
    };
    for (const LinesCase& row : CASES)
        runLines(row);
}

TEST(TraceLines, OfBridgePrimitives)
{
    const LinesCase CASES[] = {
        {"a request",
         [](Steps& usb) { usb.out(0x04, "0C ?? 00 00 32 00 ..."); },
         [](VornCameraImpl& camera) { camera.setParTimeout(50); },
         {"-> VornCameraImpl::setParTimeout(50)", "<- VornCameraImpl::setParTimeout 1"}},
        {"a refused request, blank before the line end",
         [](Steps& usb) { usb.out(0x04, "0C ?? 00 00 32 00 ...").fails(LIBUSB_ERROR_PIPE); },
         [](VornCameraImpl& camera) { camera.setParTimeout(50); },
         {"-> VornCameraImpl::setParTimeout(50)", "    libusb_bulk_transfer -> LIBUSB_ERROR_PIPE ",
          "<- VornCameraImpl::setParTimeout 0"}},
        {"a failed read, no blank",
         [](Steps& usb) {
             usb.out(0x04, "03 ?? 00 00 00 00 00 00 05 ...").in(0x86, 9, "").fails(LIBUSB_ERROR_TIMEOUT);
         },
         [](VornCameraImpl& camera) {
             unsigned state = 7;
             camera.getIOState(13, &state);
             EXPECT_EQ(state, 7U);
         },
         {"-> VornCameraImpl::getIOState(13)", "    libusb_bulk_transfer -> LIBUSB_ERROR_TIMEOUT",
          "<- VornCameraImpl::getIOState 0 7"}},
        {"nested primitives",
         [](Steps& usb) { usb.eepRead(3, 2, "34 DF"); },
         [](VornCameraImpl& camera) {
             uint8_t bytes[2];
             camera.eepRead(3, bytes, 2);
         },
         {"-> VornCameraImpl::eepRead(3, ..., 2)", " -> VornCameraImpl::i2cWrite(81, [0x00 0x03], 2)",
          " <- VornCameraImpl::i2cWrite 1", " -> VornCameraImpl::i2cRead(81, ..., 2)",
          " <- VornCameraImpl::i2cRead 1 [0x34 0xdf]", "<- VornCameraImpl::eepRead 1 [0x34 0xdf]"}},
        {"ports and lines",
         [](Steps& usb) {
             usb.out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 00 9F FF 00 FF 00 FF 00 FF 00");
             usb.out(0x04,
                     "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 00 05 FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00");
         },
         [](VornCameraImpl& camera) {
             camera.setPortDirection(0, 0x9f);
             camera.setPortState(0, 5);
         },
         {"-> VornCameraImpl::setPortDirection(0, 0x9f)", "<- VornCameraImpl::setPortDirection 1",
          "-> VornCameraImpl::setPortState(0, 0x05)", "<- VornCameraImpl::setPortState 1"}},
        {"parInit by mode, unknown",
         [](Steps&) {},
         [](VornCameraImpl& camera) { camera.parInit(2U); },
         {"-> VornCameraImpl::parInit(2)", "<- VornCameraImpl::parInit 0"}},
        {"flush",
         [](Steps& usb) { usb.timeout(100).parIn(1, "77").emptyFlush(); },
         [](VornCameraImpl& camera) { camera.flush(); },
         {"-> VornCameraImpl::flush()", "    libusb_bulk_transfer -> LIBUSB_ERROR_TIMEOUT", "    1 bytes flushed",
          "<- VornCameraImpl::flush"}},
    };
    for (const LinesCase& row : CASES)
        runLines(row);
}

TEST(TraceLines, OfOperationsThatTalkToTheCamera)
{
    const LinesCase CASES[] = {
        {"setFilter refused by the camera",
         [](Steps& usb) { usb.command("88 00 03 00").parIn(2, "00 00"); },
         [](VornCameraImpl& camera) {
             camera.hasFilterWheel = true;
             camera.setFilter(3);
         },
         {"-> VornCameraImpl::setFilter(3)", "    lock()",
          " -> VornCameraImpl::sendCommand(136, [0x03 0x00], ..., 2, 2)",
          " <- VornCameraImpl::sendCommand 1 [0x00 0x00]", "    failed to set filter", "    unlock()",
          "<- VornCameraImpl::setFilter 0"}},
        {"filter wheel status",
         [](Steps& usb) { usb.command("87 00").parIn(8, "05 00 01 00 02 00 04 00"); },
         [](VornCameraImpl& camera) {
             unsigned count = 0;
             unsigned current = 0;
             bool moving = false;
             camera.hasFilterWheel = true;
             camera.getFilterWheelStatus(&count, &moving, &current, nullptr);
         },
         {"-> VornCameraImpl::getFilterWheelStatus(...)", "    lock()",
          " -> VornCameraImpl::sendCommand(135, NULL, ..., 0, 8)",
          " <- VornCameraImpl::sendCommand 1 [0x05 0x00 0x01 0x00...]", "    filter count: 5", "    moving: 1",
          "    current: 2", "    unlock()", "<- VornCameraImpl::getFilterWheelStatus 1"}},
        {"temperature",
         [](Steps& usb) { usb.command("37 00 01 00").pause(100000).parIn(6, "01 00 A0 00 00 00"); },
         [](VornCameraImpl& camera) {
             float celsius = 0;
             camera.tempSensorCount = 1;
             camera.getTemperatureSensorStatus(1, &celsius);
         },
         {"-> VornCameraImpl::getTemperatureSensorStatus(1, ...)", "    lock()",
          " -> VornCameraImpl::sendCommand(55, [0x01 0x00], ..., 2, 6)",
          " <- VornCameraImpl::sendCommand 1 [0x01 0x00 0xa0 0x00...]", "    current temperature: -8.4", "    unlock()",
          "<- VornCameraImpl::getTemperatureSensorStatus 1"}},
        {"cooling status",
         [](Steps& usb) { usb.command("35 00").parIn(6, "64 00 80 00 9B 00"); },
         [](VornCameraImpl& camera) {
             COOLING_STATE state = COOLING_INACTIVE;
             float target = 0;
             float power = 0;
             camera.cooler = COOLER_SETPOINT;
             camera.tempSensorType = 1;
             camera.maxCoolerPower = 200;
             camera.getCoolingStatus(&state, &target, &power);
         },
         {"-> VornCameraImpl::getCoolingStatus(...)", "    lock()",
          " -> VornCameraImpl::sendCommand(53, NULL, ..., 0, 6)",
          " <- VornCameraImpl::sendCommand 1 [0x64 0x00 0x80 0x00...]", "    cooler state: COOLING_SETPOINT",
          "    target temperature: -10.0", "    power: 50%", "    unlock()", "<- VornCameraImpl::getCoolingStatus 1"}},
        {"set-point not acknowledged",
         [](Steps& usb) { usb.command("38 00 9B 00").parIn(2, "02 00"); },
         [](VornCameraImpl& camera) {
             camera.cooler = COOLER_ONOFF;
             camera.tempSensorType = 1;
             camera.setCooling(-10.0F);
         },
         {"-> vornSetCooling(-10.0)", "    lock()", " -> VornCameraImpl::sendCommand(56, [0x9b 0x00], ..., 2, 2)",
          " <- VornCameraImpl::sendCommand 1 [0x02 0x00]", "    invalid response", "    unlock()",
          "<- VornCameraImpl::setCooling 0"}},
        {"ping answered at the second try",
         [](Steps& usb) {
             usb.command("50 00 64 00").pause(20000).parIn(2, "00 00");
             usb.command("50 00 65 00").pause(20000).parIn(2, "66 00");
         },
         [](VornCameraImpl& camera) { camera.ping(); },
         {"-> VornCameraImpl::ping()", "    ping -> 100", " -> VornCameraImpl::sendCommand(80, [0x64], ..., 1, 0)",
          " <- VornCameraImpl::sendCommand 1 NULL", "    ping <- 0", "    ping -> 101",
          " -> VornCameraImpl::sendCommand(80, [0x65], ..., 1, 0)", " <- VornCameraImpl::sendCommand 1 NULL",
          "    ping <- 102", "<- VornCameraImpl::ping 1"}},
    };
    for (const LinesCase& row : CASES)
        runLines(row);
}

TEST(TraceLines, OfAnExposure)
{
    OpenedCamera standard;
    standard.camera.pixelCountX = standard.camera.pixelCountY = 100;
    standard.camera.maxBinX = standard.camera.maxBinY = 2;
    standard.usb.command("02 00 00 00").command("04 00").command("05 00");
    standard.usb.out(0x04, "0C ?? 00 00 30 75 ...").command("02 00 01 00");
    standard.usb.command("06 00 00 00 01 00 01 00 00 00 00 00 02 00 01 00 43 00");
    standard.usb.parIn(4, "01 02 03 04").out(0x04, "0C ?? 00 00 E8 03 ...");
    uint16_t image[2] = {};
    TraceCapture trace;
    standard.camera.startExposure(false);
    standard.camera.readCCD(0, 0, 2, 1, 1, 1);
    standard.camera.getImage(image, 2);
    const Lines expected = {
        "-> VornCameraImpl::startExposure()",
        "    lock()",
        " -> VornCameraImpl::sendCommand(2, [0x00 0x00], ..., 2, 0)",
        " <- VornCameraImpl::sendCommand 1 NULL",
        " -> VornCameraImpl::sendCommand(4, NULL, ..., 0, 0)",
        " <- VornCameraImpl::sendCommand 1 NULL",
        " -> VornCameraImpl::sendCommand(5, NULL, ..., 0, 0)",
        " <- VornCameraImpl::sendCommand 1 NULL",
        "    unlock()",
        "<- VornCameraImpl::startExposure 1",
        "-> VornCameraImpl::readCCD(0, 0, 2, 1, 1, 1)",
        "    lock()",
        " -> VornCameraImpl::setParTimeout(30000)",
        " <- VornCameraImpl::setParTimeout 1",
        " -> VornCameraImpl::sendCommand(2, [0x01 0x00], ..., 2, 0)",
        " <- VornCameraImpl::sendCommand 1 NULL",
        " -> VornCameraImpl::sendCommand(6, [0x00 0x00 0x01 0x00...], ..., 16, 0)",
        " <- VornCameraImpl::sendCommand 1 NULL",
        "<- VornCameraImpl::readCCD 1",
        "-> VornCameraImpl::getImage(..., 2)",
        "    elapsed 0 s",
        " -> VornCameraImpl::setParTimeout(1000)",
        " <- VornCameraImpl::setParTimeout 1",
        "    unlock()",
        "<- VornCameraImpl::getImage 1 [0x01 0x02]",
    };
    EXPECT_EQ(trace.lines(), expected);
}

}  // namespace
