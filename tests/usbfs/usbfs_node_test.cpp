// SPDX-License-Identifier: MIT
#include "usbfs/usbfs_node.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "virtual_device.h"

namespace vornsim::test {
namespace {

class SilentLog : public DeviceLog {
public:
    void note(const std::string& /*text*/) override {}
    void complain(const std::string& text) override { ADD_FAILURE() << text; }
};

class UsbfsNodeTest : public testing::Test {
protected:
    ManualClock clock;
    LoopbackDevice device{clock, 0x1001};
    SilentLog log;
    UsbfsNode node{device, parseDescriptors(device.descriptors()).value(), clock, log};
};

TEST_F(UsbfsNodeTest, AnInterfaceHasOneHolder)
{
    EXPECT_EQ(node.driverOf(0), ENODATA);
    EXPECT_EQ(node.claim(FILE_A, 0), 0);
    EXPECT_EQ(node.claim(FILE_A, 0), 0) << "again by the same file";
    EXPECT_EQ(node.driverOf(0), 0);
    EXPECT_EQ(node.claim(FILE_A, 1), EINVAL) << "no such interface";
    EXPECT_EQ(node.claim(FILE_B, 0), EBUSY);
    EXPECT_EQ(node.setInterface(FILE_B, 0, 1), EBUSY);
    EXPECT_EQ(node.submit(FILE_B, bulkUrb(1, 0x86, 10, FILE_B)), EBUSY);
    EXPECT_EQ(node.release(FILE_B, 0), EINVAL);
    EXPECT_EQ(node.setConfiguration(1), EBUSY);
    EXPECT_EQ(node.submit(FILE_B, controlUrb(0x40, 0xB0, 0)), 0) << "vendor requests need no claim";
    EXPECT_EQ(node.submit(FILE_B, controlUrb(0x21, 0xB0, 0, 0)), EBUSY) << "class requests to the interface do";
    EXPECT_EQ(node.submit(FILE_B, controlUrb(0x02, 1, 0, 0x86)), EBUSY) << "and those to its endpoints";

    node.closeFile(FILE_A);
    EXPECT_EQ(node.setConfiguration(1), 0);
    EXPECT_EQ(node.setConfiguration(2), EINVAL);
    EXPECT_EQ(node.claim(FILE_B, 0), 0);
}

TEST_F(UsbfsNodeTest, EndpointsExistInTheirAlternateSettingOnly)
{
    EXPECT_EQ(node.submit(FILE_A, bulkUrb(1, 0x86, 10)), ENOENT) << "alternate setting 0 is empty";
    EXPECT_EQ(node.driverOf(0), 0) << "using an endpoint claims its interface";
    EXPECT_EQ(node.setInterface(FILE_A, 0, 2), EINVAL);
    EXPECT_EQ(node.setInterface(FILE_A, 0, 1), 0);
    EXPECT_EQ(node.submit(FILE_A, bulkUrb(1, 0x86, 10)), 0);
    EXPECT_EQ(node.submit(FILE_A, bulkUrb(1, 0x02, 10)), ENOENT) << "no such endpoint at all";
    EXPECT_EQ(node.clearHalt(FILE_A, 0x86), 0);
    EXPECT_EQ(node.clearHalt(FILE_A, 0x02), ENOENT);
}

TEST_F(UsbfsNodeTest, GivingAnInterfaceBackEndsItsTransfersAndItsSetting)
{
    ASSERT_EQ(node.setInterface(FILE_A, 0, 1), 0);
    ASSERT_EQ(node.submit(FILE_A, bulkUrb(7, 0x86, 10)), 0);
    EXPECT_EQ(node.release(FILE_A, 0), 0);
    EXPECT_EQ(device.interfaceChanges(), 2) << "back to alternate setting 0";
    const std::unique_ptr<Urb> urb = node.queue().reap(FILE_A);
    ASSERT_NE(urb, nullptr);
    EXPECT_EQ(urb->status, -ENOENT);
    EXPECT_EQ(node.submit(FILE_A, bulkUrb(8, 0x86, 10)), ENOENT);

    // A reset keeps the setting but no transfer.
    ASSERT_EQ(node.setInterface(FILE_A, 0, 1), 0);
    ASSERT_EQ(node.submit(FILE_A, bulkUrb(9, 0x86, 10)), 0);
    EXPECT_EQ(node.reset(), 0);
    EXPECT_NE(node.queue().reap(FILE_A), nullptr);
    EXPECT_EQ(node.submit(FILE_A, bulkUrb(10, 0x86, 10)), 0);
}

TEST_F(UsbfsNodeTest, AfterAnUnplugEverythingFailsWithNoDevice)
{
    ASSERT_EQ(node.setInterface(FILE_A, 0, 1), 0);
    node.queue().unplug();
    EXPECT_EQ(node.claim(FILE_A, 0), ENODEV);
    EXPECT_EQ(node.setInterface(FILE_A, 0, 1), ENODEV);
    EXPECT_EQ(node.setConfiguration(1), ENODEV);
    EXPECT_EQ(node.clearHalt(FILE_A, 0x86), ENODEV);
    EXPECT_EQ(node.reset(), ENODEV);
    EXPECT_EQ(node.submit(FILE_A, controlUrb(0x40, 0xB0, 0)), ENODEV);
    EXPECT_EQ(device.interfaceChanges(), 1) << "nothing reaches it";
    node.closeFile(FILE_A);
    EXPECT_EQ(device.interfaceChanges(), 1);
}

}  // namespace
}  // namespace vornsim::test
