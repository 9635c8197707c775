// SPDX-License-Identifier: MIT
#include "usb_function.h"

#include <algorithm>
#include <array>
#include <utility>

#include "bytes.h"
#include "usb_requests.h"

namespace vornsim {
namespace {

using namespace usb;

constexpr ControlResult STALLED{TransferStatus::STALL, 0};
constexpr ControlResult DONE{TransferStatus::OK, 0};

ControlResult answer(std::span<const uint8_t> bytes, std::span<uint8_t> data)
{
    const size_t length = std::min(bytes.size(), data.size());
    std::copy_n(bytes.begin(), length, data.begin());
    return {TransferStatus::OK, length};
}

}  // namespace

UsbFunction::UsbFunction(UsbIdentity identity) : identity_(std::move(identity)) {}

std::vector<uint8_t> UsbFunction::descriptors() const
{
    std::vector<uint8_t> bytes = deviceDescriptor();
    const std::vector<uint8_t> configuration = configurationDescriptor();
    bytes.insert(bytes.end(), configuration.begin(), configuration.end());
    return bytes;
}

std::vector<uint8_t> UsbFunction::deviceDescriptor() const
{
    std::vector<uint8_t> bytes = {DEVICE_LENGTH, DEVICE, 0x00, 0x02,
                                  0xFF,          0xFF,   0xFF, 64};  // USB 2.0, vendor-specific class
    appendLe16(bytes, identity_.vendorId);
    appendLe16(bytes, identity_.productId);
    appendLe16(bytes, identity_.release);
    bytes.insert(bytes.end(), {0, 0, 0, 1});  // no strings, one configuration
    return bytes;
}

std::vector<uint8_t> UsbFunction::configurationDescriptor() const
{
    std::vector<uint8_t> bytes = {CONFIGURATION_LENGTH,       CONFIGURATION, 0, 0, 1, 1, 0, 0x80,
                                  identity_.maxPowerHalfUnits};
    for (size_t setting = 0; setting < identity_.alternates.size(); ++setting) {
        const std::vector<EndpointInfo>& endpoints = identity_.alternates[setting];
        bytes.insert(bytes.end(), {INTERFACE_LENGTH, INTERFACE, 0, static_cast<uint8_t>(setting),
                                   static_cast<uint8_t>(endpoints.size()), 0xFF, 0xFF, 0xFF, 0});
        for (const EndpointInfo& endpoint : endpoints) {
            bytes.insert(bytes.end(), {ENDPOINT_LENGTH, ENDPOINT, endpoint.address, endpoint.type});
            appendLe16(bytes, endpoint.packetSize);
            bytes.push_back(endpoint.interval);
        }
    }
    writeLe16(bytes, 2, static_cast<unsigned>(bytes.size()));
    return bytes;
}

ControlResult UsbFunction::control(const SetupPacket& setup, std::span<uint8_t> data)
{
    data = data.first(std::min<size_t>(data.size(), setup.length));
    return (setup.requestType & KIND_MASK) == KIND_STANDARD ? standardRequest(setup, data) : vendorRequest(setup, data);
}

ControlResult UsbFunction::vendorRequest(const SetupPacket& setup, std::span<uint8_t> data)
{
    (void)setup, (void)data;
    return STALLED;
}

ControlResult UsbFunction::standardRequest(const SetupPacket& setup, std::span<uint8_t> data)
{
    const uint8_t recipient = setup.requestType & RECIPIENT_MASK;
    if (recipient == RECIPIENT_ENDPOINT)
        return endpointRequest(setup, data);
    switch (setup.request) {
        case GET_STATUS:
            return answer(std::to_array<uint8_t>({0, 0}), data);
        case GET_DESCRIPTOR:
            switch (setup.value >> 8) {
                case DEVICE:
                    return answer(deviceDescriptor(), data);
                case CONFIGURATION:
                    return (setup.value & 0xFF) == 0 ? answer(configurationDescriptor(), data) : STALLED;
                case DEVICE_QUALIFIER:
                    return answer(
                        std::to_array<uint8_t>({10, DEVICE_QUALIFIER, 0x00, 0x02, 0xFF, 0xFF, 0xFF, 64, 1, 0}), data);
                default:
                    return STALLED;
            }
        case GET_CONFIGURATION:
            return answer({&configuration_, 1}, data);
        case SET_CONFIGURATION:
            if (setup.value > 1)
                return STALLED;
            configuration_ = static_cast<uint8_t>(setup.value);
            alternate_ = 0;
            halted_.clear();
            return DONE;
        case GET_INTERFACE: {
            const auto setting = static_cast<uint8_t>(alternate_);
            return setup.index == 0 ? answer({&setting, 1}, data) : STALLED;
        }
        case SET_INTERFACE:
            return recipient == RECIPIENT_INTERFACE && setInterface(setup.index, setup.value) ? DONE : STALLED;
        default:
            return STALLED;
    }
}

ControlResult UsbFunction::endpointRequest(const SetupPacket& setup, std::span<uint8_t> data)
{
    const auto address = static_cast<uint8_t>(setup.index & 0xFF);
    const bool defaultPipe = (address & ~DIRECTION_IN) == 0;
    if (!defaultPipe && findEndpoint(address) == nullptr)
        return STALLED;
    switch (setup.request) {
        case GET_STATUS:
            return answer(std::to_array<uint8_t>({static_cast<uint8_t>(halted_.count(address)), 0}), data);
        case CLEAR_FEATURE:
        case SET_FEATURE:
            if (setup.value != ENDPOINT_HALT)
                return STALLED;
            if (setup.request == CLEAR_FEATURE)
                halted_.erase(address);
            else if (!defaultPipe)
                halted_.insert(address);
            return DONE;
        default:
            return STALLED;
    }
}

bool UsbFunction::setInterface(unsigned interface, unsigned alternate)
{
    if (interface != 0 || alternate >= identity_.alternates.size() || configuration_ == 0)
        return false;
    alternate_ = alternate;
    halted_.clear();
    return true;
}

const EndpointInfo* UsbFunction::findEndpoint(uint8_t address) const
{
    if (configuration_ == 0)
        return nullptr;
    for (const EndpointInfo& endpoint : identity_.alternates[alternate_]) {
        if (endpoint.address == address)
            return &endpoint;
    }
    return nullptr;
}

/// What a transfer comes to without asking the device model; null when it is to be asked.
std::optional<BulkResult> UsbFunction::refusal(uint8_t endpoint, uint8_t direction) const
{
    if (findEndpoint(endpoint) == nullptr || (endpoint & DIRECTION_IN) != direction)
        return BulkResult{TransferStatus::IO_ERROR, 0, true};
    if (halted_.contains(endpoint))
        return BulkResult{TransferStatus::STALL, 0, true};
    return std::nullopt;
}

BulkResult UsbFunction::bulkOut(uint8_t endpoint, std::span<const uint8_t> data)
{
    const auto refused = refusal(endpoint, 0);
    return refused ? *refused : sendToEndpoint(endpoint, data);
}

BulkResult UsbFunction::bulkIn(uint8_t endpoint, std::span<uint8_t> buffer)
{
    const auto refused = refusal(endpoint, DIRECTION_IN);
    return refused ? *refused : readFromEndpoint(endpoint, buffer);
}

}  // namespace vornsim
