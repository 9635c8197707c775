// SPDX-License-Identifier: MIT
#include "usb_function.h"

#include <algorithm>
#include <array>
#include <utility>

#include "bytes.h"

namespace vornsim {
namespace {

// bmRequestType
constexpr uint8_t DIRECTION_IN = 0x80;
constexpr uint8_t KIND_MASK = 0x60;
constexpr uint8_t KIND_STANDARD = 0x00;
constexpr uint8_t RECIPIENT_MASK = 0x1F;
constexpr uint8_t RECIPIENT_INTERFACE = 1;
constexpr uint8_t RECIPIENT_ENDPOINT = 2;

// bRequest
constexpr uint8_t GET_STATUS = 0;
constexpr uint8_t CLEAR_FEATURE = 1;
constexpr uint8_t SET_FEATURE = 3;
constexpr uint8_t GET_DESCRIPTOR = 6;
constexpr uint8_t GET_CONFIGURATION = 8;
constexpr uint8_t SET_CONFIGURATION = 9;
constexpr uint8_t GET_INTERFACE = 10;
constexpr uint8_t SET_INTERFACE = 11;

// Descriptor types
constexpr uint8_t DEVICE = 1;
constexpr uint8_t CONFIGURATION = 2;
constexpr uint8_t INTERFACE = 4;
constexpr uint8_t ENDPOINT = 5;
constexpr uint8_t DEVICE_QUALIFIER = 6;

constexpr uint16_t ENDPOINT_HALT = 0;

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
    std::vector<uint8_t> bytes = {18, DEVICE, 0x00, 0x02, 0xFF, 0xFF, 0xFF, 64};  // USB 2.0, vendor-specific class
    appendLe16(bytes, identity_.vendorId);
    appendLe16(bytes, identity_.productId);
    appendLe16(bytes, identity_.release);
    bytes.insert(bytes.end(), {0, 0, 0, 1});  // no strings, one configuration
    return bytes;
}

std::vector<uint8_t> UsbFunction::configurationDescriptor() const
{
    std::vector<uint8_t> bytes = {9, CONFIGURATION, 0, 0, 1, 1, 0, 0x80, identity_.maxPowerHalfUnits};
    for (size_t setting = 0; setting < identity_.alternates.size(); ++setting) {
        const std::vector<EndpointInfo>& endpoints = identity_.alternates[setting];
        bytes.insert(bytes.end(), {9, INTERFACE, 0, static_cast<uint8_t>(setting),
                                   static_cast<uint8_t>(endpoints.size()), 0xFF, 0xFF, 0xFF, 0});
        for (const EndpointInfo& endpoint : endpoints) {
            bytes.insert(bytes.end(), {7, ENDPOINT, endpoint.address, endpoint.type});
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

BulkResult UsbFunction::bulkOut(uint8_t endpoint, std::span<const uint8_t> data)
{
    if (findEndpoint(endpoint) == nullptr || (endpoint & DIRECTION_IN) != 0)
        return {TransferStatus::IO_ERROR, 0, true};
    if (halted_.contains(endpoint))
        return {TransferStatus::STALL, 0, true};
    return sendToEndpoint(endpoint, data);
}

BulkResult UsbFunction::bulkIn(uint8_t endpoint, std::span<uint8_t> buffer)
{
    if (findEndpoint(endpoint) == nullptr || (endpoint & DIRECTION_IN) == 0)
        return {TransferStatus::IO_ERROR, 0, true};
    if (halted_.contains(endpoint))
        return {TransferStatus::STALL, 0, true};
    return readFromEndpoint(endpoint, buffer);
}

}  // namespace vornsim
