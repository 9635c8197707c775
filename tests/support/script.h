// SPDX-License-Identifier: MIT
#pragma once

/// @file script.h
/// A conversation written down in advance: the ordered list of every call and pause a camera object is expected to
/// make, with what the device answers. An unexpected call fails the test with both sides printed, and so does a step
/// that is left over at the end. Failures carry the file and line at which the step was written.
///
/// @code
/// Script usb;
/// VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
/// camera.handle = usb.device.openHandle();
/// usb.out(0x04, "03 ?? 00 00 00 00 00 00 05 ...").in(0x86, 9, "00 00 20 00 00 00 00 00 00").pause(200000);
/// usb.parIn(2, "65 00").fails(LIBUSB_ERROR_TIMEOUT);  // the last step written
/// @endcode
///
/// Bytes are two hex digits each, separated by blanks. `??` takes any byte, and in place of the sequence byte of a
/// bridge request it takes the one after the request before. `...` stands for zeros up to offset 16.

#include <algorithm>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "bus.h"

namespace vorntest {

/// Where in a test's source a step was written.
struct Place {
    const char* file = "";
    int line = 0;
    static Place here(const char* file = __builtin_FILE(), int line = __builtin_LINE()) { return {file, line}; }
};

class Steps;

/// What a sweep expects when a call fails.
struct Consequence {
    enum Kind {
        ENDS,      ///< only `afterwards` follows, and the operation fails with `error`
        HARMLESS,  ///< the rest of its group is left out, and all goes on
        UNTRIED,   ///< sweeps do not fail it
    };
    Kind kind = ENDS;
    unsigned group = 0;  ///< steps between two marks; 0 before the first
    std::shared_ptr<const Steps> afterwards = {};
    const char* error = "No error";
};

/// One expected call.
struct ScriptStep {
    BusCall call = {};                ///< what is expected; `bytes` is not used
    std::vector<int> sent = {};       ///< data expected to be sent, -1 for any byte
    std::vector<uint8_t> reply = {};  ///< data received
    int result = 0;                   ///< what the call returns
    Place place = {};
    Consequence ifFailing = {};

    bool matches(BusCall made) const;
    /// @return as BusCall::text(), `??` where any byte will do.
    std::string text() const;
};

/// Hex notation to bytes, -1 for `??`.
std::vector<int> parseHex(const std::string& hex);
/// Hex notation without `??` to bytes.
std::vector<uint8_t> parseBytes(const std::string& hex);
/// @return the low eight bits in hex notation.
std::string hexByte(size_t value);
std::string toHex(std::span<const uint8_t> bytes);
/// @return @p count bytes 00, each with a blank before it.
std::string zeros(size_t count);

/// A list of expected calls. Each function that names a call adds a step and notes where it was written.
class Steps {
public:
    Steps& open(Place place = Place::here()) { return add({.kind = BusCall::OPEN}, place); }
    Steps& close(Place place = Place::here()) { return add({.kind = BusCall::CLOSE}, place); }
    Steps& driverActive(bool active, Place place = Place::here())
    {
        return add({.kind = BusCall::DRIVER_ACTIVE}, place).fails(active ? 1 : 0);
    }
    Steps& detachDriver(Place place = Place::here()) { return add({.kind = BusCall::DETACH_DRIVER}, place); }
    Steps& claim(Place place = Place::here()) { return add({.kind = BusCall::CLAIM}, place); }
    Steps& altSetting(Place place = Place::here()) { return add({.kind = BusCall::ALT_SETTING, .index = 1}, place); }
    Steps& out(unsigned endpoint, const std::string& hex, Place place = Place::here())
    {
        return add({.kind = BusCall::BULK_OUT, .endpoint = endpoint, .timeoutMs = timeoutMs_}, place, hex);
    }
    Steps& in(unsigned endpoint, int length, std::vector<uint8_t> bytes, Place place = Place::here())
    {
        EXPECT_LE(bytes.size(), static_cast<size_t>(length)) << "reply too long, " << place.file << ":" << place.line;
        add({.kind = BusCall::BULK_IN, .endpoint = endpoint, .length = length, .timeoutMs = timeoutMs_}, place);
        last().reply = std::move(bytes);
        return *this;
    }
    Steps& in(unsigned endpoint, int length, const std::string& hex, Place place = Place::here())
    {
        return in(endpoint, length, parseBytes(hex), place);
    }
    Steps& controlOut(unsigned request, unsigned value, unsigned index, const std::string& hex,
                      Place place = Place::here())
    {
        add({BusCall::CONTROL_OUT, 0, 0x40, request, value, index, 0, 3000}, place, hex);
        return fails(last().call.length);
    }
    Steps& controlIn(unsigned request, unsigned value, unsigned index, int length, const std::string& hex,
                     Place place = Place::here())
    {
        add({BusCall::CONTROL_IN, 0, 0xC0, request, value, index, length, 3000}, place);
        last().reply = parseBytes(hex);
        return fails(static_cast<int>(last().reply.size()));
    }
    Steps& pause(long us, Place place = Place::here()) { return add({.pauseUs = us}, place); }

    /// The last step returns @p result, and moves no data when that is negative.
    Steps& fails(int result = LIBUSB_ERROR_IO)
    {
        last().result = result;
        if (result < 0)
            last().reply.clear();
        return *this;
    }
    /// Bulk transfers written from here on are expected with this timeout; 30000 at first.
    Steps& timeout(unsigned ms)
    {
        timeoutMs_ = ms;
        return *this;
    }

    // ---- exchanges that every test repeats ------------------------------------------------------------------------

