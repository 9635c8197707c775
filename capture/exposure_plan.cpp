// SPDX-License-Identifier: MIT
#include "capture/exposure_plan.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>

namespace vorncapture {
namespace {

/// Values the ADVANCED family sends ahead of the image; getImage() drops them.
constexpr uint32_t ADVANCED_LEADING_COUNT = 2;

/// More pixels than any sensor has: a camera that claims them is not believed, nor is memory taken for it.
constexpr uint64_t MAX_BUFFER_COUNT = uint64_t{1} << 28;

constexpr const char* COLOUR_REGISTER_MODEL = "Vorn XRC";

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
    // A register camera asked for exactly its longest time keeps the time that it had.
    if (camera.family == IIDC && plan.seconds == caps.maxShortExposure)
        plan.seconds = std::nextafter(plan.seconds, 0.0);
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

/// A QUICKER image can only be had as a square of binned pixels, whose rows may reach down to the sensor's width.
bool fitsSquare(const CameraInfo& camera, const ExposurePlan& plan)
{
    const unsigned int side = std::max(plan.width, plan.height);
    return side <= camera.caps.pixelCountX / plan.binX && side <= camera.caps.pixelCountX / plan.binY;
}

/// Unequal binning that a camera cannot do, or not in this shape: it bins what both directions share, and the host sums
/// the rest.
void planBinning(const CameraInfo& camera, ExposurePlan& plan)
{
    plan.readBinX = plan.binX;
    plan.readBinY = plan.binY;
    const bool possible = plan.binX == plan.binY || (camera.family == QUICKER && fitsSquare(camera, plan)) ||
                          (camera.family != QUICKER && camera.family != IIDC);
    if (possible)
        return;
    plan.readBinX = plan.readBinY = std::gcd(plan.binX, plan.binY);
    std::ostringstream note;
    note << "this picture of a " << camera.name << " was read out binned " << plan.readBinX << "x" << plan.readBinY
         << " and summed to " << plan.binX << "x" << plan.binY << ", bias included";
    plan.notes.push_back(note.str());
}

/// The region comes as it is asked for, row after row.
void planDirect(ExposurePlan& plan, size_t rowStride)
{
    plan.asked = plan.region;
    plan.rowStride = rowStride;
    plan.transferCount = static_cast<uint32_t>(rowStride * (plan.region.height / plan.readBinY));
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
void planSquare(const CameraInfo& camera, ExposurePlan& plan)
{
    const unsigned int columns = camera.caps.pixelCountX / plan.readBinX;
    const unsigned int rows = camera.caps.pixelCountY / plan.readBinY;
    const unsigned int side = std::max(plan.region.width / plan.readBinX, plan.region.height / plan.readBinY);
    const unsigned int column = plan.region.x / plan.readBinX;
    const unsigned int row = plan.region.y / plan.readBinY;
    const unsigned int askedColumn = std::min(column, columns - side);
    const unsigned int askedRow = std::min(row, rows > side ? rows - side : 0);
    plan.asked = {askedColumn * plan.readBinX, askedRow * plan.readBinY, side * plan.readBinX, side * plan.readBinY};
    plan.rowStride = side;
    plan.bufferCount = size_t{side} * side;
    plan.transferCount = static_cast<uint32_t>(plan.bufferCount);
    plan.firstValue = (row - askedRow) * plan.rowStride + (column - askedColumn);
}

Status planReadout(const CameraInfo& camera, const ExposureRequest& request, ExposurePlan& plan)
{
    planBinning(camera, plan);
    const uint64_t columns = plan.region.width / plan.readBinX;
    const uint64_t rows = plan.region.height / plan.readBinY;
    const uint64_t side = std::max(columns, rows);
    const uint64_t count = camera.family == QUICKER ? side * side : columns * rows;
    if (count > MAX_BUFFER_COUNT)
        return refuse("a picture of ", plan.width, " x ", plan.height, " pixels is larger than any sensor");
    switch (camera.family) {
        case CLASSIC:
        case STANDARD:
        case IIDC:
            planDirect(plan, plan.region.width / plan.readBinX);
            return Done{};
        case ADVANCED:
            planAdvanced(plan, request.eightBit);
            return Done{};
        case QUICKER:
            planSquare(camera, plan);
            return Done{};
    }
    return refuse("the camera is of an unknown family");
}

/// Register cameras report no colours, not even the model whose sensor has them.
void planColours(const CameraInfo& camera, const ExposureRequest& request, ExposurePlan& plan)
{
    const bool binned = plan.binX != 1 || plan.binY != 1;
    plan.bayer = request.bayer;
    if (request.bayer && binned)
        plan.notes.emplace_back("binning sums the colours of neighbouring pixels: the picture is grey");
    else if (!request.bayer && !binned && camera.name == COLOUR_REGISTER_MODEL)
        plan.notes.push_back("a " + camera.name +
                             " does not report the colours of its sensor: --bayer RGGB, GRBG, GBRG or BGGR gives the "
                             "picture its colours");
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
    planColours(camera, request, plan);
    if (request.dark && !camera.caps.hasShutter)
        plan.warnings.push_back("this camera has no shutter: cover the telescope for a dark frame");
    plan.notes.insert(plan.notes.end(), plan.warnings.begin(), plan.warnings.end());
    return plan;
}

void cropToPlan(std::vector<uint16_t>& pixels, const ExposurePlan& plan)
{
    const unsigned int sumX = plan.binX / plan.readBinX;
    const unsigned int sumY = plan.binY / plan.readBinY;
    const bool inPlace = plan.rowStride == plan.width && plan.firstValue == 0 && sumX == 1 && sumY == 1;
    // Values only ever move towards the front, and none is read again after its place was taken.
    for (size_t row = 0; !inPlace && row < plan.height; ++row) {
        for (size_t column = 0; column < plan.width; ++column) {
            uint32_t sum = 0;
            for (size_t y = 0; y < sumY; ++y) {
                const size_t first = plan.firstValue + (row * sumY + y) * plan.rowStride + column * sumX;
                for (size_t x = 0; x < sumX; ++x)
                    sum += pixels[first + x];
            }
            pixels[row * plan.width + column] = static_cast<uint16_t>(std::min<uint32_t>(sum, 65535));
        }
    }
    pixels.resize(size_t{plan.width} * plan.height);
}

}  // namespace vorncapture
