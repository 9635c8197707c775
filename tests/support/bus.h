// SPDX-License-Identifier: MIT
#pragma once

/// The seam between the library and the bus. A program that links this code defines the libusb functions the library
/// uses, and `usleep` and `gettimeofday`; dynamic linking lets these definitions win for the unmodified shared library.
/// The Bus keeps the virtual time and hands every call to the Backend of the device concerned: a Script of expected
/// calls, or a simulated camera.

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include <libusb.h>

namespace vorntest {

/// One call that reached the seam, as handed to a Backend.
struct BusCall {
    enum Kind {
        OPEN,
        CLOSE,
        DRIVER_ACTIVE,
        DETACH_DRIVER,
        CLAIM,
        ALT_SETTING,  ///< `value` is the interface, as in the three above, `index` the setting
        BULK_OUT,
        BULK_IN,
        CONTROL_OUT,
        CONTROL_IN,
        PAUSE,  ///< usleep
    };
    Kind kind = PAUSE;
    unsigned endpoint = 0;
    unsigned requestType = 0;  ///< this and the next three: of control transfers
    unsigned request = 0;
    unsigned value = 0;
    unsigned index = 0;
    int length = 0;  ///< bytes offered or asked for
    unsigned timeoutMs = 0;
    long pauseUs = 0;
    std::vector<uint8_t> bytes = {};  ///< data sent

    bool operator==(const BusCall&) const = default;
    /// @return whether the call can fail in a test's fault plan: everything but CLOSE, PAUSE and the driver queries.
    bool countable() const { return kind != CLOSE && kind != PAUSE && kind != DRIVER_ACTIVE && kind != DETACH_DRIVER; }
    /// @return one line for people, for example `out 0x04, 16 bytes, 30000 ms: 0C 00 00 ...`.
    std::string text() const;
};

/// Serves the calls made to one device.
class Backend {
public:
    virtual ~Backend() = default;
    /// @param data the caller's buffer, `call.length` bytes; read for OUT, written for IN
    /// @param transferred bytes moved by a bulk transfer
    /// @return what the libusb function returns; a control transfer returns the bytes moved
    virtual int serve(const BusCall& call, std::span<uint8_t> data, int& transferred) = 0;
};

/// The `at`-th countable call of a device, from 1, takes so much longer.
struct Fault {
    int at = 0;
    int64_t delayUs = 0;
};

/// The bus of this process. Safe to use from several threads: a device serves one call at a time.
class Bus {
public:
    /// Forgets devices and plans; the virtual time goes on.
    void reset()
    {
        const std::lock_guard held(mutex_);
        devices_.clear();
        initResult = listResult = 0;
        pauseListener = nullptr;
    }
    /// Plugs @p device in; it must outlive its use. VornCamera::list() finds devices in this order.
    void attach(libusb_device& device)
    {
        const std::lock_guard held(mutex_);
        devices_.push_back(&device);
    }

    /// @return virtual microseconds since the program began.
    int64_t nowUs() const { return now_; }
    void advanceUs(int64_t us) { now_ += us; }
    /// Lets time pass until @p timeUs, if that is still to come.
    void advanceTo(int64_t timeUs)
    {
        int64_t now = now_;
        while (now < timeUs && !now_.compare_exchange_weak(now, timeUs)) {
        }
    }

    int initResult = 0;  ///< what libusb_init returns
    int listResult = 0;  ///< negative: what libusb_get_device_list returns
    std::atomic<int> initCalls = 0;
    std::atomic<int> listCalls = 0;
    std::function<void(long us)> pauseListener;  ///< told of every pause

    // What the functions of the seam call.
    int call(libusb_device& device, BusCall call, uint8_t* data, int* transferred);
    void pause(long us);
    ssize_t deviceList(libusb_device*** list);

private:
    std::mutex mutex_;
    std::atomic<int64_t> now_ = 0;
    std::vector<libusb_device*> devices_;
    std::vector<std::vector<libusb_device*>> lists_;  // kept: the library never gives a list back
};

Bus& bus();

/// Reports a fault of the code under test that has no return path, such as a null handle. script.cpp reports it to
/// GoogleTest; a program without that defines its own.
void reportMisuse(const std::string& text);

}  // namespace vorntest

struct libusb_device_handle {
    libusb_device* device = nullptr;
};

/// A fake device. Tests make them where they need them.
struct libusb_device {
    libusb_device(uint16_t product, vorntest::Backend& itsBackend) : productId(product), backend(&itsBackend) {}
    libusb_device(const libusb_device&) = delete;
    libusb_device& operator=(const libusb_device&) = delete;

    /// @return a handle as after libusb_open, without a call: for tests of single operations.
    libusb_device_handle* openHandle()
    {
        openCount = 1;
        return &handle;
    }

    uint16_t vendorId = 0x16d0;
    uint16_t productId;
    vorntest::Backend* backend;
    vorntest::Fault fault;
    std::atomic<int> callCount = 0;     ///< countable calls so far
    std::atomic<int> openCount = 0;     ///< handles open now
    std::atomic<int> references = 0;    ///< taken with libusb_ref_device
    bool descriptorUnreadable = false;  ///< libusb_get_device_descriptor fails

    std::mutex mutex;  ///< held during a call
    libusb_device_handle handle{this};
};
