// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "capture/camera_list.h"

namespace vornpy {

/// Lists the attached cameras; callers in several threads wait for each other.
std::vector<vorncapture::CameraHandle> listInTurn();

/// A camera in the list.
struct Listed {
    int index = 0;
    std::string name;
    std::string port;   ///< bus and ports, "1-2.3"; empty where several cameras of one model are attached
    bool ours = false;  ///< whether this process has it open; false when the port is unknown
};

/// Lists the attached cameras without opening any.
std::vector<Listed> listed();

}  // namespace vornpy
