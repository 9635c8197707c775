// SPDX-License-Identifier: MIT
#include <array>
#include <memory>
#include <new>
#include <utility>

#include <gtest/gtest.h>

#include "opened_camera.h"
#include "trace_capture.h"

namespace {

bool memoryIsFull = false;

}  // namespace

// What the library asks for without exceptions comes from here.
void* operator new(size_t length, const std::nothrow_t& /*tag*/) noexcept
{
    return memoryIsFull ? nullptr : ::operator new(length);
}

namespace {

using vorntest::bus;
using vorntest::Script;
using vorntest::TraceCapture;

class Discovery : public testing::Test {
protected:
    void SetUp() override { bus().reset(); }
    void TearDown() override
    {
        for (VornCamera* camera : cameras_)
            VornCamera_destroy(camera);  // null for the places not used
        bus().reset();
    }
    libusb_device& plug(uint16_t productId)
    {
        devices_.push_back(std::make_unique<libusb_device>(productId, usb_));
        bus().attach(*devices_.back());
        return *devices_.back();
    }
    int list(int max = 40) { return VornCamera::list(cameras_.data(), max); }
    const VornCameraImpl& camera(size_t index) { return dynamic_cast<VornCameraImpl&>(*cameras_[index]); }

    Script usb_;  // expects nothing: listing makes no traffic
    std::vector<std::unique_ptr<libusb_device>> devices_;
    std::array<VornCamera*, 40> cameras_ = {};
};

TEST_F(Discovery, KnowsEveryModel)
{
    struct {
        uint16_t productId;
        const char* name;
        CAMERA_TYPE type;
    } const MODELS[] = {
        {0xdf2e, "Vorn K01", QUICKER},  {0xdf2f, "Vorn K02", QUICKER},  {0xdfab, "Vorn K03", QUICKER},
        {0xdfad, "Vorn K04", QUICKER},  {0xdfae, "Vorn K05", QUICKER},  {0xdf29, "Vorn K06", STANDARD},
        {0xdf2c, "Vorn K07", STANDARD}, {0xdf2d, "Vorn K08", STANDARD}, {0xdf30, "Vorn K09", STANDARD},
        {0xdf31, "Vorn K10", STANDARD}, {0xdf33, "Vorn K11", STANDARD}, {0xdf34, "Vorn K12", STANDARD},
        {0xdf35, "Vorn K13", STANDARD}, {0xdf36, "Vorn K14", STANDARD}, {0xdf3a, "Vorn K15", STANDARD},
        {0xdf3b, "Vorn K16", ADVANCED}, {0xdf3c, "Vorn K17", STANDARD}, {0xdf3d, "Vorn K18", STANDARD},
        {0xdf3e, "Vorn K19", STANDARD}, {0xdf3f, "Vorn K20", ADVANCED}, {0xdfac, "Vorn K21", STANDARD},
        {0xdfb0, "Vorn K22", STANDARD}, {0xdfb4, "Vorn K23", STANDARD}, {0xdfb5, "Vorn K24", STANDARD},
        {0xdfb6, "Vorn K25", STANDARD}, {0xdfb8, "Vorn K26", STANDARD}, {0xdfbb, "Vorn K27", ADVANCED},
        {0x2004, "Vorn XRC", IIDC},     {0x2005, "Vorn XRM", IIDC},     {0xdf28, "Vorn K30", CLASSIC},
        {0xdfb7, "Vorn K31", CLASSIC},  {0xdfa8, "Vorn K32", CLASSIC},  {0xdf50, "Vorn K33", STANDARD},
    };
    bus().reset();  // without the script's own device
    for (const auto& model : MODELS)
        plug(model.productId);
    ASSERT_EQ(list(), static_cast<int>(std::size(MODELS)));
    for (size_t i = 0; i < std::size(MODELS); i++) {
        EXPECT_STREQ(cameras_[i]->getName(), MODELS[i].name);
        EXPECT_EQ(camera(i).type, MODELS[i].type) << MODELS[i].name;
        EXPECT_EQ(camera(i).device, devices_[i].get()) << MODELS[i].name;
        EXPECT_EQ(devices_[i]->references, 1) << MODELS[i].name;
    }
}

TEST_F(Discovery, TakesCamerasInBusOrderAndSkipsTheRest)
{
    bus().reset();
    plug(0x1234);
    plug(0xdf3c).vendorId = 0x0001;  // any vendor will do
    plug(0xdf34).descriptorUnreadable = true;
    plug(0xdf3c);
    TraceCapture trace;
    ASSERT_EQ(list(), 2);
    EXPECT_EQ(camera(0).device, devices_[1].get());
    EXPECT_EQ(camera(1).device, devices_[3].get());
    EXPECT_EQ(devices_[0]->references + devices_[2]->references, 0);
    EXPECT_EQ(trace.text(), R"(-> VornCamera::list(...)
    'Vorn K17' [0x1, 0xdf3c] found...
 -> VornCameraImpl::VornCameraImpl(..., Vorn K17, 2)
     maxPacketSize = 25165824
 <- VornCameraImpl::VornCameraImpl
    'Vorn K17' [0x16d0, 0xdf3c] found...
 -> VornCameraImpl::VornCameraImpl(..., Vorn K17, 2)
     maxPacketSize = 25165824
 <- VornCameraImpl::VornCameraImpl
<- VornCamera::list 2
)");
    VornCamera_destroy(cameras_[0]);
    VornCamera_destroy(std::exchange(cameras_[1], nullptr));
    EXPECT_EQ(VornCamera_list(cameras_.data(), 1), 1);  // no more than fit
    EXPECT_EQ(cameras_[1], nullptr);
}

TEST_F(Discovery, LeavesOutACameraForWhichThereIsNoMemory)
{
    plug(0xdf34);
    memoryIsFull = true;
    const int count = list();
    memoryIsFull = false;
    EXPECT_EQ(count, 0);
    EXPECT_EQ(devices_[0]->references, 0);
}

TEST_F(Discovery, SurvivesALockedOutBus)
{
    bus().listResult = LIBUSB_ERROR_NO_MEM;
    TraceCapture trace;
    EXPECT_EQ(list(), 0);
    // the one detail line that deliberately has no end of its own
    EXPECT_EQ(trace.text(), "-> VornCamera::list(...)\n    Can't get device list<- VornCamera::list 00\n");
}

using DiscoveryDeathTest = Discovery;

TEST_F(DiscoveryDeathTest, NoPlaceForACameraEndsTheProcess)
{
    TraceCapture trace;  // of which there is nothing yet
    for (const int max : {0, -1})
        EXPECT_EXIT(list(max), testing::ExitedWithCode(1), "^Assertion \"max>0\" failed \\(vornccdusb, [0-9]+\\)");
}

}  // namespace
