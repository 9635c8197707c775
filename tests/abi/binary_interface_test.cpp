// SPDX-License-Identifier: MIT
// What programs compiled earlier rely on: slot order, record layout, numbers of the enumerations, globals.
#include <cxxabi.h>
#include <dlfcn.h>
#include <cstddef>
#include <cstdlib>

#include <gtest/gtest.h>

#include "opened_camera.h"

namespace {

using vorntest::Script;

const char* const POINTERS =
    "char const**, CAMERA_TYPE*, bool*, bool*, bool*, bool*, unsigned int*, unsigned int*, unsigned int*, double*, "
    "double*, unsigned int*, unsigned int*, unsigned int*, COOLER_TYPE*, COLOUR_TYPE*, int*, int*, bool*, double*, "
    "double*";

TEST(VirtualTable, KeepsItsOrder)
{
    const std::string SLOTS[] = {
        "getName()",
        "open()",
        "close()",
        "setParam(PARAM_TYPE, long)",
        "getParam(PARAM_TYPE)",
        std::string("getCapabilities(") + POINTERS + ")",
        "getCapabilities(char const**, CAMERA_TYPE*, VornCapabilities*)",
        "getTemperatureSensorStatus(unsigned int, float*)",
        "getCoolingStatus(COOLING_STATE*, float*, float*)",
        "setCooling(float)",
        "initiateWarmUp()",
        "getFilterWheelStatus(unsigned int*, bool*, unsigned int*, unsigned int*)",
        "setFilter(unsigned int)",
        "setPreviewMode(bool)",
        "set8BitMode(bool)",
        "setDarkFrameMode(bool)",
        "startExposure(bool)",
        "abortExposure()",
        "readCCD(unsigned int, unsigned int, unsigned int, unsigned int, unsigned int, unsigned int)",
        "readCCD(unsigned int, unsigned int, unsigned int, unsigned int, unsigned int, unsigned int, double)",
        "getImage(unsigned short*, unsigned int)",
        "setShutter(bool)",
        "setGuideRelays(unsigned short)",
        "setGPIODirection(unsigned short)",
        "getGPIO(unsigned short*)",
        "setGPIO(unsigned short)",
        "getGain(int*, int*)",
        "setGain(int, int)",
        "delay(double)",
        "imageWidth(unsigned int, unsigned int)",
        "imageHeight(unsigned int, unsigned int)",
        "getSerialNumber()",
        "getVersionMajor()",
        "getVersionMinor()",
        "getLastError()",
        "~VornCameraImpl()",
        "~VornCameraImpl()",
    };
    Script usb;
    const VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
    // an object begins with the address of its table
    void* const* const table = *reinterpret_cast<void* const* const*>(&camera);
    for (size_t slot = 0; slot < std::size(SLOTS); slot++) {
        Dl_info info = {};
        ASSERT_NE(dladdr(table[slot], &info), 0);
        ASSERT_NE(info.dli_sname, nullptr) << "slot " << slot + 1;
        char* const name = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, nullptr);
        EXPECT_EQ(std::string(name), "VornCameraImpl::" + SLOTS[slot]) << "slot " << slot + 1;
        free(name);
    }
}

TEST(VirtualTable, IsCalledByIndex)
{
    Script usb;
    VornCameraImpl camera(&usb.device, "Vorn K12", STANDARD);
    VornCamera* const base = &camera;
    void* const* const table = *reinterpret_cast<void* const* const*>(base);
    const auto getName = reinterpret_cast<const char* (*)(VornCamera*)>(table[0]);
    const auto delay = reinterpret_cast<unsigned (*)(VornCamera*, double)>(table[28]);
    const auto getLastError = reinterpret_cast<const char* (*)(VornCamera*)>(table[34]);
    EXPECT_STREQ(getName(base), "Vorn K12");
    EXPECT_EQ(delay(base, 0.25), 250000U);
    EXPECT_STREQ(getLastError(base), "No error");
}

