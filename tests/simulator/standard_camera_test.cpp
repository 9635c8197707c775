// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <memory>

#include "bridge_host.h"
#include "device/family_cameras.h"

namespace vornsim::test {
namespace {

/// A camera and a host that has brought up the bridge as far as commands can be sent.
struct Session {
    explicit Session(const char* name, const CameraOptions& options = {.seed = 7, .scene = SceneKind::RAMP})
        : camera(makeStandardCamera(cameraModel(*findModel(name)), options, clock, log)), host(*camera, clock)
    {
        host.start();
        host.request("02 00 00 00 00 00 00 00", hex("00 9F FF 00 FF 00 FF 00 FF 00"));
        host.request("01 00 00 00 00 00 00 00", hex("00 80 FF 00 FF 00 FF 00 FF 00 00 00 00 00 00 00"));
        host.request("0C 00 00 00 E8 03 00 00");
        host.request("08 00 FF 00 00 00 00 00", handshakeTable());
        host.receive(0x86, 4);
    }

    void command(uint8_t code, const Bytes& payload = {})
    {
        host.parOut(hex("43 00 4D 00 44 00") + Bytes{code, 0} + payload);
    }
    std::string ask(uint8_t code, size_t replyLength, const Bytes& payload = {})
    {
        command(code, payload);
        return toHex(host.parIn(replyLength));
    }
    /// Starts the application. @return how many times its status was not yet "I".
    unsigned startApplication()
    {
        command(44);
        unsigned polls = 0;
        for (; polls < 64; ++polls) {
            clock.pass(10000);
            if (toHex(host.parIn(2)) == "49 00")
                break;
        }
        return polls;
    }
    void expose()
    {
        command(2, {0, 0});
        command(4);
        command(5);
    }
    /// The readout command with region 5, 3, 40 x 30.
    void readOut(uint16_t code, uint16_t flags, uint8_t binX = 1, uint8_t binY = 1)
    {
        command(6, {static_cast<uint8_t>(code), static_cast<uint8_t>(code >> 8), binX, 0, binY, 0, 5, 0, 3, 0, 40, 0,
                    30, 0, static_cast<uint8_t>(flags), static_cast<uint8_t>(flags >> 8)});
    }
    /// A whole exposure in the host's time. @return the image's values.
    std::vector<uint16_t> longExposure(int64_t us)
    {
        expose();
        if (camera->truth().shutterOpen)
            ADD_FAILURE() << "shutter left open";
        command(9, {1, 0});
        clock.pass(us);
        command(2, {1, 0});
        command(9, {0, 0});
        readOut(0, 0x0043);
        return values(1200);
    }
    std::vector<uint16_t> values(size_t count)
    {
        const Bytes bytes = host.parIn(2 * count);
        std::vector<uint16_t> all;
        for (size_t i = 0; i + 1 < bytes.size(); i += 2)
            all.push_back(static_cast<uint16_t>(bytes[i] + bytes[i + 1] * 256));
        return all;
    }

