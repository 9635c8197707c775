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
constexpr unsigned GUIDE_MASK = 5;

jmp_buf exitPoint;
bool exitExpected = false;

bool startLong(VornCameraImpl& camera)
{
    return camera.startExposure(false);
}

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

bool readTemperature(VornCameraImpl& camera)
{
    float celsius = 0;
    return camera.getTemperatureSensorStatus(1, &celsius);
}

bool readCooling(VornCameraImpl& camera)
{
    COOLING_STATE state = COOLING_INACTIVE;
    float target = 0;
    float power = 0;
    return camera.getCoolingStatus(&state, &target, &power);
}

bool readWheel(VornCameraImpl& camera)
{
    unsigned count = 0;
    bool moving = false;
    return camera.getFilterWheelStatus(&count, &moving, nullptr, nullptr);
}

bool readLines(VornCameraImpl& camera)
{
    unsigned short levels = 0;
    return camera.getGPIO(&levels);
}

bool readGain(VornCameraImpl& camera)
{
    int gain = 0;
    int offset = 0;
    return camera.getGain(&gain, &offset);
}

bool hasSensor(const VornCameraImpl& camera)
{
    return camera.tempSensorCount > 0;
}

bool canCool(const VornCameraImpl& camera)
{
    return camera.cooler > COOLER_ALWAYSON;
}

bool hasWheel(const VornCameraImpl& camera)
{
    return camera.hasFilterWheel;
}

bool hasLines(const VornCameraImpl& camera)
{
    return camera.hasGPIO;
}

bool isAdvanced(const VornCameraImpl& camera)
{
    return camera.type == ADVANCED;
}

/// One operation as a value for the tables below.
#define CALL(operation) [](VornCameraImpl& camera) { return camera.operation; }
#define HAS(member) [](const VornCameraImpl& camera) { return camera.member; }

const Step OPEN = {"open", "Failed to initialize device", CALL(open())};
const Step CLOSE = {"close", nullptr, close};
const Step IMAGE = {"image", "Failed to get image", takeImage};
const std::vector<Step> LONG_EXPOSURE = {
    {"start", "Failed to start exposure", startLong}, {"read", "Failed to read CCD", readLong}, IMAGE};
const std::vector<Step> SHORT_EXPOSURE = {{"read", "Failed to read CCD", readShort}, IMAGE};
const std::vector<Step> ACCESSORIES = {
    {"temperature", "Failed to read temperature sensor status", readTemperature, hasSensor},
    {"cool", "Failed to set temperature", CALL(setCooling(-10.0F)), canCool},
    {"cooling", "Failed to set cooling status", readCooling, canCool},
    {"warm up", "Failed to initiate warmup", CALL(initiateWarmUp()), canCool},
    {"wheel", "Failed to get filter wheel status", readWheel, hasWheel},
    {"filter", "Failed to set filter", CALL(setFilter(2)), hasWheel},
    {"shutter", "Failed to set shutter", CALL(setShutter(true)), HAS(hasShutter)},
    {"abort", nullptr, CALL(abortExposure())},
    {"relays", "Failed to set guide relays", CALL(setGuideRelays(GUIDE_MASK)), HAS(hasGuidePort)},
    {"directions", "Failed to set GPIO direction", CALL(setGPIODirection(3)), hasLines},
    {"lines", "Failed to get GPIO", readLines, hasLines},
    {"drive lines", "Failed to set GPIO", CALL(setGPIO(1)), hasLines},
    {"gain", nullptr, readGain, isAdvanced},
    {"set gain", nullptr, CALL(setGain(7, 100)), isAdvanced},
};

#undef CALL
#undef HAS

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
