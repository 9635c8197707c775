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
            Bytes bytes = hex(command);
            bytes.insert(bytes.begin() + 1, 0);
            host.parOut(hex("43 00 4D 00 44 00") + bytes);
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

TEST(StandardCamera, IntegratesBetweenStartAndReadoutWhileTheShutterIsOpen)
{
    Session s("K12");
    s.startApplication();
    struct Case {
        std::string commands;
        int64_t waitUs;
        std::string readout;
        double light;
        double dark;
    };
    const std::string region = " 00 01 00 01 00 05 00 03 00 28 00 1E 00 ";
    for (const Case& c : {
             Case{EXPOSE + "09 01 00", 20000000, "02 01 00; 09 00 00; 06 00" + region + "43 00", 20.0, 20.0},
             Case{EXPOSE, 5000000, "02 01 00; 06 00" + region + "43 01", 0.0, 5.0},
             Case{EXPOSE, 0, "06 96" + region + "43 00", 0.15, 0.15},
             Case{EXPOSE, 0, "06 96" + region + "43 04", 150e-6, 150e-6},
             Case{EXPOSE, 0, "06 96" + region + "43 10", 0.0, 0.15},
         }) {
        s.run(c.commands);
        const int64_t start = s.clock.nowUs();
        s.clock.pass(c.waitUs);
        s.run(c.readout);
        const Bytes image = s.host.parIn(2400);
        ASSERT_EQ(image.size(), 2400U) << c.readout;
        EXPECT_EQ(toHex({image[82], image[83]}), "06 04") << c.readout;
        EXPECT_GE(s.clock.nowUs() - start, static_cast<int64_t>(c.dark * 1e6)) << "no data before the end";
        // The bus of the bridge takes a little time of its own while the host measures.
        const double tolerance = c.waitUs > 0 ? 0.01 : 1e-9;
        EXPECT_NEAR(s.camera->truth().lightSeconds, c.light, c.light * tolerance) << c.readout;
        EXPECT_NEAR(s.camera->truth().darkSeconds, c.dark, c.dark * tolerance) << c.readout;
    }
    s.run(EXPOSE + "06 20 4E 03 00 02 00 05 00 03 00 28 00 1E 00 43 04");
    const Bytes binned = s.host.parIn(13 * 15 * 2);
    ASSERT_EQ(binned.size(), 13U * 15U * 2);
    EXPECT_EQ(toHex({binned[30], binned[31]}), "0B 05") << "two to the right and one down";
    EXPECT_EQ(s.log.takeComplaints(), "");
}

TEST(StandardCamera, CoolsAndTurnsItsWheel)
{
    struct Step {
        const char* model;
        int64_t afterUs;
        const char* command;
        const char* reply;
    };
    const Step steps[] = {
        {"K12", 0, "37 01 00", "02 00 A3 03 00 00"},    // (15 + 60) * 4095 / 330 = 930.7
        {"K12", 0, "35", "0A 00 00 00 A3 03"},          // idle: least power, target at ambient
        {"K12", 0, "38 6C 02", "01 00"},                // -10 degrees
        {"K12", 0, "35", "C8 00 C0 00 6C 02"},          // full power, regulating
        {"K12", 300000000, "35", "81 00 C0 00 6C 02"},  // 25 of 40 degrees need 62.6 % of the way from 10 to 200
        {"K12", 0, "37 01 00", "02 00 6C 02 00 00"},
        {"K12", 0, "39; 35", "69 00 60 00 6C 02"},    // warming up by 5 degrees a minute takes less power
        {"K13", 0, "87", "05 00 01 00 01 00 01 00"},  // still looking for position 1
        {"K13", 6000000, "87", "05 00 00 00 01 00 01 00"},
        {"K13", 0, "88 05 00", "01 00"},
        {"K13", 0, "87", "05 00 01 00 01 00 05 00"},
        {"K13", 900000, "87", "05 00 00 00 05 00 05 00"},  // the shorter way
        {"K13", 0, "88 06 00", "00 00"},
    };
    std::unique_ptr<Session> s;
    std::string model;
    for (const Step& step : steps) {
        if (model != step.model) {
            model = step.model;
            s = std::make_unique<Session>(step.model);
            s->startApplication();
        }
        s->clock.pass(step.afterUs);
        s->run(step.command);
        EXPECT_EQ(toHex(s->host.parIn(hex(step.reply).size())), step.reply) << model << ": " << step.command;
        EXPECT_EQ(s->log.takeComplaints(), "") << model << ": " << step.command;
    }
}

}  // namespace
}  // namespace vornsim::test
