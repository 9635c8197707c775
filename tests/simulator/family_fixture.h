// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "device/usb_device.h"

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
    void complain(const std::string& text) override { complaints.push_back(text); }

    /// @return the complaints so far, one a line, and forgets them.
    std::string takeComplaints()
    {
        std::string all;
        for (const std::string& each : complaints)
            all += each + "\n";
        complaints.clear();
        return all;
    }

    std::vector<std::string> complaints;
};

}  // namespace vornsim::test
