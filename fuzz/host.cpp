// SPDX-License-Identifier: MIT
// A host that keeps to the contract of vornccd.h and otherwise does anything at any time.
#include <cstdio>
#include <memory>

#include "input_usb.h"
#include "lifecycle/camera_impl.h"
#include "targets.h"

namespace vornfuzz {

namespace {

constexpr uint64_t LARGEST_IMAGE = uint64_t{1} << 18;  // values; a larger image is not fetched
constexpr int OPERATION_LIMIT = 64;

// First byte of an input
constexpr unsigned TRACED = 0x01;
constexpr unsigned DRIVER_ACTIVE = 0x02;
constexpr unsigned CLAIMED_BY_OTHERS = 0x04;
constexpr unsigned NO_ALT_SETTING = 0x08;
constexpr unsigned OWN_FIRMWARE = 0x10;

class Host {
public:
    Host(CAMERA_TYPE family, Input& input, vorntest::Backend& usb)
        : device(0, usb), camera(&device, "Vorn K0", family), input_(input)
    {
    }

    void describeCamera();
    void openCamera();
    void operate(Operations operations);
    void finish();

    libusb_device device;
    VornCameraImpl camera;

private:
    void operateAccessory(unsigned choice);
    void exchangeParameter();
    /// @return whether the camera can go on being used.
    bool takeImage();
    bool fetchImage(const ReadoutRegion& region);
    void checkState();

    /// @return @p output or, if the input says so, null.
    template <typename Output>
    Output* maybe(Output& output)
    {
        return input_.flag() ? &output : nullptr;
    }

