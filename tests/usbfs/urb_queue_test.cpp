// SPDX-License-Identifier: MIT
#include "usbfs/urb_queue.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "virtual_device.h"

namespace vornsim::test {
namespace {

class UrbQueueTest : public testing::Test {
protected:
    void vendor(uint8_t request, uint16_t value)
    {
        EXPECT_EQ(queue.submit(controlUrb(0x40, request, value)), 0);
        EXPECT_NE(queue.reap(FILE_A), nullptr);
    }

    /// Collects the next finished transfer and compares.
    void expectDone(uint64_t handle, int status, size_t length, const char* what)
    {
        const std::unique_ptr<Urb> urb = queue.reap(FILE_A);
        ASSERT_NE(urb, nullptr) << what;
        EXPECT_EQ(urb->handle, handle) << what;
        EXPECT_EQ(urb->status, status) << what;
        EXPECT_EQ(urb->actualLength, length) << what;
    }

    ManualClock clock;
    LoopbackDevice device{clock, 0x1001};
    UrbQueue queue{device, clock};
};

TEST_F(UrbQueueTest, PendingReadIsServedByALaterWrite)
{
    ASSERT_EQ(queue.submit(bulkUrb(1, 0x86, 512)), 0);
    EXPECT_FALSE(queue.hasDone());
    EXPECT_EQ(queue.nextRetryUs(), NEVER);

    ASSERT_EQ(queue.submit(bulkUrb(2, 0x04, 100)), 0);
    expectDone(2, 0, 100, "write");
    expectDone(1, 0, 100, "read, ended by a short packet");
}

TEST_F(UrbQueueTest, ReadWaitsForTheTimeTheDeviceNamed)
{
    vendor(0xB0, 80);
    ASSERT_EQ(queue.submit(bulkUrb(1, 0x04, 10)), 0);
    ASSERT_EQ(queue.submit(bulkUrb(2, 0x86, 64)), 0);
    expectDone(1, 0, 10, "write");
    EXPECT_EQ(queue.nextRetryUs(), 80'000);
    clock.us = 79'999;
    queue.advance();
    EXPECT_FALSE(queue.hasDone());
    EXPECT_GT(queue.nextRetryUs(), clock.us) << "no retry without a pause";
    clock.us = 80'200;
    queue.advance();
    expectDone(2, 0, 10, "read");
    EXPECT_EQ(queue.nextRetryUs(), NEVER);
}

TEST_F(UrbQueueTest, PartsAddUpAndADiscardKeepsThem)
{
    vendor(0xB2, 300);
    ASSERT_EQ(queue.submit(bulkUrb(1, 0x88, 1000)), 0);
    ASSERT_EQ(queue.submit(bulkUrb(2, 0x88, 50)), 0);
    vendor(0xB2, 200);
    EXPECT_FALSE(queue.hasDone()) << "second read must not overtake";
    EXPECT_FALSE(queue.discard(FILE_B, 1)) << "of another file";
    EXPECT_FALSE(queue.discard(FILE_A, 3)) << "never submitted";
    EXPECT_TRUE(queue.discard(FILE_A, 1));
    EXPECT_FALSE(queue.discard(FILE_A, 1)) << "no longer pending";

    const std::unique_ptr<Urb> urb = queue.reap(FILE_A);
    ASSERT_NE(urb, nullptr);
    EXPECT_EQ(urb->status, -ENOENT);
    EXPECT_EQ(urb->actualLength, 500U);
    EXPECT_EQ(urb->data[299], 299 % 251);
    EXPECT_EQ(urb->data[300], 300 % 251);
    EXPECT_FALSE(queue.hasDone());
    vendor(0xB2, 50);
    expectDone(2, 0, 50, "the one behind goes on");
}

TEST_F(UrbQueueTest, EachFailureHasItsStatus)
{
    struct Case {
        TransferStatus status;
        int code;
    };
    for (const Case& item : {Case{TransferStatus::STALL, -EPIPE}, Case{TransferStatus::BABBLE, -EOVERFLOW},
                             Case{TransferStatus::IO_ERROR, -EPROTO}}) {
        vendor(0xB1, static_cast<uint16_t>(item.status));
        ASSERT_EQ(queue.submit(bulkUrb(1, 0x88, 10)), 0);
        expectDone(1, item.code, 0, "bulk");
    }
    ASSERT_EQ(queue.submit(controlUrb(0x40, 0xB3, 0)), 0);
    expectDone(0, -EPIPE, 0, "control");
}

TEST_F(UrbQueueTest, UnplugEndsEverything)
{
    ASSERT_EQ(queue.submit(bulkUrb(1, 0x86, 10)), 0);
    ASSERT_EQ(queue.submit(bulkUrb(2, 0x86, 10)), 0);
    vendor(0xB1, static_cast<uint16_t>(TransferStatus::GONE));  // meets the first pending read
    expectDone(1, -ESHUTDOWN, 0, "first");
    expectDone(2, -ESHUTDOWN, 0, "second");
    EXPECT_TRUE(queue.gone());
    EXPECT_EQ(queue.submit(bulkUrb(3, 0x86, 10)), ENODEV);
}

TEST_F(UrbQueueTest, PiecesOfASplitTransferFallTogether)
{
    const auto piece = [](uint64_t handle, bool continuation, bool last) {
        auto urb = bulkUrb(handle, 0x86, 100);
        urb->continuation = continuation;
        urb->shortIsError = !last;
        return urb;
    };
    ASSERT_EQ(queue.submit(piece(1, false, false)), 0);
    ASSERT_EQ(queue.submit(piece(2, true, false)), 0);
    ASSERT_EQ(queue.submit(piece(3, true, true)), 0);
    ASSERT_EQ(queue.submit(piece(4, false, true)), 0);
    ASSERT_EQ(queue.submit(bulkUrb(9, 0x04, 130)), 0);
    expectDone(9, 0, 130, "write");
    expectDone(1, 0, 100, "full piece");
    expectDone(2, -EREMOTEIO, 30, "short piece");
    expectDone(3, -ECONNRESET, 0, "piece after the short one");
    EXPECT_FALSE(queue.hasDone()) << "the next transfer is not part of it";
    EXPECT_TRUE(queue.discard(FILE_A, 4));
    expectDone(4, -ENOENT, 0, "next transfer");

    vendor(0xB1, static_cast<uint16_t>(TransferStatus::STALL));
    ASSERT_EQ(queue.submit(piece(5, false, false)), 0);
    EXPECT_EQ(queue.submit(piece(6, true, true)), EREMOTEIO) << "comes after the end of what it continues";
    ASSERT_EQ(queue.submit(piece(7, false, true)), 0);
}

TEST_F(UrbQueueTest, FilesKeepTheirTransfersApart)
{
    ASSERT_EQ(queue.submit(bulkUrb(1, 0x86, 10, FILE_A)), 0);
    ASSERT_EQ(queue.submit(bulkUrb(1, 0x88, 10, FILE_B)), 0);
    queue.forget(FILE_A);
    EXPECT_FALSE(queue.hasDone());
    EXPECT_TRUE(queue.discard(FILE_B, 1));
    EXPECT_EQ(queue.reap(FILE_A), nullptr);
    EXPECT_NE(queue.reap(FILE_B), nullptr);
}

/// A device that claims to have moved more than there was room for.
TEST(UrbQueueGuard, ADeviceThatOverfillsIsBabble)
{
    class Overfilling : public LoopbackDevice {
    public:
        using LoopbackDevice::LoopbackDevice;
        BulkResult bulkIn(uint8_t /*endpoint*/, std::span<uint8_t> buffer) override
        {
            return {TransferStatus::OK, buffer.size() + 1, true, NEVER};
        }
    };
    ManualClock clock;
    Overfilling device(clock, 1);
    UrbQueue queue(device, clock);
    ASSERT_EQ(queue.submit(bulkUrb(1, 0x88, 10)), 0);
    const std::unique_ptr<Urb> urb = queue.reap(FILE_A);
    ASSERT_NE(urb, nullptr);
    EXPECT_EQ(urb->status, -EOVERFLOW);
    EXPECT_EQ(urb->actualLength, 10U);
}

}  // namespace
}  // namespace vornsim::test
