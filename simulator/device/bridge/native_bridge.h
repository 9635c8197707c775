// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "bus_camera.h"
#include "device/usb/usb_function.h"

namespace vornsim {

/// What the host has set on the bridge; for tests.
struct BridgeSettings {
    std::array<PortLines, 5> ports;
    uint16_t parallelTimeoutMs = 1000;
    uint16_t i2cTimeoutMs = 1000;
    uint8_t i2cSpeed = 0;                ///< 0: 100 kHz, 1: 400 kHz
    std::vector<uint8_t> waveformTable;  ///< last one loaded since the firmware started; empty: none
};

/// The USB bridge of a camera, without executing its program: a chip that starts with its built-in USB personality,
/// takes a program over vendor request 0xA0 and then, whatever that program is, behaves as the bridge firmware does.
/// Nothing is answered on the bulk endpoints before a program was loaded and the CPU started; the endpoints exist in
/// alternate setting 1 only.
///
/// Endpoints: OUT 0x04 requests, IN 0x86 their replies, OUT 0x02 raw words to the parallel bus, IN 0x88 words from it.
/// A new request ends whatever the one before left unfinished, and what the host did not fetch of it is lost.
class NativeBridge final : public UsbFunction {
public:
    /// @p clock and @p log must outlive the bridge.
    NativeBridge(uint16_t productId, std::unique_ptr<BusCamera> camera, const Clock& clock, DeviceLog& log);

    CameraTruth truth() const override { return camera_->truth(); }

    BusCamera& camera() { return *camera_; }
    const BridgeSettings& settings() const { return settings_; }
    /// @return whether a loaded program runs.
    bool running() const { return running_; }

protected:
    ControlResult vendorRequest(const SetupPacket& setup, std::span<uint8_t> data) override;
    BulkResult sendToEndpoint(uint8_t endpoint, std::span<const uint8_t> data) override;
    BulkResult readFromEndpoint(uint8_t endpoint, std::span<uint8_t> buffer) override;

private:
    struct Request {
        uint8_t code = 0;
        uint8_t sequence = 0;
        bool acknowledged = false;
        uint8_t subCode = 0;
        uint16_t value = 0;
        uint16_t index = 0;
        uint32_t replyLength = 0;
        std::span<const uint8_t> payload;
    };
    struct Rule;
    struct Reply {
        std::vector<uint8_t> bytes;
        size_t fetched = 0;
        int64_t readyAtUs = 0;
    };
    struct ParallelInput {
        bool active = false;
        uint64_t wordBytesLeft = 0;  // still to come from the camera, even
        bool trailerLeft = false;    // the extra byte of an even request, in a packet of its own
        uint64_t fetched = 0;
        int64_t deadlineUs = NEVER;  // moves on with every packet
    };

    ControlResult accessMemory(const SetupPacket& setup, std::span<uint8_t> data);
    void writeCpuControl(uint8_t value);
    void resetFirmware();

    BulkResult takeRequestBytes(std::span<const uint8_t> data);
    void serve(std::span<const uint8_t> bytes);
    void abandonPrevious();
    static const Rule* findRule(uint8_t code);
    void reply(const Request& request, std::span<const uint8_t> data, uint8_t status, int64_t readyAtUs);

    void setLatches(const Request& request);
    void setDirections(const Request& request);
    void changePorts(const Request& request, uint8_t PortLines::*bits);
    void readPorts(const Request& request);
    void setI2cSpeed(const Request& request);
    void i2c(const Request& request);
    void spi(const Request& request);
    void setTimeout(const Request& request);
    void loadWaveforms(const Request& request);
    void startParallelInput(const Request& request);
    void parallelOutput(const Request& request);

    BulkResult fetchReply(std::span<uint8_t> buffer);
    BulkResult fetchWords(std::span<uint8_t> buffer);
    BulkResult takeRawWords(std::span<const uint8_t> data);
    size_t takeReadyPackets(std::span<uint8_t> space, BulkResult& result);
    void complain(const std::string& text) { log_.complain("bridge: " + text); }

    std::unique_ptr<BusCamera> camera_;
    const Clock& clock_;
    DeviceLog& log_;

    std::vector<uint8_t> ram_;
    bool programLoaded_ = false;  // something was written to the reset vector
    uint8_t cpuControl_ = 0x03;   // the CPU wakes up held in reset
    bool running_ = false;
    BridgeSettings settings_;
    std::vector<uint8_t> request_;               // bytes of a request that came in several packets
    std::deque<std::vector<uint8_t>> rawWords_;  // packets waiting in the two buffers of endpoint 0x02
    Reply reply_;
    ParallelInput input_;
    bool busUsable_ = false;  // a table is loaded and the camera understands it
};

}  // namespace vornsim
