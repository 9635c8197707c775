// SPDX-License-Identifier: MIT
// What programs compiled earlier rely on: slot order, record layout, numbers of the enumerations, globals.
#include <cxxabi.h>
#include <dlfcn.h>
#include <cstddef>
#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::Script;

TEST(VirtualTable, KeepsItsOrder)
{
    std::ifstream slots(SLOTS_FILE);
    Script usb;
    const VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
    // an object begins with the address of its table
    void* const* const table = *reinterpret_cast<void* const* const*>(&camera);
    size_t slot = 0;
    for (std::string expected; std::getline(slots, expected); ++slot) {
        Dl_info info = {};
        ASSERT_NE(dladdr(table[slot], &info), 0);
        ASSERT_NE(info.dli_sname, nullptr) << "slot " << slot + 1;
        char* const name = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, nullptr);
        EXPECT_EQ(std::string(name), "VornCameraImpl::" + expected) << "slot " << slot + 1;
        free(name);
    }
    EXPECT_EQ(slot, 37U);
}

TEST(CapabilitiesRecord, KeepsItsLayout)
{
#define AT(field) offsetof(VornCapabilities, field)
    EXPECT_EQ((std::vector{AT(hasShutter), AT(hasGuidePort), AT(has8BitMode), AT(hasFilterWheel), AT(lineCount),
                           AT(pixelCountX), AT(pixelCountY), AT(pixelSizeX), AT(pixelSizeY), AT(maxBinX), AT(maxBinY),
                           AT(tempSensorCount), AT(cooler), AT(colour), AT(offsetX), AT(offsetY),
                           AT(supportsLongExposure), AT(minShortExposure), AT(maxShortExposure)}),
              (std::vector<size_t>{0, 1, 2, 3, 4, 8, 12, 16, 24, 32, 36, 40, 44, 48, 52, 56, 60, 64, 72}));
#undef AT
    EXPECT_EQ(sizeof(VornCapabilities), 80U);
}

/// Where @p T stands in a record: its alignment there, which on i386 is not that of a variable.
template <typename T>
struct Member {
    char before;
    T field;
};

/// The fields of a camera, one after the other from its beginning, each at the next place that its type allows.
class FieldWalk {
public:
    explicit FieldWalk(const VornCameraImpl& camera) : start_(reinterpret_cast<const char*>(&camera)) {}

    template <typename T, typename... Fields>
    void expectNext(const Fields&... fields)
    {
        (expectOne(&fields, sizeof fields, sizeof(T), offsetof(Member<T>, field)), ...);
    }

private:
    void expectOne(const void* field, size_t size, size_t documentedSize, size_t alignment)
    {
        count_++;
        EXPECT_EQ(size, documentedSize) << "field " << count_;
        end_ = (end_ + alignment - 1) / alignment * alignment;
        EXPECT_EQ(static_cast<size_t>(static_cast<const char*>(field) - start_), end_) << "field " << count_;
        end_ += size;
    }

    const char* start_;
    size_t end_ = sizeof(void*);  // behind the address of the virtual table
    int count_ = 0;
};

TEST(CameraRecord, KeepsItsFieldsInTheirOrder)
{
    static_assert(sizeof(VornCamera) == sizeof(void*));  // no fields of its own
    Script usb;
    const VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
    FieldWalk walk(camera);
    walk.expectNext<const char*>(camera.name);
    walk.expectNext<CAMERA_TYPE>(camera.type);
    walk.expectNext<bool>(camera.hasShutter, camera.hasGuidePort, camera.has8BitMode, camera.hasFilterWheel,
                          camera.hasGPIO);
    walk.expectNext<uint32_t>(camera.pixelCountX, camera.pixelCountY);
    walk.expectNext<double>(camera.pixelSizeX, camera.pixelSizeY);
    walk.expectNext<uint32_t>(camera.maxBinX, camera.maxBinY, camera.tempSensorCount, camera.tempSensorType,
                              camera.lineCount, camera.cooler, camera.colour, camera.offsetX, camera.offsetY,
                              camera.minCoolerPower, camera.maxCoolerPower);
    walk.expectNext<int64_t>(camera.vregClearTime);
    walk.expectNext<bool>(camera.exposureStarted, camera.imageReady);
    walk.expectNext<int64_t>(camera.quickerStartExposureDelay, camera.quickerReadCCDDelay, camera.maxPacketSize);
    walk.expectNext<uint16_t>(camera.guideRelayState);
    walk.expectNext<bool>(camera.ampRequested, camera.previewMode, camera.eightBitMode, camera.darkFrameMode,
                          camera.pcCds);
    const ReadoutRegion& region = camera.readoutRegion;
    walk.expectNext<uint32_t>(region.x, region.y, region.width, region.height, region.binX, region.binY,
                              camera.prechargeOffset);
    walk.expectNext<void*>(camera.handle, camera.device);
    walk.expectNext<uint32_t>(camera.timeout);
    walk.expectNext<pthread_mutex_t>(camera.mutex);
    walk.expectNext<uint32_t>(camera.openRetried, camera.serialNumber, camera.versionMajor, camera.versionMinor);
    walk.expectNext<const char*>(camera.lastError);
}

TEST(Enumerations, KeepTheirNumbers)
{
    static_assert(sizeof(CAMERA_TYPE) == 4 && sizeof(PARAM_TYPE) == 4 && sizeof(COOLER_TYPE) == 4);
    static_assert(sizeof(COOLING_STATE) == 4 && sizeof(COLOUR_TYPE) == 4);
    EXPECT_EQ((std::vector<int>{CLASSIC, STANDARD, QUICKER, IIDC, ADVANCED}), (std::vector{1, 2, 3, 4, 5}));
    EXPECT_EQ((std::vector<int>{QUICKER_START_EXPOSURE_DELAY, QUICKER_READ_CCD_DELAY, MAX_PACKET_SIZE}),
              (std::vector{1, 2, 3}));
    EXPECT_EQ((std::vector<int>{COOLER_NONE, COOLER_ALWAYSON, COOLER_ONOFF, COOLER_SELECTPOWER, COOLER_SETPOINT}),
              (std::vector{0, 1, 2, 3, 4}));
    EXPECT_EQ((std::vector<int>{COOLING_INACTIVE, COOLING_ON, COOLING_SETPOINT, WARMING_UP, COLOUR_NONE, COLOUR_RGGB}),
              (std::vector{0, 1, 2, 3, 1, 2}));
}

TEST(Globals, AreFoundByTheirPlainNames)
{
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "FIRMWARE"), FIRMWARE);
    EXPECT_EQ(*static_cast<bool*>(dlsym(RTLD_DEFAULT, "VornDebug")), false);
    EXPECT_EQ(*static_cast<bool*>(dlsym(RTLD_DEFAULT, "VornDebugOn")), true);
    EXPECT_EQ(*static_cast<int*>(dlsym(RTLD_DEFAULT, "VornHostBulkTimeout")), 30000);
    EXPECT_EQ(sizeof FIRMWARE, 18146U);
    EXPECT_EQ(sizeof ParInitQFastData, 152U);
}

}  // namespace
