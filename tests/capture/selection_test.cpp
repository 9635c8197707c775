// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "capture/camera_list.h"
#include "capture/open_diagnosis.h"
#include "simulated_session.h"

namespace {

using namespace capturetest;
using namespace vorncapture;

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
        {"Vorn K16", 1, NONE},
        {" vorn  k16", 1, NONE},
        {"k30", -1, ErrorKind::NO_SUCH_CAMERA},
        {"k12", -1, ErrorKind::BAD_REQUEST},  // two of them
        {"", -1, ErrorKind::BAD_REQUEST},     // three to choose from
        {"102", 2, NONE},
        {"serial:7", 0, NONE},
        {"serial:x", -1, ErrorKind::BAD_REQUEST},
        {"index:99999999999", -1, ErrorKind::BAD_REQUEST},
    };
    for (const Row& row : ROWS) {
        SCOPED_TRACE(row.text);
        Camera cameras[] = {Camera("K12", 7), Camera("K16"), Camera("K12", 102)};
        std::vector<CameraHandle> handles;
        for (Camera& camera : cameras)
            handles.push_back(camera.handle());
        const auto selector = CameraSelector::parse(row.text);
        const Result<std::unique_ptr<Session>> session =
            selector.ok() ? openSelected(std::move(handles), selector.value()) : selector.error();
        ASSERT_EQ(session.ok(), row.found >= 0);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(cameras[i].device.openCount, i == row.found ? 1 : 0);
        EXPECT_EQ(session.ok() ? NONE : session.error().kind, row.kind);
    }
}

TEST(SelectCamera, SaysThatThereIsNone)
{
    for (const char* text : {"", "0", "k12", "102"}) {
        const auto session = openSelected({}, CameraSelector::parse(text).value());
        ASSERT_FALSE(session.ok());
        EXPECT_NE(session.error().text.find("no camera is attached"), std::string::npos) << session.error().text;
    }
}

TEST(SelectCamera, LooksOnBehindOneThatFailsUntilToldToStop)
{
    Camera cameras[] = {Camera("K12", 7), Camera("K12", 102)};
    const auto search = [&cameras](const char* text, const CancelToken* cancel = nullptr) {
        std::vector<CameraHandle> handles;
        for (Camera& camera : cameras)
            handles.push_back(camera.handle());
        const auto session = openSelected(std::move(handles), CameraSelector::parse(text).value(), {.cancel = cancel});
        return session.ok() ? "found" : session.error().text;
    };
    cameras[0].failAt["open"] = -1;
    EXPECT_EQ(search("serial:102"), "found");
    EXPECT_EQ(search("serial:103").find("no camera with serial number 103 among those that open"), 0U);

    cameras[0].gone = false;
    cameras[0].hangIn = "open";
    CancelToken cancel;
    cancel.request();
    cancel.request();  // without waiting for a camera that hangs
    EXPECT_EQ(search("serial:102", &cancel), "stopped while the camera was being opened");
    cameras[0].release = true;
    while (!cameras[0].gone)
        std::this_thread::yield();
}

TEST(TraceCapture, CatchesTheTraceAndShowsItToThoseWhoWantedIt)
{
    for (const bool wanted : {false, true}) {
        testing::internal::CaptureStderr();
        VornDebug = wanted;
        (void)std::fputs("before ", stderr);
        TraceCapture capture;
        (void)listCameras();
        const std::string text = capture.finish();
        EXPECT_EQ(VornDebug, wanted);
        VornDebug = false;
        EXPECT_EQ(text.find("-> VornCamera::list("), 0U) << text;
        EXPECT_EQ(TraceCapture().finish() + capture.finish(), "") << "the first does not stand in the way of a second";
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "before " + (wanted ? text : ""));
    }
}

TEST(TraceCapture, GivesItsDescriptorsBack)
{
    const auto nextDescriptor = [] {
        const int descriptor = dup(STDERR_FILENO);
        (void)close(descriptor);
        return descriptor;
    };
    const int before = nextDescriptor();
    (void)TraceCapture().finish();
    EXPECT_EQ(nextDescriptor(), before);
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
