// SPDX-License-Identifier: MIT
#include "conversation_parts.h"

#include <cstdio>

#include "family_steps.h"
#include "trace_capture.h"

using vorntest::Script;
using vorntest::Steps;

namespace {

constexpr size_t LONG_PART = 100;
constexpr size_t SAMPLE_STRIDE = 61;
constexpr size_t TAIL = 5;  // tried whole

void emptyFlush(Steps& usb, unsigned length)
{
    usb.timeout(100).parIn(length, "").fails(LIBUSB_ERROR_TIMEOUT);
}

}  // namespace

void append(Steps& usb, const Parts& parts)
{
    for (const Part& each : parts)
        usb.append(each.steps);
}

void forEachFailure(const Parts& parts, const std::function<void(Script&, bool ok, const char* error)>& run)
{
    Script usb;
    Steps before;
    for (size_t number = 0; number < parts.size(); number++) {
        Part now = parts[number];
        const size_t count = now.steps.size();
        for (size_t failing = 0; failing < count; failing++) {
            const bool sampled = count < LONG_PART || failing % SAMPLE_STRIDE == 0 || failing + TAIL >= count;
            if (now.consequence == Part::UNTRIED || !now.steps[failing].call.countable() || !sampled)
                continue;
            SCOPED_TRACE("part " + std::to_string(number + 1) + ", failing step " + std::to_string(failing + 1) + ": " +
                         now.steps[failing].text());
            usb.clear();
            usb.append(before).append(now.steps, 0, failing + 1).fails(LIBUSB_ERROR_IO);
            const bool ok = now.consequence == Part::HARMLESS;
            if (ok)
                append(usb, Parts(parts.begin() + static_cast<std::ptrdiff_t>(number) + 1, parts.end()));
            else
                usb.append(now.afterwards);
            run(usb, ok, ok ? "No error" : now.error);
            if (!usb.done())
                return;
        }
        before.append(now.steps);
    }
}

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

void expectDescribed(const VornCameraImpl& camera, const std::string& expected)
{
    EXPECT_NE(describe(camera).find(expected), std::string::npos) << describe(camera) << "\n  lacks " << expected;
}

void expectOpens(CAMERA_TYPE type, const Parts& parts, const std::vector<std::string>& expected)
{
    ClosedCamera closed(type, parts);
    VornCameraImpl& camera = closed.camera;
    camera.hasShutter = type != ADVANCED;  // never reported, and so never changed
    camera.hasGuidePort = camera.hasFilterWheel = camera.hasGPIO = camera.has8BitMode = true;
    camera.tempSensorCount = 77;
    camera.cooler = COOLER_ONOFF;
    EXPECT_TRUE(camera.open());
    EXPECT_TRUE(closed.usb.done());
    EXPECT_STREQ(camera.getLastError(), "No error");
    for (const std::string& each : expected)
        expectDescribed(camera, each);
}

std::string tracedOpening(CAMERA_TYPE type, const Parts& parts)
{
    ClosedCamera closed(type, parts);
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

Parts bridgeParts(CAMERA_TYPE type, const std::string& productId, const Steps& afterFailure, const char* error)
{
    Part opening = {.error = "Failed to open device"};
    opening.steps.open();

    Part claiming = {.afterwards = afterFailure, .error = error};  // somebody else's camera: nothing is sent
    claiming.steps.driverActive(false).claim();

    Part settling = part(Part::UNTRIED);
    settling.steps.pause(200000);
    Part flushBlocks = part(Part::HARMLESS);
    if (type == QUICKER)
        emptyFlush(flushBlocks.steps, 200000);
    Part flushBytes = part(Part::HARMLESS);
    emptyFlush(flushBytes.steps, 1);

    Part bridge = {.error = error};
    bridge.steps.altSetting(1).firmwareUpload();
    if (type != ADVANCED)
        vorntest::bridgeSetUp(bridge.steps);
    append(bridge.afterwards, {settling, flushBlocks, flushBytes});
    bridge.afterwards.append(afterFailure);

    Part colour = part(Part::HARMLESS);
    colour.steps.eepRead(0xE8, 5, "84 D9 01 01 00");
    Part product = {.error = error};
    product.steps.out(0x04, "0C ?? 00 01 88 13 ...").eepRead(3, 2, productId);
    product.afterwards.append(colour.steps).append(afterFailure);

    return {opening, claiming, bridge, settling, flushBlocks, flushBytes, product, colour};
}

void expectEachFailureOfOpen(CAMERA_TYPE type, const Parts& parts)
{
    forEachFailure(parts, [type](Script& usb, bool ok, const char* error) {
        VornCameraImpl camera(&usb.device, "Vorn", type);
        EXPECT_EQ(camera.open(), ok);
        EXPECT_EQ(camera.handle != nullptr, ok);
        EXPECT_EQ(usb.device.openCount, ok ? 1 : 0);
        EXPECT_STREQ(camera.getLastError(), error);
        EXPECT_EQ(pthread_mutex_trylock(&camera.mutex), 0);
        (void)pthread_mutex_unlock(&camera.mutex);
        usb.device.openCount = 0;
    });
}
