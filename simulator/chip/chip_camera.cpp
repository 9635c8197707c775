// SPDX-License-Identifier: MIT
#include "chip_camera.h"

#include <algorithm>

#include "device/bridge/bridge_identity.h"
#include "device/families/camera_model.h"
#include "device/families/family_cameras.h"

namespace vornsim {
namespace {

constexpr uint8_t LOAD_REQUEST = 0xA0;
constexpr uint16_t CPU_CONTROL_ADDRESS = 0xE600;
constexpr uint8_t DIRECTION_IN = 0x80;
constexpr unsigned WORKING_ALTERNATE = 1;
constexpr uint16_t FULL_SPEED_PACKET = 64;

// How soon a host that waits looks again while the program is busy: small against what a request takes a host.
constexpr int64_t LOOK_AGAIN_US = 50;
// The least time in which a host comes from the end of a transfer to the beginning of the next.
constexpr int64_t TURNAROUND_US = 20;

UsbIdentity identityAtSpeed(uint16_t productId, bool highSpeed)
{
    UsbIdentity identity = bridgeIdentity(productId);
    for (std::vector<EndpointInfo>& endpoints : identity.alternates)
        for (EndpointInfo& endpoint : endpoints)
            if (!highSpeed)
                endpoint.packetSize = std::min(endpoint.packetSize, FULL_SPEED_PACKET);
    return identity;
}

}  // namespace

ChipCamera::ChipCamera(uint16_t productId, const MakeCamera& make, const Clock& clock, DeviceLog& log, bool highSpeed)
    : UsbFunction(identityAtSpeed(productId, highSpeed)),
      clock_(clock),
      log_(log),
      chipClock_(clock.nowUs()),
      camera_(make(chipClock_)),
      chip_(*camera_, log, highSpeed, hostTime())
{
    chipClock_.chip = &chip_;
}

CameraTruth ChipCamera::truth() const
{
    chip_.run(hostTime());
    return camera_->truth();
}

ControlResult ChipCamera::vendorRequest(const SetupPacket& setup, std::span<uint8_t> data)
{
    chip_.run(hostTime());
    const bool reading = (setup.requestType & DIRECTION_IN) != 0;
    if (setup.request != LOAD_REQUEST) {
        log_.complain("chip: unknown vendor request " + std::to_string(setup.request));
        return {TransferStatus::STALL, 0};
    }
    if (setup.value == CPU_CONTROL_ADDRESS && data.size() == 1) {
        if (reading)
            data[0] = chip_.cpuControl();
        else
            chip_.setCpuControl(data[0]);
        return {TransferStatus::OK, 1};
    }
    if (setup.value >= BridgeChip::MEMORY_LENGTH || data.size() > BridgeChip::MEMORY_LENGTH - setup.value) {
        log_.complain("chip: load request for " + std::to_string(data.size()) + " bytes at address " +
                      std::to_string(setup.value) + ", where there is no memory");
        return {TransferStatus::STALL, 0};
    }
    for (size_t i = 0; i < data.size(); ++i) {
        const auto address = static_cast<uint16_t>(setup.value + i);
        if (reading)
            data[i] = chip_.peek(address);
        else
            chip_.poke(address, data[i]);
    }
    return {TransferStatus::OK, data.size()};
}

BulkResult ChipCamera::waiting(size_t moved) const
{
    const Ticks event = chip_.nextEvent();
    if (event == NO_TICK)
        return {TransferStatus::OK, moved, false, NEVER};
    return {TransferStatus::OK, moved, false, std::max(clock_.nowUs() + LOOK_AGAIN_US, event / TICKS_PER_US + 1)};
}

BulkResult ChipCamera::sendToEndpoint(uint8_t endpoint, std::span<const uint8_t> data)
{
    if (alternate() != WORKING_ALTERNATE)
        return {TransferStatus::IO_ERROR, 0, true};
    chip_.run(hostTime());
    if (endpoint != 2 && endpoint != 4)
        return {};
    size_t moved = 0;
    do {
        if (!chip_.accepts(endpoint))
            return waiting(moved);
        const auto packet = data.subspan(moved, std::min(data.size() - moved, chip_.packetLength()));
        chip_.receive(endpoint, packet);
        lastSentUs_ = clock_.nowUs();
        pending_.fill(false);  // what waited before this request may have been taken back since
        moved += packet.size();
    } while (moved < data.size());
    return {TransferStatus::OK, moved, true};
}

BulkResult ChipCamera::readFromEndpoint(uint8_t endpoint, std::span<uint8_t> buffer)
{
    if (alternate() != WORKING_ALTERNATE)
        return {TransferStatus::IO_ERROR, 0, true};
    const unsigned number = endpoint & 0x0F;
    if (number != 6 && number != 8)
        return {};
    // No host asks for an answer in the moment in which its request leaves: programs rely on that when they drop what
    // is left of the answer before.
    if (!pending_[number] && clock_.nowUs() < lastSentUs_ + TURNAROUND_US)
        return {TransferStatus::OK, 0, false, lastSentUs_ + TURNAROUND_US};
    // A transfer that was waiting takes packets as the program makes them; a new one finds what has become of it.
    if (!pending_[number])
        chip_.run(hostTime());
    BulkResult result;
    while (!result.complete) {
        const ChipEndpoint::Packet* packet = chip_.offered(number);
        if (packet == nullptr) {
            if (chip_.now() >= hostTime())
                break;
            chip_.run(hostTime(), number);
            continue;
        }
        const size_t length = packet->size();
        if (length > buffer.size() - result.length) {
            result.status = TransferStatus::BABBLE;
            result.complete = true;
        } else {
            std::copy(packet->begin(), packet->end(), buffer.begin() + static_cast<std::ptrdiff_t>(result.length));
            result.length += length;
            result.complete = length < chip_.packetLength() || result.length == buffer.size();
        }
        chip_.fetched(number);
    }
    pending_[number] = !result.complete;
    return result.complete ? result : waiting(result.length);
}

std::unique_ptr<SimulatedCamera> makeChipCamera(const ModelInfo& model, const CameraOptions& options,
                                                const Clock& clock, DeviceLog& log)
{
    if (model.family == Family::IIDC)
        return makeCamera(model, options, clock, log);
    const auto make = [&](const Clock& chipClock) {
        return makeBusCamera(cameraModel(model), options, chipClock, log);
    };
    return std::make_unique<ChipCamera>(model.productId, make, clock, log);
}

}  // namespace vornsim
