// SPDX-License-Identifier: MIT
#include "opening.h"

#include <cstdio>

#include "family_steps.h"
#include "trace_capture.h"

using vorntest::Steps;

namespace {

std::string describe(const VornCameraImpl& camera)
{
    char text[400];
    (void)snprintf(
        text, sizeof text,
        "version %u.%u, %u x %u of %.2f x %.2f um, binning %u x %u, sensors %u of type %u, cooler %d from %u "
        "to %u, colour %d at %d %d, lines %u, serial %u, clear %ld, precharge %u:",
        camera.versionMajor, camera.versionMinor, camera.pixelCountX, camera.pixelCountY, camera.pixelSizeX,
        camera.pixelSizeY, camera.maxBinX, camera.maxBinY, camera.tempSensorCount, camera.tempSensorType, camera.cooler,
        camera.minCoolerPower, camera.maxCoolerPower, camera.colour, camera.offsetX, camera.offsetY, camera.lineCount,
        camera.serialNumber, camera.vregClearTime, camera.prechargeOffset);
    std::string line = text;
    const std::pair<bool, const char*> flags[] = {{camera.hasShutter, " shutter"}, {camera.hasGuidePort, " guide"},
                                                  {camera.has8BitMode, " 8bit"},   {camera.hasFilterWheel, " wheel"},
                                                  {camera.hasGPIO, " gpio"},       {camera.pcCds, " cds"}};
    for (const auto& [set, flag] : flags)
        line += set ? flag : "";
    return line + ".";
}

}  // namespace

void expectDescribed(const VornCameraImpl& camera, const std::string& expected)
{
    EXPECT_NE(describe(camera).find(expected), std::string::npos) << describe(camera) << "\n  lacks " << expected;
}

void expectOpens(CAMERA_TYPE type, const Steps& steps, const std::vector<std::string>& expected)
{
    ClosedCamera closed(type, steps);
    VornCameraImpl& camera = closed.camera;
    camera.hasShutter = type != ADVANCED;  // never reported, and so never changed
    camera.hasGuidePort = camera.hasFilterWheel = camera.hasGPIO = camera.has8BitMode = true;
    camera.previewMode = camera.eightBitMode = camera.darkFrameMode = true;
    camera.tempSensorCount = 77;
    camera.cooler = COOLER_ONOFF;
    EXPECT_TRUE(camera.open());
    EXPECT_TRUE(closed.usb.done());
    EXPECT_STREQ(camera.getLastError(), "No error");
    EXPECT_TRUE(camera.previewMode && camera.eightBitMode && camera.darkFrameMode);  // as the host left them
    for (const std::string& each : expected)
        expectDescribed(camera, each);
}

void expectEachFailureOfOpen(CAMERA_TYPE type, const Steps& steps)
{
    forEachFailure(steps, [type](const Steps& upToFailure, bool ok) {
        vorntest::OpenedCamera closed(type);
        closed.camera.handle = nullptr;
        closed.usb.device.openCount = 0;
        closed.usb.append(upToFailure);
        EXPECT_EQ(closed.camera.open(), ok);
        EXPECT_EQ(closed.camera.handle != nullptr, ok);
        EXPECT_EQ(closed.usb.device.openCount, ok ? 1 : 0);
        closed.expectSettled(upToFailure.error());
    });
}

std::string tracedFailure(CAMERA_TYPE type, const Steps& steps, const char* error)
{
    ClosedCamera closed(type, steps);
    vorntest::TraceCapture trace;
    EXPECT_FALSE(closed.camera.open());
    EXPECT_TRUE(closed.usb.done());
    EXPECT_STREQ(closed.camera.getLastError(), error);
    return trace.text();
}

std::string tracedOpening(CAMERA_TYPE type, const Steps& steps)
{
    ClosedCamera closed(type, steps);
    vorntest::TraceCapture trace;
    EXPECT_TRUE(closed.camera.open());
    std::string details;
    for (const std::string& line : trace.lines()) {
        if (line.starts_with("    pid"))
            details.clear();
        if (line.starts_with("    ") && !line.ends_with("lock()"))
            details += line + "\n";
    }
    return details;
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
    usb.ends(afterFailure, error).driverActive(false).claim();  // somebody else's camera: nothing is sent
    usb.ends(Steps().append(settling).append(afterFailure), error).altSetting(1).firmwareUpload();
    if (type != ADVANCED)
        vorntest::bridgeSetUp(usb);
    usb.append(settling);
    usb.ends(Steps().append(colourRecord).append(afterFailure), error);
    usb.out(0x04, "0C ?? 00 01 88 13 ...").eepRead(3, 2, productId);
    return usb.append(colourRecord);
}
