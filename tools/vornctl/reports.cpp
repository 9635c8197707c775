// SPDX-License-Identifier: MIT
#include "reports.h"

#include <algorithm>
#include <array>
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

const char* const GAIN_RANGE = " (0 to 63)";
const char* const OFFSET_RANGE = " (0 to 512)";

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

/// @return a number with as many decimals, "unknown" without one.
std::string fixed(const std::optional<double>& value, int decimals)
{
    std::array<char, 32> text = {};
    if (value)
        (void)std::snprintf(text.data(), text.size(), "%.*f", decimals, *value);
    return value ? text.data() : "unknown";
}

/// @return a number with the decimals that it needs.
std::string shortest(double value)
{
    std::array<char, 32> text = {};
    (void)std::snprintf(text.data(), text.size(), "%.6g", value);
    return text.data();
}

std::string yesNo(bool value)
{
    return value ? "yes" : "no";
}

void printRow(const char* label, const std::string& text)
{
    (void)std::printf("  %-15s %s\n", label, text.c_str());
}

/// Prints the temperatures and the cooler.
void printCooling(const CameraInfo& info, const Telemetry& telemetry)
{
    std::string temperatures;
    for (size_t i = 0; i < telemetry.celsius.size(); ++i) {
        const auto& celsius = telemetry.celsius[i];
        temperatures += (i == 0 ? "CCD " : ", sensor " + std::to_string(i + 1) + " ") + fixed(celsius, 1) +
                        (celsius ? " degC" : "");
    }
    if (!temperatures.empty())
        printRow(telemetry.celsius.size() > 1 ? "temperatures" : "temperature", temperatures);
    std::string cooler = coolerName(info.caps.cooler);
    if (telemetry.coolingState) {
        cooler += std::string(", ") + coolingName(*telemetry.coolingState);
        if (telemetry.targetCelsius)
            cooler += " to " + fixed(telemetry.targetCelsius, 1) + " degC";
        if (telemetry.coolerPowerPercent)
            cooler += ", " + fixed(telemetry.coolerPowerPercent, 0) + " % power";
    }
    printRow("cooler", cooler);
}

void printHead(const CameraInfo& info)
{
    (void)std::printf("%s, serial number %u\n", info.name.c_str(), info.serialNumber);
}

}  // namespace

void printCamera(const CameraInfo& info, const Telemetry& telemetry)
{
    const VornCapabilities& caps = info.caps;
    printHead(info);
    printRow("family", vorncapture::familyName(info.family));
    printRow("firmware", std::to_string(info.versionMajor) + "." + std::to_string(info.versionMinor));
    const std::string colour = caps.colour == COLOUR_RGGB ? "RGGB, pattern offset " + std::to_string(caps.offsetX) +
                                                                "," + std::to_string(caps.offsetY)
                                                          : "no colours reported";
    printRow("sensor", std::to_string(caps.pixelCountX) + " x " + std::to_string(caps.pixelCountY) + " pixels of " +
                           shortest(caps.pixelSizeX) + " x " + shortest(caps.pixelSizeY) + " um, " + colour);
    printRow("binning", "up to " + std::to_string(caps.maxBinX) + " x " + std::to_string(caps.maxBinY));
    printRow("exposure", "from " + shortest(caps.minShortExposure) + " s" +
                             (caps.supportsLongExposure ? "" : " to " + shortest(caps.maxShortExposure) + " s"));
    printRow("8-bit readout", yesNo(caps.has8BitMode));
    printRow("shutter", yesNo(caps.hasShutter));
    printRow("guide port", yesNo(caps.hasGuidePort));
    printRow("filter wheel", yesNo(caps.hasFilterWheel));
    printRow("GPIO lines", caps.lineCount == 0 ? "none" : std::to_string(caps.lineCount));
    if (telemetry.gain)
        printRow("gain", std::to_string(*telemetry.gain) + GAIN_RANGE);
    if (telemetry.offset)
        printRow("offset", std::to_string(*telemetry.offset) + OFFSET_RANGE);
    printCooling(info, telemetry);
}

void print(const std::vector<Field>& fields, bool json)
{
    ordered_json object;
    for (const auto& [key, value] : fields)
        std::visit([&object, &name = key](const auto& held) { object[name] = held; }, value);
    if (json)
        (void)std::printf("%s\n", object.dump().c_str());
    for (auto field = object.begin(); !json && field != object.end(); ++field) {
        const ordered_json& value = field.value();
        const std::string text = value.is_boolean()  ? yesNo(value.get<bool>())
                                 : value.is_string() ? value.get<std::string>()
                                                     : value.dump();
        (void)std::printf("%s: %s\n", field.key().c_str(), text.c_str());
    }
}

void printStatus(const CameraInfo& info, const Telemetry& telemetry,
                 const std::optional<vorncapture::WheelStatus>& wheel, const vorncapture::FilterNames& filters,
                 double elapsed, bool json)
{
    if (json) {
        ordered_json object;
        object["camera"] = info.name;
        object["serial"] = info.serialNumber;
        object.update(describeStatus(telemetry, wheel, elapsed));
        (void)std::printf("%s\n", object.dump().c_str());
        return;
    }
    printHead(info);
    printCooling(info, telemetry);
    if (wheel) {
        const std::string number = std::to_string(wheel->current);
        const std::string name = filters.nameOf(wheel->current);
        printRow("filter", (name == number ? number : number + " (" + name + ")") + " of " +
                               std::to_string(wheel->count) +
                               (wheel->moving ? ", turning to " + filters.nameOf(wheel->target) : ""));
    }
}

void printStatusLine(const Telemetry& telemetry, const std::optional<vorncapture::WheelStatus>& wheel,
                     const vorncapture::FilterNames& filters, double elapsed, bool json)
{
    const ordered_json object = describeStatus(telemetry, wheel, elapsed);
    if (json) {
        (void)std::printf("%s\n", object.dump().c_str());
    } else {
        std::string line = object["time_utc"].get<std::string>();
        for (const char* key : {"ccd_celsius", "target_celsius", "power_percent", "state"}) {
            if (const auto& value = object[key]; !value.is_null())
                line += std::string("  ") + key + "=" + (value.is_string() ? value.get<std::string>() : value.dump());
        }
        if (wheel)
            line += "  filter=" + filters.nameOf(wheel->current);
        (void)std::printf("%s\n", line.c_str());
    }
}

}  // namespace vornctl
