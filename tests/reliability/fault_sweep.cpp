// SPDX-License-Identifier: MIT
// Makes every libusb call of every scenario go wrong in every way, once and for good, and checks what the library makes
// of it. Each family is swept in a process of its own.
//
// usage: fault_sweep [--stride N]    with N, only every N-th point, but every allocation
#include <sys/mman.h>
#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <string_view>

#include "faulty_usb.h"
#include "scenarios.h"

namespace vorntest {

namespace {

constexpr int64_t LONGEST_US = 12 * 3'600'000'000LL;  // 400 retries of an exchange that takes its time to fail
constexpr int SHOWN_FAULTS = 20;

/// What all processes have found, in memory that they share.
struct Tally {
    std::atomic<unsigned long> points = 0;
    std::atomic<unsigned long> faults = 0;
};
Tally* tally = nullptr;

// What this process has found.
unsigned long exits = 0;
int64_t longestUs = 0;

jmp_buf exitPoint;
bool exitExpected = false;

/// A closed camera object on a simulated camera whose calls can go wrong.
struct FaultyCamera : SimulatedCamera {
    explicit FaultyCamera(const char* name) : SimulatedCamera(name) { device.backend = &faulty; }

    FaultyUsb faulty{usb};
};

/// What a host does in a row; all but opening begins with an open camera.
struct Scenario {
    const char* name;
    std::vector<Step> steps;

    bool beginsOpen() const { return steps.front().name != "open"; }
};

std::vector<Scenario> scenariosOf(CAMERA_TYPE family)
{
    const Step open = {"open", "Failed to initialize device", [](VornCameraImpl& camera) { return camera.open(); }};
    const Step close = {"close", nullptr, [](VornCameraImpl& camera) {
                            camera.close();
                            return true;
                        }};
    std::vector<Scenario> scenarios = {{"open", {open}},
                                       {"short exposure", SHORT_EXPOSURE},
                                       {"accessories", ACCESSORIES},
                                       {"close and reopen", {close, open, close}}};
    if (family != IIDC)
        scenarios.push_back({"long exposure", LONG_EXPOSURE});
    return scenarios;
}

/// Whether an operation succeeds although a call fails, by contract.
enum class Survival { NEVER, ONCE, ALWAYS };

/// A scenario of a family, and the calls it makes when all is well.
struct Course {
    const Subject& subject;
    const Scenario& scenario;
    std::vector<BusCall> calls = {};
    std::vector<size_t> stepOf = {};       ///< of each call
    std::vector<Survival> survived = {};   ///< by each call's failure
    std::vector<size_t> allocations = {};  ///< for each the number of calls before it

