// SPDX-License-Identifier: MIT
#include "capture/exposure_plan.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace vorncapture {
namespace {

constexpr double LONGEST_EXPOSURE_SECONDS = 86400.0;
constexpr unsigned int IIDC_MAX_BINNING = 2;

/// Values the ADVANCED family sends ahead of the image; getImage() drops them.
constexpr uint32_t ADVANCED_LEADING_COUNT = 2;

/// More pixels than any sensor has: a camera that claims them is not believed, nor is memory taken for it.
constexpr uint64_t MAX_BUFFER_COUNT = uint64_t{1} << 28;

template <typename... Parts>
Error refuse(const Parts&... parts)
{
    std::ostringstream text;
    (text << ... << parts);
    return {ErrorKind::BAD_REQUEST, text.str(), ""};
}

Status checkBinning(const CameraInfo& camera, const ExposureRequest& request)
{
    const unsigned int maxX = camera.caps.maxBinX;
    const unsigned int maxY = camera.caps.maxBinY;
    if (request.binX == 0 || request.binY == 0)
        return refuse("binning 0 is not possible; 1 means unbinned");
    if (request.binX > maxX || request.binY > maxY)
        return refuse("binning ", request.binX, "x", request.binY, " is beyond this camera's largest, ", maxX, "x",
                      maxY);
    if (camera.family != IIDC)
        return Done{};
    if (request.binX != request.binY)
        return refuse("binning ", request.binX, "x", request.binY, " is not possible: a ", camera.name,
                      " bins both ways alike");
    if (request.binX > IIDC_MAX_BINNING)
        return refuse("binning ", request.binX, "x", request.binY, " is not possible: a ", camera.name,
                      " bins 1x1 or 2x2");
    return Done{};
}

Status checkModes(const CameraInfo& camera, const ExposureRequest& request)
{
    if (request.preview && (camera.family == QUICKER || camera.family == IIDC))
        return refuse("a ", camera.name, " has no preview readout");
    if (request.eightBit && camera.family != ADVANCED)
        return refuse("a ", camera.name, " has no 8-bit readout");
    return Done{};
}

Status planTime(const CameraInfo& camera, const ExposureRequest& request, ExposurePlan& plan)
{
    const VornCapabilities& caps = camera.caps;
    if (!std::isfinite(request.seconds) || request.seconds < 0.0)
        return refuse("the exposure time must be a number of seconds, 0 or more");
    if (request.seconds > LONGEST_EXPOSURE_SECONDS)
        return refuse("an exposure of ", request.seconds, " s is longer than a day");
    plan.seconds = std::max(request.seconds, caps.minShortExposure);
    plan.longExposure = plan.seconds > caps.maxShortExposure;
    if (plan.longExposure && !caps.supportsLongExposure)
        return refuse("an exposure of ", request.seconds, " s is too long: a ", camera.name, " exposes up to ",
                      caps.maxShortExposure, " s");
    if (request.seconds > 0.0 && request.seconds < plan.seconds) {
        std::ostringstream note;
        note << "the shortest exposure of a " << camera.name << " is " << plan.seconds << " s; that is made";
        plan.notes.push_back(note.str());
    }
    return Done{};
}

Status planRegion(const CameraInfo& camera, const ExposureRequest& request, ExposurePlan& plan)
{
    const VornCapabilities& caps = camera.caps;
    const Region wanted = request.region.value_or(Region{0, 0, caps.pixelCountX, caps.pixelCountY});
    const uint64_t endX = uint64_t{wanted.x} + wanted.width;
    const uint64_t endY = uint64_t{wanted.y} + wanted.height;
    if (wanted.width == 0 || wanted.height == 0)
        return refuse("the region is empty");
    if (endX > caps.pixelCountX || endY > caps.pixelCountY)
        return refuse("the region ", wanted.x, ",", wanted.y, ",", wanted.width, ",", wanted.height,
                      " does not lie on the sensor of ", caps.pixelCountX, " x ", caps.pixelCountY, " pixels");
    // The library compares a region's last row with the sensor's width. On a sensor higher than wide it therefore
    // refuses rows that exist, and there is no way to reach them; whole-frame families take no part in this.
    if (endY > caps.pixelCountX)
        return refuse("rows from ", caps.pixelCountX,
                      " on cannot be read: the driver reads no further down than the "
                      "sensor is wide; choose a region above");

    plan.binX = request.binX;
    plan.binY = request.binY;
    plan.width = wanted.width / request.binX;
    plan.height = wanted.height / request.binY;
    if (plan.width == 0 || plan.height == 0)
        return refuse("the region is smaller than one pixel binned ", request.binX, "x", request.binY);
    plan.region = {wanted.x / request.binX * request.binX, wanted.y / request.binY * request.binY,
                   plan.width * request.binX, plan.height * request.binY};
    if (plan.region != wanted && request.region) {
        std::ostringstream note;
        note << "the region lies on the binning grid: " << plan.region.x << "," << plan.region.y << ","
             << plan.region.width << "," << plan.region.height << " is read";
        plan.notes.push_back(note.str());
    }
    return Done{};
}

/// The region comes as it is asked for, row after row.
void planDirect(ExposurePlan& plan, size_t rowStride)
{
    plan.asked = plan.region;
    plan.rowStride = rowStride;
    plan.transferCount = static_cast<uint32_t>(rowStride * plan.height);
    plan.bufferCount = plan.transferCount;
}

/// The camera sends two values ahead of the image; getImage() asks for as many as it is told, drops two in front, and
/// so leaves the last two places without their values. Telling it of two values more brings the whole image; one place
/// more is needed because it reads one value beyond its count while it moves them.
void planAdvanced(ExposurePlan& plan, bool eightBit)
{
    planDirect(plan, eightBit ? (size_t{plan.width} + 1) / 2 * 2 : plan.width);
    plan.transferCount += ADVANCED_LEADING_COUNT;
    plan.bufferCount = size_t{plan.transferCount} + 1;
}

/// The library crops these images itself, but advances by the region's height from row to row on some cameras and by
/// its width on the others, and a host cannot tell which. In a square the two are the same, so a square around the
/// region is asked for. It may reach below the sensor; those rows mean nothing and are dropped.
Status planSquare(const CameraInfo& camera, ExposurePlan& plan)
{
    const unsigned int columns = camera.caps.pixelCountX / plan.binX;
    const unsigned int rows = camera.caps.pixelCountY / plan.binY;
    const unsigned int askableRows = camera.caps.pixelCountX / plan.binY;
    const unsigned int side = std::max(plan.width, plan.height);
    if (side > columns || side > askableRows)
        return refuse("a ", camera.name, " reads a region of this shape only up to ", std::min(columns, askableRows),
                      " binned pixels a side; make it smaller or bin both ways alike");

    const unsigned int column = plan.region.x / plan.binX;
    const unsigned int row = plan.region.y / plan.binY;
    const unsigned int askedColumn = std::min(column, columns - side);
    const unsigned int askedRow = std::min(row, rows > side ? rows - side : 0);
    plan.asked = {askedColumn * plan.binX, askedRow * plan.binY, side * plan.binX, side * plan.binY};
    plan.rowStride = side;
    plan.bufferCount = size_t{side} * side;
    plan.transferCount = static_cast<uint32_t>(plan.bufferCount);
    plan.firstValue = (row - askedRow) * plan.rowStride + (column - askedColumn);
    return Done{};
}

Status planReadout(const CameraInfo& camera, const ExposureRequest& request, ExposurePlan& plan)
{
    const uint64_t side = std::max(plan.width, plan.height);
    const uint64_t count = camera.family == QUICKER ? side * side : uint64_t{plan.width} * plan.height;
    if (count > MAX_BUFFER_COUNT)
        return refuse("a picture of ", plan.width, " x ", plan.height, " pixels is larger than any sensor");
    switch (camera.family) {
        case CLASSIC:
        case STANDARD:
        case IIDC:
            planDirect(plan, plan.width);
            return Done{};
        case ADVANCED:
            planAdvanced(plan, request.eightBit);
            return Done{};
        case QUICKER:
            return planSquare(camera, plan);
    }
    return refuse("the camera is of an unknown family");
}

}  // namespace

