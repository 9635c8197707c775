// SPDX-License-Identifier: MIT
#pragma once

#include <pybind11/pybind11.h>

#include <memory>

#include "capture/frame.h"
#include "capture/name_pattern.h"

namespace vornpy {

/// A picture as Python sees it. Its pixels never change, so any thread may look at them, and they live as long as the
/// last array that shows them.
struct Picture {
    std::shared_ptr<const vorncapture::Frame> frame;
    vorncapture::FrameKind kind = vorncapture::FrameKind::LIGHT;
};

/// Adds the class of pictures to the module.
void bindFrame(pybind11::module_& module);

}  // namespace vornpy
