// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <thread>
#include <tuple>
#include <utility>

#include "capture/camera_check.h"
#include "capture/camera_list.h"
#include "capture/camera_selection.h"
#include "capture/open_diagnosis.h"
#include "capture/usb_nodes.h"
#include "simulated_session.h"
#include "test_directory.h"

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

    cameras[0].openTrace = "    libusb_claim_interface() -> LIBUSB_ERROR_BUSY\n";
    EXPECT_NE(search("serial:103").find("used by another program"), std::string::npos);
    cameras[1].failAt["open"] = 0;
    EXPECT_NE(search("serial:102").find("used by another program"), std::string::npos);

    cameras[0].gone = false;
    cameras[0].openTrace = "";
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

TEST(TraceCapture, GoesOnWhenTheUserSwitchesTheTrace)
{
    for (const bool wanted : {true, false}) {
        VornDebug = !wanted;
        TraceCapture capture;
        setTrace(wanted);
        (void)listCameras();
        EXPECT_EQ(capture.finish().find("-> VornCamera::list("), 0U);
        EXPECT_EQ(VornDebug, wanted);
        setTrace(false);
        EXPECT_FALSE(VornDebug);
    }
}

TEST(TraceCapture, GivesEachThreadItsOwnTextAndDropsTheTraceOfOthers)
{
    testing::internal::CaptureStderr();
    std::string texts[2];
    {
        const TraceCapture mine;
        for (std::string& text : texts) {
            const char* line = &text == texts ? "    one\n" : "    two\n";
            std::thread([&text, line] {
                (void)std::fprintf(stderr, "-> of a thread that does not capture\n");
                (void)std::fprintf(stderr, "a message\n");
                TraceCapture capture;
                (void)std::fprintf(stderr, "%s", line);
                text = capture.finish();
            }).join();
        }
        EXPECT_TRUE(VornDebug);
    }
    EXPECT_FALSE(VornDebug);
    EXPECT_EQ(texts[0] + texts[1], "    one\n    two\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a message\na message\n");
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

class UsbNodes : public ::testing::Test, protected capturetest::TestDirectory {
protected:
    const UsbNode node_{"1234", "df2c", path("002"), "1-2", 480.0, ""};
};

/// @return what a command writes, without the line's end.
std::string outputOf(const std::string& command)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string text(1000, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), pipe.get()));
    return text.substr(0, text.find('\n'));
}

TEST_F(UsbNodes, TellWhoMayUseThem)
{
    EXPECT_EQ(node_.access(), "");
    EXPECT_FALSE(node_.usable());
    std::ofstream(node_.path) << "";
    EXPECT_TRUE(node_.usable());
    ASSERT_EQ(chmod(node_.path.c_str(), 0640), 0);
    EXPECT_EQ(node_.access(), outputOf("stat -c '%U:%G, mode 0%a' " + node_.path));
    if (chown(node_.path.c_str(), 12345, 23456) == 0) {  // works for root only
        EXPECT_EQ(node_.access(), "12345:23456, mode 0640");
    }
    const UserAccess user = userAccess();
    EXPECT_EQ(user.name, outputOf("id -un"));
    EXPECT_EQ(user.plugdevExists, !outputOf("getent group plugdev").empty());
    EXPECT_EQ(user.inPlugdev, (" " + outputOf("id -nG") + " ").find(" plugdev ") != std::string::npos);
}

TEST_F(UsbNodes, TellWhoUsesThem)
{
    EXPECT_FALSE(openInThisProcess(node_.path));
    const std::ofstream file(node_.path);
    EXPECT_TRUE(openInThisProcess(node_.path));
    EXPECT_TRUE(node_.holders().empty());
    const pid_t child = fork();
    if (child == 0) {
        (void)pause();
        _exit(0);
    }
    EXPECT_EQ(node_.holders(), std::vector<std::string>{std::to_string(child) + " (capture_test)"});
    (void)kill(child, SIGKILL);
    (void)waitpid(child, nullptr, 0);
    EXPECT_TRUE(node_.holders().empty());
}

TEST_F(UsbNodes, AreFoundByPortOrNumber)
{
    const UsbNode node{"", "", "/dev/bus/usb/001/023", "1-2.3", 0.0, ""};
    const std::pair<const char*, bool> rows[] = {{"1-2.3", true},  {"1-2", false},  {"1:23", true},
                                                 {"01:023", true}, {"23:1", false}, {"1:24", false}};
    for (const auto& [place, same] : rows)
        EXPECT_EQ(node.isAt(place), same) << place;
    EXPECT_FALSE(udevRuleInstalled("not an id"));
}

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
    // 16 MiB hold 16,744,480 bytes with the system's 32 for each begun 16384.
    const std::tuple<unsigned, unsigned, long, const char*> rows[] = {
        {3664, 2285, 16, nullptr},       {3664, 2285, 15, "need 16 MiB"}, {9000, 9000, 0, nullptr},  // unknown
        {3321, 2521, 16, "need 17 MiB"}, {9000, 9000, 16, "need 25 MiB"},  // the library reads 24 in one piece
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
        {"cpu started 1", OpenObstacle::SILENT_PROGRAM},
        {"cpu started 1, i2cRead 1", OpenObstacle::NO_DESCRIPTION},
        {"cpu started 1, kernel ping ok", OpenObstacle::NO_DESCRIPTION},
        {"cpu started 1, APPINIT completed", OpenObstacle::NO_DESCRIPTION},
        {"cpu stopped 0", OpenObstacle::FIRMWARE_REFUSED},
        {"cpu started 0", OpenObstacle::FIRMWARE_REFUSED},
        {"LIBUSB_ERROR_NOT_FOUND", OpenObstacle::GONE},
        {"i2cRead 0", OpenObstacle::NO_ANSWER},
    };
    for (const auto& [trace, obstacle] : rows)
        EXPECT_EQ(findObstacle(trace), obstacle) << trace;
}

}  // namespace
