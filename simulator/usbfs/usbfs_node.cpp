// SPDX-License-Identifier: MIT
#include "usbfs_node.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "device/usb/usb_requests.h"

namespace vornsim {
using namespace usb;

UsbfsNode::UsbfsNode(CameraSlot& slot, UsbLayout layout, const Clock& clock, DeviceLog& log)
    : layout_(std::move(layout)), log_(log), queue_(slot, clock)
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
    if (isNew ? !queue_.mayClaim() : claimed->second != file) {
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
        (void)queue_.setInterface(interface, 0);  // the kernel does so, whether the device likes it or not
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
    if (!queue_.setInterface(interface, alternate))
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
    const TransferStatus status = queue_.control({RECIPIENT_ENDPOINT, CLEAR_FEATURE, ENDPOINT_HALT, endpoint, 0});
    queue_.advance();
    return status == TransferStatus::OK ? 0 : EPIPE;
}

int UsbfsNode::reset()
{
    if (queue_.gone())
        return ENODEV;
    log_.note("usbfs: port reset");
    queue_.cancel([](const Urb&) { return true; }, -ENOENT);
    for (auto [interface, alternate] : alternates_)
        (void)queue_.setInterface(interface, alternate);  // a device that refuses is as the reset left it
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
    if ((setup.requestType & KIND_MASK) == KIND_VENDOR)
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
