// SPDX-License-Identifier: MIT
#include "exchange.h"

#include <tuple>

namespace {

using vorntest::OpenedCamera;
using vorntest::UNSUPPORTED;

TEST(Modes, BelongToTheirFamilies)
{
    const std::tuple<CAMERA_TYPE, bool, bool, bool> CASES[] = {
        {STANDARD, true, false, true},  {CLASSIC, true, false, false}, {ADVANCED, true, true, false},
        {QUICKER, false, false, false}, {IIDC, false, false, false},
    };
    for (const auto& [type, preview, eightBit, dark] : CASES) {
        SCOPED_TRACE(testing::Message() << "type " << type);
        OpenedCamera opened(type);
        VornCameraImpl& camera = opened.camera;
        camera.lock();  // none of them waits for it
        // the value already set is fine everywhere
        EXPECT_TRUE(camera.setPreviewMode(false) && camera.set8BitMode(false) && camera.setDarkFrameMode(false));
        EXPECT_EQ(camera.setDarkFrameMode(true), dark);
        EXPECT_EQ(opened.error(), "No error");  // a refusal leaves the text, unlike the next two
        EXPECT_EQ(camera.setPreviewMode(true), preview);
        EXPECT_EQ(opened.error(), preview ? "No error" : UNSUPPORTED);
        camera.lastError = "No error";
        EXPECT_EQ(camera.set8BitMode(true), eightBit);
        EXPECT_EQ(opened.error(), eightBit ? "No error" : UNSUPPORTED);
        EXPECT_TRUE(camera.previewMode == preview && camera.eightBitMode == eightBit && camera.darkFrameMode == dark);
        camera.unlock();
    }
}

}  // namespace