const char* familyName(CAMERA_TYPE family)
{
    switch (family) {
        case CLASSIC:
            return "CLASSIC";
        case STANDARD:
            return "STANDARD";
        case QUICKER:
            return "QUICKER";
        case IIDC:
            return "IIDC";
        case ADVANCED:
            return "ADVANCED";
    }
    return "unknown";
}

Result<ExposurePlan> planExposure(const CameraInfo& camera, const ExposureRequest& request)
{
    ExposurePlan plan;
    Status status = planTime(camera, request, plan);
    if (status.ok())
        status = checkBinning(camera, request);
    if (status.ok())
        status = checkModes(camera, request);
    if (status.ok())
        status = planRegion(camera, request, plan);
    if (status.ok())
        status = planReadout(camera, request, plan);
    if (!status.ok())
        return status.error();
    if (request.dark && !camera.caps.hasShutter)
        plan.notes.push_back("this camera has no shutter: cover the telescope for a dark frame");
    return plan;
}

void cropToPlan(std::vector<uint16_t>& pixels, const ExposurePlan& plan)
{
    const auto begin = pixels.begin();
    if (plan.rowStride != plan.width || plan.firstValue != 0) {
        for (size_t row = 0; row < plan.height; ++row) {
            const auto source = begin + static_cast<std::ptrdiff_t>(plan.firstValue + row * plan.rowStride);
            // Rows only ever move towards the front, so a forward copy is safe where they overlap.
            std::copy(source, source + plan.width, begin + static_cast<std::ptrdiff_t>(row * plan.width));
        }
    }
    pixels.resize(size_t{plan.width} * plan.height);
}

}  // namespace vorncapture
