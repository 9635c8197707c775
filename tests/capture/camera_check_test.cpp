// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <tuple>
#include <utility>

#include "capture/camera_check.h"
#include "capture/open_diagnosis.h"
#include "simulated_session.h"

namespace {

using namespace vorncapture;

TEST(CameraCheck, TellsOfSlowPortsAndKernelDrivers)
{
    CameraFacts facts;
    facts.nodes = {{"1234", "df2c", "/dev/bus/usb/001/002", "1-2", 480.0, "usbfs"}};
    EXPECT_TRUE(examine(facts).empty());
    facts.nodes = {{"1234", "df2c", "/dev/bus/usb/001/002", "1-2", 12.0, "usbtest"}};
    const auto findings = examine(facts);
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_NE(findings[0].text.find("1-2 runs at 12 Mbit/s"), std::string::npos) << findings[0].text;
    EXPECT_NE(findings[1].cure.find("1-2:1.0 | sudo tee /sys/bus/usb/drivers/usbtest/unbind"), std::string::npos);
}

/// @return the findings about a camera that has opened.
std::vector<Finding> examineOpened(const CameraInfo& info, long usbMemoryMebibytes)
{
    CameraFacts facts;
    facts.info = info;
    facts.usbMemoryMebibytes = usbMemoryMebibytes;
    return examine(facts);
}

TEST(CameraCheck, TellsOfMemoryThatIsTooSmallForAFrame)
{
    // 16 MiB hold 16,744,448 bytes with the system's 32 for each begun 16384.
    const std::tuple<unsigned, unsigned, long, const char*> rows[] = {
        {4088, 2048, 16, nullptr},
        {9000, 9000, 0, nullptr},  // unknown
        {4089, 2048, 16, "need 17 MiB"},
        {9000, 9000, 16, "need 25 MiB"},  // the library reads 24 in one piece
    };
    for (const auto& [width, height, mebibytes, needs] : rows) {
        CameraInfo info;
        info.caps.pixelCountX = width;
        info.caps.pixelCountY = height;
        const auto findings = examineOpened(info, mebibytes);
        ASSERT_EQ(findings.size(), needs == nullptr ? 1U : 2U) << width;
        EXPECT_TRUE(needs == nullptr || findings[1].text.find(needs) != std::string::npos) << findings.back().text;
    }
}

TEST(CameraCheck, TellsOfTemperaturesThatCannotBeRead)
{
    const std::tuple<CAMERA_TYPE, unsigned, size_t> rows[] = {
        {STANDARD, 1, 2}, {STANDARD, 0, 1}, {IIDC, 1, 1}, {CLASSIC, 2, 2}};
    for (const auto& [family, sensors, count] : rows) {
        CameraInfo info;
        info.family = family;
        info.caps.tempSensorCount = sensors;
        EXPECT_EQ(examineOpened(info, 0).size(), count) << family << ' ' << sensors;
    }
}

TEST(CameraCheck, LooksAtEachCameraUntilToldToStop)
{
    for (const bool stops : {false, true}) {
        capturetest::Camera first("K12");
        capturetest::Camera second("K16");
        vorntest::bus().attach(first.device);
        vorntest::bus().attach(second.device);
        CancelToken cancel;
        if (stops)
            cancel.request();
        (void)checkCameras({.cancel = &cancel});
        EXPECT_GT(first.device.callCount, 0);
        EXPECT_EQ(second.device.callCount > 0, !stops);
        vorntest::bus().reset();
    }
}

TEST(OpenDiagnosis, AdvisesOnlyWhatIsMissing)
{
    const std::string node = "/dev/bus/usb/001/002 belongs to root:root, mode 0600";
    const std::string nothing = permissionAdvice({{node}, "df2c", false, {"ann", true, false}});
    for (const char* part : {"root, mode 0600", "60-vornccd.rules", "usermod -aG plugdev ann",
                             "\"usb_device\", ATTR{idProduct}==\"df2c\", MODE=\"0660\", GROUP=\"plugdev\""})
        EXPECT_NE(nothing.find(part), std::string::npos) << part;
    EXPECT_EQ(permissionAdvice({{node}, "", false, {}}).find("idProduct"), std::string::npos);
    const std::string all = permissionAdvice({{node}, "df2c", true, {"ann", true, true}});
    EXPECT_EQ(all.find("60-vornccd.rules"), std::string::npos) << all;
    EXPECT_EQ(all.find("usermod"), std::string::npos) << all;
    EXPECT_EQ(all.find("A udev rule for it is installed"), all.find('\n') + 1) << all;
    EXPECT_NE(all.find("udevadm trigger"), std::string::npos);
}

TEST(OpenDiagnosis, ReadsTheObstacleInTheTrace)
{
    const std::pair<const char*, OpenObstacle> rows[] = {
        {"libusb_open: LIBUSB_ERROR_ACCESS", OpenObstacle::PERMISSION},
        {"cpu started 1", OpenObstacle::STAND_IN},
        {"cpu started 1, i2cRead 1", OpenObstacle::NO_DESCRIPTION},
        {"cpu started 1, kernel ping ok", OpenObstacle::NO_DESCRIPTION},
        {"cpu started 1, APPINIT completed", OpenObstacle::NO_DESCRIPTION},
        {"cpu stopped 0", OpenObstacle::FIRMWARE_REFUSED},
        {"cpu started 0", OpenObstacle::FIRMWARE_REFUSED},
        {"LIBUSB_ERROR_NOT_FOUND", OpenObstacle::GONE},
        {"i2cRead 0", OpenObstacle::NO_ANSWER},
    };
    for (const auto& [trace, obstacle] : rows)
        EXPECT_EQ(findObstacle(trace, true), obstacle) << trace;
    EXPECT_EQ(findObstacle("cpu started 1", false), OpenObstacle::NO_ANSWER);
}

}  // namespace
