// SPDX-License-Identifier: MIT
// What hosts on the real libusb-1.0 cannot arrange, or not at a chosen time.
#include "usbfs/usbfs_node.h"

#include <cerrno>

#include "family_fixture.h"
#include "loopback_device.h"

namespace vornsim::test {
namespace {

constexpr uint64_t FILE_A = 0x1000;
constexpr uint64_t FILE_B = 0x2000;

struct Piece {
    bool continuation = false;
    bool shortIsError = false;
};

class UsbfsNodeTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(node.setInterface(FILE_A, 0, 1), 0); }
    void TearDown() override { EXPECT_EQ(log.takeComplaints(), ""); }

    int bulk(uint64_t handle, uint8_t endpoint, size_t length, Piece piece = {}, uint64_t file = FILE_A)
    {
        auto urb = std::make_unique<Urb>();
        urb->handle = handle;
        urb->owner = file;
        urb->endpoint = endpoint;
        urb->shortIsError = piece.shortIsError;
        urb->continuation = piece.continuation;
        urb->length = length;
        urb->data = std::make_unique<uint8_t[]>(length);
        return node.submit(file, std::move(urb));
    }
    int control(uint64_t file, const SetupPacket& setup)
    {
        auto urb = std::make_unique<Urb>();
        urb->owner = file;
        urb->kind = UrbKind::CONTROL;
        urb->setup = setup;
        urb->data = std::make_unique<uint8_t[]>(0);
        return node.submit(file, std::move(urb));
    }
    void vendor(uint8_t request, uint16_t value)
    {
        EXPECT_EQ(control(FILE_A, {0x40, request, value, 0, 0}), 0);
        EXPECT_EQ(done(), "0: 0, 0; ");
    }

    /// @return "handle: status, length; " of all transfers of @p file that have finished, which are collected.
    std::string done(uint64_t file = FILE_A)
    {
        std::string all;
        while (const std::unique_ptr<Urb> urb = queue.reap(file))
            all += std::to_string(urb->handle) + ": " + std::to_string(urb->status) + ", " +
                   std::to_string(urb->actualLength) + "; ";
        return all;
    }

    ManualClock clock;
    LoopbackDevice device{clock, 0x1001};
    CollectingLog log;
    UsbfsNode node{device, parseDescriptors(device.descriptors()).value(), clock, log};
    UrbQueue& queue = node.queue();
};

TEST_F(UsbfsNodeTest, ReadWaitsForTheTimeTheDeviceNamed)
{
    vendor(0xB0, 80);
    bulk(1, 0x04, 10);
    bulk(2, 0x86, 64);
    EXPECT_EQ(done(), "1: 0, 10; ");
    EXPECT_EQ(queue.nextRetryUs(), clock.nowUs() + 80'000);
    clock.pass(79'999);
    queue.advance();
    EXPECT_EQ(done(), "");
    EXPECT_GT(queue.nextRetryUs(), clock.nowUs()) << "no retry without a pause";
    clock.pass(200);
    queue.advance();
    EXPECT_EQ(done(), "2: 0, 10; ");
    EXPECT_EQ(queue.nextRetryUs(), NEVER);
}

TEST_F(UsbfsNodeTest, PartsAddUpAndADiscardKeepsThem)
{
    vendor(0xB2, 300);
    bulk(1, 0x88, 1000);
    bulk(2, 0x88, 50);
    vendor(0xB2, 200);
    EXPECT_FALSE(queue.discard(FILE_B, 1)) << "of another file";
    EXPECT_TRUE(queue.discard(FILE_A, 1));
    EXPECT_FALSE(queue.discard(FILE_A, 1)) << "no longer pending";
    EXPECT_EQ(done(), "1: " + std::to_string(-ENOENT) + ", 500; ") << "the second read must not overtake";
    EXPECT_EQ(control(FILE_A, {0x40, 0xB2, 50, 0, 0}), 0);
    EXPECT_EQ(done(), "0: 0, 0; 2: 0, 50; ");
}

TEST_F(UsbfsNodeTest, PiecesOfASplitTransferFallTogether)
{
    const Piece first = {.continuation = false, .shortIsError = true};
    const Piece middle = {.continuation = true, .shortIsError = true};
    const Piece last = {.continuation = true, .shortIsError = false};
    bulk(1, 0x86, 100, first);
    bulk(2, 0x86, 100, middle);
    bulk(3, 0x86, 100, last);
    bulk(4, 0x86, 100);
    bulk(9, 0x04, 130);
    EXPECT_TRUE(queue.discard(FILE_A, 4)) << "the next transfer is not part of it";
    const std::string expected = "9: 0, 130; 1: 0, 100; 2: " + std::to_string(-EREMOTEIO) +
                                 ", 30; 3: " + std::to_string(-ECONNRESET) + ", 0; 4: " + std::to_string(-ENOENT);
    EXPECT_EQ(done(), expected + ", 0; ");
    vendor(0xB1, static_cast<uint16_t>(TransferStatus::STALL));
    EXPECT_EQ(bulk(5, 0x88, 100, first), 0);
    EXPECT_EQ(bulk(6, 0x88, 100, last), EREMOTEIO) << "comes after the end of what it continues";
    EXPECT_EQ(bulk(7, 0x88, 100), 0);
}

TEST_F(UsbfsNodeTest, AnInterfaceHasOneHolder)
{
    EXPECT_EQ(node.claim(FILE_B, 0), EBUSY);
    EXPECT_EQ(node.setInterface(FILE_B, 0, 1), EBUSY);
    EXPECT_EQ(node.release(FILE_B, 0), EINVAL);
    EXPECT_EQ(node.setConfiguration(1), EBUSY);
    EXPECT_EQ(bulk(1, 0x86, 10, {}, FILE_B), EBUSY);
    EXPECT_EQ(control(FILE_B, {0x40, 0xB0, 0, 0, 0}), 0) << "vendor requests need no claim";
    EXPECT_EQ(control(FILE_B, {0x21, 0xB0, 0, 0, 0}), EBUSY) << "class requests to the interface do";
    EXPECT_EQ(control(FILE_B, {0x02, 1, 0, 0x86, 0}), EBUSY) << "and those to its endpoints";
    EXPECT_EQ(done(), "") << "of another file";

    bulk(2, 0x86, 10);
    EXPECT_EQ(node.release(FILE_A, 0), 0);
    EXPECT_EQ(done(), "2: " + std::to_string(-ENOENT) + ", 0; ") << "released: its transfers end";
    EXPECT_EQ(bulk(3, 0x86, 10), ENOENT) << "and its alternate setting";
    node.closeFile(FILE_A);
    EXPECT_EQ(node.claim(FILE_B, 0), 0);
}

}  // namespace
}  // namespace vornsim::test
