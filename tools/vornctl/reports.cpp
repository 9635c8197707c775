// SPDX-License-Identifier: MIT
#include "reports.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <string>

#include "capture/fits_writer.h"

namespace vornctl {
namespace {

using nlohmann::ordered_json;
using vorncapture::CameraInfo;
using vorncapture::Frame;
using vorncapture::Telemetry;

template <typename Value>
ordered_json orNull(const std::optional<Value>& value)
{
    return value ? ordered_json(*value) : ordered_json(nullptr);
}

/// Cameras tell temperatures and power in coarser steps than this; more digits would only be noise of the conversion.
ordered_json hundredths(const std::optional<double>& value)
{
    return value ? ordered_json(std::round(*value * 100.0) / 100.0) : ordered_json();
}

const char* coolerName(COOLER_TYPE cooler)
{
    switch (cooler) {
        case COOLER_NONE:
            return "none";
        case COOLER_ALWAYSON:
            return "always on";
        case COOLER_ONOFF:
            return "on/off";
        case COOLER_SELECTPOWER:
            return "power";
        case COOLER_SETPOINT:
            return "set-point";
    }
    return "unknown";
}

}  // namespace

const char* coolingName(COOLING_STATE state)
{
    switch (state) {
        case COOLING_INACTIVE:
            return "off";
        case COOLING_ON:
            return "on";
        case COOLING_SETPOINT:
            return "regulating";
        case WARMING_UP:
            return "warming up";
    }
    return "unknown";
}

ordered_json describeCooling(const CameraInfo& info, const Telemetry& telemetry)
{
    ordered_json json;
    json["cooler"] = coolerName(info.caps.cooler);
    json["state"] = telemetry.coolingState ? ordered_json(coolingName(*telemetry.coolingState)) : ordered_json();
    json["target_celsius"] = hundredths(telemetry.targetCelsius);
    json["power_percent"] = hundredths(telemetry.coolerPowerPercent);
    json["temperatures_celsius"] = ordered_json::array();
    for (const auto& celsius : telemetry.celsius)
        json["temperatures_celsius"].push_back(hundredths(celsius));
    return json;
}

ordered_json describeCamera(const CameraInfo& info, const Telemetry& telemetry)
{
    const VornCapabilities& caps = info.caps;
    const bool colour = caps.colour == COLOUR_RGGB;
    ordered_json json;
    json["name"] = info.name;
    json["family"] = vorncapture::familyName(info.family);
    json["serial"] = info.serialNumber;
    json["firmware"] = std::to_string(info.versionMajor) + "." + std::to_string(info.versionMinor);
    json["sensor"] = {{"width", caps.pixelCountX},
                      {"height", caps.pixelCountY},
                      {"pixel_width_um", caps.pixelSizeX},
                      {"pixel_height_um", caps.pixelSizeY},
                      {"colour", colour ? "RGGB" : "mono"}};
    json["sensor"]["bayer_offset_x"] = colour ? ordered_json(caps.offsetX) : ordered_json();
    json["sensor"]["bayer_offset_y"] = colour ? ordered_json(caps.offsetY) : ordered_json();
    json["max_binning"] = {{"x", caps.maxBinX}, {"y", caps.maxBinY}};
    json["exposure"] = {{"shortest_seconds", caps.minShortExposure}};
    json["exposure"]["longest_seconds"] =
        caps.supportsLongExposure ? ordered_json() : ordered_json(caps.maxShortExposure);
    json["shutter"] = caps.hasShutter;
    json["guide_port"] = caps.hasGuidePort;
    json["filter_wheel"] = caps.hasFilterWheel;
    json["eight_bit_mode"] = caps.has8BitMode;
    json["gpio_lines"] = caps.lineCount;
    json["gain"] = orNull(telemetry.gain);
    json["offset"] = orNull(telemetry.offset);
    json["cooling"] = describeCooling(info, telemetry);
    return json;
}

ordered_json describeFrame(const Frame& frame)
{
    const auto [low, high] = std::minmax_element(frame.pixels.begin(), frame.pixels.end());
    const double sum = std::accumulate(frame.pixels.begin(), frame.pixels.end(), 0.0);
    ordered_json json;
    json["camera"] = frame.camera.name;
    json["serial"] = frame.camera.serialNumber;
    json["start_utc"] = vorncapture::fitsDate(frame.start);
    json["exposure_seconds"] = frame.exposureSeconds;
    json["dark"] = frame.request.dark;
    json["type"] = frame.imageType.empty() ? ordered_json() : ordered_json(frame.imageType);
    json["filter"] = orNull(frame.filter);
    json["filter_name"] = frame.filter ? ordered_json(frame.filterName) : ordered_json();
    json["object"] = frame.observation.object.empty() ? ordered_json() : ordered_json(frame.observation.object);
    json["width"] = frame.width;
    json["height"] = frame.height;
    json["region"] = {
        {"x", frame.region.x}, {"y", frame.region.y}, {"width", frame.region.width}, {"height", frame.region.height}};
    json["binning"] = {{"x", frame.request.binX}, {"y", frame.request.binY}};
    json["ccd_celsius"] = hundredths(frame.telemetry.ccdCelsius());
    json["values"] = {{"min", *low},
                      {"max", *high},
                      {"mean", std::round(sum / static_cast<double>(frame.pixels.size()) * 1000.0) / 1000.0}};
    json["notes"] = frame.notes;
    return json;
}

namespace {

ordered_json describeStatus(const Telemetry& telemetry, const std::optional<vorncapture::WheelStatus>& wheel,
                            double elapsed)
{
    ordered_json json;
    json["time_utc"] = vorncapture::fitsDate(std::chrono::system_clock::now());
    json["elapsed_seconds"] = std::round(elapsed * 10.0) / 10.0;
    json["ccd_celsius"] = hundredths(telemetry.ccdCelsius());
    json["temperatures_celsius"] = ordered_json::array();
    for (const auto& celsius : telemetry.celsius)
        json["temperatures_celsius"].push_back(hundredths(celsius));
    json["target_celsius"] = hundredths(telemetry.targetCelsius);
    json["power_percent"] = hundredths(telemetry.coolerPowerPercent);
    json["state"] = telemetry.coolingState ? ordered_json(coolingName(*telemetry.coolingState)) : ordered_json();
    json["filter"] = wheel ? ordered_json(wheel->current) : ordered_json();
    json["filter_moving"] = wheel ? ordered_json(wheel->moving) : ordered_json();
    return json;
}

std::string joined(const ordered_json& list)
{
    std::string text;
    for (const auto& value : list)
        text += (text.empty() ? "" : ", ") + (value.is_null() ? "unknown" : value.dump());
    return text;
}

}  // namespace

/// Prints nested values one a line, "sensor width: 1392", with units spelt as in the keys.
void printPlain(const ordered_json& json, const std::string& prefix)
{
    for (const auto& [key, value] : json.items()) {
        std::string label = prefix + key;
        std::replace(label.begin(), label.end(), '_', ' ');
        if (value.is_object())
            printPlain(value, label + " ");
        else if (value.is_string())
            (void)std::printf("%s: %s\n", label.c_str(), value.get<std::string>().c_str());
        else if (value.is_boolean())
            (void)std::printf("%s: %s\n", label.c_str(), value.get<bool>() ? "yes" : "no");
        else if (value.is_array())
            (void)std::printf("%s: %s\n", label.c_str(), joined(value).c_str());
        else if (!value.is_null())
            (void)std::printf("%s: %s\n", label.c_str(), value.dump().c_str());
    }
}

void print(const std::vector<Field>& fields, bool json)
{
    ordered_json object;
    for (const auto& [key, value] : fields)
        std::visit([&object, &name = key](const auto& held) { object[name] = held; }, value);
    if (json)
        (void)std::printf("%s\n", object.dump().c_str());
    else
        printPlain(object, "");
}

void printStatus(const CameraInfo& info, const Telemetry& telemetry,
                 const std::optional<vorncapture::WheelStatus>& wheel, double elapsed, bool json)
{
    ordered_json object;
    object["camera"] = info.name;
    object["serial"] = info.serialNumber;
    object.update(describeStatus(telemetry, wheel, elapsed));
    if (json)
        (void)std::printf("%s\n", object.dump().c_str());
    else
        printPlain(object, "");
}

void printStatusLine(const Telemetry& telemetry, const std::optional<vorncapture::WheelStatus>& wheel, double elapsed,
                     bool json)
{
    const ordered_json object = describeStatus(telemetry, wheel, elapsed);
    if (json) {
        (void)std::printf("%s\n", object.dump().c_str());
    } else {
        std::string line = object["time_utc"].get<std::string>();
        for (const char* key : {"ccd_celsius", "target_celsius", "power_percent", "state", "filter"}) {
            if (const auto& value = object[key]; !value.is_null())
                line += std::string("  ") + key + "=" + (value.is_string() ? value.get<std::string>() : value.dump());
        }
        (void)std::printf("%s\n", line.c_str());
    }
}

}  // namespace vornctl