    /// `parOut`: the bytes on endpoint 0x02, then request 10 and its acknowledgement.
    Steps& parOut(const std::string& hex, Place place = Place::here())
    {
        return out(0x02, hex, place).out(0x04, "0A ?? FF ...", place).in(0x86, 4, "00 00 00 00", place);
    }
    /// `parIn` of @p length bytes: request 9, then the bytes and one more on endpoint 0x88.
    Steps& parIn(unsigned length, const std::string& hex, Place place = Place::here())
    {
        std::string count;
        for (const unsigned shift : {16U, 24U, 0U, 8U})
            count += hexByte(length >> shift) + " ";
        out(0x04, "09 ?? 00 00 " + count + "...", place);
        return in(0x88, static_cast<int>(length) + 1, hex.empty() ? "" : hex + " 00", place);
    }
    /// A STANDARD command: `43 00 4D 00 44 00` and @p hex by parOut.
    Steps& command(const std::string& hex, Place place = Place::here())
    {
        return parOut("43 00 4D 00 44 00 " + hex, place);
    }
    /// The bytes (address byte first) by an acknowledged I2C write.
    Steps& i2cWrite(const std::string& hex, Place place = Place::here())
    {
        const std::string length = hexByte(parseHex(hex).size());
        out(0x04, "04 ?? FF 00 00 00 01 00 00 00 00 00 " + length + " 00 00 00 " + hex, place);
        return in(0x86, 4, "00 00 00 00", place);
    }
    /// An EEPROM read of @p length bytes at byte address @p address: word address written, data read.
    Steps& eepRead(unsigned address, unsigned length, const std::string& hex, Place place = Place::here())
    {
        i2cWrite("A2 00 " + hexByte(address), place);
        out(0x04, "04 ?? FF 00 00 00 01 00 " + hexByte(length) + " 00 00 00 01 00 00 00 A3", place);
        return in(0x86, static_cast<int>(length) + 4, "00 " + hex + " 00 00 00", place);
    }
    /// The whole upload of the exported firmware table: 768 control transfers.
    Steps& firmwareUpload(Place place = Place::here());
    /// The parallel channel drained when it is empty: one read of @p length bytes that ends in a timeout after 100 ms.
    Steps& emptyFlush(unsigned length = 1, Place place = Place::here())
    {
        return timeout(100).parIn(length, "", place).fails(LIBUSB_ERROR_TIMEOUT).timeout(30000);
    }

    // ---- marks for sweeps: what a failure of the steps written from here on means -----------------------------------

    /// The operation does @p afterwards and fails with @p error. In long groups sweeps fail samples only.
    Steps& ends(const Steps& afterwards, const char* error)
    {
        return mark({.afterwards = std::make_shared<const Steps>(afterwards), .error = error});
    }
    /// The steps up to the next mark are given up, and all goes on behind them.
    Steps& harmless() { return mark({.kind = Consequence::HARMLESS}); }
    /// Nothing here: that is another test's.
    Steps& untried() { return mark({.kind = Consequence::UNTRIED}); }
    /// @return the text that the operation leaves; of the steps that forEachFailure() hands out.
    const char* error() const { return error_; }

    // ---- lists as values ------------------------------------------------------------------------------------------

    /// Adds the steps of @p other from the @p first-th on.
    Steps& append(const Steps& other, size_t first = 0)
    {
        for (size_t i = first; i < other.size(); i++) {
            steps_.push_back(other.steps_[i]);
            if (steps_.back().ifFailing.group == 0)
                steps_.back().ifFailing = mark_;
        }
        return *this;
    }
    /// Drops all steps from the @p count-th on.
    Steps& cut(size_t count)
    {
        steps_.resize(std::min(count, steps_.size()));
        return *this;
    }
    /// Drops the first step that sends @p hex, and all behind it.
    Steps& cutBefore(const std::string& hex);
    /// @return steps so far, pauses included.
    size_t size() const { return steps_.size(); }
    ScriptStep& last() { return steps_.back(); }

protected:
    std::vector<ScriptStep> steps_;

private:
    friend void forEachFailure(const Steps& whole, const std::function<void(const Steps& steps, bool ok)>& run);

    Steps& add(BusCall call, Place place, const std::string& sent = "");
    Steps& mark(Consequence consequence)
    {
        static unsigned groups = 0;
        mark_ = std::move(consequence);
        mark_.group = ++groups;
        return *this;
    }

    unsigned timeoutMs_ = 30000;
    Consequence mark_;
    const char* error_ = "No error";
};

/// The expected conversation with one device, which it owns. While it lives it receives every pause of the process.
class Script : public Steps, public Backend {
public:
    Script();
    ~Script() override;

    /// Fails the test when steps are left over. @return true when there are none and none went wrong.
    bool done(Place place = Place::here());
    /// Forgets all steps.
    void clear()
    {
        steps_.clear();
        played_ = 0;
    }
    /// Behind the last step any call is answered with LIBUSB_ERROR_NO_DEVICE and not judged: an unplugged camera.
    void thenUnplugged() { unplugged_ = true; }
    int serve(const BusCall& call, std::span<uint8_t> data, int& transferred) override;

    libusb_device device;

private:
    const ScriptStep* expect(const BusCall& call);

    size_t played_ = 0;
    bool broken_ = false;  // one message is enough: what follows a wrong call means nothing
    bool unplugged_ = false;
    int lastSequence_ = -1;
};

/// Calls @p run for each call of @p whole with the steps up to that call, which fails, and what its mark says must
/// follow; at last with all steps.
/// @param ok whether the operation is to succeed
void forEachFailure(const Steps& whole, const std::function<void(const Steps& steps, bool ok)>& run);

}  // namespace vorntest
