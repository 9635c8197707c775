// SPDX-License-Identifier: MIT
// What the test on a real kernel checks with more than the command line tools can: transfers and their errors, and the
// speed of getImage beside a bare libusb loop. Stands between the library and libusb, and passes everything on.
#include <dlfcn.h>
#include <libusb.h>
#include <vornccd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned char REPLY_IN = 0x86;
constexpr unsigned char IMAGE_IN = 0x88;

/// A transfer as the library asked for it.
struct BulkTransfer {
    unsigned char endpoint;
    std::vector<unsigned char> data;  ///< what was sent, or as many bytes as were asked for
};

/// What the library's transfers told.
struct Seen {
    libusb_device_handle* handle = nullptr;
    int error = 0;  ///< of the first transfer that failed
    Clock::time_point failedAt;
    bool recording = false;
    std::vector<BulkTransfer> bulk;

    int note(libusb_device_handle* user, int result)
    {
        handle = user;
        if (result < 0 && error == 0) {
            error = result;
            failedAt = Clock::now();
        }
        return result;
    }
} seen;

}  // namespace

extern "C" int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                                    int length, int* moved, unsigned timeoutMs)
{
    static auto* const real =
        reinterpret_cast<decltype(&libusb_bulk_transfer)>(dlsym(RTLD_NEXT, "libusb_bulk_transfer"));
    if (seen.recording)
        seen.bulk.push_back({endpoint, {data, data + length}});
    return seen.note(handle, real(handle, endpoint, data, length, moved, timeoutMs));
}

extern "C" int libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request, uint16_t value,
                                       uint16_t index, unsigned char* data, uint16_t length, unsigned timeoutMs)
{
    static auto* const real =
        reinterpret_cast<decltype(&libusb_control_transfer)>(dlsym(RTLD_NEXT, "libusb_control_transfer"));
    return seen.note(handle, real(handle, type, request, value, index, data, length, timeoutMs));
}

