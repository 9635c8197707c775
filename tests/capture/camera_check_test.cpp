// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "capture/camera_check.h"
#include "capture/open_diagnosis.h"

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

TEST(OpenDiagnosis, AdvisesOnlyWhatIsMissing)
{
    const std::string node = "/dev/bus/usb/001/002 belongs to root:root, mode 0600";
    const std::string nothing = permissionAdvice({{node}, "df2c", false, {"ann", true, false}});
    for (const char* part : {"root, mode 0600", "60-vornccd.rules", "==\"df2c\"", "usermod -aG plugdev ann"})
        EXPECT_NE(nothing.find(part), std::string::npos) << part;
    const std::string all = permissionAdvice({{node}, "df2c", true, {"ann", true, true}});
    EXPECT_EQ(all.find("60-vornccd.rules"), std::string::npos) << all;
    EXPECT_EQ(all.find("usermod"), std::string::npos) << all;
    EXPECT_NE(all.find("udevadm trigger"), std::string::npos);
    EXPECT_EQ(findObstacle("libusb_open: LIBUSB_ERROR_ACCESS", false), OpenObstacle::PERMISSION);
    EXPECT_EQ(findObstacle("cpu started 1", true), OpenObstacle::STAND_IN);
}

}  // namespace
