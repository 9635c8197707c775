// SPDX-License-Identifier: MIT
#pragma once

#include <pybind11/pybind11.h>

namespace vornpy {

/// Adds the class of opened cameras to the module. Its operations start jobs; vornccd/_camera.py waits for them.
void bindCamera(pybind11::module_& module);

}  // namespace vornpy
