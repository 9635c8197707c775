// SPDX-License-Identifier: MIT
#include <cstdio>
#include <string>

#include "bus/real_clock.h"
#include "stop_signals.h"
#include "subcommand.h"
#include "usbip/export_table.h"
#include "usbip/usbip_server.h"

namespace vornsim {
namespace {

void reportClient(const std::string& text)
{
    std::fprintf(stderr, "vornsim: %s\n", text.c_str());
}

/// What to type in another terminal.
void explain(const usbip::UsbIpServer& server, const std::string& listen, usbip::ExportTable& exports,
             CameraSet& cameras)
{
    const std::string port = server.port() == 3240 ? "" : "--tcp-port " + std::to_string(server.port()) + " ";
    const std::string host = server.loopbackOnly() ? listen.substr(0, listen.rfind(':')) : "THIS-MACHINE";
    std::printf("Simulated cameras wait on port %u. To attach them, type in another terminal:\n",
                unsigned{server.port()});
    std::printf("  sudo modprobe vhci-hcd\n");
    const auto records = exports.available();
    for (size_t i = 0; i < records.size(); ++i)
        std::printf("  sudo usbip %sattach -r %s -b %s   # %s\n", port.c_str(), host.c_str(), records[i].busId.c_str(),
                    cameras.log(i).cameraName().c_str());
    std::printf("Ctrl-C unplugs them.\n");
    (void)std::fflush(stdout);
    if (!server.loopbackOnly())
        std::fprintf(stderr,
                     "vornsim: USB/IP has no passwords: everybody who reaches this address can use the cameras\n");
}

}  // namespace

int usbipCommand(const Options& options)
{
    const StopSignals stop;
    const RealClock clock;
    CameraSet cameras(clock);
    if (const int exitStatus = cameras.make(options.choice))
        return exitStatus;
    usbip::ExportTable exports(clock);
    for (size_t i = 0; i < cameras.size(); ++i)
        if (!exports.add(cameras.camera(i), cameras.log(i)))
            return fail(EXIT_OWN_FAILURE, cameras.log(i).cameraName() + " has no valid descriptors");
    usbip::UsbIpServer server(exports, clock, reportClient);
    const std::string problem = server.listen(options.listen);
    if (!problem.empty())
        return fail(EXIT_OWN_FAILURE, problem);
    explain(server, options.listen, exports, cameras);
    server.run(stop.fd());
    cameras.reportComplaints();
    return 0;
}

}  // namespace vornsim
