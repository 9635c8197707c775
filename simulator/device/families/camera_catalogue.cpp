// SPDX-License-Identifier: MIT
#include "camera_catalogue.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "advanced_camera.h"
#include "camera_model.h"
#include "classic_camera.h"
#include "device/bridge/native_bridge.h"
#include "family_cameras.h"
#include "iidc_camera.h"
#include "quicker_camera.h"
#include "standard_camera.h"

namespace vornsim {
namespace {

constexpr int MONO = -1;  // in place of a Bayer pattern code

/// The part of a row that every family has: sensor, pixel size in hundredths of a micrometre, largest binning.
CameraModel sensorRow(const char* name, uint16_t productId, Family family, uint32_t x, uint32_t y, int bayer,
                      uint16_t pixelSize, uint8_t maxBin)
{
    CameraModel model;
    model.info = {name, productId, family, x, y, bayer != MONO};
    model.describedX = x;
    model.describedY = y;
    model.pixelSizeX = model.pixelSizeY = pixelSize;
    model.maxBinX = model.maxBinY = maxBin;
    model.bayerCode = static_cast<uint8_t>(std::max(bayer, 0));
    // Small pixels hold less charge: some 450 electrons a square micrometre.
    model.wellCapacity = static_cast<uint16_t>(std::min(pixelSize * pixelSize * 450 / 10000, 60000));
    return model;
}

struct Cooling {
    CoolerKind kind;
    uint8_t minPower;
    uint8_t maxPower;
    uint8_t encoding;
    uint8_t sensors;
};

constexpr Cooling SET_POINT_10_BIT{CoolerKind::SET_POINT, 0, 255, 1, 1};
constexpr Cooling SET_POINT_12_BIT{CoolerKind::SET_POINT, 10, 200, 2, 2};
constexpr Cooling SELECT_POWER{CoolerKind::SELECT_POWER, 0, 100, 1, 1};
constexpr Cooling ON_OFF{CoolerKind::ON_OFF, 0, 1, 1, 1};
constexpr Cooling ALWAYS_ON{CoolerKind::ALWAYS_ON, 0, 255, 1, 1};
constexpr Cooling UNCOOLED{CoolerKind::NONE, 0, 255, 1, 1};
constexpr Cooling NO_SENSOR{CoolerKind::NONE, 0, 255, 0, 0};

struct Accessories {
    bool shutter = false;
    bool guidePort = false;
    uint8_t filterCount = 0;
    bool gpio = false;
    bool eightBit = false;
};

CameraModel equip(CameraModel model, const Cooling& cooling, const Accessories& accessories)
{
    model.cooler = cooling.kind;
    model.minCoolerPower = cooling.minPower;
    model.maxCoolerPower = cooling.maxPower;
    model.sensorEncoding = cooling.encoding;
    model.sensorCount = cooling.sensors;
    model.shutter = accessories.shutter;
    model.guidePort = accessories.guidePort;
    model.filterCount = accessories.filterCount;
    model.gpio = accessories.gpio;
    model.eightBit = accessories.eightBit;
    return model;
}

CameraModel standard(const char* name, uint16_t productId, uint32_t x, uint32_t y, int bayer, uint16_t pixelSize,
                     const Cooling& cooling, const Accessories& accessories)
{
    CameraModel model =
        equip(sensorRow(name, productId, Family::STANDARD, x, y, bayer, pixelSize, 4), cooling, accessories);
    model.versionMajor = 3;
    model.versionMinor = 14;
    return model;
}

/// A STANDARD model whose own description is wrong: it counts pixels that do not see light.
CameraModel misdescribed(CameraModel model, uint32_t x, uint32_t y)
{
    model.describedX = x;
    model.describedY = y;
    return model;
}

CameraModel advanced(const char* name, uint16_t productId, uint32_t x, uint32_t y, int bayer, uint16_t pixelSize,
                     uint8_t filterCount, uint8_t versionMajor)
{
    CameraModel model = equip(sensorRow(name, productId, Family::ADVANCED, x, y, bayer, pixelSize, 8), SET_POINT_12_BIT,
                              {.guidePort = true, .filterCount = filterCount, .gpio = true, .eightBit = true});
    model.versionMajor = versionMajor;
    model.versionMinor = 5;
    return model;
}

CameraModel quicker(const char* name, uint16_t productId, uint32_t x, uint32_t y, int bayer, uint16_t pixelSize,
                    bool prechargePairs, uint16_t eepromProductId)
{
    CameraModel model =
        equip(sensorRow(name, productId, Family::QUICKER, x, y, bayer, pixelSize, 4), NO_SENSOR, {.guidePort = true});
    model.prechargePairs = prechargePairs;
    model.prechargeCode = prechargePairs ? 8 : 0;
    model.eepromProductId = eepromProductId;
    model.pixelsPerSecond = 6000000;
    return model;
}

CameraModel classic(const char* name, uint16_t productId, uint32_t x, uint32_t y, int bayer, uint16_t pixelSize,
                    const Cooling& cooling)
{
    CameraModel model = equip(sensorRow(name, productId, Family::CLASSIC, x, y, bayer, pixelSize, 2), cooling, {});
    model.pixelsPerSecond = 500000;
    return model;
}

CameraModel registerMapped(const char* name, uint16_t productId, int bayer)
{
    return sensorRow(name, productId, Family::IIDC, 1280, 960, bayer, 375, 2);
}

const std::array<CameraModel, 33>& table()
{
    // The bridges of the later QUICKER models enumerate under ids of their own, but their EEPROMs, like the first two
    // models', name one of the two boards that were built.
    static const std::array<CameraModel, 33> MODELS = {
        quicker("Vorn K01", 0xDF2E, 752, 580, MONO, 830, false, 0),
        quicker("Vorn K02", 0xDF2F, 1392, 1040, MONO, 645, false, 0),
        quicker("Vorn K03", 0xDFAB, 656, 494, 1, 740, false, 0xDF2E),
        quicker("Vorn K04", 0xDFAD, 1280, 960, MONO, 370, true, 0xDF2F),
        quicker("Vorn K05", 0xDFAE, 1280, 960, 2, 370, true, 0xDF2F),
        standard("Vorn K06", 0xDF29, 768, 512, MONO, 900, ON_OFF, {.shutter = true}),
        standard("Vorn K07", 0xDF2C, 1392, 1040, 0, 645, SET_POINT_10_BIT, {.guidePort = true}),
        standard("Vorn K08", 0xDF2D, 1536, 1024, MONO, 900, SELECT_POWER, {.shutter = true}),
        standard("Vorn K09", 0xDF30, 2184, 1472, MONO, 680, SET_POINT_12_BIT, {.shutter = true}),
        misdescribed(
            standard("Vorn K10", 0xDF31, 3326, 2504, MONO, 540, SET_POINT_12_BIT, {.shutter = true, .guidePort = true}),
            3358, 2536),
        standard("Vorn K11", 0xDF33, 1600, 1200, MONO, 740, SET_POINT_10_BIT, {.guidePort = true}),
        standard("Vorn K12", 0xDF34, 1392, 1040, MONO, 645, SET_POINT_12_BIT, {.shutter = true, .guidePort = true}),
        standard("Vorn K13", 0xDF35, 2048, 2048, MONO, 740, SET_POINT_12_BIT, {.shutter = true, .filterCount = 5}),
        standard("Vorn K14", 0xDF36, 1392, 1040, 1, 645, SET_POINT_10_BIT, {.guidePort = true}),
        standard("Vorn K15", 0xDF3A, 2048, 1536, 2, 340, UNCOOLED, {.guidePort = true}),
        advanced("Vorn K16", 0xDF3B, 3388, 2712, MONO, 369, 7, 2),
        standard("Vorn K17", 0xDF3C, 2750, 2200, MONO, 454, SET_POINT_12_BIT,
                 {.shutter = true, .guidePort = true, .filterCount = 7}),
        standard("Vorn K18", 0xDF3D, 2750, 2200, 3, 454, SET_POINT_12_BIT, {.guidePort = true}),
        standard("Vorn K19", 0xDF3E, 1940, 1460, MONO, 454, SET_POINT_12_BIT, {.guidePort = true}),
        advanced("Vorn K20", 0xDF3F, 2750, 2200, MONO, 454, 5, 2),
        standard("Vorn K21", 0xDFAC, 1024, 1024, MONO, 1300, ALWAYS_ON, {.shutter = true}),
        standard("Vorn K22", 0xDFB0, 3072, 2048, MONO, 900, SET_POINT_12_BIT, {.shutter = true, .filterCount = 5}),
        standard("Vorn K23", 0xDFB4, 765, 510, MONO, 900, SET_POINT_10_BIT, {.shutter = true, .guidePort = true}),
        standard("Vorn K24", 0xDFB5, 1360, 1024, 0, 470, ON_OFF, {.guidePort = true}),
        standard("Vorn K25", 0xDFB6, 4032, 2688, MONO, 900, SET_POINT_12_BIT, {.shutter = true, .filterCount = 6}),
        standard("Vorn K26", 0xDFB8, 3248, 2456, 0, 540, SET_POINT_12_BIT, {.shutter = true, .guidePort = true}),
        advanced("Vorn K27", 0xDFBB, 1392, 1040, 0, 645, 0, 1),
        registerMapped("Vorn XRC", 0x2004, 0),
        registerMapped("Vorn XRM", 0x2005, MONO),
        classic("Vorn K30", 0xDF28, 768, 512, MONO, 900, SELECT_POWER),
        classic("Vorn K31", 0xDFB7, 752, 580, MONO, 830, SET_POINT_10_BIT),
        classic("Vorn K32", 0xDFA8, 1392, 1040, 0, 645, SET_POINT_10_BIT),
        misdescribed(
            standard("Vorn K33", 0xDF50, 4499, 3599, MONO, 600, SET_POINT_12_BIT, {.shutter = true, .guidePort = true}),
            4540, 3640),
    };
    return MODELS;
}

std::string plainName(std::string_view name)
{
    std::string plain;
    for (const char c : name) {
        if (std::isspace(static_cast<unsigned char>(c)) == 0)
            plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    constexpr std::string_view MAKER = "vorn";
    return plain.starts_with(MAKER) ? plain.substr(MAKER.size()) : plain;
}

/// Mixes the bits of a number (the finaliser of a well-known 64-bit hash).
uint64_t mixedBits(uint64_t value)
{
    value = (value ^ (value >> 33)) * 0xFF51AFD7ED558CCD;
    value = (value ^ (value >> 33)) * 0xC4CEB9FE1A85EC53;
    return value ^ (value >> 33);
}

}  // namespace

std::span<const ModelInfo> models()
{
    static const auto INFOS = [] {
        std::array<ModelInfo, 33> infos{};
        std::transform(table().begin(), table().end(), infos.begin(),
                       [](const CameraModel& model) { return model.info; });
        return infos;
    }();
    return INFOS;
}

const ModelInfo* findModel(std::string_view name)
{
    const std::string wanted = plainName(name);
    for (const ModelInfo& info : models()) {
        if (plainName(info.name) == wanted)
            return &info;
    }
    return nullptr;
}

const CameraModel& cameraModel(const ModelInfo& info)
{
    const auto found = std::find_if(table().begin(), table().end(),
                                    [&](const CameraModel& model) { return model.info.productId == info.productId; });
    return found != table().end() ? *found : table().front();
}

SensorModel sensorModel(const CameraModel& model)
{
    SensorModel sensor;
    sensor.width = model.info.pixelCountX;
    sensor.height = model.info.pixelCountY;
    sensor.colour = model.info.colour;
    sensor.bayerX = (model.bayerCode >> 1) & 1U;
    sensor.bayerY = model.bayerCode & 1U;
    sensor.fullWell = model.wellCapacity;
    sensor.electronsPerAdu = model.wellCapacity / 60000.0;
    return sensor;
}

uint32_t serialNumber(const CameraModel& model, const CameraOptions& options)
{
    if (options.serialNumber != 0)
        return options.serialNumber;
    const uint64_t mixed = mixedBits(options.seed * 65536 + model.info.productId);
    // ADVANCED cameras report 16 bits only.
    const bool wide = model.info.family != Family::ADVANCED;
    return static_cast<uint32_t>(10000 + mixed % 50000) + (wide ? 0x10000 : 0);
}

const char* familyName(Family family)
{
    switch (family) {
        case Family::STANDARD:
            return "STANDARD";
        case Family::ADVANCED:
            return "ADVANCED";
        case Family::QUICKER:
            return "QUICKER";
        case Family::CLASSIC:
            return "CLASSIC";
        case Family::IIDC:
            return "IIDC";
    }
    return "";
}

std::unique_ptr<BusCamera> makeBusCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock,
                                         DeviceLog& log)
{
    switch (model.info.family) {
        case Family::STANDARD:
            return std::make_unique<StandardCamera>(model, options, clock, log);
        case Family::ADVANCED:
            return std::make_unique<AdvancedCamera>(model, options, clock, log);
        case Family::QUICKER:
            return std::make_unique<QuickerCamera>(model, options, clock, log);
        case Family::CLASSIC:
            return std::make_unique<ClassicCamera>(model, options, clock, log);
        case Family::IIDC:
            break;
    }
    return nullptr;
}

std::unique_ptr<SimulatedCamera> makeCamera(const CameraModel& model, const CameraOptions& options, const Clock& clock,
                                            DeviceLog& log)
{
    if (auto camera = makeBusCamera(model, options, clock, log))
        return std::make_unique<NativeBridge>(model.info.productId, std::move(camera), clock, log);
    return std::make_unique<IidcCamera>(model, options, clock, log);
}

std::unique_ptr<SimulatedCamera> makeCamera(const ModelInfo& model, const CameraOptions& options, const Clock& clock,
                                            DeviceLog& log)
{
    return makeCamera(cameraModel(model), options, clock, log);
}

}  // namespace vornsim
