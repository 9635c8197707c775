// SPDX-License-Identifier: MIT
#include <algorithm>
#include <numeric>

#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace_capture.h"

namespace {

using vorntest::OpenedCamera;
using vorntest::TraceCapture;

/// Puts another table in place of the exported one, padded with @p padding, and the original back.
class OtherFirmware {
public:
    OtherFirmware(const std::string& hex, uint8_t padding)
    {
        std::copy(std::begin(FIRMWARE), std::end(FIRMWARE), saved_.begin());
        std::fill(std::begin(FIRMWARE), std::end(FIRMWARE), padding);
        const std::vector<uint8_t> bytes = vorntest::parseBytes(hex);
        std::copy(bytes.begin(), bytes.end(), FIRMWARE);
    }
    ~OtherFirmware() { std::copy(saved_.begin(), saved_.end(), FIRMWARE); }
    OtherFirmware(const OtherFirmware&) = delete;
    OtherFirmware& operator=(const OtherFirmware&) = delete;

private:
    std::vector<uint8_t> saved_ = std::vector<uint8_t>(sizeof FIRMWARE);
};

TEST(WriteFirmware, SendsTheExportedTableIn768Transfers)
{
    OpenedCamera standard;
    standard.usb.firmwareUpload();
    EXPECT_EQ(standard.usb.size(), 768U);
    EXPECT_TRUE(standard.camera.writeFW());
}

TEST(FirmwareTable, HasItsDocumentedLayout)
{
    const struct {
        size_t offset;
        std::vector<uint8_t> head;
    } VECTORS[] = {
        {0, {4, 0x00, 0x00, 0x02, 0x00, 0x2E, 0x32}},
        {7, {1, 0x0B, 0x00}},
        {11, {1, 0x13, 0x00}},
        {15, {1, 0x1B, 0x00}},
        {19, {1, 0x23, 0x00}},
        {23, {3, 0x2B, 0x00}},
    };
    for (const auto& row : VECTORS)
        EXPECT_TRUE(std::equal(row.head.begin(), row.head.end(), &FIRMWARE[row.offset])) << row.offset;

    unsigned records = 0;
    unsigned dataBytes = 0;
    bool sorted = true;
    unsigned previous = 0;
    size_t at = 0;
    for (; FIRMWARE[at] != 0; at += 3UL + FIRMWARE[at]) {
        const unsigned address = FIRMWARE[at + 1] + 256U * FIRMWARE[at + 2];
        EXPECT_LE(FIRMWARE[at], 14) << "at " << at;
        EXPECT_LE(address, 0x1A97U) << "at " << at;
        sorted = sorted && address >= previous;
        previous = address;
        records++;
        dataBytes += FIRMWARE[at];
    }
    EXPECT_EQ(records, 766U);
    EXPECT_EQ(dataBytes, 6773U);
    EXPECT_FALSE(sorted);
    EXPECT_EQ(at, 9071U);
    EXPECT_EQ(FIRMWARE[9072], 0);
    EXPECT_EQ(FIRMWARE[9073], 0);
    EXPECT_TRUE(std::equal(&FIRMWARE[0], &FIRMWARE[9071], &FIRMWARE[9074]));
    EXPECT_EQ(FIRMWARE[18145], 0);
}

TEST(WriteFirmware, FollowsTheTableAHostPutThere)
{
    struct {
        const char* label;
        const char* table;
        std::vector<std::pair<unsigned, const char*>> transfers;  ///< address, data; all succeed but the last of...
        bool lastFails;                                           ///< ...these
        bool ok;
        std::vector<std::string> details;
    } const CASES[] = {
        {"end mark alone",
         "00",
         {{0xE600, "01"}, {0xE600, "00"}},
         false,
         true,
         {"    cpu stopped 1", "    cpu started 1"}},
        {"two records",
         "01 34 12 AA 02 00 FF B1 B2 00",
         {{0xE600, "01"}, {0x1234, "AA"}, {0xFF00, "B1 B2"}, {0xE600, "00"}},
         false,
         true,
         {"    cpu stopped 1", "    cpu started 1"}},
        {"stop refused",
         "01 34 12 AA 00",
         {{0xE600, "01"}},
         true,
         false,
         {"    cpu stopped 0", "    incomplete firmware upload", "    cpu started 0"}},
        {"third record of four refused",
         "01 01 00 A1 01 02 00 A2 01 03 00 A3 01 04 00 A4 00",
         {{0xE600, "01"}, {1, "A1"}, {2, "A2"}, {3, "A3"}},
         true,
         false,
         {"    cpu stopped 1", "    incomplete firmware upload", "    cpu started 0"}},
        {"last record refused: not called incomplete",
         "01 01 00 A1 01 02 00 A2 00",
         {{0xE600, "01"}, {1, "A1"}, {2, "A2"}},
         true,
         false,
         {"    cpu stopped 1", "    cpu started 0"}},
        {"start refused",
         "01 01 00 A1 00",
         {{0xE600, "01"}, {1, "A1"}, {0xE600, "00"}},
         true,
         false,
         {"    cpu stopped 1", "    cpu started 0"}},
    };
    for (const auto& row : CASES) {
        for (const int failure : std::initializer_list<int>{0, LIBUSB_ERROR_PIPE}) {  // moving nothing is a failure too
            SCOPED_TRACE(row.label);
            OpenedCamera standard;
            const OtherFirmware table(row.table, 0x00);
            for (const auto& [address, data] : row.transfers)
                standard.usb.controlOut(0xA0, address, 0, data);
            if (row.lastFails)
                standard.usb.fails(failure);
            std::vector<std::string> expected = row.details;
            expected.insert(expected.begin(), "-> VornCameraImpl::writeFW()");
            expected.push_back(row.ok ? "<- VornCameraImpl::writeFW 1" : "<- VornCameraImpl::writeFW 0");
            TraceCapture trace;
            EXPECT_EQ(standard.camera.writeFW(), row.ok);
            EXPECT_EQ(trace.lines(), expected);
            EXPECT_TRUE(standard.usb.done());
        }
    }
}

// Without an end mark the walk must stop at the table's end; the address sanitizer watches.
TEST(WriteFirmware, NeverReadsPastTheTable)
{
    for (const int padding : {0x01, 0x02, 0xFF}) {
        SCOPED_TRACE(padding);
        OpenedCamera standard;
        const OtherFirmware table("", static_cast<uint8_t>(padding));
        standard.usb.controlOut(0xA0, 0xE600, 0, "01");
        const auto record = static_cast<size_t>(3 + padding);
        std::string data;
        for (int i = 0; i < padding; i++)
            data += padding == 1 ? "01 " : padding == 2 ? "02 " : "FF ";
        for (size_t at = 0; at + record <= sizeof FIRMWARE; at += record)
            standard.usb.controlOut(0xA0, static_cast<unsigned>(padding * 0x101), 0, data);
        if (sizeof FIRMWARE % record == 0)
            standard.usb.controlOut(0xA0, 0xE600, 0, "00");
        (void)standard.camera.writeFW();
        EXPECT_TRUE(standard.usb.done());
    }
}

}  // namespace
