// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "family_steps.h"
#include "opened_camera.h"
#include "trace/trace.h"
#include "trace_capture.h"

namespace {

using vornccd::_d;
using vornccd::_i;
using vorntest::advanced;
using vorntest::OpenedCamera;
using vorntest::Steps;
using vorntest::TraceCapture;

TEST(Indentation, GrowsByOneBlankALevel)
{
    for (size_t depth = 0; depth < 16; depth++) {
        EXPECT_EQ(_i(1), std::string(depth, ' '));
        EXPECT_EQ(_i(0), std::string(depth, ' '));
    }
    for (size_t depth = 16; depth-- > 0;)
        EXPECT_EQ(_i(-1), std::string(depth, ' '));
    EXPECT_STREQ(_i(0), "");
}

TEST(HexDump, ShowsAtMostFourBytes)
{
    const uint8_t bytes[] = {0x01, 0x02, 0xAB, 0x04, 0x05, 0x06};
    EXPECT_STREQ(_d(nullptr, 3), "NULL");
    EXPECT_STREQ(_d(bytes, 0), "]");  // the closing bracket overwrites the opening one
    EXPECT_STREQ(_d(bytes, 2), "[0x01 0x02]");
    EXPECT_STREQ(_d(bytes, 4), "[0x01 0x02 0xab 0x04]");
    EXPECT_STREQ(_d(bytes, 5), "[0x01 0x02 0xab 0x04...]");
}

TEST(Switches, BothMustBeOn)
{
    for (const int switches : {0, 1, 2, 3}) {
        OpenedCamera standard;
        standard.camera.handle = nullptr;
        TraceCapture trace;
        VornDebug = (switches & 1) != 0;
        VornDebugOn = (switches & 2) != 0;
        standard.camera.close();
        VornDebugOn = true;
        EXPECT_EQ(trace.text(), switches == 3 ? "-> VornCameraImpl::close()\n<- VornCameraImpl::close\n" : "");
    }
}

// A host's own choice does not survive such a loop.
TEST(Switches, AppInitSetsTheSecond)
{
    OpenedCamera standard;
    standard.usb.command("2C 00").pause(10000).parIn(2, "49 00");
    TraceCapture trace;
    VornDebugOn = false;
    EXPECT_TRUE(standard.camera.appInit());
    EXPECT_TRUE(VornDebugOn);
    EXPECT_TRUE(trace.has("    ----- DEBUG ON -----"));
    EXPECT_FALSE(trace.has("    ----- DEBUG OFF -----"));
    (void)_i(1);  // the exit line had no entry line; level the depth for the tests that follow
}

// The lines of one operation of each kind, whole.
#define DO(...) [](VornCameraImpl& camera) { __VA_ARGS__; }

struct Traced {
    const char* label;
    std::function<void(VornCameraImpl&)> act;
    const char* expected;
    Steps conversation = {};
    CAMERA_TYPE type = STANDARD;
};

void expectTraces(const std::vector<Traced>& rows)
{
    for (const Traced& row : rows) {
        SCOPED_TRACE(row.label);
        OpenedCamera opened(row.type);
        opened.usb.append(row.conversation);
        TraceCapture trace;
        row.act(opened.camera);
        EXPECT_EQ(trace.text(), row.expected);
        EXPECT_TRUE(opened.usb.done());
    }
}

TEST(TraceLines, OfOperationsWithoutTraffic)
{
    expectTraces({
        {"parameters set",
         DO(camera.setParam(MAX_PACKET_SIZE, 512); camera.setParam(QUICKER_START_EXPOSURE_DELAY, -5);
            camera.setParam(QUICKER_READ_CCD_DELAY, 7); camera.setParam(static_cast<PARAM_TYPE>(4), 8)),
         "-> VornCameraImpl::setParam(3, 512)\n    maxPacketSize = 512\n<- VornCameraImpl::setParam -> 1\n"
         "-> VornCameraImpl::setParam(1, -5)\n    quickerStartExposureDelay = -5\n<- VornCameraImpl::setParam -> 1\n"
         "-> VornCameraImpl::setParam(2, 7)\n    quickerReadCCDDelay = 7\n<- VornCameraImpl::setParam -> 1\n"
         "-> VornCameraImpl::setParam(4, 8)\n<- VornCameraImpl::setParam -> 00\n",
         Steps(), QUICKER},
        {"parameters read",
         DO(camera.getParam(MAX_PACKET_SIZE); camera.getParam(QUICKER_START_EXPOSURE_DELAY);
            camera.getParam(QUICKER_READ_CCD_DELAY); camera.getParam(static_cast<PARAM_TYPE>(4))),
         "-> VornCameraImpl::getParam(3)\n    maxPacketSize = 25165824\n<- VornCameraImpl::getParam -> 25165824\n"
         "-> VornCameraImpl::getParam(1)\n    quickerStartExposureDelay = 200000\n"
         "<- VornCameraImpl::getParam -> 200000\n"
         "-> VornCameraImpl::getParam(2)\n    quickerReadCCDDelay = 100000\n<- VornCameraImpl::getParam -> 100000\n"
         "-> VornCameraImpl::getParam(4)\n<- VornCameraImpl::getParam -> 00\n",
         Steps(), QUICKER},
        {"a new camera", DO(VornCameraImpl(camera.device, "Vorn K01", camera.type)),
         "-> VornCameraImpl::VornCameraImpl(..., Vorn K01, 3)\n    quickerStartExposureDelay = 200000\n"
         "    quickerReadCCDDelay = 100000\n    maxPacketSize = 25165824\n<- VornCameraImpl::VornCameraImpl\n",
         Steps(), QUICKER},
        {"capabilities, open and closed",
         DO(VornCapabilities caps; camera.getCapabilities(nullptr, nullptr, &caps); camera.handle = nullptr;
            camera.getCapabilities(nullptr, nullptr, &caps)),
         "-> VornCameraImpl::getCapabilities(...)\n<- VornCameraImpl::getCapabilities 1\n"
         "-> VornCameraImpl::getCapabilities(...)\n<- VornCameraImpl::getCapabilities 00\n"},
        {"modes that are not the family's", DO(camera.set8BitMode(true); camera.setDarkFrameMode(true)),
         "-> VornCameraImpl::set8BitMode(1)\n<- VornCameraImpl::set8BitMode 0\n"
         "-> VornCameraImpl::setDarkFrameMode(1)\n<- VornCameraImpl::setDarkFrameMode 0\n",
         Steps(), QUICKER},
        {"what a bare camera refuses",
         DO(unsigned short levels = 0; camera.getTemperatureSensorStatus(1, nullptr);
            camera.getCoolingStatus(nullptr, nullptr, nullptr); camera.initiateWarmUp();
            camera.getFilterWheelStatus(nullptr, nullptr, nullptr, nullptr); camera.setFilter(2);
            camera.setGuideRelays(0xFFFF); camera.setGPIODirection(1); camera.getGPIO(&levels);
            camera.getImage(&levels, 1)),
         "-> VornCameraImpl::getTemperatureSensorStatus(1, ...)\n<- VornCameraImpl::getTemperatureSensorStatus 00\n"
         "-> VornCameraImpl::getCoolingStatus(...)\n<- VornCameraImpl::getCoolingStatus 00\n"
         "-> VornCameraImpl::initiateWarmUp()\n<- VornCameraImpl::initiateWarmUp 00\n"
         "-> VornCameraImpl::getFilterWheelStatus(...)\n<- VornCameraImpl::getFilterWheelStatus 00\n"
         "-> VornCameraImpl::setFilter(2)\n<- VornCameraImpl::setFilter 00\n"
         "-> VornCameraImpl::setGuideRelays(65535)\n<- VornCameraImpl::setGuideRelays 00\n"
         "-> VornCameraImpl::setGPIODirection(0x0001)\n<- VornCameraImpl::setGPIODirection 00\n"
         "-> VornCameraImpl::getGPIO(...)\n<- VornCameraImpl::getGPIO 00\n"
         "-> VornCameraImpl::getImage(..., 1)\n<- VornCameraImpl::getImage 00\n"},
        {"preview mode twice", DO(camera.setPreviewMode(true); camera.setPreviewMode(true)),
         "-> VornCameraImpl::setPreviewMode(1)\n<- VornCameraImpl::setPreviewMode 1\n"
         "-> VornCameraImpl::setPreviewMode(1)\n    not changed\n<- VornCameraImpl::setPreviewMode 1\n"},
        {"set-point without a cooler: two names", DO(camera.setCooling(-10.0F)),
         "-> vornSetCooling(-10.0)\n<- VornCameraImpl::vornSetCooling 00\n"},
        {"no shutter: its short name", DO(camera.setShutter(true)),
         "-> VornCameraImpl::shutter(1)\n<- VornCameraImpl::shutter 00\n"},
    });
}

TEST(TraceLines, OfBridgePrimitives)
{
    expectTraces({
        {"a failed write, blank before the line end", DO(camera.setParTimeout(50)),
         "-> VornCameraImpl::setParTimeout(50)\n    libusb_bulk_transfer -> LIBUSB_ERROR_PIPE \n"
         "<- VornCameraImpl::setParTimeout 0\n",
         Steps().out(0x04, "0C ?? 00 00 32 00 ...").fails(LIBUSB_ERROR_PIPE)},
        {"a failed read, no blank", DO(unsigned state = 7; camera.getIOState(13, &state)),
         "-> VornCameraImpl::getIOState(13)\n    libusb_bulk_transfer -> LIBUSB_ERROR_TIMEOUT\n"
         "<- VornCameraImpl::getIOState 0 7\n",
         Steps().out(0x04, "03 ?? 00 00 00 00 00 00 05 ...").in(0x86, 9, "").fails(LIBUSB_ERROR_TIMEOUT)},
        {"of a closed camera, which send nothing",
         DO(camera.handle = nullptr; camera.setPortDirection(1, 0x9F); camera.setPortState(2, 5);
            camera.setIODir(13, 1); camera.setIOState(39, 0); camera.i2cSetSpeed(1); camera.i2cSetTimeout(50);
            camera.parInit(1U); camera.spiInit(); camera.spiWrite(5, 0x3E8); camera.setADC();
            camera.writeAbsValue(0xFFFFF0F00918, 0.5F); camera.flush()),
         "-> VornCameraImpl::setPortDirection(1, 0x9f)\n<- VornCameraImpl::setPortDirection 0\n"
         "-> VornCameraImpl::setPortState(2, 0x05)\n<- VornCameraImpl::setPortState 0\n"
         "-> VornCameraImpl::setIODir(13, 1)\n<- VornCameraImpl::setIODir 0\n"
         "-> VornCameraImpl::setIOState(39, 0)\n<- VornCameraImpl::setIOState 0\n"
         "-> VornCameraImpl::i2cSetSpeed(1)\n<- VornCameraImpl::i2cSetSpeed 0\n"
         "-> VornCameraImpl::i2cSetTimeout(50)\n<- VornCameraImpl::i2cSetTimeout 0\n"
         "-> VornCameraImpl::parInit(1)\n -> VornCameraImpl::parInit(...)\n <- VornCameraImpl::parInit 0\n"
         "<- VornCameraImpl::parInit 0\n"
         "-> VornCameraImpl::spiInit()\n<- VornCameraImpl::spiInit 0\n"
         "-> VornCameraImpl::spiWrite(5, 0x3e8)\n<- VornCameraImpl::spiWrite 0\n"
         "-> VornCameraImpl::setADC()\n -> VornCameraImpl::eepRead(10, ..., 16)\n"
         "  -> VornCameraImpl::i2cWrite(81, [0x00 0x0a], 2)\n  <- VornCameraImpl::i2cWrite 0\n"
         " <- VornCameraImpl::eepRead 0 [0x00 0x00 0x00 0x00...]\n    ----- DEBUG OFF -----\n"
         "    ----- DEBUG ON -----\n<- VornCameraImpl::setADC 0\n"
         "-> VornCameraImpl::writeAbsValue(fffff0f00918, 0.5)\n<- VornCameraImpl::writeAbsValue\n"
         "-> VornCameraImpl::flush()\n    0 bytes flushed\n<- VornCameraImpl::flush\n",
         Steps(), QUICKER},
        {"nested primitives", DO(uint8_t bytes[2]; camera.eepRead(3, bytes, 2)),
         "-> VornCameraImpl::eepRead(3, ..., 2)\n"
         " -> VornCameraImpl::i2cWrite(81, [0x00 0x03], 2)\n <- VornCameraImpl::i2cWrite 1\n"
         " -> VornCameraImpl::i2cRead(81, ..., 2)\n <- VornCameraImpl::i2cRead 1 [0x34 0xdf]\n"
         "<- VornCameraImpl::eepRead 1 [0x34 0xdf]\n",
         Steps().eepRead(3, 2, "34 DF")},
        {"appInit, whose polling is silent", DO(camera.appInit()),
         "-> VornCameraImpl::appInit()\n"
         " -> VornCameraImpl::sendCommand(44, NULL, ..., 0, 0)\n <- VornCameraImpl::sendCommand 1 NULL\n"
         "    ----- DEBUG OFF -----\n    ----- DEBUG ON -----\n    APPINIT completed\n"
         "<- VornCameraImpl::appInit 1\n",
         Steps().command("2C 00").pause(10000).parIn(2, "00 00").pause(10000).parIn(2, "49 00")},
        {"appInit that fails", DO(camera.handle = nullptr; camera.appInit()),
         "-> VornCameraImpl::appInit()\n"
         " -> VornCameraImpl::sendCommand(44, NULL, ..., 0, 0)\n <- VornCameraImpl::sendCommand 0 NULL\n"
         "    ----- DEBUG OFF -----\n    ----- DEBUG ON -----\n"
         "    failed to get APPINIT completion status\n<- VornCameraImpl::appInit 0\n"},
    });
}

TEST(TraceLines, OfOperationsWithTraffic)
{
    expectTraces({
        {"filter wheel status",
         DO(unsigned count; unsigned current; bool moving; camera.hasFilterWheel = true;
            camera.getFilterWheelStatus(nullptr, nullptr, nullptr, &current);
            camera.getFilterWheelStatus(&count, &moving, &current, nullptr)),
         "-> VornCameraImpl::getFilterWheelStatus(...)\n    lock()\n"
         " -> VornCameraImpl::sendCommand(135, NULL, ..., 0, 8)\n"
         " <- VornCameraImpl::sendCommand 1 [0x05 0x00 0x01 0x00...]\n    target: 4\n    unlock()\n"
         "<- VornCameraImpl::getFilterWheelStatus 1\n"
         "-> VornCameraImpl::getFilterWheelStatus(...)\n    lock()\n"
         " -> VornCameraImpl::sendCommand(135, NULL, ..., 0, 8)\n"
         " <- VornCameraImpl::sendCommand 1 [0x05 0x00 0x01 0x00...]\n    filter count: 5\n    moving: 1\n"
         "    current: 2\n    unlock()\n<- VornCameraImpl::getFilterWheelStatus 1\n",
         Steps()
             .command("87 00")
             .parIn(8, "05 00 01 00 02 00 04 00")
             .command("87 00")
             .parIn(8, "05 00 01 00 02 00 04 00")},
        {"filter refused", DO(camera.hasFilterWheel = true; camera.setFilter(9)),
         "-> VornCameraImpl::setFilter(9)\n    lock()\n"
         " -> VornCameraImpl::sendCommand(136, [0x09 0x00], ..., 2, 2)\n"
         " <- VornCameraImpl::sendCommand 1 [0x00 0x00]\n    failed to set filter\n    unlock()\n"
         "<- VornCameraImpl::setFilter 0\n",
         Steps().command("88 00 09 00").parIn(2, "00 00")},
        {"cooling status",
         DO(COOLING_STATE state; float target; float power; camera.cooler = COOLER_SETPOINT; camera.tempSensorType = 1;
            camera.maxCoolerPower = 200; camera.getCoolingStatus(&state, &target, &power)),
         "-> VornCameraImpl::getCoolingStatus(...)\n    lock()\n"
         " -> VornCameraImpl::sendCommand(53, NULL, ..., 0, 6)\n"
         " <- VornCameraImpl::sendCommand 1 [0x64 0x00 0x80 0x00...]\n    cooler state: COOLING_SETPOINT\n"
         "    target temperature: -10.0\n    power: 50%\n    unlock()\n<- VornCameraImpl::getCoolingStatus 1\n",
         Steps().command("35 00").parIn(6, "64 00 80 00 9B 00")},
        {"set-point not acknowledged",
         DO(camera.cooler = COOLER_ONOFF; camera.tempSensorType = 1; camera.setCooling(-10.0F)),
         "-> vornSetCooling(-10.0)\n    lock()\n -> VornCameraImpl::sendCommand(56, [0x9b 0x00], ..., 2, 2)\n"
         " <- VornCameraImpl::sendCommand 1 [0x02 0x00]\n    invalid response\n    unlock()\n"
         "<- VornCameraImpl::setCooling 0\n",
         Steps().command("38 00 9B 00").parIn(2, "02 00")},
        {"sensor", DO(float celsius; camera.tempSensorCount = 1; camera.getTemperatureSensorStatus(1, &celsius)),
         "-> VornCameraImpl::getTemperatureSensorStatus(1, ...)\n    lock()\n"
         " -> VornCameraImpl::sendCommand(55, [0x00 0x01], ..., 2, 6)\n"
         " <- VornCameraImpl::sendCommand 1 [0x00 0x01 0x00 0x9b...]\n"
         "    temperature senzor type: 1\n    current temperature: -10.0\n    unlock()\n"
         "<- VornCameraImpl::getTemperatureSensorStatus 1\n",
         advanced("37 00 01", "00 01 00 9B 00 00"), ADVANCED},
        {"GPIO",
         DO(unsigned short levels; camera.hasGPIO = true; camera.setGPIODirection(0xF); camera.getGPIO(&levels);
            camera.hasGPIO = false; camera.setGPIO(0xAB)),
         "-> VornCameraImpl::setGPIODirection(0x000f)\n"
         "    lock()\n -> VornCameraImpl::sendCommand(131, [0x00 0x0f], ..., 2, 0)\n"
         " <- VornCameraImpl::sendCommand 1 NULL\n    unlock()\n<- VornCameraImpl::setGPIODirection 1\n"
         "-> VornCameraImpl::getGPIO(...)\n    lock()\n -> VornCameraImpl::sendCommand(130, NULL, ..., 0, 4)\n"
         " <- VornCameraImpl::sendCommand 1 [0x00 0x10 0x12 0x34]\n    unlock()\n"
         "<- VornCameraImpl::getGPIO 1 -> 0x1234\n"
         "-> VornCameraImpl::setGPIO(0x00ab)\n<- VornCameraImpl::setGPIO 00\n",
         advanced("83 00 0F").append(advanced("82", "00 10 12 34")), ADVANCED},
        {"families that have none of these",
         DO(int gain = 3; int offset = 4; camera.hasGuidePort = true; camera.cooler = COOLER_ONOFF;
            camera.initiateWarmUp(); camera.setGuideRelays(5); camera.setGain(1, 2); camera.getGain(&gain, &offset);
            camera.abortExposure()),
         "-> VornCameraImpl::initiateWarmUp()\n    lock()\n    unlock()\n<- VornCameraImpl::initiateWarmUp 0\n"
         "-> VornCameraImpl::setGuideRelays(5)\n    lock()\n    unlock()\n<- VornCameraImpl::setGuideRelays 0\n"
         "-> VornCameraImpl::setGain(1, 2)\n    lock()\n    unlock()\n<- VornCameraImpl::setGain 1\n"
         "-> VornCameraImpl::getGain(...)\n    lock()\n    unlock()\n<- VornCameraImpl::getGain 1 -> 3, 4\n"
         "-> VornCameraImpl::abortExposure()\n    lock()\n    unlock()\n<- VornCameraImpl::abortExposure 1\n",
         Steps(), IIDC},
        {"ping answered at the second try", DO(camera.ping()),
         "-> VornCameraImpl::ping()\n    ping -> 100\n"
         " -> VornCameraImpl::sendCommand(80, [0x64], ..., 1, 0)\n <- VornCameraImpl::sendCommand 1 NULL\n"
         "    ping <- 0\n    ping -> 101\n"
         " -> VornCameraImpl::sendCommand(80, [0x65], ..., 1, 0)\n <- VornCameraImpl::sendCommand 1 NULL\n"
         "    ping <- 102\n<- VornCameraImpl::ping 1\n",
         Steps()
             .command("50 00 64 00")
             .pause(20000)
             .parIn(2, "00 00")
             .command("50 00 65 00")
             .pause(20000)
             .parIn(2, "66 00")},
    });
}

TEST(TraceLines, OfAnExposure)
{
    expectTraces(
        {{"long",
          DO(camera.pixelCountX = 100; camera.maxBinX = camera.maxBinY = 1; uint16_t image[2] = {};
             camera.startExposure(false); camera.readCCD(0, 0, 2, 1, 1, 1); camera.getImage(image, 2)),
          "-> VornCameraImpl::startExposure()\n    lock()\n"
          " -> VornCameraImpl::sendCommand(2, [0x00 0x00], ..., 2, 0)\n <- VornCameraImpl::sendCommand 1 NULL\n"
          " -> VornCameraImpl::sendCommand(4, NULL, ..., 0, 0)\n <- VornCameraImpl::sendCommand 1 NULL\n"
          " -> VornCameraImpl::sendCommand(5, NULL, ..., 0, 0)\n <- VornCameraImpl::sendCommand 1 NULL\n"
          "    unlock()\n<- VornCameraImpl::startExposure 1\n"
          "-> VornCameraImpl::readCCD(0, 0, 2, 1, 1, 1)\n    lock()\n"
          " -> VornCameraImpl::setParTimeout(30000)\n <- VornCameraImpl::setParTimeout 1\n"
          " -> VornCameraImpl::sendCommand(2, [0x01 0x00], ..., 2, 0)\n <- VornCameraImpl::sendCommand 1 NULL\n"
          " -> VornCameraImpl::sendCommand(6, [0x00 0x00 0x01 0x00...], ..., 16, 0)\n"
          " <- VornCameraImpl::sendCommand 1 NULL\n<- VornCameraImpl::readCCD 1\n"
          "-> VornCameraImpl::getImage(..., 2)\n    elapsed 0 s\n"
          " -> VornCameraImpl::setParTimeout(1000)\n <- VornCameraImpl::setParTimeout 1\n"
          "    unlock()\n<- VornCameraImpl::getImage 1 [0x02 0x02]\n",
          Steps()
              .command("02 00 00 00")
              .command("04 00")
              .command("05 00")
              .out(0x04, "0C ?? 00 00 30 75 ...")
              .command("02 00 01 00")
              .command("06 00 00 00 01 00 01 00 00 00 00 00 02 00 01 00 43 00")
              .parIn(4, "02 02 04 04")
              .out(0x04, "0C ?? 00 00 E8 03 ...")},
         {"short, and the camera is gone",
          DO(camera.handle = nullptr; camera.pixelCountX = camera.maxBinX = camera.maxBinY = 1; uint16_t image = 0;
             camera.readCCD(0, 0, 1, 1, 1, 1, 0.5); camera.imageReady = true; camera.getImage(&image, 1)),
          "-> VornCameraImpl::readCCD(0, 0, 1, 1, 1, 1, 0.500000)\n    lock()\n"
          " -> VornCameraImpl::setParTimeout(30000)\n <- VornCameraImpl::setParTimeout 0\n"
          "    set timeout 30000 failed\n"
          " -> VornCameraImpl::spiWrite(8, 0x00)\n <- VornCameraImpl::spiWrite 0\n"
          " -> VornCameraImpl::spiWrite(8, 0x00)\n <- VornCameraImpl::spiWrite 0\n    expCode 1464\n"
          " -> VornCameraImpl::spiWrite(2, 0x7a0)\n <- VornCameraImpl::spiWrite 0\n    unlock()\n"
          "<- VornCameraImpl::readCCD 0\n"
          "-> VornCameraImpl::getImage(..., 1)\n -> VornCameraImpl::getIOState(4)\n"
          " <- VornCameraImpl::getIOState 0 0\n    failed to read dummy word\n"
          " -> VornCameraImpl::setParTimeout(1000)\n <- VornCameraImpl::setParTimeout 0\n"
          "    set timeout 1000 failed\n    unlock()\n<- VornCameraImpl::getImage 0 [0x00]\n",
          Steps().pause(499712), QUICKER}});
}

}  // namespace
