// SPDX-License-Identifier: MIT
// What can be said about faults, and what a device makes of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <variant>

#include "../simulator/device_fixture.h"
#include "bus/urb_queue.h"
#include "device/faults/camera_slot.h"

namespace vornsim::test {
namespace {

/// Takes and gives whatever is asked; a byte of 1 begins an exposure. What it gives are bytes of 7.
struct Willing : SimulatedCamera {
    std::vector<uint8_t> descriptors() const override { return {}; }
    bool setInterface(unsigned /*interface*/, unsigned /*alternate*/) override { return true; }
    ControlResult control(const SetupPacket& setup, std::span<uint8_t> data) override
    {
        std::fill(data.begin(), data.end(), uint8_t{7});
        return {TransferStatus::OK, setup.length};
    }
    BulkResult bulkOut(uint8_t /*endpoint*/, std::span<const uint8_t> data) override
    {
        state.integrating = data[0] == 1;
        return {TransferStatus::OK, data.size(), true};
    }
    BulkResult bulkIn(uint8_t /*endpoint*/, std::span<uint8_t> buffer) override
    {
        const size_t half = buffer.size() > 4 ? buffer.size() / 2 : buffer.size();  // in parts
        std::fill_n(buffer.begin(), half, uint8_t{7});
        return {TransferStatus::OK, half, false, 0};
    }
    CameraTruth truth() const override { return state; }

    CameraTruth state;
};

/// Does what each letter of a script says with a device on a bus, and writes down what comes of it.
struct Host {
    explicit Host(const char* rule)
        : slot([] { return std::make_unique<Willing>(); }, {std::get<FaultRule>(parseFault(rule))}, clock, log)
    {
        bus.emplace(slot, clock);
    }

    std::string run(const std::string& script)
    {
        std::string said;
        for (const char letter : script)
            said += (said.empty() ? "" : " ") + step(letter);
        return said;
    }

    std::string step(char letter)
    {
        switch (letter) {
            case 'o':  // open
                return bus->mayClaim() && bus->setInterface(0, 1) ? "ok" : "busy";
            case 'c':  // close
                return bus->setInterface(0, 0) ? "ok" : "gone";
            case 'e':  // begin an exposure
            case 'w':  // write
                return transfer(UrbKind::BULK, 0x04, {}, letter == 'e');
            case 'r':  // read
                return transfer(UrbKind::BULK, 0x86, {}, 0);
            case 'x':  // control request
                return transfer(UrbKind::CONTROL, 0, {0xC0, 1, 0, 0, 8}, 0);
            case 'h':  // end the halt
                return transfer(UrbKind::CONTROL, 0, {2, 1, 0, 0x86, 0}, 0);
            case 'p':  // the time of plugging in has come
                waitUntil(slot.faults().replug().atUs);
                slot.plugIn();
                bus.emplace(slot, clock);
                [[fallthrough]];
            default:  // tell the time
                return std::to_string(clock.nowUs() / 1000000) + "s";
        }
    }

    void waitUntil(int64_t us) { clock.pass(us - clock.nowUs()); }

    std::string transfer(UrbKind kind, uint8_t endpoint, SetupPacket setup, uint8_t firstByte)
    {
        auto urb = std::make_unique<Urb>();
        urb->kind = kind;
        urb->endpoint = endpoint;
        urb->setup = setup;
        urb->length = 8;
        urb->data.reset(new uint8_t[8]{firstByte});
        if (const int error = bus->submit(std::move(urb)))
            return strerrorname_np(error);
        while (!bus->hasDone() && bus->nextRetryUs() != NEVER) {
            waitUntil(bus->nextRetryUs());
            bus->advance();
        }
        (void)bus->discard(0, 0);
        urb = bus->reap(0);
        const bool garbled = urb->isIn() && std::count(&urb->data[0], &urb->data[8], 7) != 8;
        return urb->status ? strerrorname_np(-urb->status) : std::to_string(urb->actualLength) + (garbled ? "?" : "");
    }

    ManualClock clock;
    CollectingLog log;
    CameraSlot slot;
    std::optional<UrbQueue> bus;
};

TEST(FaultPlan, HurtsTheTransfersItWasToldTo)
{
    const struct {
        const char* rule;
        const char* script;
        const char* outcome;
    } cases[] = {
        {"transfer=2,error=IO", "xxrw", "8 EPROTO 8 8"},
        {"error=PIPE,endpoint=0x86", "rrwhr", "EPIPE EPIPE 8 0 8"},
        {"error=PIPE,endpoint=control", "rxx", "8 EPIPE 8"},
        {"error=OVERFLOW,endpoint=in,times=2", "wrxr", "8 EOVERFLOW EOVERFLOW 8"},
        {"error=TIMEOUT,endpoint=0x86,transfer=2,times=ever", "rrxr", "8 ENOENT 8 ENOENT"},
        {"error=NO_MEM,endpoint=out,transfer=2", "wrww", "8 8 ENOMEM 8"},
        {"error=BUSY,open=2", "ocoo", "ok ok busy ok"},
        {"short=3", "rr", "5 8"},
        {"short=9,endpoint=out", "rwe", "8 0 8"},
        {"garbage,transfer=2", "rrx", "8 8? 8"},
        {"delay=4,transfer=2,endpoint=0x86", "rtrt", "8 1s 8 5s"},
        {"open=every,error=IO,transfer=2", "orrcorr", "ok 8 EPROTO ok ok 8 EPROTO"},
        {"exposure=2,error=IO,transfer=2", "errwerrr", "8 8 8 8 8 8 EPROTO 8"},
        {"exposure=1,error=IO,transfer=4", "erwerr", "8 8 8 8 8 8"},
        {"transfer=2,error=NO_DEVICE,replug=3", "rrxcprr", "8 ESHUTDOWN ENODEV gone 4s 8 8"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Host(c.rule).run(c.script), c.outcome) << c.rule;
}

TEST(FaultRule, SaysWhatIsWrongAndWhatIsAllowed)
{
    const std::pair<const char*, const char*> cases[] = {
        {"", "\"\" is not part of a fault; these are: camera, open, "},
        {"exposure=2", "what goes wrong: error=, short=, garbage or delay="},
        {"error=io", "NO_DEVICE, PIPE, OVERFLOW, IO, TIMEOUT, NO_MEM or BUSY"},
        {"transfer=0,garbage", "\"transfer=0\" should have a number from 1"},
        {"times=2x,garbage", "a number from 1, or ever"},
        {"endpoint=0x100,garbage", "such as 0x86"},
        {"garbage=1", "should have nothing after"},
        {"garbage,short=1", "\"garbage\" and \"short\" exclude each other"},
        {"error=IO,replug=1", "only a camera that was unplugged"},
        {"error=BUSY,transfer=3", "busy when it is opened"},
    };
    for (const auto& [text, part] : cases) {
        const auto parsed = parseFault(text);
        const auto* problem = std::get_if<std::string>(&parsed);
        ASSERT_TRUE(problem) << text;
        EXPECT_NE(problem->find(part), std::string::npos) << text << ": " << *problem;
    }
}

}  // namespace
}  // namespace vornsim::test
