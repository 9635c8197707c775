// SPDX-License-Identifier: MIT
// A client that says anything over USB/IP to a server with one simulated camera.
#include <sys/socket.h>
#include <unistd.h>

#include "camera_catalogue.h"
#include "simulated.h"
#include "targets.h"
#include "usbip/usbip_connection.h"

namespace vornfuzz {

void serveUsbIp(Input& input)
{
    vorntest::bus().reset();
    const vorntest::BusClock clock;
    vorntest::CollectedLog log;
    const auto camera = vornsim::makeCamera(vornsim::models().front(), {.scene = vornsim::SceneKind::RAMP}, clock, log);
    vornsim::usbip::ExportTable exports(clock);
    check(exports.add(*camera, log), "a camera without descriptors");
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
