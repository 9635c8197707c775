// SPDX-License-Identifier: MIT
#include "device/advanced_camera.h"

#include "peripheral_fixture.h"

namespace vornsim::test {
namespace {

class AdvancedCameraTest : public PeripheralTest {
protected:
    void SetUp() override
    {
        camera.portChanged(0, {.latch = 0x80, .direction = 0xE7});
        expectAnswers({{"start the application", "43 4D 44 2C", ""}, {"status of one byte", "", "42"}});
        expectComplaints({{"43 4D 44 36 00 00", "before the application is up"}});
        expectAnswers({{"up", "", "49", 160000}});
    }

    /// One SPI exchange; the answer comes behind the request.
    std::string exchange(const std::string& request, size_t answerLength) override
    {
        Bytes out = hex(request);
        const auto head = static_cast<std::ptrdiff_t>(out.size());
        out.resize(out.size() + answerLength);
        Bytes in(out.size(), 0xFF);
        (void)camera.spiExchange({2, 3, 1}, out, in);
        const std::string complaints = log.takeComplaints();
        return complaints.empty() ? toHex(Bytes(in.begin() + head, in.end())) : complaints;
    }

    AdvancedCamera camera{
        cameraModel(*findModel("K20")), {.serialNumber = 0x0001ABCD, .scene = SceneKind::RAMP}, clock, log};
};

TEST_F(AdvancedCameraTest, AnswersBehindThePayload)
{
    camera.setGpioInputs(0x21);
    expectAnswers({
        {"clear time 120 ms", "43 4D 44 91", "00 78"},
        {"serial number, low half", "43 4D 44 3E", "00 00 00 00 AB CD"},
        {"lines 0 to 3 are outputs", "43 4D 44 83 00 0F", ""},
        {"drive lines 0, 2 and 4", "43 4D 44 84 00 15", ""},
        {"lines 5 and 0 are high outside", "43 4D 44 82", "00 08 00 25"},
        {"set the gain", "43 4D 44 8C 00 19 00 58 12 07 00 0A 00 2B 00 58 0B 31 00 3F 02 00", ""},
        {"busy with it", "43 4D 44 8D", "01 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF"},
        {"prepare the sensor", "43 4D 44 02 00 00", ""},
        {"prepare the exposure", "43 4D 44 04", ""},
        {"clearing", "43 4D 44 FD 00 7B", "00 7B"},
        {"deaf meanwhile", "43 4D 44 50 00 7B", "FF FF"},
        {"cleared", "43 4D 44 50 00 7B", "00 7C", 100000},
    });
    EXPECT_EQ(camera.converter().setting(false).offset, 300U) << "code 0x2B stands for 257 + 43";
}

TEST_F(AdvancedCameraTest, ComplainsAboutWhatItCannotUnderstand)
{
    expectAnswers({{"relay 1", "43 4D 44 14", ""}});
    expectComplaints({
        {"43 4D", "no command"},
        {"43 4D 44 50 00 7B 00 00 00", "exchange of 9 bytes, not 8"},
        {"43 4D 44 15", "opposite directions"},
        {"43 4D 44 05", "without preparation"},
        {"43 4D 44 06 00 00 00 02 00 02 00 03 00 02 00 05 00 04 00 43", "without an exposure"},
        {"43 4D 44 06 00 32 00 02 00 02 00 03 00 02 00 05 00 04 10 03", "flags 16"},
        {"43 4D 44 06 0B B9 00 02 00 02 00 03 00 02 00 05 00 04 00 03", "exposure of 3001 ms"},
        {"43 4D 44 06 00 32 00 09 00 01 00 00 00 00 00 08 00 08 00 03", "binning 9 x 1"},
        {"43 4D 44 06 00 32 00 01 00 01 00 00 00 00 FF FF FF FF 00 03", "leaves the sensor"},
        {"43 4D 44 8C 00 19 00 58 12 08 00 0A 00 2B 00 58 0B 31 00 3F 02 00", "changed calibration"},
    });
    camera.portChanged(0, {.latch = 0x81, .direction = 0xE7});
    expectComplaints({{"43 4D 44 FD 00 7B 00 00", "line 0 not low"}});
}

}  // namespace
}  // namespace vornsim::test
