// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "family_fixture.h"

namespace vornsim::test {

using Bytes = std::vector<uint8_t>;

/// @return the bytes of a text like "43 00 4D".
inline Bytes hex(const std::string& text)
{
    std::istringstream in(text);
    Bytes bytes;
    for (unsigned value = 0; in >> std::hex >> value;)
        bytes.push_back(static_cast<uint8_t>(value));
    return bytes;
}

inline std::string toHex(const Bytes& bytes)
{
    static const char* const DIGITS = "0123456789ABCDEF";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += text.empty() ? "" : " ";
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 15];
    }
    return text;
}

inline Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The waveform table of the STANDARD bus, as a host sends it.
inline Bytes handshakeTable()
{
    return hex(
        "01 EE FF 80 00 00 FF E4 11 01 02 00 04 00 00 00 01 0A 01 3B 01 01 01 07 00 01 02 01 00 00 10 00 "
        "FC FC FD FD FD FD FD FF 00 00 12 00 00 2D 12 3F 01 0A 01 3B 01 01 01 07 02 03 02 05 00 00 00 00 "
        "FE FE FF FF FF FF FF FF 09 00 00 00 00 2D 36 3F 0E 03 01 3F 01 01 36 07 01 00 02 01 00 00 11 00 "
        "FF FE FE FE FF FF FF FF 00 09 12 12 00 2D 12 3F 08 03 01 3F 01 01 01 07 01 02 00 01 00 00 00 00 "
        "FF FD FF FF FF FF FF FF 09 09 12 12 00 2D 36 3F 00 00 00 00 00 00 00 00");
}

/// A host at the far end of the cable that sends exactly the bytes it is told and waits in manual time.
class BridgeHost {
public:
    BridgeHost(UsbDevice& usb, ManualClock& time) : device(usb), clock(time) {}

    ControlResult control(uint8_t type, uint8_t request, uint16_t value, uint16_t index, Bytes& data)
    {
        return device.control({type, request, value, index, static_cast<uint16_t>(data.size())}, data);
    }
    bool load(uint16_t address, Bytes data)
    {
        const ControlResult result = control(0x40, 0xA0, address, 0, data);
        return result.status == TransferStatus::OK && result.length == data.size();
    }
    /// Alternate setting 1, a program, and the CPU started.
    void start()
    {
        ASSERT_TRUE(device.setInterface(0, 1));
        ASSERT_TRUE(load(0xE600, {1}) && load(0, {0x02, 0x00, 0x2E, 0x32}) && load(0xE600, {0}));
    }

    BulkResult send(uint8_t endpoint, const Bytes& data) { return device.bulkOut(endpoint, data); }

    /// Reads as a host with a timeout does. @return what arrived; `last` tells how it ended.
    /// Not inlined: g++ 12 then takes the freeing of a buffer for a mistake.
    [[gnu::noinline]] Bytes receive(uint8_t endpoint, size_t length, int64_t timeoutMs = 30000)
    {
        Bytes data(length);
        const int64_t deadline = clock.nowUs() + timeoutMs * 1000;
        size_t moved = 0;
        timedOut = false;
        do {
            last = device.bulkIn(endpoint, std::span(data).subspan(moved));
            moved += last.length;
            if (!last.complete) {
                timedOut = last.retryAtUs >= deadline;
                clock.pass(std::max<int64_t>(0, std::min(last.retryAtUs, deadline) - clock.nowUs()));
            }
        } while (!last.complete && !timedOut);
        return {data.begin(), data.begin() + static_cast<ptrdiff_t>(moved)};
    }

    /// One bridge request with its payload; code, sequence, flag, sub-code, value, index as written in @p header.
    void request(const std::string& header, const Bytes& payload = {}, uint8_t replyLength = 0)
    {
        const auto low = static_cast<uint8_t>(payload.size());
        const Bytes lengths = {replyLength, 0, 0, 0, low, 0, 0, 0};
        const BulkResult result = send(0x04, hex(header) + lengths + payload);
        EXPECT_TRUE(result.complete);
    }
    std::string reply(size_t length) { return toHex(receive(0x86, length)); }

    /// Asks for @p n bytes from the parallel bus.
    void requestWords(size_t n)
    {
        const auto byte = [&](unsigned shift) { return static_cast<uint8_t>(n >> shift); };
        send(0x04, Bytes{9, 0, 0, 0, byte(16), byte(24), byte(0), byte(8), 0, 0, 0, 0, 0, 0, 0, 0});
    }
    /// Reads @p n bytes from the parallel bus, and the one that always follows. Empty after a timeout.
    Bytes parIn(size_t n, int64_t timeoutMs = 30000)
    {
        requestWords(n);
        Bytes data(n + 1);
        for (size_t moved = 0; moved < data.size();) {
            const Bytes part = receive(0x88, data.size() - moved, timeoutMs);
            if (part.empty())
                return {};
            std::copy(part.begin(), part.end(), data.begin() + static_cast<std::ptrdiff_t>(moved));
            moved += part.size();
        }
        data.resize(n);
        return data;
    }

    /// Writes words to the parallel bus.
    void parOut(const Bytes& data)
    {
        EXPECT_TRUE(send(0x02, data).complete);
        request("0A 00 FF 00 00 00 00 00");
        EXPECT_EQ(receive(0x86, 4).size(), 4U);
    }

    UsbDevice& device;
    ManualClock& clock;
    BulkResult last;
    bool timedOut = false;
};

}  // namespace vornsim::test
