// SPDX-License-Identifier: MIT
#include "sysfs_description.h"

#include <array>
#include <cstdarg>
#include <cstdio>

namespace vornsim {
namespace {

constexpr unsigned USB_MAJOR = 189;
constexpr unsigned DEVICES_PER_BUS = 128;  // minor numbers that the kernel sets aside for each bus

constexpr std::array<uint8_t, 18> ROOT_HUB_DEVICE = {18,   1,    0x00, 0x02, 9,    0, 1, 64, 0x6B,
                                                     0x1D, 0x02, 0x00, 0x00, 0x06, 0, 0, 0,  1};
constexpr std::array<uint8_t, 25> ROOT_HUB_CONFIGURATION = {9, 2, 25,   0, 1, 1, 0, 0xE0, 0,  // self-powered
                                                            9, 4, 0,    0, 1, 9, 0, 0,    0,  // hub interface
                                                            7, 5, 0x81, 3, 4, 0, 12};         // status change endpoint

/// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...)
{
    std::array<char, 512> line{};
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
    return line.data();
}

std::string hexLine(std::span<const uint8_t> bytes)
{
    std::string line = "H: descriptors=";
    for (uint8_t byte : bytes)
        line += text("%02X", byte);
    return line + "\n";
}

std::string kernelPath(const std::string& devicePath)
{
    return "P: " + devicePath.substr(sizeof "/sys" - 1) + "\n";
}

std::string hubPath(unsigned bus)
{
    return text("/sys/devices/pci0000:00/0000:00:14.0/usb%u", bus);
}

/// Lines that every USB device has, root hubs included. Attribute values end in a written-out line feed. Each attribute
/// becomes a file, which takes time, so these are the ones that libusb, udev rules and people read.
std::string deviceLines(const UsbAddress& address, const UsbLayout& layout)
{
    const unsigned minor = (address.bus - 1) * DEVICES_PER_BUS + address.device - 1;
    std::string lines;
    lines += text("N: bus/usb/%03u/%03u\n", address.bus, address.device);
    lines += "E: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\nE: DRIVER=usb\n";
    lines += text("E: BUSNUM=%03u\nE: DEVNUM=%03u\n", address.bus, address.device);
    lines += text("E: DEVNAME=/dev/bus/usb/%03u/%03u\n", address.bus, address.device);
    lines += text("E: MAJOR=%u\nE: MINOR=%u\n", USB_MAJOR, minor);
    lines += text("E: PRODUCT=%x/%x/%x\n", layout.vendorId, layout.productId, layout.release);
    lines += text("E: TYPE=%u/%u/%u\n", layout.deviceClass, layout.subClass, layout.protocol);
    lines += text("E: ID_VENDOR_ID=%04x\nE: ID_MODEL_ID=%04x\n", layout.vendorId, layout.productId);
    lines += text("A: dev=%u:%u\\n\n", USB_MAJOR, minor);
    lines += text("A: busnum=%u\\n\nA: devnum=%u\\n\n", address.bus, address.device);
    lines += "A: speed=480\\n\n";
    lines += text("A: idVendor=%04x\\n\nA: idProduct=%04x\\n\n", layout.vendorId, layout.productId);
    lines += text("A: bcdDevice=%04x\\n\n", layout.release);
    lines += text("A: bDeviceClass=%02x\\n\n", layout.deviceClass);
    lines += text("A: bConfigurationValue=%u\\n\n", layout.configurationValue);
    return lines;
}

std::string interfaceParagraph(const UsbAddress& address, const UsbLayout& layout, const AlternateSetting& setting)
{
    std::string lines = kernelPath(interfacePath(address, layout, setting));
    lines += "E: DEVTYPE=usb_interface\nE: SUBSYSTEM=usb\n";
    lines += text("E: PRODUCT=%x/%x/%x\n", layout.vendorId, layout.productId, layout.release);
    lines += text("E: INTERFACE=%u/%u/%u\n", setting.deviceClass, setting.subClass, setting.protocol);
    lines += text("A: bInterfaceNumber=%02x\\n\nA: bInterfaceClass=%02x\\n\n", setting.interface, setting.deviceClass);
    return lines + "\n";
}

}  // namespace

std::string deviceNode(const UsbAddress& address)
{
    return text("/dev/bus/usb/%03u/%03u", address.bus, address.device);
}

std::string sysfsPath(const UsbAddress& address)
{
    return hubPath(address.bus) + text("/%u-%u", address.bus, address.port);
}

std::string interfacePath(const UsbAddress& address, const UsbLayout& layout, const AlternateSetting& setting)
{
    return sysfsPath(address) +
           text("/%u-%u:%u.%u", address.bus, address.port, layout.configurationValue, setting.interface);
}

std::string describeDevice(const UsbAddress& address, const UsbLayout& layout, std::span<const uint8_t> descriptors)
{
    std::string lines = kernelPath(sysfsPath(address)) + deviceLines(address, layout) + hexLine(descriptors) + "\n";
    for (const AlternateSetting& setting : layout.settings)
        if (setting.alternate == 0)
            lines += interfaceParagraph(address, layout, setting);
    return lines;
}

std::string describeRootHub(unsigned bus)
{
    std::vector<uint8_t> descriptors(ROOT_HUB_DEVICE.begin(), ROOT_HUB_DEVICE.end());
    descriptors.insert(descriptors.end(), ROOT_HUB_CONFIGURATION.begin(), ROOT_HUB_CONFIGURATION.end());
    const UsbLayout layout = parseDescriptors(descriptors).value_or(UsbLayout{});
    return kernelPath(hubPath(bus)) + deviceLines({bus, 0, 1}, layout) + hexLine(descriptors) + "\n";
}

}  // namespace vornsim
