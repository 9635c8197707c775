// SPDX-License-Identifier: MIT
#include "device/quicker_camera.h"

#include <memory>

#include "peripheral_fixture.h"

namespace vornsim::test {
namespace {

/// A camera and the lines that lead to it.
class QuickerCameraTest : public PeripheralTest {
protected:
    void SetUp() override
    {
        camera->bridgeStarted();
        line(1, true);
        line(1, false);
        for (const unsigned word : {0x0058U, 0x10C0U, 0x2000U, 0x3000U, 0x4000U, 0x5020U, 0x6115U, 0x7001U})
            EXPECT_EQ(clockIn(word, 16), "");
    }
    void line(unsigned number, bool level)
    {
        latch = static_cast<uint8_t>((latch & ~(1U << number)) | (level ? 1U << number : 0U));
        camera->portChanged(0, {.latch = latch, .direction = 0xE7});
    }
    /// One word for the converter. @return what was complained about.
    std::string clockIn(unsigned word, unsigned bits)
    {
        line(6, false);
        line(2, false);
        for (unsigned bit = bits; bit-- > 0;) {
            line(5, ((word >> bit) & 1) != 0);
            line(6, true);
            line(5, ((word >> bit) & 1) == 0);  // only the rising edge counts
            line(6, false);
        }
        line(2, true);
        return log.takeComplaints();
    }
    /// Register writes, two bytes each, which nothing answers.
    std::string exchange(const std::string& registers, size_t /*answerLength*/) override
    {
        const Bytes bytes = hex(registers);
        Bytes in(2);
        for (size_t at = 0; at + 1 < bytes.size(); at += 2)
            (void)camera->spiExchange({1, 0, 1}, std::span(bytes).subspan(at, 2), in);
        return log.takeComplaints();
    }

    uint8_t latch = 0x84;
    std::unique_ptr<QuickerCamera> camera =
        std::make_unique<QuickerCamera>(cameraModel(*findModel("K01")), CameraOptions{}, clock, log);
};

TEST_F(QuickerCameraTest, ComplainsAboutWhatItCannotUnderstand)
{
    expectComplaints({
        {"24 A0 53 E8", "readout without exposure"},
        {"22 00 50 00", "without clearing"},
        {"80 40 80 40", "binning 5 x 1"},
        {"81 10 27 A0 50 01", "not written twice"},
        {"24 00 50 00 22 00 50 00 80 00 80 00 24 A0 53 E7", "argument 999"},
    });
    line(2, false);
    expectComplaints({{"20 00", "while the converter is selected"}});
    EXPECT_EQ(clockIn(0, 16), "camera: converter: more words than it has registers\n");
    camera->bridgeStarted();
    EXPECT_EQ(clockIn(0x002C, 15), "camera: converter: a word of 15 bits\n");
    EXPECT_EQ(clockIn(0x0059, 16), "camera: converter: word 0 is 89, not 88\n");
    expectComplaints({{"20 00", "before a reset on line 1"}, {"27 A0 50 01", "before the converter was set up"}});
}

}  // namespace
}  // namespace vornsim::test
