// SPDX-License-Identifier: MIT
#include "capture/open_diagnosis.h"

#include <algorithm>
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

Error permissionError(const std::vector<UsbNode>& nodes)
{
    PermissionFacts facts;
    for (const UsbNode& node : nodes) {
        const std::string access = node.access();
        if (!access.empty() && !node.usable())
            facts.nodes.push_back(node.path + " belongs to " + access);
    }
    if (!nodes.empty()) {
        facts.productId = nodes.front().productId;
        facts.ruleInstalled = udevRuleInstalled(facts.productId);
    }
    facts.user = userAccess();
    return {ErrorKind::PERMISSION, "no permission to use the camera", permissionAdvice(facts)};
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

}  // namespace

OpenObstacle findObstacle(const std::string& trace)
{
    if (says(trace, "LIBUSB_ERROR_ACCESS"))
        return OpenObstacle::PERMISSION;
    if (says(trace, "LIBUSB_ERROR_BUSY"))
        return OpenObstacle::BUSY;
    if (says(trace, "LIBUSB_ERROR_NO_MEM"))
        return OpenObstacle::NO_MEMORY;
    if (says(trace, "LIBUSB_ERROR_NO_DEVICE") || says(trace, "LIBUSB_ERROR_NOT_FOUND"))
        return OpenObstacle::GONE;
    if (says(trace, "cpu stopped 0") || says(trace, "incomplete firmware upload") || says(trace, "cpu started 0"))
        return OpenObstacle::FIRMWARE_REFUSED;
    // What was read from the camera came through the bridge's program, so what follows is a matter of its description.
    if (says(trace, "i2cRead 1") || says(trace, "ping ok") || says(trace, "APPINIT completed"))
        return OpenObstacle::NO_DESCRIPTION;
    if (says(trace, "cpu started 1"))
        return OpenObstacle::SILENT_PROGRAM;
    return OpenObstacle::NO_ANSWER;
}

bool freeBridgeProgram()
{
    // Load records: length, address (two bytes), data; a length of 0 ends them. Ours says what it is.
    constexpr size_t HEADER_LENGTH = 3;
    std::string program;
    for (size_t at = 0; at + HEADER_LENGTH < sizeof FIRMWARE && FIRMWARE[at] != 0;) {
        const size_t length = std::min<size_t>(FIRMWARE[at], sizeof FIRMWARE - at - HEADER_LENGTH);
        program.append(FIRMWARE + at + HEADER_LENGTH, FIRMWARE + at + HEADER_LENGTH + length);
        at += HEADER_LENGTH + length;
    }
    return program.find("libvornccd bridge program") != std::string::npos;
}

std::string permissionAdvice(const PermissionFacts& facts)
{
    std::ostringstream advice;
    for (const std::string& node : facts.nodes)
        advice << "Its device node " << node << ".\n";
    if (!facts.ruleInstalled) {
        advice << "No udev rule for it is installed. The packages bring one; by hand, put this line into "
                  "/etc/udev/rules.d/60-vornccd.rules:\n"
               << "  SUBSYSTEM==\"usb\", ENV{DEVTYPE}==\"usb_device\", ";
        if (!facts.productId.empty())
            advice << "ATTR{idProduct}==\"" << facts.productId << "\", ";
        advice << "MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"\n";
    } else {
        advice << "A udev rule for it is installed, but has not come into effect for this device.\n";
    }
    advice << "Then type: sudo udevadm control --reload && sudo udevadm trigger --subsystem-match=usb";
    if (!facts.user.plugdevExists)
        advice << "\nThere is no group plugdev: sudo groupadd --system plugdev";
    if (!facts.user.inPlugdev)
        advice << "\nThe user " << facts.user.name << " is not in the group plugdev: sudo usermod -aG plugdev "
               << facts.user.name << ", and log in again.";
    return advice.str();
}

std::string memoryAdvice(long mebibytes)
{
    std::ostringstream advice;
    if (mebibytes > 0)
        advice << "All USB programs together may use " << mebibytes << " MiB. ";
    advice << "Close other USB programs, or raise the limit:\n"
           << "  echo 64 | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb\n"
           << "For good: options usbcore usbfs_memory_mb=64 in /etc/modprobe.d/usbcore.conf, then "
              "sudo update-initramfs -u.";
    return advice.str();
}

Error explainOpenFailure(const std::string& trace, int listIndex)
{
    switch (findObstacle(trace)) {
        case OpenObstacle::PERMISSION:
            return permissionError(nodesOfCamera(listIndex));
        case OpenObstacle::BUSY:
            return busyError(nodesOfCamera(listIndex));
        case OpenObstacle::NO_MEMORY:
            return {ErrorKind::FAILED, "no memory left for USB transfers", memoryAdvice(usbMemoryMebibytes())};
        case OpenObstacle::GONE:
            return {ErrorKind::DEVICE_LOST, "the camera is no longer attached", REPLUG_ADVICE};
        case OpenObstacle::FIRMWARE_REFUSED:
            return {ErrorKind::TIMEOUT, "the camera's bridge did not take its program",
                    std::string(REPLUG_ADVICE) + "\nUse another cable or USB port, without a hub."};
        case OpenObstacle::SILENT_PROGRAM:
            return {
                ErrorKind::TIMEOUT, "the camera's bridge took its program, but the program does not answer",
                std::string(REPLUG_ADVICE) +
                    (freeBridgeProgram()
                         ? "\nIf it stays so, suspect the program: it is the free replacement that this library brings "
                           "along, which has not run on a real camera yet. With the maker's:\n"
                         : "\nIf it stays so, suspect the program that the library was built with. With another "
                           "one:\n") +
                    "  cmake --preset release -DVORNCCD_FIRMWARE=/path/to/program.hex && "
                    "cmake --build --preset release"};
        case OpenObstacle::NO_DESCRIPTION:
            return {ErrorKind::TIMEOUT, "the camera answers, but its description cannot be read",
                    std::string(REPLUG_ADVICE) + "\nIf that does not help, vornctl info --trace shows what it said."};
        case OpenObstacle::NO_ANSWER:
            break;
    }
    return {ErrorKind::TIMEOUT, "the camera does not answer as it should", REPLUG_ADVICE};
}

Error explainStall(const std::vector<UsbNode>& nodes)
{
    std::ostringstream advice;
    advice << "Unplug the camera and plug it in again";
    if (nodes.size() == 1)
        advice << ", or reset its port: sudo sh -c 'cd /sys/bus/usb/devices/" << nodes.front().port
               << " && echo 0 >authorized && echo 1 >authorized'";
    advice << ". Opening it anew does not help. If it happens again, use another cable or USB port, without a hub.";
    return {ErrorKind::FAILED, "the endpoint that the camera sends its pictures on is halted: no program gets one",
            advice.str()};
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
