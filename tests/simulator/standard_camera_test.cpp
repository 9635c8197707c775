// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <utility>

#include "bridge_host.h"
#include "device/family_cameras.h"

namespace vornsim::test {
namespace {

/// Commands before a readout.
const std::string EXPOSE = "02 00 00; 04; 05;";

/// A camera and a host that has brought up the bridge as far as commands can be sent.
struct Session {
    explicit Session(const char* name)
        : camera(makeStandardCamera(cameraModel(*findModel(name)), {.scene = SceneKind::RAMP}, clock, log)),
          host(*camera, clock)
    {
        host.start();
        host.request("02 00 00 00 00 00 00 00", hex("00 9F FF 00 FF 00 FF 00 FF 00"));
        host.request("01 00 00 00 00 00 00 00", hex("00 80 FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00"));
        host.request("0C 00 00 00 30 75 00 00");
        host.request("08 00 FF 00 00 00 00 00", handshakeTable());
        host.receive(0x86, 4);
    }

    /// Sends commands, each a code and its payload, in hexadecimal and parted by semicolons.
    void run(const std::string& commands)
    {
        std::istringstream in(commands);
        for (std::string command; std::getline(in, command, ';');) {
            const Bytes bytes = hex(command);
            host.parOut(hex("43 00 4D 00 44 00") + Bytes{bytes[0], 0} + Bytes(bytes.begin() + 1, bytes.end()));
        }
    }
    /// Starts the application and waits for its "I".
    void startApplication()
    {
        run("2C");
        clock.pass(100000);
        while (toHex(host.parIn(2)) != "49 00")
            clock.pass(10000);
    }
    ManualClock clock;
    CollectingLog log;
    std::unique_ptr<SimulatedCamera> camera;
    BridgeHost host;
};

TEST(StandardCamera, ComplainsAboutWhatItCannotUnderstand)
{
    const std::string noPixels = "readout with a binning the sensor does not have, or of no pixels";
    const std::pair<std::string, std::string> cases[] = {
        {"42", "unknown command 66"},
        {"09", "command 9 lacks its payload"},
        {"35; 18", "6 bytes of the answer to command 53 were not fetched before command 24"},
        {"05", "exposure started without preparation"},
        {"02 01 00", "sensor preparation 1 out of sequence"},
        {"06 00 00 01 00 01 00 05 00 03 00 28 00 1E 00 43 00", "readout without exposure"},
        {EXPOSE + "06 00 00 01 00 01 00 05 00 03 00 28 00 1E 00 43 00", "readout without exposure"},
        {EXPOSE + "02 01 00; 06 00 00 01 00 01 00 05 00 03 00 28 00 1E 00 43 04", "readout with flags 1091"},
        {EXPOSE + "06 0A 00 01 00 01 00 05 00 03 00 28 00 1E 00 03 00", "readout with flags 3"},
        {EXPOSE + "06 0A 00 05 00 01 00 05 00 03 00 28 00 1E 00 43 00", noPixels},
        {EXPOSE + "06 0A 00 00 00 01 00 05 00 03 00 28 00 1E 00 43 00", noPixels},
        {EXPOSE + "06 0A 00 01 00 01 00 00 00 00 00 71 05 01 00 43 00", "readout beyond the edge of the sensor"},
        {EXPOSE + "09 01 00; 02 01 00; 06 00 00 01 00 01 00 05 00 03 00 01 00 01 00 43 00; 09 00 00",
         "readout with the shutter open\n"
         "camera: 2 bytes of the answer to command 6 were not fetched before command 9"},
        {"09 02 00", "shutter set to 2"},
        {"14; 15; 18", "guide relays closed in opposite directions"},
    };
    Session s("K12");
    s.run("35");
    EXPECT_EQ(s.log.takeComplaints(), "camera: command 53 before the application was started\n");
    s.host.parOut(hex("43 4D 44 05 00 00 00 00"));
    EXPECT_EQ(s.log.takeComplaints(), "camera: no command: 8 bytes\n");
    s.startApplication();
    for (const auto& [commands, complaint] : cases) {
        s.run(commands);
        EXPECT_EQ(s.log.takeComplaints(), "camera: " + complaint + "\n") << commands;
        EXPECT_TRUE(s.host.parIn(1).empty()) << commands << ": nothing to read";
    }
    s.host.request("02 00 00 00 00 00 00 00", hex("FE 00 FF 00 FF 00 FF 00 FF 00"));
    s.run("18");
    EXPECT_EQ(s.log.takeComplaints(), "camera: words on a bus that port A does not enable\n");
}

}  // namespace
}  // namespace vornsim::test
