// SPDX-License-Identifier: MIT
#include "capture/camera_list.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <string_view>

#include "capture/trace_capture.h"

namespace vorncapture {
namespace {

constexpr int MAX_CAMERAS = 64;

/// @return "16-bit id" as sysfs writes it, four hexadecimal digits.
std::string sysfsId(unsigned int id)
{
    char text[16] = {};
    (void)std::snprintf(text, sizeof text, "%04x", id & 0xFFFFU);
    return text;
}

}  // namespace

std::vector<CameraHandle> listCameras()
{
    static std::mutex listing;
    const std::lock_guard guard(listing);
    std::array<VornCamera*, MAX_CAMERAS> found = {};
    const int count = VornCamera::list(found.data(), MAX_CAMERAS);
    std::vector<CameraHandle> cameras(found.begin(), found.begin() + std::max(count, 0));
    std::stable_sort(cameras.begin(), cameras.end(), [](const CameraHandle& first, const CameraHandle& second) {
        return std::string_view(first->getName()) < second->getName();
    });
    return cameras;
}

std::vector<ListedCamera> describeCameras()
{
    TraceCapture trace;
    (void)listCameras();
    std::istringstream lines(trace.finish());
    std::vector<ListedCamera> cameras;
    for (std::string line; std::getline(lines, line);) {
        const size_t name = line.find('\'');
        const size_t ids = line.find("' [0x");
        unsigned int vendor = 0;
        unsigned int product = 0;
        if (ids != std::string::npos && line.find("] found") != std::string::npos &&
            std::sscanf(line.c_str() + ids, "' [0x%x, 0x%x]", &vendor, &product) == 2) {
            ListedCamera& camera = cameras.emplace_back();
            camera.name = line.substr(name + 1, ids - name - 1);
            camera.nodes = findUsbNodes(sysfsId(vendor), sysfsId(product));
            std::sort(camera.nodes.begin(), camera.nodes.end(),
                      [](const UsbNode& first, const UsbNode& second) { return first.path < second.path; });
        }
        // The object that is made next has the family: "-> VornCameraImpl::VornCameraImpl(..., Vorn K12, 2)".
        const size_t family = line.rfind(", ");
        if (line.find("-> VornCameraImpl::VornCameraImpl(") != std::string::npos && family != std::string::npos &&
            !cameras.empty())
            cameras.back().family = static_cast<CAMERA_TYPE>(std::atoi(line.c_str() + family + 2));
    }
    std::stable_sort(cameras.begin(), cameras.end(),
                     [](const ListedCamera& first, const ListedCamera& second) { return first.name < second.name; });
    return cameras;
}

std::vector<UsbNode> nodesOfCamera(int listIndex)
{
    const std::vector<ListedCamera> cameras = describeCameras();
    const auto index = static_cast<size_t>(listIndex);
    return listIndex >= 0 && index < cameras.size() ? cameras[index].nodes : std::vector<UsbNode>();
}

}  // namespace vorncapture
