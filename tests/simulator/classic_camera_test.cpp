// SPDX-License-Identifier: MIT
#include "device/classic_camera.h"

#include "peripheral_fixture.h"

namespace vornsim::test {
namespace {

class ClassicCameraTest : public PeripheralTest {
protected:
    void SetUp() override
    {
        camera.portChanged(0, {.latch = 0x80, .direction = 0x9F});
        expectAnswers({{"start the application", "48 53 43 2C", ""}});
        EXPECT_EQ(takeWords(camera), "42 00");
        expectComplaints({{"48 53 43 36", "while the application starts"}});
        clock.pass(50000);
        EXPECT_EQ(takeWords(camera), "49 00");
    }

    /// One I2C write; an answer is fetched from the bus when it has had its time.
    std::string exchange(const std::string& request, size_t answerLength) override
    {
        EXPECT_TRUE(camera.i2cWrite(0x40, hex(request)));
        std::string complaints = log.takeComplaints();
        if (!complaints.empty() || answerLength == 0)
            return complaints;
        clock.pass(80000);
        return takeWords(camera);
    }

    ClassicCamera camera{cameraModel(*findModel("K30")), {.scene = SceneKind::RAMP}, clock, log};
};

TEST_F(ClassicCameraTest, ComplainsAboutWhatItCannotUnderstand)
{
    expectComplaints({
        {"48 53", "no command"},
        {"48 53 43 11", "with 0 bytes of payload"},
        {"48 53 43 05", "without preparation"},
        {"48 53 43 02 01 00", "out of sequence"},
        {"48 53 43 06 00 01 01 01 00 01 00 19 00 11 00 00 03", "without exposure"},
        {"48 53 43 06 01 03 01 01 00 01 00 19 00 11 00 00 03", "binning 3 x 1"},
        {"48 53 43 06 01 01 01 01 00 01 00 FF FF FF FF 00 03", "leaves the sensor"},
        {"48 53 43 06 01 01 01 00 00 01 00 19 00 11 00 00 03", "no sense"},
    });
    expectAnswers({{"clear", "48 53 43 02 00 00", ""},
                   {"prepare", "48 53 43 04", ""},
                   {"expose", "48 53 43 05", ""},
                   {"settle", "48 53 43 42", "", 1000000}});
    clock.pass(1999000);
    expectComplaints({{"48 53 43 02 01 00", "before the electronics have settled"}});
    expectAnswers({{"ping", "48 53 43 11 64", "64 00"}, {"ping", "48 53 43 11 64", ""}});
    expectComplaints({{"48 53 43 11 65", "2 bytes of the answer to command 17 were not fetched"}});
    camera.portChanged(0, {.latch = 0x00, .direction = 0x9F});
    expectComplaints({{"48 53 43 36", "do not enable the bus"}});
}

TEST_F(ClassicCameraTest, BusNeedsTheLateWaveform)
{
    const auto understands = [&](const std::string& opcodes) {
        Bytes table = hex("01 E2 FF 20 00 00 FB E4 11 01 02 00 04 00 00 00 0E 01 3F 01 01 01 00 07 " + opcodes +
                          " 00 00 01 00 FB F9 FB FB FB FB FB FB 00 00 80 00 00 00 80 3F");
        table.resize(152);
        return camera.understandsWaveform(table);
    };
    EXPECT_TRUE(understands("01 00 00 03"));
    EXPECT_FALSE(understands("01 00 03 00")) << "the wave of the other families";
}

}  // namespace
}  // namespace vornsim::test
