// SPDX-License-Identifier: MIT
// getImage of a full frame beside the copies of the same bytes that nobody can avoid, and open with its wall time apart
// from the pauses that the cameras demand (those pass in virtual time). The library is the unmodified shared one; the
// functions of libusb are those of the test seam.
#include "bus.h"
#include "camera_impl.h"
#include "device/families/camera_catalogue.h"
#include "simulated.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

void vorntest::reportMisuse(const std::string& text)
{
    std::fprintf(stderr, "%s\n", text.c_str());
    std::abort();
}

namespace {

constexpr uint32_t WIDTH = 1392;
constexpr uint32_t HEIGHT = 1040;
constexpr size_t PIXELS = size_t{WIDTH} * HEIGHT;

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Takes every request and has every answer ready: an IN transfer costs one copy.
class InstantDevice : public vorntest::Backend {
public:
    int serve(const vorntest::BusCall& call, std::span<uint8_t> data, int& transferred) override
    {
        transferred = static_cast<int>(data.size());
        if (call.kind == vorntest::BusCall::BULK_IN)
            std::memcpy(data.data(), pixels_.data(), data.size());
        return call.kind == vorntest::BusCall::CONTROL_IN || call.kind == vorntest::BusCall::CONTROL_OUT ? transferred
                                                                                                         : 0;
    }

private:
    std::vector<uint8_t> pixels_ = std::vector<uint8_t>(4 * PIXELS + 16);
};

struct FamilyCase {
    CAMERA_TYPE type;
    bool pcCds;
    bool eightBit;
    size_t wireBytes;  ///< of one frame
};

/// A camera as after open(), without its traffic.
void prepare(VornCameraImpl& camera, libusb_device& device, const FamilyCase& family)
{
    camera.handle = device.openHandle();
    camera.pixelCountX = WIDTH;
    camera.pixelCountY = HEIGHT;
    camera.maxBinX = camera.maxBinY = 2;
    camera.pcCds = family.pcCds;
    camera.eightBitMode = family.eightBit;
}

void GetImage(benchmark::State& state, FamilyCase family)
{
    vorntest::bus().reset();
    InstantDevice instant;
    libusb_device device(0xdf34, instant);
    VornCameraImpl camera(&device, "bench", family.type);
    prepare(camera, device, family);
    // Room for the rows of a QUICKER image, which lie as far apart as the region is high.
    std::vector<uint16_t> image(std::max(size_t{HEIGHT} * HEIGHT, PIXELS) + WIDTH + 1);
    for ([[maybe_unused]] auto _ : state) {
        if (!camera.readCCD(0, 0, WIDTH, HEIGHT, 1, 1, 0.1))
            state.SkipWithError(camera.getLastError());
        const auto start = std::chrono::steady_clock::now();
        const bool ok = camera.getImage(image.data(), PIXELS);
        state.SetIterationTime(secondsSince(start));
        if (!ok)
            state.SkipWithError(camera.getLastError());
    }
    state.SetBytesProcessed(static_cast<int64_t>(family.wireBytes) * state.iterations());
}

/// The device writes the frame into the library's buffer; the bridge's reply is copied out of it (not for IIDC); where
/// a family is post-processed, its values move once more.
void UnavoidableCopies(benchmark::State& state, FamilyCase family)
{
    const size_t imageBytes = 2 * PIXELS;
    const std::vector<uint8_t> device(family.wireBytes);
    std::vector<uint8_t> image(imageBytes);
    for ([[maybe_unused]] auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        // Buffers new for each image, as in the library: the system zeroes their pages.
        auto* received = static_cast<uint8_t*>(std::calloc(family.wireBytes, 1));
        auto* frame = static_cast<uint8_t*>(family.type == QUICKER ? std::calloc(family.wireBytes, 1) : nullptr);
        std::memcpy(received, device.data(), family.wireBytes);
        switch (family.type) {
            case STANDARD:
            case CLASSIC:
                std::memcpy(image.data(), received, family.wireBytes);
                break;
            case ADVANCED:  // then two values dropped, or bytes widened and two dropped
                std::memcpy(image.data(), received, family.wireBytes);
                if (family.eightBit)
                    std::memmove(image.data() + PIXELS, image.data(), PIXELS);
                std::memmove(image.data(), image.data() + 4, imageBytes - 4);
                break;
            case QUICKER:  // then cropped, or pairs subtracted
                std::memcpy(frame, received, family.wireBytes);
                std::memcpy(image.data(), frame, imageBytes);
                break;
            case IIDC:  // bytes become values
                std::memcpy(image.data(), received, PIXELS);
                std::memcpy(image.data() + PIXELS, received, PIXELS);
                break;
        }
        benchmark::DoNotOptimize(image.data());
        benchmark::ClobberMemory();
        std::free(frame);
        std::free(received);
        state.SetIterationTime(secondsSince(start));
    }
    state.SetBytesProcessed(static_cast<int64_t>(family.wireBytes) * state.iterations());
}

constexpr FamilyCase STANDARD_CASE = {STANDARD, false, false, 2 * PIXELS};
constexpr FamilyCase CLASSIC_CASE = {CLASSIC, false, false, 2 * PIXELS};
constexpr FamilyCase ADVANCED_CASE = {ADVANCED, false, false, 2 * PIXELS};
constexpr FamilyCase ADVANCED_8_BIT_CASE = {ADVANCED, false, true, PIXELS};
constexpr FamilyCase QUICKER_CASE = {QUICKER, false, false, 2 * PIXELS};
constexpr FamilyCase QUICKER_PAIRS_CASE = {QUICKER, true, false, 4 * PIXELS};
constexpr FamilyCase IIDC_CASE = {IIDC, false, false, PIXELS};

#define BESIDE_COPIES(name)                                          \
    BENCHMARK_CAPTURE(GetImage, name, name##_CASE)->UseManualTime(); \
    BENCHMARK_CAPTURE(UnavoidableCopies, name, name##_CASE)->UseManualTime()

BESIDE_COPIES(STANDARD);
BESIDE_COPIES(CLASSIC);
BESIDE_COPIES(ADVANCED);
BESIDE_COPIES(ADVANCED_8_BIT);
BESIDE_COPIES(QUICKER);
BESIDE_COPIES(QUICKER_PAIRS);
BESIDE_COPIES(IIDC);

/// Swallows what a camera says.
class SilentLog : public vornsim::DeviceLog {
public:
    void note(const std::string& /*text*/) override {}
    void complain(const std::string& /*text*/) override {}
};

/// The time shown is everything but pauses, the simulated camera's own work included; the counter tells the virtual
/// seconds that pauses and waits for the camera take.
void Open(benchmark::State& state, const char* model)
{
    const vorntest::BusClock clock;
    SilentLog log;
    const vornsim::ModelInfo* info = vornsim::findModel(model);
    double mandatedSeconds = 0.0;
    for ([[maybe_unused]] auto _ : state) {
        state.PauseTiming();
        vorntest::bus().reset();
        auto simulated = vornsim::makeCamera(*info, {}, clock, log);
        vorntest::SimulatedUsb usb(*simulated);
        libusb_device device(info->productId, usb);
        vorntest::bus().attach(device);
        VornCamera* camera = nullptr;
        VornCamera::list(&camera, 1);
        const int64_t before = clock.nowUs();
        state.ResumeTiming();
        const bool ok = camera->open();
        state.PauseTiming();
        mandatedSeconds = static_cast<double>(clock.nowUs() - before) * 1e-6;
        if (!ok)
            state.SkipWithError(camera->getLastError());
        camera->close();
        VornCamera_destroy(camera);
        state.ResumeTiming();
    }
    state.counters["virtual_s"] = mandatedSeconds;
}

BENCHMARK_CAPTURE(Open, STANDARD, "Vorn K12")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Open, ADVANCED, "Vorn K16")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Open, QUICKER, "Vorn K01")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Open, CLASSIC, "Vorn K30")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Open, IIDC, "Vorn XRC")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
