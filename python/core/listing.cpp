// SPDX-License-Identifier: MIT
#include "listing.h"

#include <mutex>

#include "capture/open_diagnosis.h"
#include "capture/usb_nodes.h"

namespace vornpy {

std::vector<vorncapture::CameraHandle> listInTurn()
{
    static std::mutex turn;
    const std::lock_guard guard(turn);
    return vorncapture::listCameras();
}

std::vector<Listed> listed()
{
    std::vector<Listed> all;
    for (const auto& camera : listInTurn()) {
        Listed one{static_cast<int>(all.size()), camera->getName(), "", false};
        const auto nodes = vorncapture::nodesOfCamera(one.index);
        if (nodes.size() == 1) {
            one.port = nodes.front().port;
            one.ours = vorncapture::openInThisProcess(nodes.front().path);
        }
        all.push_back(one);
    }
    return all;
}

}  // namespace vornpy
