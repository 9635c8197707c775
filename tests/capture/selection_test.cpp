// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "capture/camera_list.h"
#include "capture/open_diagnosis.h"
#include "fake_camera.h"

namespace {

using namespace capturetest;
using namespace vorncapture;

std::vector<CameraHandle> makeFakes(const std::vector<std::shared_ptr<FakeState>>& states)
{
    std::vector<CameraHandle> handles;
    std::transform(states.begin(), states.end(), std::back_inserter(handles), makeFake);
    return handles;
}

TEST(SelectCamera, FindsItByIndexModelOrSerialNumber)
{
    struct Row {
        const char* text;
        int found;  ///< place in the list, or -1
        ErrorKind kind;
    };
    constexpr ErrorKind NONE = ErrorKind::FAILED;
    constexpr Row ROWS[] = {
        {"0", 0, NONE},
        {"2", 2, NONE},
        {"index:3", -1, ErrorKind::NO_SUCH_CAMERA},
        {"Vorn K99", 1, NONE},
        {" vorn  k99", 1, NONE},
        {"k12", -1, ErrorKind::BAD_REQUEST},  // two of them
        {"", -1, ErrorKind::BAD_REQUEST},     // three to choose from
        {"1002", 2, NONE},
        {"serial:7", 0, NONE},
        {"serial:x", -1, ErrorKind::BAD_REQUEST},
        {"index:99999999999", -1, ErrorKind::BAD_REQUEST},
    };
    for (const Row& row : ROWS) {
        SCOPED_TRACE(row.text);
        const std::vector states = {makeState(STANDARD), makeState(ADVANCED), makeState(STANDARD)};
        states[0]->serialNumber = 7;
        states[2]->serialNumber = 1002;
        const auto selector = CameraSelector::parse(row.text);
        const Result<std::unique_ptr<Session>> session =
            selector.ok() ? openSelected(makeFakes(states), selector.value()) : selector.error();
        ASSERT_EQ(session.ok(), row.found >= 0);
        for (size_t i = 0; i < states.size(); ++i)
            EXPECT_EQ(states[i]->open, static_cast<int>(i) == row.found);
        EXPECT_EQ(session.ok() ? NONE : session.error().kind, row.kind);
    }
}

TEST(ExplainOpenFailure, KnowsTheCauseByTheUsbErrorInTheTrace)
{
    struct Row {
        const char* trace;
        ErrorKind kind;
        const char* advice;
    };
    constexpr Row ROWS[] = {
        {"    libusb_open() -> LIBUSB_ERROR_ACCESS\n", ErrorKind::PERMISSION, "udevadm"},
        {"    libusb_claim_interface() -> LIBUSB_ERROR_BUSY\n", ErrorKind::BUSY, "other program"},
        {"    libusb_open() -> LIBUSB_ERROR_NO_DEVICE\n", ErrorKind::DEVICE_LOST, "cable"},
        {"    libusb_bulk_transfer -> LIBUSB_ERROR_NO_MEM\n", ErrorKind::FAILED, "usbfs_memory_mb"},
        {"    libusb_bulk_transfer -> LIBUSB_ERROR_TIMEOUT\n", ErrorKind::TIMEOUT, "power"},
        {"", ErrorKind::TIMEOUT, "power"},
    };
    for (const Row& row : ROWS) {
        const Error error = explainOpenFailure(row.trace, -1);
        EXPECT_EQ(error.kind, row.kind) << row.trace;
        EXPECT_NE(error.advice.find(row.advice), std::string::npos) << error.advice;
    }
}

}  // namespace
