// SPDX-License-Identifier: MIT
#include "opening.h"

#include <cstdio>
#include <optional>
#include <sstream>

std::string describe(const VornCameraImpl& camera)
{
    char text[400];
    (void)snprintf(
        text, sizeof text,
        "version %u.%u, %u x %u of %.2f x %.2f um, binning %u x %u, sensors %u of type %u, cooler %d from %u "
        "to %u, colour %d at %d %d, lines %u, serial %u, clear %lld, precharge %u:",
        camera.versionMajor, camera.versionMinor, camera.pixelCountX, camera.pixelCountY, camera.pixelSizeX,
        camera.pixelSizeY, camera.maxBinX, camera.maxBinY, camera.tempSensorCount, camera.tempSensorType, camera.cooler,
        camera.minCoolerPower, camera.maxCoolerPower, camera.colour, camera.offsetX, camera.offsetY, camera.lineCount,
        camera.serialNumber, static_cast<long long>(camera.vregClearTime), camera.prechargeOffset);
    std::string line = text;
    const std::pair<bool, const char*> flags[] = {{camera.hasShutter, " shutter"}, {camera.hasGuidePort, " guide"},
                                                  {camera.has8BitMode, " 8bit"},   {camera.hasFilterWheel, " wheel"},
                                                  {camera.hasGPIO, " gpio"},       {camera.pcCds, " cds"}};
    for (const auto& [set, flag] : flags)
        line += set ? flag : "";
    return line + ".";
}

std::string expectOpening(CAMERA_TYPE type, const Steps& steps, const std::vector<std::string>& described,
                          const char* error, bool traced)
{
    vorntest::OpenedCamera closed(type);
    VornCameraImpl& camera = closed.camera;
    camera.handle = nullptr;
    closed.usb.device.openCount = 0;
    closed.usb.append(steps);
    camera.hasShutter = type != ADVANCED;  // never reported, and so never changed
    camera.hasGuidePort = camera.hasFilterWheel = camera.hasGPIO = camera.has8BitMode = true;
    camera.previewMode = camera.eightBitMode = camera.darkFrameMode = true;
    camera.tempSensorCount = camera.pixelCountX = camera.pixelCountY = camera.maxBinX = camera.maxBinY = 77;
    camera.pixelSizeX = camera.pixelSizeY = 7.7;
    camera.cooler = COOLER_ONOFF;
    camera.versionMajor = camera.versionMinor = camera.serialNumber = 0xFFFFFFFF;
    camera.pcCds = type == QUICKER;  // the others never set what is particular to one family
    camera.vregClearTime = type == ADVANCED ? 1 : camera.vregClearTime;
    std::optional<vorntest::TraceCapture> trace;
    if (traced)
        trace.emplace();
    const bool ok = error == std::string("No error");
    EXPECT_EQ(camera.open(), ok);
    const std::string text = traced ? trace->text() : "";
    EXPECT_EQ(camera.handle != nullptr, ok);
    EXPECT_EQ(closed.usb.device.openCount, ok ? 1 : 0);
    EXPECT_TRUE(camera.previewMode && camera.eightBitMode && camera.darkFrameMode);  // as the host left them
    closed.expectSettled(error);
    for (const std::string& each : described)
        EXPECT_NE(describe(camera).find(each), std::string::npos) << describe(camera) << "\n  lacks " << each;
    return text;
}

void expectEachFailureOfOpen(CAMERA_TYPE type, const Steps& steps)
{
    forEachFailure(steps, [type](const Steps& upToFailure, bool /*ok*/) {
        (void)expectOpening(type, upToFailure, {}, upToFailure.error(), false);
    });
}

std::string tracedOpening(CAMERA_TYPE type, const Steps& steps)
{
    std::string details;
    std::istringstream trace(expectOpening(type, steps));
    for (std::string line; std::getline(trace, line);) {
        if (line == " <- VornCameraImpl::flush")
            details.clear();
        if (line.starts_with("    ") && !line.ends_with("lock()"))
            details += line + "\n";
    }
    return details;
}

const char* const GPIF_MODE_1 =
    "81 EE 00 E0 00 00 07 4E 00 00 00 00 00 00 00 00 01 01 01 01 01 01 01 07 00 00 00 00 00 00 00 00 "
    "07 07 07 07 07 07 07 07 00 00 00 00 00 00 00 3F 01 01 01 01 01 01 01 07 00 00 00 00 00 00 00 00 "
    "07 07 07 07 07 07 07 07 00 00 00 00 00 00 00 3F 01 01 01 3B 01 01 01 07 00 00 00 03 02 02 02 00 "
    "07 03 01 07 07 07 07 07 00 00 00 2D 00 00 00 3F 01 39 01 01 01 01 01 07 00 03 02 02 02 02 02 00 "
    "07 07 07 07 07 07 07 07 00 2D 00 00 00 00 00 3F 00 00 00 00 00 00 00 00 00 00 83 00 13 11 00 24 "
    "03 02 01 81 09 17 16 00 24 03 02 01";

