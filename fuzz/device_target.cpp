// SPDX-License-Identifier: MIT
// The other side: a simulated camera and a host program that sends it anything.
#include "camera_catalogue.h"
#include "simulated.h"
#include "targets.h"

namespace vornfuzz {

void driveSimulatedCamera(Input& input)
{
    vorntest::bus().reset();
    const vorntest::BusClock clock;
    vorntest::CollectedLog log;
    const std::span<const vornsim::ModelInfo> models = vornsim::models();
    const vornsim::ModelInfo& model = models[input.byte() % models.size()];
    const auto camera = vornsim::makeCamera(model, {.scene = vornsim::SceneKind::RAMP}, clock, log);
    (void)camera->setInterface(0, 1);
    while (!input.exhausted()) {
        const unsigned choice = input.byte() % 8;
        const auto endpoint = static_cast<uint8_t>(input.byte());
        // exact-size copies, so that a step beyond the end is seen
        if (choice == 0) {
            (void)camera->setInterface(endpoint >> 4, endpoint & 15);
        } else if (choice == 1) {
            vorntest::bus().advanceUs(input.number<uint32_t>());
        } else if (choice <= 3) {
            const vornsim::SetupPacket setup = {endpoint, input.byte(), input.number<uint16_t>(),
                                                input.number<uint16_t>(), input.byte()};
            std::vector<uint8_t> data(setup.length);
            const std::span<const uint8_t> sent = input.take((endpoint & 0x80) != 0 ? 0 : data.size());
            std::copy(sent.begin(), sent.end(), data.begin());
            check(camera->control(setup, data).length <= data.size(), "more than was asked for");
        } else if (choice <= 5) {
            const std::span<const uint8_t> sent = input.take(input.byte());
            const std::vector<uint8_t> data(sent.begin(), sent.end());
            check(camera->bulkOut(endpoint, data).length <= data.size(), "more than was sent");
        } else {
            std::vector<uint8_t> data(choice == 6 ? input.byte() : input.number<uint16_t>());
            check(camera->bulkIn(endpoint, data).length <= data.size(), "more than was asked for");
        }
    }
}

}  // namespace vornfuzz