    Input& input_;
    std::unique_ptr<uint16_t[]> image_;  // a member, so that an assertion of the library does not leak it
};

/// The fields as identification may leave them; any camera may claim anything.
void Host::describeCamera()
{
    const auto flags = input_.number<uint16_t>();
    bool* const properties[] = {&camera.hasShutter, &camera.hasGuidePort, &camera.hasFilterWheel, &camera.hasGPIO,
                                &camera.pcCds,      &camera.has8BitMode,  &camera.previewMode};
    unsigned bit = 0;
    for (bool* property : properties)
        *property = (flags >> bit++ & 1) != 0;
    const bool large = (flags >> bit & 1) != 0;
    camera.pixelCountX = large ? input_.number<uint32_t>() : input_.byte();
    camera.pixelCountY = large ? input_.number<uint32_t>() : input_.byte();
    camera.maxBinX = camera.maxBinY = input_.byte();
    camera.prechargeOffset = input_.number<uint32_t>();
    camera.cooler = static_cast<COOLER_TYPE>(input_.byte() % 5);
    camera.minCoolerPower = input_.byte();
    camera.maxCoolerPower = input_.byte();
    camera.tempSensorCount = input_.byte();
    camera.tempSensorType = input_.byte();
    camera.handle = device.openHandle();
}

void Host::openCamera()
{
    const bool opened = camera.open();
    check(opened == (camera.handle != nullptr), "open() and the handle disagree");
    checkState();
}

/// The lock is free, the handle counted, the text there.
void Host::checkState()
{
    check(pthread_mutex_trylock(&camera.mutex) == 0, "the lock was kept");
    (void)pthread_mutex_unlock(&camera.mutex);
    check(device.openCount == (camera.handle != nullptr ? 1 : 0), "a handle was lost");
    check(camera.getLastError() != nullptr, "no text of the last failure");
}

void Host::exchangeParameter()
{
    const auto parameter = static_cast<PARAM_TYPE>(input_.byte() % 5);
    const auto value = input_.number<long>();
    const bool stored = camera.setParam(parameter, value);
    check(!stored || camera.getParam(parameter) == value, "a parameter was not stored");
}

void Host::operateAccessory(unsigned choice)
{
    float number = 0;
    float second = 0;
    bool moving = false;
    unsigned values[3] = {};
    uint16_t mask = 0;
    VornCapabilities caps = {};
    COOLING_STATE state = COOLING_INACTIVE;
    switch (choice) {
        case 0:
            (void)camera.getCapabilities(nullptr, nullptr, &caps);
            break;
        case 1: {
            float* celsius = maybe(number);
            const uint8_t sensor = input_.byte();
            (void)camera.getTemperatureSensorStatus(sensor, camera.type == IIDC ? &number : celsius);
            break;
        }
        case 2:
            (void)camera.getCoolingStatus(maybe(state), maybe(number), maybe(second));
            break;
        case 3:
            (void)camera.setCooling(input_.number<float>());
            break;
        case 4:
            (void)camera.initiateWarmUp();
            break;
        case 5:
            (void)camera.getFilterWheelStatus(maybe(values[0]), maybe(moving), maybe(values[1]), maybe(values[2]));
            break;
        case 6:
            (void)camera.setFilter(input_.number<unsigned>());
            break;
        case 7:
            (void)camera.setPreviewMode(input_.flag());
            break;
        case 8:
            (void)camera.set8BitMode(input_.flag());
            break;
        case 9:
            (void)camera.setDarkFrameMode(input_.flag());
            break;
        case 10:
            (void)camera.setShutter(input_.flag());
            break;
        case 11:
            (void)camera.setGuideRelays(input_.byte());
            break;
        case 12:
            (void)(camera.setGPIODirection(input_.number<uint16_t>()) && camera.getGPIO(&mask) && camera.setGPIO(mask));
            break;
        case 13: {
            int gain = 0;
            int offset = 0;
            (void)camera.getGain(&gain, &offset);
            break;
        }
        case 14:
            (void)camera.setGain(input_.number<int8_t>(), input_.number<int16_t>());
            break;
        default:
            exchangeParameter();
            break;
    }
}

bool Host::takeImage()
{
    ReadoutRegion region;
    const bool large = input_.flag();
    for (uint32_t* number : {&region.x, &region.y, &region.width, &region.height})
        *number = large ? input_.number<uint32_t>() : input_.byte();
    region.binX = input_.byte();
    region.binY = input_.flag() ? region.binX : input_.byte();
    const auto& [x, y, width, height, binX, binY] = region;
    const bool longExposure = input_.flag();
    bool ok = true;
    if (longExposure)
        ok = camera.startExposure(input_.flag());
    const double seconds = input_.real();
    (void)camera.delay(seconds);
    if (input_.flag())
        (void)camera.abortExposure();
    ok = ok && (longExposure ? camera.readCCD(x, y, width, height, binX, binY)
                             : camera.readCCD(x, y, width, height, binX, binY, seconds));
    return ok ? fetchImage(region) : !camera.getImage(nullptr, 1);
}

bool Host::fetchImage(const ReadoutRegion& region)
{
    const uint64_t columns = camera.imageWidth(region.width, region.binX);
    const uint64_t rows = camera.imageHeight(region.height, region.binY);
    const uint64_t pixels = columns * rows;
    uint64_t needed = pixels + (camera.type == ADVANCED ? 1 : 0);
    if (camera.type == QUICKER && !camera.pcCds && rows != 0)
        needed = std::max(needed, (rows - 1) * (region.height / region.binY) + columns);
    if (pixels == 0 || needed > LARGEST_IMAGE)
        return false;
    image_ = std::make_unique<uint16_t[]>(needed);  // not one value more than the contract demands
    (void)camera.getImage(image_.get(), static_cast<unsigned>(pixels));
    return true;
}

void Host::operate(Operations operations)
{
    constexpr unsigned ACCESSORY_COUNT = 16;
    constexpr unsigned REOPEN = 31;
    for (int count = 0; count < OPERATION_LIMIT && !input_.exhausted(); ++count) {
        const unsigned choice = input_.byte() % 32;
        const bool image =
            operations == Operations::IMAGES || (operations == Operations::ALL && choice >= ACCESSORY_COUNT);
        if (operations == Operations::ALL && choice == REOPEN) {
            camera.close();
            openCamera();
        } else if (!image) {
            operateAccessory(choice % ACCESSORY_COUNT);
        } else if (!takeImage()) {
            return;  // the camera waits for getImage() for ever
        }
        checkState();
    }
}

void Host::finish()
{
    camera.close();
    check(camera.handle == nullptr && device.openCount == 0, "close() left the handle open");
}

/// The program that the library uploads: mostly one record, for speed, now and then whatever the host copied there.
void copyFirmware(bool own, Input& input)
{
    constexpr uint8_t ONE_RECORD[] = {1, 0, 0, 0x02, 0};
    const std::span<const uint8_t> bytes = own ? input.take(input.number<uint16_t>()) : ONE_RECORD;
    std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof FIRMWARE), static_cast<unsigned char*>(FIRMWARE));
}

}  // namespace

void runHost(CAMERA_TYPE family, Start start, Operations operations, Input& input)
{
    static FILE* const devNull = std::fopen("/dev/null", "w");
    static FILE* const realStderr = stderr;
    const unsigned conditions = input.byte();
    VornDebug = (conditions & TRACED) != 0;
    VornDebugOn = true;
    stderr = VornDebug ? devNull : realStderr;
    copyFirmware((conditions & OWN_FIRMWARE) != 0, input);

    vorntest::bus().reset();
    InputUsb usb(input);
    usb.driverActive = (conditions & DRIVER_ACTIVE) != 0 ? 1 : 0;
    usb.claimResult = (conditions & CLAIMED_BY_OTHERS) != 0 ? LIBUSB_ERROR_BUSY : 0;
    usb.altSettingResult = (conditions & NO_ALT_SETTING) != 0 ? LIBUSB_ERROR_NOT_FOUND : 0;
    Host host(family, input, usb);
    if (setjmp(exitPoint) == 0) {
        exitArmed = true;
        if (start == Start::OPENED)
            host.describeCamera();
        else
            host.openCamera();
        if (operations != Operations::NONE)
            host.operate(operations);
        host.finish();
    }
    exitArmed = false;
    stderr = realStderr;
}

}  // namespace vornfuzz
