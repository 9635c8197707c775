// SPDX-License-Identifier: MIT
// Starting, aborting and timing exposures: what the families share.
#include "camera_impl.h"
#include "family.h"
#include "family_facts.h"
#include "trace/trace.h"
#include "transport/device_lock.h"
#include "transport/saturate.h"

using namespace vornccd;

bool VornCameraImpl::startExposure(bool amp)
{
    TRACE_ENTER("%s-> VornCameraImpl::startExposure()\n");
    exposureStarted = false;
    ampRequested = amp;
    bool ok = false;
    {
        DeviceLock held(*this);
        ok = functionsOf(type).startExposure(*this);
    }
    if (ok)
        exposureStarted = true;
    else
        lastError = "Failed to start exposure";
    imageReady = false;
    TRACE_EXIT("%s<- VornCameraImpl::startExposure %d\n", ok);
    return ok;
}

bool VornCameraImpl::abortExposure()
{
    TRACE_ENTER("%s-> VornCameraImpl::abortExposure()\n");
    bool ok = false;
    {
        DeviceLock held(*this);
        ok = isFamily(type) && functionsOf(type).abortExposure(*this);
    }
    if (!isFamily(type))
        lastError = "Unsupported operation";
    exposureStarted = false;
    imageReady = false;
    TRACE_EXIT("%s<- VornCameraImpl::abortExposure %d\n", ok);
    return ok;
}

unsigned int VornCameraImpl::delay(double seconds)
{
    // Negative times travel as their 32-bit pattern; what is longer than 32 bits of microseconds gives the longest.
    const double us = 1e6 * seconds;
    const uint32_t requested =
        us < 0 ? static_cast<uint32_t>(saturatingTrunc<int32_t>(us)) : saturatingTrunc<uint32_t>(us);
    const int64_t lead = functionsOf(type).readoutLead(*this);
    return requested > lead ? static_cast<uint32_t>(requested - lead) : 0;
}

unsigned int VornCameraImpl::imageWidth(unsigned int width, unsigned int binX)
{
    return functionsOf(type).imageWidth(*this, width, binX);
}

unsigned int VornCameraImpl::imageHeight(unsigned int height, unsigned int binY)
{
    return height / binY;
}