    ManualClock clock;
    CollectingLog log;
    std::unique_ptr<SimulatedCamera> camera;
    BridgeHost host;
};

double mean(const std::vector<uint16_t>& image)
{
    double sum = 0.0;
    for (const uint16_t value : image)
        sum += value;
    return sum / static_cast<double>(image.size());
}

TEST(StandardCamera, DescribesItselfWordByWord)
{
    struct Case {
        const char* name;
        const char* numbers;
    };
    // flags, columns, rows, pixel width and height, binning, well
    const Case cases[] = {{"K12", "99 00 70 05 10 04 85 02 85 02 04 00 04 00 21 49"},
                          {"K13", "99 11 00 08 00 08 E4 02 E4 02 04 00 04 00 42 60"},
                          {"K10", "99 00 1E 0D E8 09 1C 02 1C 02 04 00 04 00 42 33"}};
    for (const Case& c : cases) {
        Session s(c.name);
        s.command(1);
        EXPECT_EQ(toHex(s.host.parIn(4)), "0E 00 03 00") << c.name;
        std::string model;
        for (Bytes word = s.host.parIn(2); word.size() == 2 && word[0] != 0; word = s.host.parIn(2))
            model += static_cast<char>(word[0]);
        EXPECT_EQ(model, std::string("Vorn ") + c.name);
        EXPECT_EQ(toHex(s.host.parIn(10)), "56 00 6F 00 72 00 6E 00 00 00") << c.name;
        EXPECT_EQ(toHex(s.host.parIn(16)), c.numbers) << c.name;
        EXPECT_EQ(s.log.takeComplaints(), "") << c.name;
    }
}

TEST(StandardCamera, StartsInSomeTimeAndServesLittleBefore)
{
    Session s("K12");
    EXPECT_EQ(s.ask(80, 2, {100, 0}), "65 00");
    s.command(53);
    EXPECT_TRUE(s.host.parIn(6, 1500).empty());
    EXPECT_EQ(s.log.takeComplaints(), "camera: command 53 before the application was started\n");
    const unsigned polls = s.startApplication();
    EXPECT_GE(polls, 2U);
    EXPECT_LE(polls, 10U);
    EXPECT_EQ(s.ask(54, 2), "02 00");
    EXPECT_EQ(s.ask(52, 6), "10 00 C8 00 0A 00");
    EXPECT_EQ(s.log.takeComplaints(), "");
}

TEST(StandardCamera, ComplainsAboutWhatItCannotUnderstand)
{
    struct Case {
        const char* label;
        void (*act)(Session&);
        const char* complaint;
    };
    const Case cases[] = {
        {"no header", [](Session& s) { s.host.parOut(hex("43 4D 44 05 00 00 00 00")); },
         "camera: no command: 8 bytes\n"},
        {"unknown", [](Session& s) { s.command(66); }, "camera: unknown command 66\n"},
        {"payload missing", [](Session& s) { s.command(9); }, "camera: command 9 lacks its payload\n"},
        {"GPIO", [](Session& s) { s.command(130); }, "camera: GPIO asked for, but there are no lines\n"},
        {"reply not fetched", [](Session& s) { s.command(53), s.command(24); },
         "camera: 6 bytes of the answer to command 53 were not fetched before command 24\n"},
        {"start unprepared", [](Session& s) { s.command(5); }, "camera: exposure started without preparation\n"},
        {"exposure unprepared", [](Session& s) { s.command(4); }, "camera: exposure prepared before the sensor was\n"},
        {"stop unstarted",
         [](Session& s) {
             s.command(2, {1, 0});
         },
         "camera: sensor preparation 1 out of sequence\n"},
        {"readout alone", [](Session& s) { s.readOut(0, 0x0043); }, "camera: readout without exposure\n"},
        {"readout not stopped", [](Session& s) { s.expose(), s.readOut(0, 0x0043); },
         "camera: readout without exposure\n"},
        {"long readout with flags of the short one",
         [](Session& s) {
             s.expose(), s.command(2, {1, 0}), s.readOut(0, 0x0443);
         },
         "camera: readout with flags 1091\n"},
        {"flags missing", [](Session& s) { s.expose(), s.readOut(10, 0x0003); }, "camera: readout with flags 3\n"},
        {"binning 5", [](Session& s) { s.expose(), s.readOut(10, 0x0043, 5); },
         "camera: readout with a binning the sensor does not have, or of no pixels\n"},
        {"binning 0", [](Session& s) { s.expose(), s.readOut(10, 0x0043, 0); },
         "camera: readout with a binning the sensor does not have, or of no pixels\n"},
        {"right of the sensor",
         [](Session& s) { s.expose(), s.command(6, hex("0A 00 01 00 01 00 00 00 00 00 71 05 01 00 43 00")); },
         "camera: readout beyond the edge of the sensor\n"},
        {"shutter open",
         [](Session& s) {
             s.expose(), s.command(9, {1, 0}), s.command(2, {1, 0}), s.readOut(0, 0x0043);
             s.command(9, {0, 0});
         },
         "camera: readout with the shutter open\n"
         "camera: 2400 bytes of the answer to command 6 were not fetched before command 9\n"},
        {"shutter half open",
         [](Session& s) {
             s.command(9, {2, 0});
         },
         "camera: shutter set to 2\n"},
        {"opposite relays", [](Session& s) { s.command(20), s.command(21), s.command(24); },
         "camera: guide relays closed in opposite directions\n"},
        {"no wheel",
         [](Session& s) {
             EXPECT_EQ(s.ask(136, 2, {1, 0}), "00 00");
         },
         "camera: filter chosen, but there is no wheel\n"},
        {"no third sensor",
         [](Session& s) {
             s.ask(55, 6, {3, 0});
         },
         "camera: there is no temperature sensor 3\n"},
        {"port A",
         [](Session& s) {
             s.host.request("02 00 00 00 00 00 00 00", hex("FE 00 FF 00 FF 00 FF 00 FF 00"));
             s.command(24);
             s.host.request("02 00 00 00 00 00 00 00", hex("FE 01 FF 00 FF 00 FF 00 FF 00"));
         },
         "camera: words on a bus that port A does not enable\n"},
    };
    Session s("K12");
    s.startApplication();
    for (const Case& c : cases) {
        c.act(s);
        EXPECT_EQ(s.log.takeComplaints(), c.complaint) << c.label;
        EXPECT_TRUE(s.host.parIn(1, 1500).empty()) << c.label << ": nothing to read";
    }
    EXPECT_EQ(s.longExposure(1000).size(), 1200U) << "it still works";
}

TEST(StandardCamera, RegionAndBinningTakeTheRightPixels)
{
    Session s("K23");
    s.startApplication();
    for (uint8_t binX = 1; binX <= 4; ++binX) {
        const auto binY = static_cast<uint8_t>(5 - binX);
        s.expose();
        s.readOut(20000, 0x0443, binX, binY);
        const uint32_t width = 40U / binX;
        const std::vector<uint16_t> image = s.values(size_t{width} * (30U / binY));
        ASSERT_EQ(image.size(), size_t{width} * (30U / binY));
        EXPECT_EQ(image.front(), 3 * 256 + 5) << unsigned{binX};
        EXPECT_EQ(image[width + 2], (3 + binY) * 256 + 5 + 2 * binX) << unsigned{binX};
        EXPECT_TRUE(std::equal(image.begin(), image.end(), s.camera->truth().lastImage.begin()));
    }
    EXPECT_EQ(s.log.takeComplaints(), "");
}

TEST(StandardCamera, IntegratesBetweenStartAndReadoutWhileTheShutterIsOpen)
{
    Session s("K12", {.seed = 7});
    s.startApplication();
    // The bus of the bridge takes a little time of its own, hence the tolerance.
    const auto lightOf = [&] { return s.camera->truth().lightSeconds; };
    const double bias = mean(s.longExposure(0));
    const double two = mean(s.longExposure(20000000)) - bias;
    EXPECT_NEAR(lightOf(), 20.0, 0.01);
    const double four = mean(s.longExposure(40000000)) - bias;
    EXPECT_NEAR(lightOf(), 40.0, 0.01);
    EXPECT_GT(two, 1.0);
    EXPECT_NEAR(four / two, 2.0, 0.1);

    s.expose();  // the shutter stays closed
    s.clock.pass(5000000);
    s.command(2, {1, 0});
    s.readOut(0, 0x0143);
    s.values(1200);
    EXPECT_EQ(lightOf(), 0.0);
    EXPECT_NEAR(s.camera->truth().darkSeconds, 5.0, 0.01);

    s.host.request("0C 00 00 00 30 75 00 00");  // the bridge must not give up during the exposure
    struct Case {
        uint16_t code;
        uint16_t flags;
        double light;
        double dark;
    };
    for (const Case& c : {Case{1500, 0x0043, 1.5, 1.5}, Case{1500, 0x0443, 0.0015, 0.0015}, Case{1, 0x0443, 1e-6, 1e-6},
                          Case{3000, 0x1043, 0.0, 3.0}}) {
        s.expose();
        const int64_t start = s.clock.nowUs();
        s.readOut(c.code, c.flags);
        s.values(1200);
        EXPECT_GE(s.clock.nowUs() - start, static_cast<int64_t>(c.dark * 1e6)) << "no data before the end";
        EXPECT_DOUBLE_EQ(lightOf(), c.light);
        EXPECT_DOUBLE_EQ(s.camera->truth().darkSeconds, c.dark);
    }
    EXPECT_EQ(s.log.takeComplaints(), "");
}

TEST(StandardCamera, ShowsTheSceneAtItsTemperatureAndWhereGuidingHasMovedIt)
{
    Session s("K12", {.seed = 7});
    s.startApplication();
    s.ask(56, 2, {0x6C, 0x02});
    s.command(20);
    s.clock.pass(700000);
    s.host.request("0C 00 00 00 30 75 00 00");
    s.expose();
    const CameraTruth before = s.camera->truth();
    EXPECT_LT(before.sensorCelsius, 14.9);
    s.readOut(2000, 0x0043);
    const Integration integration{.lightSeconds = 2.0,
                                  .darkSeconds = 2.0,
                                  .celsius = before.sensorCelsius,
                                  .driftX = before.driftX + 4.0,  // half of what two seconds bring
                                  .driftY = 0.0,
                                  .frameNumber = 1};
    EXPECT_EQ(s.values(1200), Scene(7).expose(sensorModel(cameraModel(*findModel("K12"))), integration,
                                              {.x = 5, .y = 3, .width = 40, .height = 30}, 40, 30));
}

TEST(StandardCamera, ReadsOutAtThePaceOfItsConverter)
{
    Session s("K12");
    s.startApplication();
    for (const bool preview : {false, true}) {
        s.expose();
        s.command(6, hex("01 00 01 00 01 00 00 00 00 00 70 05 10 04 43") + Bytes{uint8_t{preview}});
        const int64_t start = s.clock.nowUs();
        EXPECT_EQ(s.values(1447680).size(), 1392U * 1040U);
        // 1.45 million pixels at 2 (preview 4) million a second
        EXPECT_NEAR(static_cast<double>(s.clock.nowUs() - start) * 1e-6, preview ? 0.38 : 0.745, 0.01);
    }
}

TEST(StandardCamera, ReportsTemperaturesInItsEncoding)
{
    // (15 + 60) * 1023 / 330 = 232.5, * 4095 / 330 = 930.7
    Session tenBits("K07");
    tenBits.startApplication();
    EXPECT_THAT(tenBits.ask(55, 6, {1, 0}), ::testing::AnyOf("01 00 E8 00 00 00", "01 00 E9 00 00 00"));
    Session s("K12");
    s.startApplication();
    EXPECT_EQ(s.ask(55, 6, {1, 0}), "02 00 A3 03 00 00");

    EXPECT_EQ(s.ask(53, 6), "0A 00 00 00 A3 03") << "idle: least power, target at ambient";
    EXPECT_EQ(s.ask(56, 2, {0x6C, 0x02}), "01 00") << "-10 degrees";
    EXPECT_EQ(s.ask(53, 6), "C8 00 C0 00 6C 02") << "full power, regulating";
    s.clock.pass(300000000);
    // 25 of 40 degrees need 62.6 % of the way from 10 to 200
    EXPECT_EQ(s.ask(53, 6), "81 00 C0 00 6C 02");
    EXPECT_EQ(s.ask(55, 6, {1, 0}), "02 00 6C 02 00 00");
    EXPECT_GT(std::stoul(s.ask(55, 6, {2, 0}).substr(9, 2), nullptr, 16), 3U) << "the housing is warm";
    s.command(57);
    EXPECT_EQ(s.ask(53, 6).substr(6, 2), "60");
    s.clock.pass(900000000);
    EXPECT_EQ(s.ask(53, 6).substr(0, 8), "0A 00 00");
    EXPECT_EQ(s.log.takeComplaints(), "");

    Session uncontrolled("K21");
    uncontrolled.startApplication();
    EXPECT_EQ(uncontrolled.ask(56, 2, {0x6C, 0x02}), "00 00");
    EXPECT_EQ(uncontrolled.log.complaints.size(), 1U);
}

TEST(StandardCamera, TurnsItsFilterWheelTheShorterWay)
{
    Session s("K13");
    s.startApplication();
    EXPECT_EQ(s.ask(135, 8), "05 00 01 00 01 00 01 00") << "still looking for position 1";
    s.clock.pass(6000000);
    EXPECT_EQ(s.ask(135, 8), "05 00 00 00 01 00 01 00");
    EXPECT_EQ(s.ask(136, 2, {5, 0}), "01 00");
    EXPECT_EQ(s.ask(135, 8), "05 00 01 00 01 00 05 00");
    s.clock.pass(900000);
    EXPECT_EQ(s.ask(135, 8), "05 00 00 00 05 00 05 00");
    EXPECT_EQ(s.ask(136, 2, {6, 0}), "00 00");
    EXPECT_EQ(s.ask(136, 2, {0, 0}), "00 00");
    EXPECT_EQ(s.log.takeComplaints(), "");
}

TEST(StandardCamera, GuideRelaysMoveTheStars)
{
    Session s("K12", {.seed = 7});
    s.startApplication();
    s.command(20);
    s.command(23);
    s.clock.pass(2000000);
    s.command(24);
    s.clock.pass(2000000);
    EXPECT_NEAR(s.camera->truth().driftX, 8.0, 0.01);
    EXPECT_NEAR(s.camera->truth().driftY, -8.0, 0.01);
    EXPECT_EQ(s.log.takeComplaints(), "");
}

TEST(StandardCamera, ANewSessionFindsTheCoolerAsItWas)
{
    Session s("K12");
    s.startApplication();
    s.ask(56, 2, {0x6C, 0x02});
    s.command(9, {1, 0});
    s.expose();
    const auto hostReturns = [&] {
        s.host.start();
        s.host.request("08 00 FF 00 00 00 00 00", handshakeTable());
        s.host.receive(0x86, 4);
        EXPECT_EQ(s.ask(80, 2, {7, 0}), "08 00") << "not what was left on the bus";
    };
    s.readOut(10, 0x0043);
    hostReturns();
    s.command(44);
    hostReturns();
    s.startApplication();
    EXPECT_FALSE(s.camera->truth().shutterOpen);
    EXPECT_EQ(s.ask(53, 6).substr(6, 2), "C0");
    EXPECT_EQ(s.log.takeComplaints(), "");
}

}  // namespace
}  // namespace vornsim::test
