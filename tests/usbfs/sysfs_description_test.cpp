// SPDX-License-Identifier: MIT
#include "usbfs/sysfs_description.h"

#include <gtest/gtest.h>

#include "virtual_device.h"

namespace vornsim::test {
namespace {

TEST(ParseDescriptors, FindsSettingsAndEndpoints)
{
    ManualClock clock;
    const std::vector<uint8_t> bytes = LoopbackDevice(clock, 0xDF2C).descriptors();
    const std::optional<UsbLayout> layout = parseDescriptors(bytes);
    ASSERT_TRUE(layout);
    EXPECT_EQ(layout->vendorId, 0x1234);
    EXPECT_EQ(layout->productId, 0xDF2C);
    EXPECT_EQ(layout->settings.size(), 2U);
    EXPECT_EQ(layout->interfaceOf(0x88), 0);
    EXPECT_EQ(layout->interfaceOf(0x08), std::nullopt) << "the direction counts";
    EXPECT_EQ(layout->find(0, 2), nullptr);

    for (size_t length = 0; length < bytes.size(); ++length) {  // cut off anywhere: nothing, or less
        const std::optional<UsbLayout> cut = parseDescriptors(std::span(bytes).first(length));
        EXPECT_EQ(cut.has_value(), length >= 27) << length;
        EXPECT_LE(cut.value_or(UsbLayout{}).settings.size(), 2U) << length;
    }
}

TEST(DescribeDevice, SaysWhatLibusbAndUdevRead)
{
    ManualClock clock;
    const std::vector<uint8_t> bytes = LoopbackDevice(clock, 0xDF2C).descriptors();
    const UsbAddress address{1, 3, 4};
    const std::string text = describeDevice(address, parseDescriptors(bytes).value(), bytes);
    EXPECT_EQ(deviceNode(address), "/dev/bus/usb/001/004");
    EXPECT_EQ(text.find("P: /devices/pci0000:00/0000:00:14.0/usb1/1-3\n"), 0U);
    for (const char* line :
         {"N: bus/usb/001/004\n", "E: DEVNAME=/dev/bus/usb/001/004\n", "E: PRODUCT=1234/df2c/0\n", "E: MINOR=3\n",
          "A: busnum=1\\n\n", "A: devnum=4\\n\n", "A: speed=480\\n\n", "A: idProduct=df2c\\n\n",
          "A: bConfigurationValue=1\\n\n", "H: descriptors=12010002FFFFFF4034122CDF", "/1-3/1-3:1.0\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line;
}

}  // namespace
}  // namespace vornsim::test
