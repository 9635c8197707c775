// SPDX-License-Identifier: MIT
#include "family.h"
#include "lifecycle/step_runner.h"
#include "trace/trace.h"

namespace vornccd {

void identifyNothing(StepRunner& steps, uint32_t /*productId*/)
{
    TRACE_DETAIL("%s    unsupported device!!!\n");
    steps.fail();
}

bool refuseData(VornCameraImpl& /*camera*/, uint8_t* /*buffer*/, unsigned /*length*/)
{
    assertionFailed("Assertion failed (%s, %d)\n", 623);
}

const FamilyFunctions& functionsOf(CAMERA_TYPE type)
{
    switch (type) {
        case CLASSIC:
            return CLASSIC_FUNCTIONS;
        case STANDARD:
            return STANDARD_FUNCTIONS;
        case QUICKER:
            return QUICKER_FUNCTIONS;
        case IIDC:
            return IIDC_FUNCTIONS;
        case ADVANCED:
            return ADVANCED_FUNCTIONS;
    }
    static constexpr FamilyFunctions NO_FUNCTIONS = {};
    return NO_FUNCTIONS;
}

}  // namespace vornccd