    /// @return the number of a call within its step, from 1.
    size_t numberInStep(size_t call) const
    {
        const auto first = std::lower_bound(stepOf.begin(), stepOf.end(), stepOf[call]);
        return call - static_cast<size_t>(first - stepOf.begin()) + 1;
    }
};

struct Point {
    Trouble trouble;
    size_t call;  ///< index; of the call that the memory is for, when that is what fails
    bool forEver;
    size_t allocation = 0;  ///< number of the allocation that fails, from 1
};

/// A run of calls of a step whose failure it survives by contract. Calls are found by what stands in their text.
struct Ignored {
    const char* step;
    CAMERA_TYPE family;
    const char* first;  ///< begins the run
    const char* last;   ///< begins its last exchange
    size_t length;      ///< calls from there on
    bool onceOnly;      ///< what is asked again: survived only when it works then
};
constexpr const char* COLOUR_RECORD = " A2 00 E8";  // its address in the EEPROM
constexpr const char* STANDARD_PING = " 43 00 4D 00 44 00 50 00 ";
constexpr const char* ADVANCED_PING = " 43 4D 44 FD ";
constexpr const char* GAIN_RECORD = " 43 4D 44 8D ";
constexpr const char* QUICKER_CLEAR = " 02 00 00 00 24 00";
constexpr const char* QUICKER_BINNING = " 02 00 00 00 80 00";
constexpr const char* CLASSIC_CHECK = " 48 53 43 11 ";
constexpr Ignored IGNORED[] = {
    {"open", STANDARD, COLOUR_RECORD, COLOUR_RECORD, 4, false},
    {"open", STANDARD, STANDARD_PING, STANDARD_PING, 6, true},  // five tries
    {"open", ADVANCED, COLOUR_RECORD, COLOUR_RECORD, 4, false},
    {"start", ADVANCED, ADVANCED_PING, ADVANCED_PING, 16, true},  // while the sensor is cleared: 401 tries
    {"set gain", ADVANCED, GAIN_RECORD, GAIN_RECORD, 2, true},    // asked for until it came twice
    {"open", QUICKER, COLOUR_RECORD, COLOUR_RECORD, 4, false},
    {"start", QUICKER, QUICKER_CLEAR, QUICKER_CLEAR, 4, false},
    {"read", QUICKER, QUICKER_BINNING, QUICKER_BINNING, 4, false},
    {"open", CLASSIC, COLOUR_RECORD, COLOUR_RECORD, 4, false},
    {"open", CLASSIC, "claim", CLASSIC_CHECK, 5, true},  // until that has passed: all over again
};

/// Notes for each call of @p course what becomes of its failure.
/// @return whether every run of the family and its steps was found.
bool findIgnored(Course& course)
{
    course.survived.assign(course.calls.size(), Survival::NEVER);
    const auto find = [&](size_t begin, size_t end, const char* text) {
        while (begin < end && course.calls[begin].text().find(text) == std::string::npos)
            begin++;
        return begin;
    };
    bool found = true;
    for (size_t begin = 0, end = 0; begin < course.calls.size(); begin = end) {
        end = begin + static_cast<size_t>(std::count(course.stepOf.begin(), course.stepOf.end(), course.stepOf[begin]));
        for (const Ignored& row : IGNORED) {
            if (row.family != course.subject.family || row.step != course.scenario.steps[course.stepOf[begin]].name)
                continue;
            const size_t first = find(begin, end, row.first);
            const size_t stop = find(begin, end, row.last) + row.length;
            found = found && first < end && stop <= end;
            for (size_t call = first; call < std::min(stop, end); call++) {
                if (course.survived[call] != Survival::ALWAYS)
                    course.survived[call] = row.onceOnly ? Survival::ONCE : Survival::ALWAYS;
            }
        }
    }
    return found;
}

constexpr unsigned FLUSH_TIMEOUT_MS = 100;
constexpr unsigned EP_BRIDGE_OUT = 0x04;
constexpr unsigned EP_BRIDGE_IN = 0x86;
constexpr uint8_t BRIDGE_PAR_IN = 0x09;
constexpr uint8_t BRIDGE_SET_TIMEOUT = 0x0C;

bool isIgnored(const Course& course, size_t call, bool forEver)
{
    const CAMERA_TYPE family = course.subject.family;
    const BusCall& made = course.calls[call];
    const std::string& step = course.scenario.steps[course.stepOf[call]].name;
    if (family == IIDC && (made.kind == BusCall::CONTROL_IN || made.kind == BusCall::CONTROL_OUT))
        return true;  // registers give no results
    if (made.timeoutMs == FLUSH_TIMEOUT_MS)
        return true;  // flushing ends at a failure
    const uint8_t request = made.endpoint == EP_BRIDGE_OUT ? made.bytes[0] : 0;
    if (step == "read" && request == BRIDGE_SET_TIMEOUT)
        return true;
    // Only the data count: neither the state of the readout nor the timeout after it.
    if (step == "image" && (made.endpoint == EP_BRIDGE_IN || (request != 0 && request != BRIDGE_PAR_IN)))
        return true;
    return course.survived[call] == Survival::ALWAYS || (course.survived[call] == Survival::ONCE && !forEver);
}

void complain(const Course& course, const Point& point, const std::string& what)
{
    if (tally->faults++ < SHOWN_FAULTS)
        std::printf("%s, %s, step %s, call %zu (%s), %s%s: %s\n", course.subject.name, course.scenario.name,
                    course.scenario.steps[course.stepOf[point.call]].name.c_str(), course.numberInStep(point.call),
                    course.calls[point.call].text().c_str(), point.trouble.name, point.forEver ? " for ever" : "",
                    what.c_str());
}

/// Goes through the scenario undisturbed. @return false when that fails already.
bool record(Course& course)
{
    FaultyCamera faulty(course.subject.model);
    if (course.scenario.beginsOpen())
        (void)faulty.camera.open();
    faulty.faulty.recorded = &course.calls;
    allocations = {.recorded = &course.allocations, .calls = &course.calls};
    for (size_t i = 0; i < course.scenario.steps.size(); i++) {
        const Step& step = course.scenario.steps[i];
        if (step.supported(faulty.camera) && !step.run(faulty.camera)) {
            std::printf("%s, %s: %s fails without a fault: %s\n", course.subject.name, course.scenario.name,
                        step.name.c_str(), faulty.camera.getLastError());
            tally->faults++;
            return false;
        }
        course.stepOf.resize(course.calls.size(), i);
    }
    allocations = {};
    if (!findIgnored(course)) {
        std::printf("%s, %s: calls whose failure is survived are not there\n", course.subject.name,
                    course.scenario.name);
        tally->faults++;
        return false;
    }
    return true;
}

/// @return the step that has to fail, or the number of steps when none has to.
size_t expectedFailure(const Course& course, const Point& point)
{
    if (!point.trouble.isError())
        return course.scenario.steps.size();
    const size_t last = point.forEver ? course.calls.size() - 1 : point.call;
    for (size_t call = point.call; call <= last; call++) {
        const size_t step = course.stepOf[call];
        if (!isIgnored(course, call, point.forEver))
            return step;
    }
    return course.scenario.steps.size();
}

/// @return whether @p text is what this failure of the step is called.
bool isDocumented(const Course& course, const Point& point, const Step& step, std::string_view text)
{
    const bool misled = !point.trouble.isError();
    if (step.error == nullptr)
        return text == "No error" || ((point.forEver || misled) && text == "Failed to set gain");
    const bool atLibusbOpen = course.calls[point.call].kind == BusCall::OPEN;
    const bool endlessRetries = course.subject.family == CLASSIC && point.forEver;
    if (step.name == "open" && (atLibusbOpen || endlessRetries) && text == "Failed to open device")
        return true;
    if (step.name == "open" && atLibusbOpen)
        return false;
    // A camera may seem to be another one when its answers are wrong.
    return text == step.error || (misled && (text == "Unsupported operation" || text == "Invalid parameter" ||
                                             text == "Operation out of sequence"));
}

/// @return what the step returns, or nothing: some nonsense from a camera makes the library end the process by
/// contract.
std::optional<bool> run(const Step& step, VornCameraImpl& camera)
{
    std::optional<bool> done;
    exitExpected = true;
    if (setjmp(exitPoint) == 0)  // NOLINT(cert-err52-cpp): exit() cannot be left in another way
        done = step.run(camera);
    exitExpected = false;
    return done;
}

/// Goes through the steps with the fault.
void visit(const Course& course, const Point& point)
{
    tally->points++;
    FaultyCamera faulty(course.subject.model);
    if (course.scenario.beginsOpen())
        (void)faulty.camera.open();
    const size_t failing = expectedFailure(course, point);
    VornCameraImpl& camera = faulty.camera;
    faulty.faulty.plan(point.trouble, point.allocation != 0 ? 0 : point.call + 1, point.forEver);
    faulty.faulty.patience = course.subject.family == CLASSIC ? 100 : 3000;
    allocations = {.failing = point.allocation};
    const int64_t startUs = bus().nowUs();
    bool failed = false;
    bool open = camera.handle != nullptr;
    for (size_t i = 0; i < course.scenario.steps.size() && !failed; i++) {
        const Step& step = course.scenario.steps[i];
        if (!step.supported(camera))
            continue;
        const std::optional<bool> done = run(step, camera);
        if (!done) {
            if (point.trouble.isError())
                complain(course, point, step.name + " ends the process");
            exits++;
            return;
        }
        failed = !*done;
        if (step.name == "open" || step.error == nullptr)
            open = camera.handle != nullptr && (!failed || step.error == nullptr);
        // A register of which nobody knows that it was not written shows in the image at the earliest.
        const bool blind = course.subject.family == IIDC && failing == course.scenario.steps.size();
        if (point.trouble.isError() && failed != (i == failing) && !(blind && &step == &course.scenario.steps.back()))
            complain(course, point, step.name + (failed ? " fails" : " succeeds"));
        if (failed && !isDocumented(course, point, step, camera.getLastError()))
            complain(course, point, "the error of " + step.name + " is \"" + camera.getLastError() + "\"");
    }
    longestUs = std::max(longestUs, bus().nowUs() - startUs);
    if (bus().nowUs() - startUs > LONGEST_US)
        complain(course, point, "it takes too long");
    if (!faulty.lockFree()) {
        complain(course, point, "the lock is held");
        return;  // whatever comes next would wait for ever
    }
    if ((camera.handle != nullptr) != open || (faulty.device.openCount != 0) != open)
        complain(course, point, open ? "the device is closed" : "the device is open");
    if (allocations.held != 0)
        complain(course, point, std::to_string(allocations.held) + " buffers are lost");
    faulty.faulty.plan(point.trouble, 0, false);
    allocations = {};
    camera.close();
    if (!camera.open())
        complain(course, point, std::string("the camera does not open again: ") + camera.getLastError());
    camera.close();
    if (faulty.device.openCount != 0)
        complain(course, point, "a handle is left");
}

void sweep(const Subject& subject, long stride)
{
    long turn = 0;
    for (const Scenario& scenario : scenariosOf(subject.family)) {
        Course course = {subject, scenario};
        if (!record(course))
            continue;
        for (size_t call = 0; call < course.calls.size(); call++) {
            for (const Trouble& trouble : CALL_TROUBLES) {
                for (const bool forEver : {false, true}) {
                    if (trouble.canBefall(course.calls[call]) && turn++ % stride == 0)
                        visit(course, {trouble, call, forEver});
                }
            }
        }
        for (size_t i = 0; i < course.allocations.size(); i++)
            visit(course, {{"no memory", Trouble::NO_ALLOCATION}, course.allocations[i], false, i + 1});
    }
}

// Only an optimised build without sanitizers makes each retry in the stack frame of the one before it.
#ifdef NDEBUG
constexpr uint64_t RETRIES = 100'000;
constexpr uintptr_t STACK_BYTES = 4096;
#else
constexpr uint64_t RETRIES = 1'000;
constexpr uintptr_t STACK_BYTES = RETRIES * 1024;
#endif

/// A CLASSIC camera that is there but never ours: retries without end, until it is gone.
void retryAllNight()
{
    constexpr uint64_t FAILURES_PER_TRY = 2;  // the claim and the flush
    constexpr int64_t TRY_US = 5'200'000;
    FaultyCamera faulty("Vorn K30");
    faulty.faulty.plan(CALL_TROUBLES[0], 1, true);
    faulty.faulty.opens = true;
    faulty.faulty.patience = FAILURES_PER_TRY * RETRIES;
    const int64_t startUs = bus().nowUs();
    const bool opened = faulty.camera.open();
    const int64_t retries = (bus().nowUs() - startUs) / TRY_US;
    const uintptr_t stack = faulty.faulty.highestStack - faulty.faulty.lowestStack;
    std::printf("CLASSIC   %lld retries, stack within %zu bytes\n", static_cast<long long>(retries), stack);
    if (opened || std::string_view(faulty.camera.getLastError()) != "Failed to open device" || retries != RETRIES ||
        stack > STACK_BYTES || faulty.device.openCount != 0 || !faulty.lockFree())
        tally->faults++;
}

/// Sweeps one family and says what came of it.
bool report(const Subject& subject, long stride)
{
    sweep(subject, stride);
    if (subject.family == CLASSIC)
        retryAllNight();
    std::printf("%-9s longest %6.0f s of virtual time, %lu ends of the process by contract\n", subject.name,
                static_cast<double>(longestUs) / 1e6, exits);
    return tally->faults == 0;
}

}  // namespace

}  // namespace vorntest

void exit(int status) noexcept
{
    if (vorntest::exitExpected)
        longjmp(vorntest::exitPoint, 1);  // NOLINT(cert-err52-cpp)
    std::_Exit(status);
}

int main(int argc, char** argv)
{
    using namespace vorntest;
    void* shared = mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        return 1;
    tally = new (shared) Tally;
    const bool ok = inProcesses(argc, argv, "--stride", 1, report);
    std::printf("%lu points, %lu faults of the library\n", tally->points.load(), tally->faults.load());
    return ok ? 0 : 1;
}
