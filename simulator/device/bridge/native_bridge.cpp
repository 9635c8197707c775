// SPDX-License-Identifier: MIT
#include "native_bridge.h"

#include <algorithm>
#include <string>
#include <utility>

#include "bridge_identity.h"
#include "device/usb/bytes.h"
#include "device/usb/usb_requests.h"

namespace vornsim {
namespace {

// Memory that the built-in load request reaches.
constexpr uint8_t LOAD_REQUEST = 0xA0;
constexpr size_t RAM_LENGTH = 0x4000;
constexpr uint16_t CPU_CONTROL_ADDRESS = 0xE600;
constexpr uint8_t CPU_HELD = 0x01;

constexpr uint8_t RAW_OUT = 0x02;
constexpr uint8_t REQUEST_OUT = 0x04;
constexpr uint8_t REPLY_IN = 0x86;
constexpr uint8_t WORDS_IN = 0x88;
constexpr unsigned WORKING_ALTERNATE = 1;
constexpr size_t PACKET_LENGTH = 512;
constexpr size_t BUFFERS_PER_ENDPOINT = 2;

constexpr size_t HEADER_LENGTH = 16;
constexpr size_t LONGEST_REQUEST = 4096;

BulkResult waiting(size_t moved, int64_t retryAtUs = NEVER)
{
    return {TransferStatus::OK, moved, false, retryAtUs};
}

}  // namespace

NativeBridge::NativeBridge(uint16_t productId, std::unique_ptr<BusCamera> camera, const Clock& clock, DeviceLog& log)
    : UsbFunction(bridgeIdentity(productId)), camera_(std::move(camera)), clock_(clock), log_(log), ram_(RAM_LENGTH, 0)
{
}

// ---- The chip: program load and CPU ----

ControlResult NativeBridge::vendorRequest(const SetupPacket& setup, std::span<uint8_t> data)
{
    if (setup.request == LOAD_REQUEST)
        return accessMemory(setup, data);
    complain("unknown vendor request " + std::to_string(setup.request));
    return {TransferStatus::STALL, 0};
}

ControlResult NativeBridge::accessMemory(const SetupPacket& setup, std::span<uint8_t> data)
{
    const bool reading = (setup.requestType & usb::DIRECTION_IN) != 0;
    if (setup.value == CPU_CONTROL_ADDRESS && data.size() == 1) {
        if (reading)
            data[0] = cpuControl_;
        else
            writeCpuControl(data[0]);
        return {TransferStatus::OK, 1};
    }
    if (setup.value >= RAM_LENGTH || data.size() > RAM_LENGTH - setup.value) {
        complain("load request for " + std::to_string(data.size()) + " bytes at address " +
                 std::to_string(setup.value) + ", where there is no memory");
        return {TransferStatus::STALL, 0};
    }
    const auto cells = ram_.begin() + setup.value;
    if (reading)
        std::copy_n(cells, data.size(), data.begin());
    else
        std::copy(data.begin(), data.end(), cells);
    if (!reading && setup.value == 0 && !data.empty())
        programLoaded_ = true;
    return {TransferStatus::OK, data.size()};
}

void NativeBridge::writeCpuControl(uint8_t value)
{
    const bool wasHeld = (cpuControl_ & CPU_HELD) != 0;
    const bool held = (value & CPU_HELD) != 0;
    cpuControl_ = value;
    if (held) {
        running_ = false;
        return;
    }
    if (!wasHeld)
        return;
    if (!programLoaded_) {
        complain("CPU started without a program");
        return;
    }
    running_ = true;
    resetFirmware();
    log_.note("bridge: program started");
}

void NativeBridge::resetFirmware()
{
    // Port latches and directions belong to the chip and survive a restart; everything else is the program's.
    const std::array<PortLines, 5> ports = settings_.ports;
    settings_ = {};
    settings_.ports = ports;
    request_.clear();
    rawWords_.clear();
    reply_ = {};
    input_ = {};
    busUsable_ = false;
    camera_->bridgeStarted();
}

// ---- Endpoints ----

BulkResult NativeBridge::sendToEndpoint(uint8_t endpoint, std::span<const uint8_t> data)
{
    if (alternate() != WORKING_ALTERNATE)
        return {TransferStatus::IO_ERROR, 0, true};
    if (!running_)
        return waiting(0);
    switch (endpoint) {
        case REQUEST_OUT:
            return takeRequestBytes(data);
        case RAW_OUT:
            return takeRawWords(data);
        default:
            return waiting(0);
    }
}

BulkResult NativeBridge::readFromEndpoint(uint8_t endpoint, std::span<uint8_t> buffer)
{
    if (alternate() != WORKING_ALTERNATE)
        return {TransferStatus::IO_ERROR, 0, true};
    if (!running_)
        return waiting(0);
    switch (endpoint) {
        case REPLY_IN:
            return fetchReply(buffer);
        case WORDS_IN:
            return fetchWords(buffer);
        default:
            return waiting(0);
    }
}

BulkResult NativeBridge::takeRequestBytes(std::span<const uint8_t> data)
{
    const size_t length = data.size();
    while (!data.empty()) {
        const auto packet = data.first(std::min(data.size(), PACKET_LENGTH));
        data = data.subspan(packet.size());
        request_.insert(request_.end(), packet.begin(), packet.end());
        const uint64_t expected =
            request_.size() < HEADER_LENGTH ? HEADER_LENGTH : HEADER_LENGTH + uint64_t{readLe32(request_, 12)};
        if (packet.size() == PACKET_LENGTH && request_.size() < expected && expected <= LONGEST_REQUEST)
            continue;  // the rest comes in further packets
        abandonPrevious();
        if (request_.size() == expected)
            serve(request_);
        else
            complain("request of " + std::to_string(request_.size()) + " bytes that announces " +
                     std::to_string(expected));
        request_.clear();
    }
    return {TransferStatus::OK, length, true};
}

BulkResult NativeBridge::takeRawWords(std::span<const uint8_t> data)
{
    size_t taken = 0;
    while (taken < data.size() && rawWords_.size() < BUFFERS_PER_ENDPOINT) {
        const auto packet = data.subspan(taken, std::min(data.size() - taken, PACKET_LENGTH));
        rawWords_.emplace_back(packet.begin(), packet.end());
        taken += packet.size();
    }
    return taken == data.size() ? BulkResult{TransferStatus::OK, taken, true} : waiting(taken);
}

BulkResult NativeBridge::fetchReply(std::span<uint8_t> buffer)
{
    if (reply_.fetched == reply_.bytes.size())
        return waiting(0);
    if (clock_.nowUs() < reply_.readyAtUs)
        return waiting(0, reply_.readyAtUs);
    BulkResult result;
    while (reply_.fetched < reply_.bytes.size()) {
        const size_t space = buffer.size() - result.length;
        const size_t packet = std::min(reply_.bytes.size() - reply_.fetched, PACKET_LENGTH);
        if (packet > space) {
            result.complete = true;
            if (result.length > 0 && space == 0)
                return result;
            result.status = TransferStatus::BABBLE;
            reply_.fetched += packet;
            return result;
        }
        std::copy_n(reply_.bytes.begin() + static_cast<std::ptrdiff_t>(reply_.fetched), packet,
                    buffer.begin() + static_cast<std::ptrdiff_t>(result.length));
        reply_.fetched += packet;
        result.length += packet;
        if (packet < PACKET_LENGTH || result.length == buffer.size()) {
            result.complete = true;
            return result;
        }
    }
    return waiting(result.length);
}

BulkResult NativeBridge::fetchWords(std::span<uint8_t> buffer)
{
    BulkResult result;
    while (input_.active && !result.complete) {
        const std::span<uint8_t> space = buffer.subspan(result.length);
        if (input_.wordBytesLeft > 0) {
            if (takeReadyPackets(space, result) == 0 && !result.complete)
                return result;
        } else {
            // The byte after an even number of data bytes travels in a packet of its own.
            result.complete = true;
            if (space.empty()) {
                result.status = result.length > 0 ? TransferStatus::OK : TransferStatus::BABBLE;
                return result;
            }
            space[0] = 0;
            ++result.length;
            input_.trailerLeft = false;
        }
        input_.active = input_.wordBytesLeft > 0 || input_.trailerLeft;
    }
    return result.complete ? result : waiting(result.length);
}

/// Moves the packets that are complete by now into @p space and updates @p result. @return how many bytes left the bus.
size_t NativeBridge::takeReadyPackets(std::span<uint8_t> space, BulkResult& result)
{
    // The bridge gives up at its deadline, so words that came later must not count, however late the host asks.
    const int64_t now = clock_.nowUs();
    const OfferedWords offered = camera_->offeredWords(std::min(now, input_.deadlineUs));
    const auto left = static_cast<size_t>(std::min<uint64_t>(input_.wordBytesLeft, offered.bytes.size()));
    const size_t ready = left == input_.wordBytesLeft ? left : left - left % PACKET_LENGTH;
    if (ready == 0) {
        if (now < input_.deadlineUs) {
            result.retryAtUs = std::min(offered.moreAtUs, input_.deadlineUs);
            return 0;
        }
        log_.note("bridge: parallel input timed out, " + std::to_string(input_.wordBytesLeft) + " bytes short");
        camera_->wordsTaken(left);
        input_ = {};
        result.retryAtUs = NEVER;
        return 0;
    }

    size_t moved = std::min(ready, space.size());
    if (moved < ready)
        moved -= moved % PACKET_LENGTH;
    std::copy_n(offered.bytes.begin(), moved, space.begin());
    size_t taken = moved;
    if (moved < ready) {
        result.complete = true;
        if (moved < space.size() || space.empty()) {
            // The next packet is larger than the space left: the host sees babble, and the packet is lost.
            result.status = TransferStatus::BABBLE;
            taken += std::min(PACKET_LENGTH, ready - moved);
        }
    } else {
        const bool shortPacket = moved % PACKET_LENGTH != 0;
        result.complete = shortPacket || moved == space.size();
    }
    camera_->wordsTaken(taken);
    input_.wordBytesLeft -= taken;
    input_.fetched += moved;
    input_.deadlineUs = now + int64_t{settings_.parallelTimeoutMs} * 1000;
    result.length += moved;
    return taken;
}

}  // namespace vornsim
