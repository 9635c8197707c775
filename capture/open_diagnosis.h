// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "capture/result.h"
#include "capture/trace_capture.h"

namespace vorncapture {

/// Tells why a camera could not be opened. The library's own texts are the same for every cause; the USB error names
/// in its trace are not, and the system's files tell the rest.
/// @param trace what the library wrote while it tried
/// @param listIndex the camera's place in VornCamera::list(), -1 when unknown
Error explainOpenFailure(const std::string& trace, int listIndex);

/// Tells why an operation on an open camera failed.
/// @param complaint what the failure is called, "the exposure failed"
/// @param failure the library's text
/// @param reopenFailure the library's text when the camera was opened again afterwards; empty when that worked
Error explainFailure(const std::string& complaint, const std::string& failure, const std::string& reopenFailure);

}  // namespace vorncapture
