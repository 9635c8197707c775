// SPDX-License-Identifier: MIT
#pragma once

/// @file bus.h
/// The seam between the library and the bus. A program that links this code defines the libusb functions the library
/// uses, and `usleep` and `gettimeofday`; dynamic linking lets these definitions win for the unmodified shared library.
/// Every call ends in the Bus: it keeps the virtual time, counts, injects faults, and hands the call to the Backend of
/// the device concerned (a Script of expected calls, or a simulated camera).
///
/// @code
/// vorntest::bus().reset();
/// SimulatedUsb usb(*camera);                    // any Backend
/// libusb_device device(0xdf34, usb);
/// vorntest::bus().attach(device);               // now VornCamera::list() finds it
/// device.fault = {.at = 17, .result = LIBUSB_ERROR_PIPE};   // the 17th transfer fails
/// @endcode

#include <atomic>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include <libusb.h>

namespace vorntest {

/// One call that reached the seam, as handed to a Backend.
struct BusCall {
    enum Kind {
        OPEN,           ///< libusb_open
        CLOSE,          ///< libusb_close
        DRIVER_ACTIVE,  ///< libusb_kernel_driver_active; `value` is the interface
        DETACH_DRIVER,  ///< libusb_detach_kernel_driver; `value` is the interface
        CLAIM,          ///< libusb_claim_interface; `value` is the interface
        ALT_SETTING,    ///< libusb_set_interface_alt_setting; `value` is the interface, `index` the setting
        BULK_OUT,       ///< libusb_bulk_transfer to `endpoint`
        BULK_IN,        ///< libusb_bulk_transfer from `endpoint`
        CONTROL_OUT,    ///< libusb_control_transfer, host to device
        CONTROL_IN,     ///< libusb_control_transfer, device to host
        PAUSE,          ///< usleep; `pauseUs` is its argument
    };
    Kind kind = PAUSE;
    unsigned endpoint = 0;            ///< exactly as passed
    unsigned requestType = 0;         ///< control transfers: bmRequestType
    unsigned request = 0;             ///< control transfers: bRequest
    unsigned value = 0;               ///< control transfers: wValue
    unsigned index = 0;               ///< control transfers: wIndex
    int length = 0;                   ///< bytes offered or asked for
    unsigned timeoutMs = 0;           ///< exactly as passed
    long pauseUs = 0;                 ///< PAUSE only
    std::vector<uint8_t> bytes = {};  ///< data sent

    bool operator==(const BusCall&) const = default;
    /// @return whether the call can fail in a test's fault plan: everything but CLOSE, PAUSE and the driver queries.
    bool countable() const;
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

/// A planned misfortune: hits the `at`-th countable call of a device.
struct Fault {
    int at = 0;                    ///< number of the call, from 1; 0 plans nothing
    int result = LIBUSB_ERROR_IO;  ///< what the call returns; a negative result keeps the call from the device
    bool forEver = false;          ///< it and every later call; with LIBUSB_ERROR_NO_DEVICE this is an unplugging
    int shortenTo = -1;            ///< instead of failing, a bulk transfer moves at most this many bytes
    int64_t delayUs = 0;           ///< instead of failing, the call takes this much longer
};

/// Receives what pauses there are; a Script compares them with its list.
class PauseListener {
public:
    virtual ~PauseListener() = default;
    virtual void paused(long us) = 0;
};

/// The bus of this process. Safe to use from several threads: a device serves one call at a time.
class Bus {
public:
    /// Forgets devices and plans; the virtual time goes on.
    void reset();

    /// Plugs @p device in; it must outlive its use. VornCamera::list() finds devices in this order.
    void attach(libusb_device& device);

    /// @return virtual microseconds since the program began.
    int64_t nowUs() const { return now_; }
    /// Lets @p us microseconds pass.
    void advanceUs(int64_t us) { now_ += us; }
    /// Lets time pass until @p timeUs, if that is still to come.
    void advanceTo(int64_t timeUs);

    int initResult = 0;                      ///< what libusb_init returns
    int listResult = 0;                      ///< negative: what libusb_get_device_list returns
    std::atomic<int> initCalls = 0;          ///< calls of libusb_init that got this far
    std::atomic<int> listCalls = 0;          ///< calls of libusb_get_device_list
    PauseListener* pauseListener = nullptr;  ///< told of every pause

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

/// @return the bus.
Bus& bus();

/// Reports a fault of the code under test that has no return path, such as a null handle. The scripts' part of this
/// folder reports it to GoogleTest; a program without that part defines its own.
void reportMisuse(const std::string& text);

}  // namespace vorntest

/// An open fake device.
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
