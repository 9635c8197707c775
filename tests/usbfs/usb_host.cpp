// SPDX-License-Identifier: MIT
// A host program as others write them, which knows nothing of simulators. It makes the checks that it is told to on the
// only camera, prints what did not come out as expected, and exits 1 then.
#include <libusb.h>
#include <vornccd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

using Arguments = std::vector<std::string>;

int failures = 0;

void check(long value, long expected, const char* what)
{
    if (value != expected) {
        std::printf("FAILED: %s is %ld, not %ld\n", what, value, expected);
        ++failures;
    }
}

double nowMs()
{
    const std::chrono::duration<double, std::milli> since = std::chrono::steady_clock::now().time_since_epoch();
    return since.count();
}

/// A K12, opened.
class Device {
public:
    Device()
    {
        (void)libusb_init(nullptr);
        handle_ = libusb_open_device_with_vid_pid(nullptr, 0x1234, 0xDF34);
        if (!handle_)
            std::exit(2);
    }
    ~Device()
    {
        libusb_close(handle_);
        libusb_exit(nullptr);
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    libusb_device_handle* handle() { return handle_; }
    int claim() { return libusb_claim_interface(handle_, 0); }
    int vendor(uint8_t request, uint16_t value, std::vector<uint8_t> data)
    {
        return libusb_control_transfer(handle_, 0x40, request, value, 0, data.data(),
                                       static_cast<uint16_t>(data.size()), 1000);
    }
    int bulk(uint8_t endpoint, std::vector<uint8_t> bytes, unsigned timeoutMs)
    {
        return libusb_bulk_transfer(handle_, endpoint, bytes.data(), static_cast<int>(bytes.size()), &moved, timeoutMs);
    }

    int moved = 0;

private:
    libusb_device_handle* handle_ = nullptr;
};

void list(const Arguments& /*none*/)
{
    (void)libusb_init(nullptr);
    libusb_device** devices = nullptr;
    const ssize_t count = libusb_get_device_list(nullptr, &devices);
    for (ssize_t i = 0; i < count; ++i) {
        libusb_device_descriptor descriptor{};
        (void)libusb_get_device_descriptor(devices[i], &descriptor);
        std::printf("%d/%d %04x:%04x speed %d\n", libusb_get_bus_number(devices[i]),
                    libusb_get_device_address(devices[i]), descriptor.idVendor, descriptor.idProduct,
                    libusb_get_device_speed(devices[i]));
    }
    libusb_free_device_list(devices, 1);
    libusb_exit(nullptr);
}

void starting(const Arguments& /*none*/)
{
    for (int i = 0; i < 50; ++i) {
        libusb_device** devices = nullptr;
        check(libusb_init(nullptr), 0, "start of libusb beside other programs");
        check(libusb_get_device_list(nullptr, &devices), 2, "devices");
        libusb_free_device_list(devices, 1);
        libusb_exit(nullptr);
    }
}

void waiting(const Arguments& /*none*/)
{
    Device device;
    check(device.claim(), 0, "claim");
    check(device.bulk(0x86, {1}, 100), LIBUSB_ERROR_IO, "bulk in alternate setting 0");
    check(libusb_set_interface_alt_setting(device.handle(), 0, 9), LIBUSB_ERROR_NOT_FOUND, "alternate 9");
    check(libusb_set_interface_alt_setting(device.handle(), 0, 1), 0, "alternate 1");
    // The bridge gets a program, as far as it looks at one.
    check(device.vendor(0xA0, 0xE600, {1}), 1, "hold");
    check(device.vendor(0xA0, 0, {0x02, 0x00, 0x2E, 0x32}), 4, "load");
    check(device.vendor(0xA0, 0xE600, {0}), 1, "start");

    double startMs = nowMs();
    const std::clock_t startCpu = std::clock();
    check(device.bulk(0x86, std::vector<uint8_t>(9), 300), LIBUSB_ERROR_TIMEOUT, "an endpoint with nothing to say");
    check(nowMs() - startMs > 295 && nowMs() - startMs < 2000, true, "the timeout is the one that was asked for");
    check(std::clock() - startCpu < CLOCKS_PER_SEC / 10, true, "the host sleeps while it waits");

    // The largest transfer that a stock kernel has memory for is 1021 pieces of 16 KiB, and a bit.
    constexpr size_t LARGEST = 1021 * 16384;
    check(device.bulk(0x88, std::vector<uint8_t>(LARGEST + 16384), 50), LIBUSB_ERROR_NO_MEM, "more than usbfs takes");
    check(device.bulk(0x88, std::vector<uint8_t>(LARGEST), 50), LIBUSB_ERROR_TIMEOUT, "as much as it takes");

    // One thread waits for the reply to what another sends: the lines of the bridge's ports.
    int result = -1;
    startMs = nowMs();
    std::thread reader([&] { result = device.bulk(0x86, std::vector<uint8_t>(9), 5000); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    int sent = 0;
    std::vector<uint8_t> request = {3, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0};
    check(libusb_bulk_transfer(device.handle(), 0x04, request.data(), 16, &sent, 1000), 0, "request");
    reader.join();
    check(result, 0, "read in another thread");
    check(device.moved, 9, "bytes read in another thread");
    check(nowMs() - startMs < 1500, true, "the answer comes when the device is ready");
}

void busy(const Arguments& /*none*/)
{
    Device holder;
    check(holder.claim(), 0, "claim");
    Device other;
    check(other.claim(), LIBUSB_ERROR_BUSY, "claim of a busy interface");
    check(other.vendor(0xB3, 0, {}), LIBUSB_ERROR_PIPE, "request without a claim, which no camera knows");
    check(libusb_release_interface(holder.handle(), 0), 0, "release");
    check(other.claim(), 0, "claim of what was given back");
    check(holder.claim(), LIBUSB_ERROR_BUSY, "claim after it was given away");
}

/// Takes a whole picture for each argument, the bytes of the largest read that it allows the library, and says what
/// came of each. Before each it waits for a camera to be attached.
void pictures(const Arguments& largestReads)
{
    size_t next = 0;
    for (int attempt = 0; next < largestReads.size() && attempt < 200; ++attempt) {
        VornCamera* camera = nullptr;
        if (VornCamera::list(&camera, 1) == 1 &&
            camera->setParam(MAX_PACKET_SIZE, std::atol(largestReads[next].c_str())) && camera->open()) {
            VornCapabilities caps{};
            (void)camera->getCapabilities(nullptr, nullptr, &caps);
            std::vector<uint16_t> pixels(size_t{caps.pixelCountX} * caps.pixelCountY);
            const bool taken = camera->setPreviewMode(true) && camera->startExposure(false) &&
                               camera->readCCD(0, 0, caps.pixelCountX, caps.pixelCountY, 1, 1) &&
                               camera->getImage(pixels.data(), static_cast<unsigned>(pixels.size()));
            (void)std::printf("%s\n", taken ? "taken" : camera->getLastError());
            camera->close();
            ++next;
        }
        delete camera;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const std::map<std::string, void (*)(const Arguments&)> checks = {
        {"list", list}, {"starting", starting}, {"waiting", waiting}, {"busy", busy}, {"pictures", pictures}};
    checks.at(argv[1])({argv + 2, argv + argc});
    return failures ? 1 : 0;
}
