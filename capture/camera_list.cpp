// SPDX-License-Identifier: MIT
#include "capture/camera_list.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <mutex>
#include <sstream>

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
    return {found.begin(), found.begin() + std::max(count, 0)};
}

std::vector<UsbNode> nodesOfCamera(int listIndex)
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

}  // namespace vorncapture
