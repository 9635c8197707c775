// SPDX-License-Identifier: MIT
#include "capture/open_diagnosis.h"

#include <cstdio>
#include <optional>
#include <sstream>
#include <vector>

#include "capture/camera_list.h"
#include "capture/usb_nodes.h"

namespace vorncapture {
namespace {

const char* const REPLUG_ADVICE = "Check its power supply and cable, unplug it and plug it in again.";

bool says(const std::string& trace, const char* errorName)
{
    return trace.find(errorName) != std::string::npos;
}

/// @return "16-bit id" as sysfs writes it, four hexadecimal digits.
std::string sysfsId(unsigned int id)
{
    char text[16] = {};
    (void)std::snprintf(text, sizeof text, "%04x", id & 0xFFFFU);
    return text;
}

/// Finds the USB nodes that may be the camera at @p listIndex: the library names a camera's USB ids only in the trace
/// of its listing. Cameras of one model have one id, so there may be several.
std::vector<UsbNode> nodesOf(int listIndex)
{
    if (listIndex < 0)
        return {};
    TraceCapture trace;
    (void)listCameras();
    std::istringstream lines(trace.finish());
    int index = 0;
    for (std::string line; std::getline(lines, line);) {
        const size_t ids = line.find("' [0x");
        if (ids == std::string::npos || line.find("] found") == std::string::npos)
            continue;
        if (index++ != listIndex)
            continue;
        unsigned int vendor = 0;
        unsigned int product = 0;
        if (std::sscanf(line.c_str() + ids, "' [0x%x, 0x%x]", &vendor, &product) != 2)
            return {};
        return findUsbNodes(sysfsId(vendor), sysfsId(product));
    }
    return {};
}

Error permissionError(const std::vector<UsbNode>& nodes)
{
    Error error{ErrorKind::PERMISSION, "no permission to use the camera", ""};
    std::ostringstream advice;
    for (const UsbNode& node : nodes) {
        const std::string access = node.access();
        if (!access.empty() && !node.usable())
            advice << "Its device node " << node.path << " belongs to " << access << ".\n";
    }
    advice << "Put this line into /etc/udev/rules.d/60-vornccd.rules:\n"
           << "  SUBSYSTEM==\"usb\", ENV{DEVTYPE}==\"usb_device\", ";
    if (!nodes.empty())
        advice << "ATTR{idVendor}==\"" << nodes.front().vendorId << "\", ATTR{idProduct}==\"" << nodes.front().productId
               << "\", ";
    advice << "MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"\n"
           << "then type: sudo udevadm control --reload && sudo udevadm trigger --subsystem-match=usb\n"
           << "Your user must be in the group plugdev: sudo usermod -aG plugdev $USER, and log in again.";
    error.advice = advice.str();
    return error;
}

Error busyError(const std::vector<UsbNode>& nodes)
{
    Error error{ErrorKind::BUSY, "the camera is used by another program", ""};
    std::ostringstream advice;
    for (const UsbNode& node : nodes) {
        for (const std::string& holder : node.holders())
            advice << "Process " << holder << " has " << node.path << " open.\n";
    }
    advice << "Close the other program, or disconnect the camera in it.";
    error.advice = advice.str();
    return error;
}

Error memoryError()
{
    Error error{ErrorKind::FAILED, "no memory left for USB transfers", ""};
    std::ostringstream advice;
    const long limit = usbMemoryMebibytes();
    if (limit > 0)
        advice << "All USB programs together may use " << limit << " MiB. ";
    advice << "Close other USB programs, or raise the limit:\n"
           << "  echo 64 | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb\n"
           << "For good: options usbcore usbfs_memory_mb=64 in /etc/modprobe.d/usbcore.conf.";
    error.advice = advice.str();
    return error;
}

}  // namespace

Error explainOpenFailure(const std::string& trace, int listIndex)
{
    if (says(trace, "LIBUSB_ERROR_ACCESS"))
        return permissionError(nodesOf(listIndex));
    if (says(trace, "LIBUSB_ERROR_BUSY"))
        return busyError(nodesOf(listIndex));
    if (says(trace, "LIBUSB_ERROR_NO_MEM"))
        return memoryError();
    if (says(trace, "LIBUSB_ERROR_NO_DEVICE") || says(trace, "LIBUSB_ERROR_NOT_FOUND"))
        return {ErrorKind::DEVICE_LOST, "the camera is no longer attached", REPLUG_ADVICE};
    return {ErrorKind::TIMEOUT, "the camera does not answer as it should", REPLUG_ADVICE};
}

Error explainFailure(const std::string& complaint, const std::string& failure, const std::string& reopenFailure)
{
    if (reopenFailure.empty())
        return {ErrorKind::FAILED, complaint + " (" + failure + "), but the camera answers again",
                "Try once more. If it happens again, use another cable or USB port, without a hub."};
    // This text of the library means that the device itself is gone; it was there when the session began.
    if (reopenFailure == "Failed to open device")
        return {ErrorKind::DEVICE_LOST, "the camera was unplugged or switched off (" + failure + ")", REPLUG_ADVICE};
    return {ErrorKind::TIMEOUT, "the camera does not answer any more (" + failure + ")", REPLUG_ADVICE};
}

}  // namespace vorncapture
