// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>

#include <initializer_list>
#include <string>
#include <utility>

#include "bridge_host.h"
#include "device/bridge_peripheral.h"
#include "device/camera_model.h"

namespace vornsim::test {

/// A request and its answer in hex digits; the answer is empty where there is none.
struct Exchange {
    const char* label;
    const char* request;
    const char* answer;
    int64_t afterUs = 0;  ///< time that passes before the request
};

/// A camera without the bridge that it hangs on.
class PeripheralTest : public ::testing::Test {
protected:
    /// Sends a request in the manner of the family. @return the answer, or everything that was complained about.
    virtual std::string exchange(const std::string& request, size_t answerLength) = 0;

    void expectAnswers(std::initializer_list<Exchange> rows)
    {
        for (const Exchange& row : rows) {
            clock.pass(row.afterUs);
            EXPECT_EQ(exchange(row.request, hex(row.answer).size()), row.answer) << row.label;
        }
    }
    /// @param rows requests that the camera cannot serve, and parts of what it says to them
    void expectComplaints(std::initializer_list<std::pair<const char*, const char*>> rows)
    {
        for (const auto& [request, text] : rows)
            EXPECT_THAT(exchange(request, 0), testing::HasSubstr(text)) << request;
    }
    std::string takeWords(BridgePeripheral& camera) const
    {
        const OfferedWords offered = camera.offeredWords(clock.nowUs());
        const Bytes bytes(offered.bytes.begin(), offered.bytes.end());
        camera.wordsTaken(bytes.size());
        return toHex(bytes);
    }

    ManualClock clock;
    CollectingLog log;
};

}  // namespace vornsim::test
