// SPDX-License-Identifier: MIT
#include <algorithm>

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

TEST(WriteFirmware, FollowsTheTableAHostPutThere)
{
    struct {
        const char* label;
        const char* table;
        std::vector<std::pair<unsigned, const char*>> transfers;  ///< address, data
        bool lastFails;
        const char* details;
    } const CASES[] = {
        {"two records",
         "01 34 12 AA 02 00 FF B1 B2 00",
         {{0xE600, "01"}, {0x1234, "AA"}, {0xFF00, "B1 B2"}, {0xE600, "00"}},
         false,
         "    cpu stopped 1\n    cpu started 1\n"},
        {"stop refused",
         "01 34 12 AA 00",
         {{0xE600, "01"}},
         true,
         "    cpu stopped 0\n    incomplete firmware upload\n    cpu started 0\n"},
        {"third record of four refused",
         "01 01 00 A1 01 02 00 A2 01 03 00 A3 01 04 00 A4 00",
         {{0xE600, "01"}, {1, "A1"}, {2, "A2"}, {3, "A3"}},
         true,
         "    cpu stopped 1\n    incomplete firmware upload\n    cpu started 0\n"},
        {"last record refused: not called incomplete",
         "01 01 00 A1 01 02 00 A2 00",
         {{0xE600, "01"}, {1, "A1"}, {2, "A2"}},
         true,
         "    cpu stopped 1\n    cpu started 0\n"},
    };
    for (const auto& row : CASES) {
        for (const int failure : std::initializer_list<int>{0, LIBUSB_ERROR_PIPE}) {  // moving nothing fails too
            SCOPED_TRACE(row.label);
            OpenedCamera standard;
            const OtherFirmware table(row.table, 0x00);
            for (const auto& [address, data] : row.transfers)
                standard.usb.controlOut(0xA0, address, 0, data);
            if (row.lastFails)
                standard.usb.fails(failure);
            TraceCapture trace;
            EXPECT_EQ(standard.camera.writeFW(), !row.lastFails);
            EXPECT_EQ(trace.text(), std::string("-> VornCameraImpl::writeFW()\n") + row.details +
                                        "<- VornCameraImpl::writeFW " + (row.lastFails ? "0\n" : "1\n"));
            EXPECT_TRUE(standard.usb.done());
        }
    }
}

// Without an end mark the walk must stop at the table's end; the address sanitizer watches.
TEST(WriteFirmware, NeverReadsPastTheTable)
{
    for (const bool lastFits : {false, true}) {
        OpenedCamera standard;
        const OtherFirmware table(lastFits ? "03 02 02 A1 A2 A3" : "", 2);
        standard.usb.controlOut(0xA0, 0xE600, 0, "01");
        if (lastFits)
            standard.usb.controlOut(0xA0, 0x0202, 0, "A1 A2 A3");
        for (size_t at = lastFits ? 6 : 0; at + 5 <= sizeof FIRMWARE; at += 5)
            standard.usb.controlOut(0xA0, 0x0202, 0, "02 02");
        if (lastFits)
            standard.usb.controlOut(0xA0, 0xE600, 0, "00");
        EXPECT_EQ(standard.camera.writeFW(), lastFits);
        EXPECT_TRUE(standard.usb.done());
    }
}

}  // namespace
