// SPDX-License-Identifier: MIT
#include "usbfs_node.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vornsim {
namespace {

constexpr uint8_t REQUEST_TYPE_MASK = 0x60;
constexpr uint8_t REQUEST_TYPE_VENDOR = 0x40;
constexpr uint8_t RECIPIENT_MASK = 0x1F;
constexpr uint8_t RECIPIENT_INTERFACE = 1;
constexpr uint8_t RECIPIENT_ENDPOINT = 2;

constexpr uint8_t REQUEST_CLEAR_FEATURE = 1;
constexpr uint16_t FEATURE_ENDPOINT_HALT = 0;

}  // namespace

UsbfsNode::UsbfsNode(UsbDevice& device, UsbLayout layout, const Clock& clock, DeviceLog& log)
    : device_(device), layout_(std::move(layout)), log_(log), queue_(device, clock)
{
}

int UsbfsNode::claim(uint64_t file, unsigned interface)
{
    if (queue_.gone())
        return ENODEV;
    if (!layout_.find(interface, 0))
        return EINVAL;
    const auto claimed = claims_.find(interface);
    const bool isNew = claimed == claims_.end();
    if (isNew ? !device_.hostMay(HostAction::CLAIM, 0) : claimed->second != file) {
        log_.note("usbfs: interface " + std::to_string(interface) + " refused, another program has it");
        return EBUSY;
    }
    if (isNew) {
        claims_.emplace(interface, file);
        log_.note("usbfs: interface " + std::to_string(interface) + " claimed");
    }
    return 0;
}

int UsbfsNode::release(uint64_t file, unsigned interface)
{
    auto claimed = claims_.find(interface);
    if (claimed == claims_.end() || claimed->second != file)
        return queue_.gone() ? ENODEV : EINVAL;
    cancelInterface(interface);
    claims_.erase(claimed);
    if (std::exchange(alternates_[interface], 0) != 0 && !queue_.gone())
        (void)device_.setInterface(interface, 0);  // the kernel does so, whether the device likes it or not
    queue_.advance();
    log_.note("usbfs: interface " + std::to_string(interface) + " released");
    return 0;
}

int UsbfsNode::setInterface(uint64_t file, unsigned interface, unsigned alternate)
{
    if (queue_.gone())
        return ENODEV;
    if (int error = ensureClaimed(file, interface))
        return error;
    if (!layout_.find(interface, alternate))
        return EINVAL;
    cancelInterface(interface);
    if (!device_.setInterface(interface, alternate))
        return EPIPE;
    alternates_[interface] = alternate;
    log_.note("usbfs: interface " + std::to_string(interface) + " set to alternate " + std::to_string(alternate));
    queue_.advance();
    return 0;
}

int UsbfsNode::setConfiguration(int value)
{
    if (queue_.gone())
        return ENODEV;
    if (!claims_.empty())
        return EBUSY;
    return value == layout_.configurationValue ? 0 : EINVAL;
}

int UsbfsNode::driverOf(unsigned interface) const
{
    return claims_.count(interface) ? 0 : ENODATA;
}

int UsbfsNode::clearHalt(uint64_t file, uint8_t endpoint)
{
    if (queue_.gone())
        return ENODEV;
    const std::optional<uint8_t> interface = layout_.interfaceOf(endpoint);
    if (!interface || !endpointIsActive(endpoint))
        return ENOENT;
    if (int error = ensureClaimed(file, *interface))
        return error;
    const SetupPacket request{RECIPIENT_ENDPOINT, REQUEST_CLEAR_FEATURE, FEATURE_ENDPOINT_HALT, endpoint, 0};
    const ControlResult result = device_.control(request, {});
    if (result.status == TransferStatus::GONE)
        queue_.unplug();
    queue_.advance();
    return result.status == TransferStatus::OK ? 0 : EPIPE;
}

int UsbfsNode::reset()
{
    if (queue_.gone())
        return ENODEV;
    log_.note("usbfs: port reset");
    queue_.cancel([](const Urb&) { return true; }, -ENOENT);
    for (auto [interface, alternate] : alternates_)
        (void)device_.setInterface(interface, alternate);  // a device that refuses is as the reset left it
    queue_.advance();
    return 0;
}

int UsbfsNode::submit(uint64_t file, std::unique_ptr<Urb> urb)
{
    if (queue_.gone())
        return ENODEV;
    if (urb->kind == UrbKind::CONTROL) {
        if (int error = checkControl(file, urb->setup))
            return error;
    } else {
        const std::optional<uint8_t> interface = layout_.interfaceOf(urb->endpoint);
        if (!interface)
            return ENOENT;
        if (int error = ensureClaimed(file, *interface))
            return error;
        if (!endpointIsActive(urb->endpoint))
            return ENOENT;
    }
    return queue_.submit(std::move(urb));
}

void UsbfsNode::closeFile(uint64_t file)
{
    queue_.forget(file);
    for (const AlternateSetting& setting : layout_.settings)
        if (setting.alternate == 0)
            (void)release(file, setting.interface);  // most were never claimed
}

int UsbfsNode::ensureClaimed(uint64_t file, unsigned interface)
{
    if (!layout_.find(interface, 0))
        return ENOENT;
    return claim(file, interface);
}

int UsbfsNode::checkControl(uint64_t file, const SetupPacket& setup)
{
    if ((setup.requestType & REQUEST_TYPE_MASK) == REQUEST_TYPE_VENDOR)
        return 0;
    switch (setup.requestType & RECIPIENT_MASK) {
        case RECIPIENT_INTERFACE:
            return ensureClaimed(file, setup.index & 0xFF);
        case RECIPIENT_ENDPOINT: {
            const auto endpoint = static_cast<uint8_t>(setup.index & 0xFF);
            if ((endpoint & 0x7F) == 0)
                return 0;
            const std::optional<uint8_t> interface = layout_.interfaceOf(endpoint);
            return interface ? ensureClaimed(file, *interface) : ENOENT;
        }
        default:
            return 0;
    }
}

bool UsbfsNode::endpointIsActive(uint8_t endpoint) const
{
    return std::any_of(layout_.settings.begin(), layout_.settings.end(), [&](const AlternateSetting& setting) {
        auto current = alternates_.find(setting.interface);
        return setting.alternate == (current == alternates_.end() ? 0 : current->second) &&
               std::find(setting.endpoints.begin(), setting.endpoints.end(), endpoint) != setting.endpoints.end();
    });
}

void UsbfsNode::cancelInterface(unsigned interface)
{
    queue_.cancel(
        [&](const Urb& urb) { return urb.kind == UrbKind::BULK && layout_.interfaceOf(urb.endpoint) == interface; },
        -ENOENT);
}

}  // namespace vornsim
