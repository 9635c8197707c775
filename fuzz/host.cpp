// SPDX-License-Identifier: MIT
// A host that keeps to the contract of vornccd.h and otherwise does anything at any time.
#include <dlfcn.h>
#include <csetjmp>
#include <cstdio>
#include <memory>

#include "camera_impl.h"
#include "input_usb.h"
#include "targets.h"

namespace vornfuzz {

namespace {

constexpr uint64_t LARGEST_IMAGE = uint64_t{1} << 18;  // values; a larger image is not fetched
constexpr int OPERATION_LIMIT = 64;

/// First byte of an input.
enum Conditions { TRACED = 1, DRIVER_ACTIVE = 2, CLAIMED_BY_OTHERS = 4, NO_ALT_SETTING = 8, OWN_FIRMWARE = 16 };

// Where exit() goes while armed: the library's documented assertions end the run, not the program.
jmp_buf exitPoint;
bool exitArmed = false;

struct Session {
    void describeCamera();
    void openCamera();
    void operate(Host host);
    /// @return whether the camera can go on being used.
    bool takeImage();
    bool fetchImage(const ReadoutRegion& region);
    void checkState();

    /// @return @p output or, if the input says so, null.
    template <typename Output>
    Output* maybe(Output& output)
    {
        return input.flag() ? &output : nullptr;
    }

