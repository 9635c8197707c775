// SPDX-License-Identifier: MIT
#include "scenarios.h"

#include <sys/wait.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>

namespace vorntest {

namespace {

constexpr ReadoutRegion REGION = {2, 3, 8, 8, 1, 1};
constexpr double SHORT_SECONDS = 0.02;
constexpr double LONG_SECONDS = 300.0;
constexpr unsigned PIXELS = REGION.width * REGION.height;

// Where the operations leave what they read.
float celsius = 0;
float percent = 0;
COOLING_STATE state = COOLING_INACTIVE;
unsigned count = 0;
bool moving = false;
unsigned short levels = 0;
int gain = 0;
int offset = 0;

bool readLong(VornCameraImpl& camera)
{
    bus().advanceUs(camera.delay(LONG_SECONDS));
    return camera.readCCD(REGION.x, REGION.y, REGION.width, REGION.height, REGION.binX, REGION.binY);
}

bool readShort(VornCameraImpl& camera)
{
    return camera.readCCD(REGION.x, REGION.y, REGION.width, REGION.height, REGION.binX, REGION.binY, SHORT_SECONDS);
}

bool takeImage(VornCameraImpl& camera)
{
    std::vector<uint16_t> image(PIXELS + 1);  // ADVANCED cameras need one more
    return camera.getImage(image.data(), PIXELS);
}

}  // namespace

#define CALL(operation) [](VornCameraImpl& camera) { return camera.operation; }
#define WITH(condition) [](const VornCameraImpl& camera) { return camera.condition; }

const Step IMAGE = {"image", "Failed to get image", takeImage};
const std::vector<Step> LONG_EXPOSURE = {
    {"start", "Failed to start exposure", CALL(startExposure(false))}, {"read", "Failed to read CCD", readLong}, IMAGE};
const std::vector<Step> SHORT_EXPOSURE = {{"read", "Failed to read CCD", readShort}, IMAGE};
const std::vector<Step> ACCESSORIES = {
    {"temperature", "Failed to read temperature sensor status", CALL(getTemperatureSensorStatus(1, &celsius)),
     WITH(tempSensorCount > 0)},
    {"cool", "Failed to set temperature", CALL(setCooling(-10.0F)), WITH(cooler > COOLER_ALWAYSON)},
    {"cooling", "Failed to set cooling status", CALL(getCoolingStatus(&state, &celsius, &percent)),
     WITH(cooler > COOLER_ALWAYSON)},
    {"warm up", "Failed to initiate warmup", CALL(initiateWarmUp()), WITH(cooler > COOLER_ALWAYSON)},
    {"wheel", "Failed to get filter wheel status", CALL(getFilterWheelStatus(&count, &moving, nullptr, nullptr)),
     WITH(hasFilterWheel)},
    {"filter", "Failed to set filter", CALL(setFilter(2)), WITH(hasFilterWheel)},
    {"shutter", "Failed to set shutter", CALL(setShutter(true)), WITH(hasShutter)},
    {"abort", nullptr, CALL(abortExposure())},
    {"relays", "Failed to set guide relays", CALL(setGuideRelays(5)), WITH(hasGuidePort)},
    {"directions", "Failed to set GPIO direction", CALL(setGPIODirection(3)), WITH(hasGPIO)},
    {"lines", "Failed to get GPIO", CALL(getGPIO(&levels)), WITH(hasGPIO)},
    {"drive lines", "Failed to set GPIO", CALL(setGPIO(1)), WITH(hasGPIO)},
    {"gain", nullptr, CALL(getGain(&gain, &offset)), WITH(type == ADVANCED)},
    {"set gain", nullptr, CALL(setGain(7, 100)), WITH(type == ADVANCED)},
};

#undef CALL
#undef WITH

bool inProcesses(int argc, char** argv, const char* option, long standard,
                 const std::function<bool(const Subject& subject, long number)>& work)
{
    const bool chosen = argc == 3 && argv[1] == std::string(option);
    const long number = chosen ? std::strtol(argv[2], nullptr, 10) : standard;
    if ((argc != 1 && !chosen) || number <= 0) {
        (void)std::fprintf(stderr, "usage: %s [%s N]\n", argv[0], option);
        std::_Exit(2);
    }
    constexpr Subject SUBJECTS[] = {{STANDARD, "STANDARD", "Vorn K12"},
                                    {ADVANCED, "ADVANCED", "Vorn K16"},
                                    {QUICKER, "QUICKER", "Vorn K03"},
                                    {CLASSIC, "CLASSIC", "Vorn K30"},
                                    {IIDC, "IIDC", "Vorn XRM"}};
    bool ok = true;
    const auto await = [&ok] {
        int status = 0;
        const bool any = wait(&status) > 0;
        ok = ok && (!any || status == 0);
        return any;
    };
    long running = 0;
    for (const Subject& subject : SUBJECTS) {
        if (running++ >= sysconf(_SC_NPROCESSORS_ONLN))
            (void)await();
        if (fork() == 0) {
            const bool done = work(subject, number);
            (void)std::fflush(stdout);
            std::_Exit(done ? 0 : 1);
        }
    }
    while (await()) {
    }
    return ok;
}

Allocations allocations;

void reportMisuse(const std::string& text)
{
    (void)std::fprintf(stderr, "misuse of libusb: %s\n", text.c_str());
    std::abort();
}

}  // namespace vorntest

extern "C" {

// The linker leads the library's calls of malloc, calloc and free here.
void* __real_malloc(size_t length);
void* __real_calloc(size_t count, size_t length);
void __real_free(void* memory);

static bool granted()
{
    vorntest::Allocations& all = vorntest::allocations;
    const bool given = ++all.count != all.failing;
    all.held += given ? 1 : 0;
    if (all.recorded != nullptr)
        all.recorded->push_back(all.calls->size());
    return given;
}

void* __wrap_malloc(size_t length)
{
    return granted() ? __real_malloc(length) : nullptr;
}

void* __wrap_calloc(size_t count, size_t length)
{
    return granted() ? __real_calloc(count, length) : nullptr;
}

void __wrap_free(void* memory)
{
    vorntest::allocations.held -= memory != nullptr ? 1 : 0;
    __real_free(memory);
}

}  // extern "C"
