// SPDX-License-Identifier: MIT
// Parsers of the tools, and what they decide from what people typed.
#include <cmath>

#include "capture/camera_selection.h"
#include "capture/exposure_plan.h"
#include "device/faults/fault_rule.h"
#include "packer/table.h"
#include "targets.h"
#include "tools/vornctl/options.h"

namespace vornfuzz {

void packFirmware(Input& input)
{
    const auto format = static_cast<firmware::Format>(input.byte() % 5);
    const std::string text = input.text();
    const std::vector<uint8_t> bytes(text.begin(), text.end());
    const firmware::Result<firmware::Table> packed = firmware::pack(bytes, format);
    if (!packed.ok()) {
        check(packed.error().find('\n') == std::string::npos, "an error of more than one line");
        return;
    }
    check(packed.value().size() == firmware::TABLE_LENGTH, "a table of another length");
    const firmware::Result<firmware::Table> again = firmware::pack(packed.value(), firmware::Format::TABLE);
    check(again.ok() && again.value() == packed.value(), "the table does not pass for a table");
}

void parseOptions(Input& input)
{
    const unsigned choice = input.byte() % 4;
    const std::string text = input.text();
    vorncapture::ExposureRequest request;
    if (choice == 0 && vornctl::parseRegion(text, request).ok())
        check(request.region && request.region->width != 0 && request.region->height != 0, "an empty region");
    if (choice == 1 && vornctl::parseBinning(text, request).ok())
        check(request.binX != 0 && request.binY != 0, "binning 0");
    if (choice == 2 && vornctl::parseSeconds(text, request).ok())
        check(request.seconds >= 0 && std::isfinite(request.seconds), "not a time");
    if (choice == 3)
        (void)vorncapture::CameraSelector::parse(text);
}

void planExposure(Input& input)
{
    vorncapture::CameraInfo camera = {.name = "Vorn K0"};
    camera.family = static_cast<CAMERA_TYPE>(CLASSIC + input.byte() % 5);
    const bool large = input.flag();
    const auto extent = [&] { return large ? input.number<unsigned>() : input.byte(); };
    camera.caps.pixelCountX = extent();
    camera.caps.pixelCountY = extent();
    camera.caps.maxBinX = extent();
    camera.caps.maxBinY = extent();
    camera.caps.minShortExposure = input.real();
    camera.caps.maxShortExposure = input.real();
    camera.caps.supportsLongExposure = input.flag();
    vorncapture::ExposureRequest request = {.seconds = input.real(), .binX = extent(), .binY = extent()};
    if (input.flag())
        request.region = {extent(), extent(), extent(), extent()};
    request.eightBit = input.flag();

    const vorncapture::Result<vorncapture::ExposurePlan> planned = vorncapture::planExposure(camera, request);
    constexpr size_t LARGEST_BUFFER = size_t{1} << 18;
    if (!planned.ok() || planned.value().bufferCount > LARGEST_BUFFER)
        return;
    const vorncapture::ExposurePlan& plan = planned.value();
    std::vector<uint16_t> pixels(plan.bufferCount);
    vorncapture::cropToPlan(pixels, plan);
    check(pixels.size() == size_t{plan.width} * plan.height && !pixels.empty(), "a picture of another size");
}

void parseFaultRule(Input& input)
{
    const auto parsed = vornsim::parseFault(input.text());
    if (const auto* rule = std::get_if<vornsim::FaultRule>(&parsed)) {
        check(rule->camera >= 1 && rule->transfer >= 1 && rule->times >= 1, "a rule that counts from 0");
        check(rule->seconds >= 0 && rule->replugSeconds.value_or(0) >= 0, "a time that has gone");
    }
}

}  // namespace vornfuzz
