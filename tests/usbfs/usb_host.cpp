// SPDX-License-Identifier: MIT
// A host program as others write them: plain libusb-1.0, no knowledge of simulators. It runs the checks that it is told
// to on the loopback device with the given product id, prints what did not come out as expected, and exits 1 then.
#include <libusb.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <string>
#include <thread>
#include <vector>

#ifdef __SANITIZE_THREAD__
/// The thread sanitizer does not see how libusb, which it did not compile, synchronises threads.
extern "C" const char* __tsan_default_options();
const char* __tsan_default_options()
{
    return "ignore_noninstrumented_modules=1";
}
#endif

namespace {

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

/// One opened device, closed at the end.
class Device {
public:
    Device(uint16_t productId, bool setUp)
    {
        (void)libusb_init(nullptr);
        handle_ = libusb_open_device_with_vid_pid(nullptr, 0x1234, productId);
        if (!handle_) {
            std::printf("FAILED: device %04x not found\n", productId);
            std::exit(1);
        }
        if (setUp) {
            check(claim(), 0, "claim");
            check(libusb_set_interface_alt_setting(handle_, 0, 1), 0, "alternate setting");
        }
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
    int vendor(uint8_t request, unsigned value, unsigned index = 0)
    {
        return libusb_control_transfer(handle_, 0x40, request, static_cast<uint16_t>(value),
                                       static_cast<uint16_t>(index), nullptr, 0, 1000);
    }
    int bulk(uint8_t endpoint, std::vector<uint8_t>& bytes, unsigned timeoutMs, int& moved)
    {
        moved = -1;
        return libusb_bulk_transfer(handle_, endpoint, bytes.data(), static_cast<int>(bytes.size()), &moved, timeoutMs);
    }

private:
    libusb_device_handle* handle_ = nullptr;
};

void list(uint16_t /*productId*/)
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

void starting(uint16_t /*productId*/)
{
    for (int i = 0; i < 50; ++i) {
        libusb_device** devices = nullptr;
        check(libusb_init(nullptr), 0, "start of libusb beside other programs");
        check(libusb_get_device_list(nullptr, &devices), 3, "devices");
        libusb_free_device_list(devices, 1);
        libusb_exit(nullptr);
    }
}

void transfers(uint16_t productId)
{
    Device device(productId, false);
    std::vector<uint8_t> bytes(512);
    int moved = 0;
    check(device.claim(), 0, "claim");
    check(device.bulk(0x04, bytes, 100, moved), LIBUSB_ERROR_IO, "bulk in alternate setting 0");
    check(libusb_set_interface_alt_setting(device.handle(), 0, 2), LIBUSB_ERROR_NOT_FOUND, "alternate 2");
    check(libusb_set_interface_alt_setting(device.handle(), 0, 1), 0, "alternate 1");

    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(i * 7);
    std::vector<uint8_t> echo(1024);
    check(device.bulk(0x04, bytes, 1000, moved), 0, "bulk out");
    check(device.bulk(0x86, echo, 1000, moved), 0, "bulk in");
    check(moved, 512, "length of the echo");
    echo.resize(512);
    check(echo == bytes, true, "the echo is what was sent");

    // The largest transfer that a stock kernel has memory for is 1021 pieces of 16 KiB, and a bit.
    constexpr int LARGEST = 1021 * 16384;
    std::vector<uint8_t> frame(LARGEST + 16384);
    check(device.bulk(0x88, frame, 5000, moved), LIBUSB_ERROR_NO_MEM, "more than usbfs has memory for");
    frame.resize(LARGEST);
    check(device.vendor(0xB2, LARGEST & 0xFFFF, LARGEST >> 16), 0, "order the pattern");
    check(device.bulk(0x88, frame, 5000, moved), 0, "a large frame in one piece");
    check(moved, LARGEST, "length of the frame");
    long wrong = 0;
    for (size_t i = 0; i < frame.size(); ++i)
        wrong += frame[i] != i % 251;
    check(wrong, 0, "wrong bytes in the frame");
}

void waiting(uint16_t productId)
{
    Device device(productId, true);
    std::vector<uint8_t> bytes(100, 0x5A);
    int moved = 0;
    double startMs = nowMs();
    const std::clock_t startCpu = std::clock();
    check(device.vendor(0xB2, 60), 0, "60 bytes of pattern");
    check(device.bulk(0x88, bytes, 300, moved), LIBUSB_ERROR_TIMEOUT, "endpoint that stops halfway");
    check(moved, 60, "bytes before it stopped");
    check(nowMs() - startMs > 295 && nowMs() - startMs < 2000, true, "the timeout is the one that was asked for");
    check(std::clock() - startCpu < CLOCKS_PER_SEC / 10, true, "the host sleeps while it waits");

    check(device.bulk(0x04, bytes, 100, moved), 0, "bytes to wait for");
    startMs = nowMs();
    check(device.vendor(0xB0, 80), 0, "80 ms pause");
    check(device.bulk(0x86, bytes, 2000, moved), 0, "late answer");
    check(nowMs() - startMs > 75 && nowMs() - startMs < 1500, true, "the answer comes when the device is ready");

    // One thread has part of what it waits for, another sees to the rest.
    int readMoved = 0;
    int readResult = -1;
    check(device.vendor(0xB2, 60), 0, "60 bytes more");
    std::thread reader([&] { readResult = device.bulk(0x88, bytes, 5000, readMoved); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    check(device.vendor(0xB2, 40), 0, "40 bytes while another thread reads");
    reader.join();
    check(readResult, 0, "read in another thread");
    check(readMoved, 100, "bytes read in another thread");
    check(bytes[0] == 60 && bytes[59] == 119 && bytes[60] == 120 && bytes[99] == 159, true, "parts in their places");
}

void errors(uint16_t productId)
{
    Device device(productId, true);
    std::vector<uint8_t> bytes(512);
    int moved = 0;
    constexpr std::array<int, 4> EXPECTED = {LIBUSB_ERROR_PIPE, LIBUSB_ERROR_OVERFLOW, LIBUSB_ERROR_IO,
                                             LIBUSB_ERROR_NO_DEVICE};
    for (size_t status = 0; status < EXPECTED.size(); ++status) {
        check(device.vendor(0xB1, static_cast<unsigned>(status + 1)), 0, "order a failure");
        check(device.bulk(0x88, bytes, 1000, moved), EXPECTED[status], "failing read");
        if (EXPECTED[status] == LIBUSB_ERROR_PIPE)
            check(libusb_clear_halt(device.handle(), 0x88), 0, "clear halt");
    }
    check(device.bulk(0x88, bytes, 1000, moved), LIBUSB_ERROR_NO_DEVICE, "read from an unplugged device");
    check(device.vendor(0xB0, 0), LIBUSB_ERROR_NO_DEVICE, "control request to an unplugged device");
    libusb_device** devices = nullptr;
    check(libusb_get_device_list(nullptr, &devices), 2, "devices left: the other one and the root hub");
    libusb_free_device_list(devices, 1);
}

void busy(uint16_t productId)
{
    Device holder(productId, true);
    Device other(productId, false);
    check(other.claim(), LIBUSB_ERROR_BUSY, "claim of a busy interface");
    check(other.vendor(0xB0, 0), 0, "vendor request without a claim");
    Device free(static_cast<uint16_t>(productId + 1), true);  // the neighbour is not affected
    check(libusb_release_interface(holder.handle(), 0), 0, "release");
    Device next(productId, true);
    check(holder.claim(), LIBUSB_ERROR_BUSY, "claim after it was given away");
}

void refused(uint16_t productId)
{
    Device device(productId, false);
    check(device.vendor(0xB3, 0), LIBUSB_ERROR_PIPE, "request that no camera knows");
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    const auto productId = static_cast<uint16_t>(argc > 2 ? std::strtoul(argv[2], nullptr, 16) : 0x1001);
    const std::map<std::string, void (*)(uint16_t)> checks = {
        {"list", list},     {"starting", starting}, {"transfers", transfers}, {"waiting", waiting},
        {"errors", errors}, {"busy", busy},         {"refused", refused}};
    checks.at(what)(productId);
    return failures ? 1 : 0;
}