    Input& input;
    libusb_device device;
    VornCameraImpl camera;
    std::unique_ptr<uint16_t[]> image = {};  ///< a member, so that an assertion of the library does not leak it
    // where the accessories leave what they read
    VornCapabilities caps = {};
    COOLING_STATE state = COOLING_INACTIVE;
    float numbers[2] = {};
    unsigned values[3] = {};
    int gain[2] = {};
    bool moving = false;
    uint16_t mask = 0;
};

/// The fields as identification may leave them; any camera may claim anything.
void Session::describeCamera()
{
    const auto flags = input.number<uint16_t>();
    bool* const properties[] = {&camera.hasShutter, &camera.hasGuidePort, &camera.hasFilterWheel, &camera.hasGPIO,
                                &camera.pcCds,      &camera.has8BitMode,  &camera.previewMode};
    unsigned bit = 0;
    for (bool* property : properties)
        *property = (flags >> bit++ & 1) != 0;
    const bool large = (flags >> bit & 1) != 0;
    camera.pixelCountX = large ? input.number<uint32_t>() : input.byte();
    camera.pixelCountY = large ? input.number<uint32_t>() : input.byte();
    camera.maxBinX = camera.maxBinY = input.byte();
    camera.prechargeOffset = input.number<uint32_t>();
    camera.cooler = static_cast<COOLER_TYPE>(input.byte() % 5);
    camera.minCoolerPower = input.byte();
    camera.maxCoolerPower = input.byte();
    camera.tempSensorCount = input.byte();
    camera.tempSensorType = input.byte();
    camera.handle = device.openHandle();
}

void Session::openCamera()
{
    const bool opened = camera.open();
    check(opened == (camera.handle != nullptr), "open() and the handle disagree");
    checkState();
}

/// The lock is free, the handle counted, the text there.
void Session::checkState()
{
    check(pthread_mutex_trylock(&camera.mutex) == 0, "the lock was kept");
    (void)pthread_mutex_unlock(&camera.mutex);
    check(device.openCount == (camera.handle != nullptr ? 1 : 0), "a handle was lost");
    check(camera.getLastError() != nullptr, "no text of the last failure");
}

/// Chosen by their index, which committed inputs rely on.
bool (*const ACCESSORIES[])(Session& host) = {
    [](Session& host) { return host.camera.getCapabilities(nullptr, nullptr, &host.caps); },
    [](Session& host) {
        float* celsius = host.maybe(host.numbers[0]);
        const uint8_t sensor = host.input.byte();
        return host.camera.getTemperatureSensorStatus(sensor, host.camera.type == IIDC ? host.numbers : celsius);
    },
    [](Session& host) {
        return host.camera.getCoolingStatus(host.maybe(host.state), host.maybe(host.numbers[0]),
                                            host.maybe(host.numbers[1]));
    },
    [](Session& host) { return host.camera.setCooling(host.input.number<float>()); },
    [](Session& host) { return host.camera.initiateWarmUp(); },
    [](Session& host) {
        return host.camera.getFilterWheelStatus(host.maybe(host.values[0]), host.maybe(host.moving),
                                                host.maybe(host.values[1]), host.maybe(host.values[2]));
    },
    [](Session& host) { return host.camera.setFilter(host.input.number<unsigned>()); },
    [](Session& host) { return host.camera.setPreviewMode(host.input.flag()); },
    [](Session& host) { return host.camera.set8BitMode(host.input.flag()); },
    [](Session& host) { return host.camera.setDarkFrameMode(host.input.flag()); },
    [](Session& host) { return host.camera.setShutter(host.input.flag()); },
    [](Session& host) { return host.camera.setGuideRelays(host.input.byte()); },
    [](Session& host) {
        return host.camera.setGPIODirection(host.input.number<uint16_t>()) && host.camera.getGPIO(&host.mask) &&
               host.camera.setGPIO(host.mask);
    },
    [](Session& host) { return host.camera.getGain(&host.gain[0], &host.gain[1]); },
    [](Session& host) { return host.camera.setGain(host.input.number<int8_t>(), host.input.number<int16_t>()); },
    [](Session& host) {
        const auto parameter = static_cast<PARAM_TYPE>(host.input.byte() % 5);
        const auto value = host.input.number<long>();
        const bool stored = host.camera.setParam(parameter, value);
        check(!stored || host.camera.getParam(parameter) == value, "a parameter was not stored");
        return stored;
    },
};

bool Session::takeImage()
{
    ReadoutRegion region;
    const bool large = input.flag();
    for (uint32_t* number : {&region.x, &region.y, &region.width, &region.height})
        *number = large ? input.number<uint32_t>() : input.byte();
    region.binX = input.byte();
    region.binY = input.flag() ? region.binX : input.byte();
    const auto& [x, y, width, height, binX, binY] = region;
    const bool longExposure = input.flag();
    bool ok = true;
    if (longExposure)
        ok = camera.startExposure(input.flag());
    const double seconds = input.real();
    (void)camera.delay(seconds);
    if (input.flag())
        (void)camera.abortExposure();
    ok = ok && (longExposure ? camera.readCCD(x, y, width, height, binX, binY)
                             : camera.readCCD(x, y, width, height, binX, binY, seconds));
    return ok ? fetchImage(region) : !camera.getImage(nullptr, 1);
}

bool Session::fetchImage(const ReadoutRegion& region)
{
    const uint64_t columns = camera.imageWidth(region.width, region.binX);
    const uint64_t rows = camera.imageHeight(region.height, region.binY);
    const uint64_t pixels = columns * rows;
    uint64_t needed = pixels + (camera.type == ADVANCED ? 1 : 0);
    if (camera.type == QUICKER && !camera.pcCds && rows != 0)
        needed = std::max(needed, (rows - 1) * (region.height / region.binY) + columns);
    if (pixels == 0 || needed > LARGEST_IMAGE)
        return false;
    image = std::make_unique<uint16_t[]>(needed);  // not one value more than the contract demands
    (void)camera.getImage(image.get(), static_cast<unsigned>(pixels));
    return true;
}

void Session::operate(Host host)
{
    constexpr unsigned REOPEN = 31;
    for (int count = 0; count < OPERATION_LIMIT && !input.exhausted(); ++count) {
        const unsigned choice = input.byte() % 32;
        const bool all = host == Host::DOES_ALL;
        if (all && choice == REOPEN) {
            camera.close();
            openCamera();
        } else if (host == Host::TAKES_IMAGES || (all && choice >= std::size(ACCESSORIES))) {
            if (!takeImage())
                return;  // the camera waits for getImage() for ever
        } else {
            (void)ACCESSORIES[choice % std::size(ACCESSORIES)](*this);
        }
        checkState();
    }
}

/// The program that the library uploads: mostly one record, for speed, now and then whatever the host copied there.
void copyFirmware(bool own, Input& input)
{
    constexpr uint8_t ONE_RECORD[] = {1, 0, 0, 0x02, 0};
    const std::span<const uint8_t> bytes = own ? input.take(input.number<uint16_t>()) : ONE_RECORD;
    std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof FIRMWARE), static_cast<unsigned char*>(FIRMWARE));
}

}  // namespace

void runHost(CAMERA_TYPE family, Host host, Input& input)
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
    Session session = {input, {0, usb}, {&session.device, "Vorn K0", family}};
    if (setjmp(exitPoint) == 0) {
        exitArmed = true;
        if (host == Host::OPENS || host == Host::DOES_ALL)
            session.openCamera();
        else
            session.describeCamera();
        if (host != Host::OPENS)
            session.operate(host);
        session.camera.close();
        check(session.camera.handle == nullptr && session.device.openCount == 0, "close() left the handle open");
    }
    exitArmed = false;
    stderr = realStderr;
}

}  // namespace vornfuzz

void vorntest::reportMisuse(const std::string& text)
{
    vornfuzz::check(false, text.c_str());
}

extern "C" {

void exit(int status) noexcept
{
    if (vornfuzz::exitArmed)
        longjmp(vornfuzz::exitPoint, 1);
    reinterpret_cast<void (*)(int)>(dlsym(RTLD_NEXT, "exit"))(status);
    std::abort();
}

/// More than any camera's frame needs is refused, as on a machine that has run out of memory.
const char* __asan_default_options()
{
    return "allocator_may_return_null=1:max_allocation_size_mb=32:detect_leaks=1";
}
}