const char* const PAR_INIT =
    "01 E2 FF 20 00 00 FB E4 11 01 02 00 04 00 00 00 0E 01 01 3F 01 01 00 07 01 00 00 03 00 00 01 00 "
    "FB F9 FB FB FB FB FB FB 00 00 00 80 00 00 80 3F 08 01 01 3F 01 01 01 07 03 02 02 05 00 00 00 00 "
    "FF FD FD FF FF FF FF FB 09 00 00 80 00 00 00 3F 0E 01 01 3F 01 01 00 07 01 00 00 03 00 00 01 00 "
    "FB F9 FB FB FB FB FB FB 00 00 00 80 00 00 80 3F 08 01 01 3F 01 01 01 07 03 02 02 05 00 00 00 00 "
    "FF FD FD FF FF FF FF FB 09 00 00 80 00 00 00 3F 00 00 00 00 00 00 00 00";

const char* const PAR_INIT_Q_SLOW =
    "01 E2 FF 20 00 00 FB E4 11 01 02 00 04 00 00 00 0E 01 3F 01 01 01 00 07 01 00 03 00 00 00 01 00 "
    "FB F9 FB FB FB FB FB FB 00 00 80 00 00 00 80 3F 08 01 01 3F 01 01 01 07 03 02 02 05 00 00 00 00 "
    "FF FD FD FF FF FF FF FB 09 00 00 80 00 00 00 3F 0E 01 3F 01 01 01 00 07 01 00 03 00 00 00 01 00 "
    "FB F9 FB FB FB FB FB FB 00 00 80 00 00 00 80 3F 08 01 01 3F 01 01 01 07 03 02 02 05 00 00 00 00 "
    "FF FD FD FF FF FF FF FB 09 00 00 80 00 00 00 3F 00 00 00 00 00 00 00 00";

const char* const GPIF_MODE_9 =
    "01 EE FF 80 00 00 FF E4 11 01 02 00 04 00 00 00 01 0A 01 3B 01 01 01 07 00 01 02 01 00 00 10 00 "
    "FC FC FD FD FD FD FD FF 00 00 12 00 00 2D 12 3F 01 0A 01 3B 01 01 01 07 02 03 02 05 00 00 00 00 "
    "FE FE FF FF FF FF FF FF 09 00 00 00 00 2D 36 3F 0E 03 01 3F 01 01 36 07 01 00 02 01 00 00 11 00 "
    "FF FE FE FE FF FF FF FF 00 09 12 12 00 2D 12 3F 08 03 01 3F 01 01 01 07 01 02 00 01 00 00 00 00 "
    "FF FD FF FF FF FF FF FF 09 09 12 12 00 2D 36 3F 00 00 00 00 00 00 00 00";

Steps& loadTable(Steps& usb, const char* table)
{
    const std::string length = vorntest::hexByte(vorntest::parseHex(table).size());
    usb.out(0x04, "08 ?? FF 00 00 00 00 00 00 00 00 00 " + length + " 00 00 00 " + table);
    return usb.in(0x86, 4, "00 00 00 00");
}

Steps& setPort(Steps& usb, const std::string& port)
{
    return usb.out(
        0x04, "01 ?? 00 00 00 00 00 00 00 00 00 00 10 00 00 00 " + port + " FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00");
}

Steps& setDirections(Steps& usb, const std::string& port)
{
    return usb.out(0x04, "02 ?? 00 00 00 00 00 00 00 00 00 00 0A 00 00 00 " + port + " FF 00 FF 00 FF 00 FF 00");
}

Steps& lineSetUp(Steps& usb, const std::string& state)
{
    for (const char* port : {"FE 01", "FD 02", "FB 04", "F7 00", "EF 00", "DF 20", "BF 40", "7F 80"})
        setDirections(usb, port);
    return setDirections(setPort(usb, "1F " + state), "0F E0");
}

Steps& finalTimeouts(Steps& usb)
{
    return usb.out(0x04, "0C ?? 00 01 C8 00 ...").out(0x04, "0C ?? 00 00 D0 07 ...");
}

Steps bridgeOpening(CAMERA_TYPE type, const std::string& productId, const Steps& afterFailure, const char* error,
                    const std::string& colour)
{
    Steps settling;
    settling.untried().pause(200000);
    if (type == QUICKER)
        settling.harmless().emptyFlush(200000);
    settling.harmless().emptyFlush();
    const Steps colourRecord = Steps().harmless().eepRead(0xE8, 5, colour);

    Steps usb;
    usb.ends({}, "Failed to open device").open();
    usb.ends(Steps().append(settling).append(afterFailure), error);
    usb.driverActive(false).claim().altSetting().firmwareUpload();
    if (type != ADVANCED) {
        setPort(setDirections(usb, "00 9F"), "00 80");
        usb.out(0x04, "0C ?? 00 01 32 00 ...").out(0x04, "0C ?? 00 00 32 00 ...").out(0x04, "05 ?? 00 00 00 00 ...");
    }
    usb.append(settling);
    usb.ends(Steps().append(colourRecord).append(afterFailure), error);
    usb.out(0x04, "0C ?? 00 01 88 13 ...").eepRead(3, 2, productId);
    return usb.append(colourRecord);
}