namespace {

int fail(const std::string& what)
{
    std::printf("%s\n", what.c_str());
    return 1;
}

/// The only camera there is, opened.
class Camera {
public:
    explicit Camera(long chunk)
    {
        if (VornCamera::list(&camera_, 1) != 1)
            std::exit(fail("no camera in the list"));
        if (chunk > 0)
            (void)camera_->setParam(MAX_PACKET_SIZE, chunk);
        if (!camera_->open() || !camera_->getCapabilities(nullptr, nullptr, &caps))
            std::exit(fail(std::string("open: ") + camera_->getLastError()));
        image.resize(size_t{caps.pixelCountX} * caps.pixelCountY + 1);
    }
    ~Camera() { VornCamera_destroy(camera_); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;
    VornCamera* operator->() const { return camera_; }

    bool read() const { return camera_->readCCD(0, 0, caps.pixelCountX, caps.pixelCountY, 1, 1, 0.02); }
    bool getImage() { return camera_->getImage(image.data(), caps.pixelCountX * caps.pixelCountY); }

    /// Whether the image is the ramp, pixel by pixel.
    bool isRamp() const
    {
        for (size_t i = 0; i + 1 < image.size(); ++i)
            if (image[i] != static_cast<uint16_t>(i / caps.pixelCountX * 256 + i % caps.pixelCountX))
                return false;
        return true;
    }

    VornCapabilities caps{};
    std::vector<uint16_t> image;

private:
    VornCamera* camera_ = nullptr;
};

/// ramp FILE WIDTH HEIGHT [folded]: whether a FITS file is the picture of the ramp pattern that a sensor of this size
/// holds; cameras with 8-bit samples show its two bytes folded.
int ramp(const std::string& name, size_t width, size_t height, bool folded)
{
    std::ifstream file(name, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const size_t end = bytes.find("END                 ");
    const size_t data = (end / 2880 + 1) * 2880;
    if (end == std::string::npos || bytes.size() < data + width * height * 2)
        return fail("no FITS file of this size");
    for (size_t i = 0; i < width * height; ++i) {
        const auto high = static_cast<uint8_t>(bytes[data + 2 * i] ^ 0x80);  // BZERO is 32768
        const auto low = static_cast<uint8_t>(bytes[data + 2 * i + 1]);
        const size_t pattern = i / width * 256 + i % width;
        const size_t wanted = folded ? ((pattern >> 8 ^ pattern) & 0xFF) << 8 : pattern & 0xFFFF;
        if (wanted != static_cast<size_t>(high << 8 | low))
            return fail("pixel " + std::to_string(i) + " is " + std::to_string(high << 8 | low) + ", not " +
                        std::to_string(wanted));
    }
    return 0;
}

/// errors NAME...: bare reads from a bridge, one after the other, end with these errors.
int errors(int count, char** names)
{
    (void)libusb_init(nullptr);
    libusb_device** list = nullptr;
    libusb_device_handle* handle = nullptr;
    for (ssize_t i = libusb_get_device_list(nullptr, &list); i > 0 && !handle; --i) {
        libusb_device_descriptor descriptor{};
        if (libusb_get_device_descriptor(list[i - 1], &descriptor) == 0 && descriptor.idVendor == 0x1234)
            (void)libusb_open(list[i - 1], &handle);
    }
    if (!handle || libusb_claim_interface(handle, 0) != 0 || libusb_set_interface_alt_setting(handle, 0, 1) != 0)
        return fail("cannot use the camera");
    for (int i = 0; i < count; ++i) {
        unsigned char reply[512];
        int moved = 0;
        const auto start = Clock::now();
        const std::string got =
            libusb_error_name(libusb_bulk_transfer(handle, REPLY_IN, reply, sizeof reply, &moved, 500));
        if (got != std::string("LIBUSB_ERROR_") + names[i])
            return fail(std::string("read ") + std::to_string(i + 1) + ": " + got + " instead of " + names[i]);
        if (Clock::now() - start > std::chrono::seconds(1))
            return fail(got + " came late");
        (void)libusb_clear_halt(handle, REPLY_IN);
    }
    return 0;
}

/// exposure CHUNK NAME: an exposure with reads of CHUNK bytes ends with the error NAME at once, or in a ramp: NONE.
int exposure(long chunk, const std::string& name)
{
    Camera camera(chunk);
    seen = {};
    bool ok = camera->startExposure(false);
    if (ok)
        std::this_thread::sleep_for(std::chrono::microseconds(camera->delay(0.05)));
    ok = ok && camera->readCCD(0, 0, camera.caps.pixelCountX, camera.caps.pixelCountY, 1, 1) && camera.getImage();
    camera->close();
    if (name == "NONE")
        return ok && camera.isRamp() ? 0 : fail(ok ? "not the ramp" : camera->getLastError());
    const std::string error = libusb_error_name(seen.error);
    if (ok || error != "LIBUSB_ERROR_" + name)
        return fail("the first error is " + error + (ok ? ", and the exposure worked" : ""));
    const std::chrono::duration<double> late = Clock::now() - seen.failedAt;
    return late.count() < 1.0 ? 0 : fail("ended only " + std::to_string(late.count()) + " s after the error");
}

/// Makes the recorded transfers again, into a new buffer as the library has one for each frame, with nothing around
/// them. @return the bytes of the image that came, or 0 after an error.
size_t bareLoop(size_t frameLength)
{
    const std::unique_ptr<unsigned char[]> frame(new unsigned char[frameLength]);
    size_t got = 0;
    for (auto& [endpoint, data] : seen.bulk) {
        int moved = 0;
        unsigned char* const bytes = endpoint == IMAGE_IN ? frame.get() + got : data.data();
        if (libusb_bulk_transfer(seen.handle, endpoint, bytes, static_cast<int>(data.size()), &moved, 5000) != 0)
            return 0;
        got += endpoint == IMAGE_IN ? static_cast<size_t>(moved) : 0;
    }
    return got;
}

/// speed BUS: most megabytes a second of getImage beside a bare libusb loop that makes the same transfers, by turns.
int speed(const char* bus)
{
    constexpr int ROUNDS = 6;
    constexpr double LEAST_SHARE = 0.5;  // what a busy machine makes of it; the goal is 0.95
    VornHostBulkTimeout = 1000;
    Camera camera(0x100000);
    const size_t imageLength = 2 * (camera.image.size() - 1);
    std::vector<double> times[2];  // of getImage and of the bare loop
    for (int round = -1; round < 2 * ROUNDS; ++round) {
        const bool bare = round >= 0 && round % 2 == 1;
        if (!camera.read())
            return fail(camera->getLastError());
        std::this_thread::sleep_for(std::chrono::milliseconds(2500));  // until all pixels are digitised
        seen.recording = round < 0;
        const auto start = Clock::now();
        const bool ok = bare ? bareLoop(imageLength + 512) >= imageLength : camera.getImage();
        const std::chrono::duration<double> took = Clock::now() - start;
        seen.recording = false;
        if (!ok || (!bare && !camera.isRamp()))
            return fail(bare ? "the bare loop failed" : "getImage failed");
        if (round >= 0)
            times[bare].push_back(took.count());
        if (bare)
            (void)camera.getImage();  // nothing is left to read: it only ends the readout
    }
    camera->close();
    // The quickest of each: what else the machine does only adds time.
    const double library = *std::min_element(times[0].begin(), times[0].end());
    const double bare = *std::min_element(times[1].begin(), times[1].end());
    const double megabytes = static_cast<double>(imageLength) * 1e-6;
    std::printf("%s: getImage %.1f MB/s, bare libusb loop %.1f MB/s, %.1f %% (goal: 95 %%)\n", bus, megabytes / library,
                megabytes / bare, 100.0 * bare / library);
    return bare / library >= LEAST_SHARE ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "ramp" && argc >= 5)
        return ramp(argv[2], std::stoul(argv[3]), std::stoul(argv[4]), argc > 5);
    if (what == "errors")
        return errors(argc - 2, argv + 2);
    if (what == "exposure" && argc == 4)
        return exposure(std::stol(argv[2]), argv[3]);
    if (what == "speed" && argc == 3)
        return speed(argv[2]);
    return fail("usage: kernel_check ramp|errors|exposure|speed ...");
}
