// SPDX-License-Identifier: MIT
// Switches that only record how later exposures are made. Asking for the value already set succeeds on every family.
#include "camera_impl.h"
#include "family_facts.h"
#include "trace/trace.h"

using namespace vornccd;

bool VornCameraImpl::setPreviewMode(bool enable)
{
    TRACE_ENTER("%s-> VornCameraImpl::setPreviewMode(%d)\n", enable);
    bool ok = false;
    if (enable == previewMode) {
        TRACE_DETAIL("%s    not changed\n");
        ok = true;
    } else if (factsOf(type).hasPreviewMode) {
        previewMode = enable;
        ok = true;
    } else {
        lastError = "Unsupported operation";
    }
    TRACE_EXIT("%s<- VornCameraImpl::setPreviewMode %d\n", ok);
    return ok;
}

bool VornCameraImpl::set8BitMode(bool enable)
{
    TRACE_ENTER("%s-> VornCameraImpl::set8BitMode(%d)\n", enable);
    const bool ok = enable == eightBitMode || factsOf(type).has8BitMode;
    if (ok)
        eightBitMode = enable;
    else
        lastError = "Unsupported operation";
    TRACE_EXIT("%s<- VornCameraImpl::set8BitMode %d\n", ok);
    return ok;
}

bool VornCameraImpl::setDarkFrameMode(bool enable)
{
    TRACE_ENTER("%s-> VornCameraImpl::setDarkFrameMode(%d)\n", enable);
    // deliberate: a refusal leaves lastError as it was.
    const bool ok = enable == darkFrameMode || factsOf(type).hasDarkFrameMode;
    if (ok)
        darkFrameMode = enable;
    TRACE_EXIT("%s<- VornCameraImpl::setDarkFrameMode %d\n", ok);
    return ok;
}