TEST(CapabilitiesRecord, KeepsItsLayout)
{
    EXPECT_EQ(offsetof(VornCapabilities, hasShutter), 0U);
    EXPECT_EQ(offsetof(VornCapabilities, hasGuidePort), 1U);
    EXPECT_EQ(offsetof(VornCapabilities, has8BitMode), 2U);
    EXPECT_EQ(offsetof(VornCapabilities, hasFilterWheel), 3U);
    EXPECT_EQ(offsetof(VornCapabilities, lineCount), 4U);
    EXPECT_EQ(offsetof(VornCapabilities, pixelCountX), 8U);
    EXPECT_EQ(offsetof(VornCapabilities, pixelCountY), 12U);
    EXPECT_EQ(offsetof(VornCapabilities, pixelSizeX), 16U);
    EXPECT_EQ(offsetof(VornCapabilities, pixelSizeY), 24U);
    EXPECT_EQ(offsetof(VornCapabilities, maxBinX), 32U);
    EXPECT_EQ(offsetof(VornCapabilities, maxBinY), 36U);
    EXPECT_EQ(offsetof(VornCapabilities, tempSensorCount), 40U);
    EXPECT_EQ(offsetof(VornCapabilities, cooler), 44U);
    EXPECT_EQ(offsetof(VornCapabilities, colour), 48U);
    EXPECT_EQ(offsetof(VornCapabilities, offsetX), 52U);
    EXPECT_EQ(offsetof(VornCapabilities, offsetY), 56U);
    EXPECT_EQ(offsetof(VornCapabilities, supportsLongExposure), 60U);
    EXPECT_EQ(offsetof(VornCapabilities, minShortExposure), 64U);
    EXPECT_EQ(offsetof(VornCapabilities, maxShortExposure), 72U);
    EXPECT_EQ(sizeof(VornCapabilities), 80U);
}

TEST(Enumerations, KeepTheirNumbers)
{
    EXPECT_EQ(sizeof(CAMERA_TYPE), sizeof(int));
    EXPECT_EQ(sizeof(PARAM_TYPE), sizeof(int));
    EXPECT_EQ(sizeof(COOLER_TYPE), sizeof(int));
    EXPECT_EQ(sizeof(COOLING_STATE), sizeof(int));
    EXPECT_EQ(sizeof(COLOUR_TYPE), sizeof(int));
    EXPECT_TRUE(CLASSIC == 1 && STANDARD == 2 && QUICKER == 3 && IIDC == 4 && ADVANCED == 5);
    EXPECT_TRUE(QUICKER_START_EXPOSURE_DELAY == 1 && QUICKER_READ_CCD_DELAY == 2 && MAX_PACKET_SIZE == 3);
    EXPECT_TRUE(COOLER_NONE == 0 && COOLER_ALWAYSON == 1 && COOLER_ONOFF == 2 && COOLER_SELECTPOWER == 3 &&
                COOLER_SETPOINT == 4);
    EXPECT_TRUE(COOLING_INACTIVE == 0 && COOLING_ON == 1 && COOLING_SETPOINT == 2 && WARMING_UP == 3);
    EXPECT_TRUE(COLOUR_NONE == 1 && COLOUR_RGGB == 2);
}

TEST(Globals, AreFoundByTheirPlainNames)
{
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "FIRMWARE"), FIRMWARE);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "ParInitQFastData"), ParInitQFastData);
    EXPECT_EQ(*static_cast<bool*>(dlsym(RTLD_DEFAULT, "VornDebug")), false);
    EXPECT_EQ(*static_cast<bool*>(dlsym(RTLD_DEFAULT, "VornDebugOn")), true);
    EXPECT_EQ(*static_cast<int*>(dlsym(RTLD_DEFAULT, "VornHostBulkTimeout")), 30000);
    EXPECT_EQ(sizeof FIRMWARE, 18146U);
    EXPECT_EQ(sizeof ParInitQFastData, 152U);
    EXPECT_NE(dlsym(RTLD_DEFAULT, "VornCamera_list"), nullptr);
    EXPECT_NE(dlsym(RTLD_DEFAULT, "VornCamera_destroy"), nullptr);
}

}  // namespace
