// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "device/usb/usb_device.h"

namespace vornsim::test {

/// Time that passes when the test says so.
class ManualClock final : public Clock {
public:
    int64_t nowUs() const override { return nowUs_; }
    void pass(int64_t microseconds) { nowUs_ += microseconds; }

private:
    int64_t nowUs_ = 1000000;
};

/// Keeps what the device complains about.
class CollectingLog final : public DeviceLog {
public:
    void note(const std::string& /*text*/) override {}
    void complain(const std::string& text) override { complaints_ += text + "\n"; }
    /// @return the complaints so far, one a line, and forgets them.
    std::string takeComplaints() { return std::exchange(complaints_, ""); }

private:
    std::string complaints_;
};

using Bytes = std::vector<uint8_t>;

/// @return the bytes of a text: "01 11 x30" is 01, then 11 thirty times.
inline Bytes hex(const std::string& text)
{
    std::istringstream in(text);
    Bytes bytes;
    for (std::string part; in >> part;)
        if (part[0] == 'x')
            bytes.resize(bytes.size() + std::stoul(part.substr(1)) - 1, bytes.back());
        else
            bytes.push_back(static_cast<uint8_t>(std::stoul(part, nullptr, 16)));
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

}  // namespace vornsim::test
