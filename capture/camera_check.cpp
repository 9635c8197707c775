// SPDX-License-Identifier: MIT
#include "capture/camera_check.h"

#include <algorithm>
#include <sstream>

#include "capture/camera_list.h"
#include "capture/open_diagnosis.h"

namespace vorncapture {
namespace {

using Level = Finding::Level;

constexpr double HIGH_SPEED_MEGABITS = 480.0;
constexpr uint64_t MEBIBYTE = uint64_t{1} << 20;
constexpr uint64_t LIBRARY_READ_BYTES = 0x1800000;  // its MAX_PACKET_SIZE

/// The system counts 32 bytes more for each 16 KiB of a transfer.
uint64_t usbMemoryFor(uint64_t bytes)
{
    constexpr uint64_t PIECE = 16384;
    return bytes + (bytes + PIECE - 1) / PIECE * 32;
}

void examineNode(const UsbNode& node, std::vector<Finding>& findings)
{
    std::ostringstream text;
    if (node.megabitsPerSecond > 0.0 && node.megabitsPerSecond < HIGH_SPEED_MEGABITS) {
        text << node.port << " runs at " << node.megabitsPerSecond << " Mbit/s instead of " << HIGH_SPEED_MEGABITS;
        findings.push_back({Level::PROBLEM, text.str(),
                            "Use a USB 2 port of the computer itself and a short cable, without an old hub. See: "
                            "lsusb -t"});
    }
    if (!node.kernelDriver.empty() && node.kernelDriver != "usbfs") {
        findings.push_back({Level::HINT,
                            "the kernel driver " + node.kernelDriver + " has taken " + node.port +
                                "; the library takes the camera from it when it opens it",
                            "If it does not open: echo " + node.port + ":1.0 | sudo tee /sys/bus/usb/drivers/" +
                                node.kernelDriver + "/unbind"});
    }
}

void examineMemory(const CameraFacts& facts, std::vector<Finding>& findings)
{
    if (facts.usbMemoryMebibytes <= 0)
        return;
    const uint64_t needed = usbMemoryFor(longestReadBytes(*facts.info));
    if (needed <= static_cast<uint64_t>(facts.usbMemoryMebibytes) * MEBIBYTE)
        return;
    std::ostringstream text;
    text << "full frames of this camera need " << (needed + MEBIBYTE - 1) / MEBIBYTE
         << " MiB of USB memory in one piece, and usbfs_memory_mb is " << facts.usbMemoryMebibytes
         << ": vornctl reads in small pieces, other programs fail";
    findings.push_back({Level::HINT, text.str(), memoryAdvice(facts.usbMemoryMebibytes)});
}

}  // namespace

uint64_t longestReadBytes(const CameraInfo& info)
{
    const uint64_t frame = uint64_t{info.caps.pixelCountX} * info.caps.pixelCountY * 2;
    return std::min(frame, LIBRARY_READ_BYTES);
}

std::vector<Finding> examine(const CameraFacts& facts)
{
    std::vector<Finding> findings;
    for (const UsbNode& node : facts.nodes)
        examineNode(node, findings);
    if (facts.openError) {
        findings.push_back({Level::PROBLEM, facts.name + ": " + facts.openError->text, facts.openError->advice,
                            facts.openError->kind});
        return findings;
    }
    if (!facts.info)
        return findings;
    std::ostringstream text;
    text << facts.name << ", serial number " << facts.info->serialNumber
         << ", opens and describes itself: " << facts.info->caps.pixelCountX << " x " << facts.info->caps.pixelCountY
         << " pixels";
    findings.insert(findings.begin(), {Level::GOOD, text.str(), ""});
    if (facts.stall)
        findings.push_back(
            {Level::PROBLEM, facts.name + ": " + facts.stall->text, facts.stall->advice, facts.stall->kind});
    examineMemory(facts, findings);
    const bool measures = facts.info->caps.tempSensorCount > 0 && facts.info->family != IIDC;
    if (measures && facts.info->temperatureEncoding == 0)
        findings.push_back({Level::PROBLEM, "the camera does not say how it encodes temperatures, so none are read",
                            "Switch the camera off and on again."});
    if (facts.freeProgram && facts.info->family != IIDC)
        findings.push_back({Level::HINT,
                            "the camera's bridge runs the free replacement program, which has been executed on an "
                            "emulated chip only, never on a real camera",
                            "To use the maker's instead: cmake --preset release "
                            "-DVORNCCD_FIRMWARE=/path/to/program.hex && cmake --build --preset release"});
    return findings;
}

std::vector<Finding> checkCameras(const SessionOptions& options)
{
    std::vector<CameraHandle> cameras = listCameras();
    std::vector<Finding> findings;
    if (cameras.empty())
        return {{Level::PROBLEM, "no camera is seen on the USB",
                 "Is it switched on, and its cable plugged in? See what is attached with: lsusb\n"
                 "To try vornctl without one: vornsim run --camera K12 -- vornctl doctor",
                 ErrorKind::NO_SUCH_CAMERA}};
    for (size_t index = 0; index < cameras.size(); ++index) {
        CameraFacts facts;
        facts.name = cameras[index]->getName();
        facts.nodes = nodesOfCamera(static_cast<int>(index));
        facts.usbMemoryMebibytes = usbMemoryMebibytes();
        facts.freeProgram = freeBridgeProgram();
        SessionOptions own = options;
        own.listIndex = static_cast<int>(index);
        const auto session = Session::open(std::move(cameras[index]), own);
        if (session.ok()) {
            facts.info = session.value()->info();
            facts.stall = session.value()->findStall();
        } else {
            facts.openError = session.error();
        }
        const auto about = examine(facts);
        findings.insert(findings.end(), about.begin(), about.end());
        if (facts.openError && facts.openError->kind == ErrorKind::CANCELLED)
            break;
    }
    return findings;
}

}  // namespace vorncapture
