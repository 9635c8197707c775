// SPDX-License-Identifier: MIT
// The other side: simulated cameras, and hosts and USB/IP clients that send them anything.
#include <sys/socket.h>
#include <unistd.h>

#include "device/families/camera_catalogue.h"
#include "simulated.h"
#include "targets.h"
#include "usbip/usbip_connection.h"

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

void serveUsbIp(Input& input)
{
    vorntest::bus().reset();
    const vorntest::BusClock clock;
    vorntest::CollectedLog log;
    const auto make = [&] {
        return vornsim::makeCamera(vornsim::models().front(), {.scene = vornsim::SceneKind::RAMP}, clock, log);
    };
    vornsim::CameraSlot slot(make, {}, clock, log);
    vornsim::usbip::ExportTable exports(clock);
    check(exports.add(slot, log), "a camera without descriptors");
    int ends[2] = {};
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) == 0, "no sockets");
    {
        vornsim::usbip::UsbIpConnection connection(ends[0], exports, clock);
        for (bool alive = true; alive && !input.exhausted();) {
            const std::span<const uint8_t> sent = input.take(input.byte());
            (void)send(ends[1], sent.data(), sent.size(), MSG_NOSIGNAL);
            vorntest::bus().advanceUs(input.byte() * int64_t{1000});
            alive = connection.onReadable() && (connection.nextWakeUs() > clock.nowUs() || connection.onTime());
            uint8_t received[4096];
            while (alive && connection.wantsToWrite()) {
                alive = connection.onWritable();
                while (recv(ends[1], received, sizeof received, 0) > 0) {
                }
            }
        }
    }
    check(exports.available().size() == 1, "a camera that stays taken");
    (void)close(ends[0]);
    (void)close(ends[1]);
}

}  // namespace vornfuzz
