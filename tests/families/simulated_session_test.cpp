// SPDX-License-Identifier: MIT
// The library and the simulated cameras, which know nothing of each other, on virtual time. Their pictures are compared
// with capture's.
#include "simulated_camera.h"

namespace {

using vorntest::SimulatedCamera;

TEST(FamilySession, EveryModelOpensTwiceAsTheCatalogueDescribesIt)
{
    vorntest::bus().reset();
    int count = 0;
    for (const vornsim::ModelInfo& model : vornsim::models()) {
        SimulatedCamera simulated(model.name);
        SCOPED_TRACE(model.name);
        for (int time = 0; time < 2; time++) {
            ASSERT_TRUE(simulated.camera.open());
            VornCapabilities capabilities;
            ASSERT_TRUE(simulated.camera.getCapabilities(nullptr, nullptr, &capabilities));
            EXPECT_EQ(capabilities.pixelCountX, model.pixelCountX);
            EXPECT_EQ(capabilities.pixelCountY, model.pixelCountY);
            if (simulated.type() != IIDC) {  // which has no colour record
                EXPECT_EQ(capabilities.colour, model.colour ? COLOUR_RGGB : COLOUR_NONE);
            }
            EXPECT_NE(simulated.camera.getSerialNumber(), 0U);
            simulated.camera.close();
        }
        simulated.expectNoComplaints();
        count++;
    }
    EXPECT_EQ(count, 33);
}

}  // namespace
