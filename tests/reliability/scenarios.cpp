// SPDX-License-Identifier: MIT
#include "scenarios.h"

#include <sys/wait.h>
#include <unistd.h>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>

namespace vorntest {

namespace {

constexpr ReadoutRegion REGION = {2, 3, 8, 8, 1, 1};
constexpr double SHORT_SECONDS = 0.02;
constexpr double LONG_SECONDS = 300.0;
constexpr unsigned PIXELS = REGION.width * REGION.height;

jmp_buf exitPoint;
bool exitExpected = false;

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

bool close(VornCameraImpl& camera)
{
    camera.close();
    return true;
}

#define CALL(operation) [](VornCameraImpl& camera) { return camera.operation; }
#define WITH(condition) [](const VornCameraImpl& camera) { return camera.condition; }

const Step OPEN = {"open", "Failed to initialize device", CALL(open())};
const Step CLOSE = {"close", nullptr, close};
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

}  // namespace

std::span<const Subject> subjects()
{
    static const Subject SUBJECTS[] = {{STANDARD, "STANDARD", "Vorn K12"},
                                       {ADVANCED, "ADVANCED", "Vorn K16"},
                                       {QUICKER, "QUICKER", "Vorn K03"},
                                       {CLASSIC, "CLASSIC", "Vorn K30"},
                                       {IIDC, "IIDC", "Vorn XRM"}};
    return SUBJECTS;
}

std::vector<Scenario> scenariosOf(CAMERA_TYPE family)
{
    std::vector<Scenario> scenarios = {{"open", {}, {OPEN}},
                                       {"short exposure", {OPEN}, SHORT_EXPOSURE},
                                       {"accessories", {OPEN}, ACCESSORIES},
                                       {"close and reopen", {OPEN}, {CLOSE, OPEN, CLOSE}}};
    if (family != IIDC)
        scenarios.push_back({"long exposure", {OPEN}, LONG_EXPOSURE});
    return scenarios;
}

std::vector<Step> stepsOf(CAMERA_TYPE family, std::string_view scenario)
{
    for (const Scenario& one : scenariosOf(family)) {
        if (one.name == scenario)
            return one.steps;
    }
    return {};
}

bool inProcesses(const std::function<bool(const Subject&)>& work)
{
    bool ok = true;
    const auto await = [&ok] {
        int status = 0;
        const bool any = wait(&status) > 0;
        ok = ok && (!any || status == 0);
        return any;
    };
    long running = 0;
    for (const Subject& subject : subjects()) {
        if (running++ >= sysconf(_SC_NPROCESSORS_ONLN))
            (void)await();
        if (fork() == 0) {
            const bool done = work(subject);
            (void)std::fflush(stdout);
            std::_Exit(done ? 0 : 1);
        }
    }
    while (await()) {
    }
    return ok;
}

bool applies(const Step& step, const VornCameraImpl& camera)
{
    return step.supported == nullptr || step.supported(camera);
}

Outcome runStep(const Step& step, VornCameraImpl& camera)
{
    exitExpected = true;
    Outcome outcome = Outcome::EXITED;
    if (setjmp(exitPoint) == 0)  // NOLINT(cert-err52-cpp): exit() cannot be left in another way
        outcome = step.run(camera) ? Outcome::DONE : Outcome::FAILED;
    exitExpected = false;
    return outcome;
}

Allocations allocations;

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

void exit(int status) noexcept
{
    if (vorntest::exitExpected)
        longjmp(vorntest::exitPoint, 1);  // NOLINT(cert-err52-cpp)
    std::_Exit(status);
}

}  // extern "C"
