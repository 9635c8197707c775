// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "opening.h"

namespace {

/// What a STANDARD camera says while it is opened; FF and EE stand for bytes without a meaning.
struct StandardOpen {
    std::string productId = "34 DF";
    std::string colour = "FF FF FF FF FF";
    std::string flags = "40 01";        ///< no shutter, no guide port, no wheel
    std::string pixelCountX = "A0 0F";  ///< 4000
    std::string pixelCountY = "B8 0B";  ///< 3000
    std::string temperatureDetails = "01 EE";
    std::string temperature = "02 EE 00 08 EE EE";  ///< not asked for when empty
    std::string coolerDetails = "10 EE C8 EE 0A EE";
    std::string serial = "34 12 01 00";
    int wheelPolls = 0;  ///< polls that find the wheel turning, before one that does not; 0 without a wheel

    Steps steps() const
    {
        const Steps closing = Steps().close();
        Steps usb = bridgeOpening(STANDARD, productId, closing, NOT_INITIALIZED, colour);
        usb.ends(closing, NOT_INITIALIZED).out(0x04, "0C ?? 00 01 64 00 ...").out(0x04, "0C ?? 00 00 E8 03 ...");
        loadTable(usb, GPIF_MODE_9);
        usb.untried().command("50 00 64 00").pause(20000).parIn(2, "65 00");  // a failed ping means another one
        usb.ends(closing, NOT_INITIALIZED).command("01 00").parIn(4, "05 EE 02 EE");
        vorntest::streamedText(usb, "Vorn K12");
        vorntest::streamedText(usb, "Vorn");
        usb.parIn(2, flags).parIn(2, pixelCountX).parIn(2, pixelCountY).parIn(2, "02 03").parIn(2, "A3 02");
        usb.parIn(2, "03 00").parIn(2, "04 00").parIn(2, "50 C3");
        usb.command("2C 00").pause(10000).parIn(2, "00 00").pause(10000).parIn(2, "49 00");
        usb.command("36 00").parIn(2, temperatureDetails);
        if (!temperature.empty())
            usb.command("37 00 01 00").pause(100000).parIn(6, temperature);
        usb.command("34 00").parIn(6, coolerDetails).eepRead(5, 2, serial.substr(0, 5)).eepRead(8, 2, serial.substr(6));
        if (wheelPolls > 0)
            usb.pause(5000000);
        for (int poll = 0; poll < wheelPolls; poll++)
            usb.command("87 00").parIn(8, "05 00 01 00 02 00 04 00").pause(100000);
        if (wheelPolls > 0 && wheelPolls < 20)
            usb.command("87 00").parIn(8, "05 00 00 01 04 00 04 00");
        return finalTimeouts(usb);
    }
};

TEST(OpenStandard, HoldsTheWholeConversation)
{
    const Steps whole = StandardOpen({.flags = "80 12", .wheelPolls = 2}).steps();
    expectOpening(STANDARD, whole,
                  {"version 2.5, 4000 x 3000 of 7.70 x 6.75 um, binning 3 x 4, sensors 1 of type 2, "
                   "cooler 4 from 10 to 200, colour 1 at 0 0, lines 0, serial 70196, clear 300000, "
                   "precharge 0: shutter guide wheel."});
    expectEachFailureOfOpen(STANDARD, whole);
}

// A derived class sees what identification asks of the camera itself.
TEST(OpenStandard, AsksThroughTheVirtualTable)
{
    struct Overridden : VornCameraImpl {
        using VornCameraImpl::VornCameraImpl;
        bool getTemperatureSensorStatus(unsigned sensor, float* celsius) override
        {
            asked += celsius == nullptr ? "sensor " + std::to_string(sensor) : "temperature";
            return true;
        }
        bool getFilterWheelStatus(unsigned* count, bool* moving, unsigned* current, unsigned* target) override
        {
            asked += count == nullptr && current == nullptr && target == nullptr ? ", moving" : ", wheel";
            *moving = false;
            return true;
        }
        std::string asked;
    };
    vorntest::Script usb;
    usb.append(StandardOpen{.flags = "40 11", .temperature = ""}.steps().cutBefore("0C ?? 00 01 C8"));
    finalTimeouts(usb.pause(5000000));
    Overridden camera(&usb.device, "Vorn K12", STANDARD);
    EXPECT_TRUE(camera.open());
    EXPECT_EQ(camera.asked, "sensor 1, moving");
    EXPECT_TRUE(usb.done());
}

TEST(OpenStandard, LeavesAnOpenCameraAlone)
{
    vorntest::OpenedCamera standard;
    vorntest::TraceCapture trace;
    EXPECT_TRUE(standard.camera.open());
    EXPECT_EQ(trace.text(), "-> VornCameraImpl::open()\n<- VornCameraImpl::open 01\n");
}

TEST(OpenStandard, DetachesAKernelDriver)
{
    const Steps whole = StandardOpen().steps();
    const Steps unknown = Steps().open().driverActive(false).fails(LIBUSB_ERROR_NOT_SUPPORTED);  // nothing is detached
    expectOpening(STANDARD, Steps().append(unknown).append(whole, 2));
    for (const int result : std::initializer_list<int>{0, LIBUSB_ERROR_NOT_FOUND}) {
        const Steps detaching = Steps().open().driverActive(true).detachDriver().fails(result);
        const std::string name = result == 0 ? "LIBUSB_SUCCESS" : "LIBUSB_ERROR_NOT_FOUND";
        EXPECT_TRUE(expectOpening(STANDARD, Steps().append(detaching).append(whole, 2))
                        .starts_with("-> VornCameraImpl::open()\n    libusb_detach_kernel_driver() -> " + name +
                                     "\n    libusb_claim_interface() -> LIBUSB_SUCCESS\n"
                                     "    libusb_set_interface_alt_setting() -> LIBUSB_SUCCESS\n"));
    }
}

TEST(OpenStandard, TakesWhatTheCameraSays)
{
    const struct {
        StandardOpen answers;
        const char* expected;
    } CASES[] = {
        {{.flags = "00 00"}, ": guide."},  // a set flag means none
        {{.flags = "FF EF"}, ": shutter."},
        {{.productId = "31 DF", .pixelCountX = "E8 03"}, "3326 x 2504"},  // two products have their own size
        {{.productId = "50 DF"}, "4499 x 3599"},
        {{.pixelCountX = "FF FF", .pixelCountY = "00 80"}, "65535 x 32768"},
        {{.temperatureDetails = "03 01"}, "sensors 3 of"},
        {{.temperatureDetails = "00 05", .temperature = ""}, "sensors 0 of"},
        {{.coolerDetails = "1D 00 FF 01 20 01"}, "cooler 4 from 32 to 255"},  // set-point outranks power ...
        {{.coolerDetails = "0D 00 00 00 00 00"}, "cooler 3 from"},
        {{.coolerDetails = "05 00 C8 00 0A 00"}, "cooler 2 from 10 to 200"},
        {{.coolerDetails = "03 00 00 00 00 00"}, "cooler 1 from"},
        {{.coolerDetails = "E2 FF 00 00 00 00"}, "cooler 0 from"},
        {{.serial = "DD CC BB AA"}, "serial 2864434397"},
        {{.flags = "40 11", .wheelPolls = 20}, ": wheel."},  // that never stops does not fail it
    };
    for (const auto& row : CASES)
        expectOpening(STANDARD, row.answers.steps(), {row.expected});
}

// The reads of a description fill cleared buffers, and the fields take what is there.
TEST(OpenStandard, FieldsTakeWhatAFailedReadLeft)
{
    Steps steps = StandardOpen().steps().cutBefore("43 00 4D 00 44 00 2C 00");
    constexpr size_t FLAGS_AND_BEHIND = 8 * 2;
    steps.cut(steps.size() - FLAGS_AND_BEHIND + 2).fails(LIBUSB_ERROR_TIMEOUT).close();
    expectOpening(STANDARD, steps, {"version 2.5, 0 x 0 of 0.00 x 0.00 um, binning 0 x 0,", ": guide."},
                  NOT_INITIALIZED);  // no flags: not absent
}

TEST(OpenStandard, FivePingsWithoutAnswerFailIt)
{
    Steps steps = StandardOpen().steps().cutBefore("43 00 4D 00 44 00 50 00 64");
    for (const char* counter : {"64", "65", "66", "67", "68"})
        steps.command(std::string("50 00 ") + counter + " 00").pause(20000).parIn(2, "00 00");
    EXPECT_TRUE(expectOpening(STANDARD, steps.close(), {}, NOT_INITIALIZED)
                    .ends_with("\n    unlock()\n    failed to initialize device!!!\n<- VornCameraImpl::open 00\n"));
}

TEST(Open, TracesTheProductIdThatItReadOrNot)
{
    const Steps whole = StandardOpen().steps();
    const struct {
        const char* failing;  ///< the first step that sends this
        const char* pid;
    } CASES[] = {{"0C ?? 00 01 32", "2005"}, {"0C ?? 00 01 88", "0"}};
    for (const auto& row : CASES) {
        Steps steps = Steps(whole).cutBefore(row.failing);
        steps.out(0x04, std::string(row.failing) + (*row.pid == '0' ? " 13 ..." : " 00 ...")).fails();
        if (*row.pid == '0')
            steps.eepRead(0xE8, 5, "FF FF FF FF FF");  // the colour is looked for all the same
        else
            steps.pause(200000).emptyFlush();
        const std::string trace =
            expectOpening(STANDARD, steps.close(), {"version 0.0, ", "serial 0,"}, NOT_INITIALIZED);
        EXPECT_NE(trace.find(std::string("\n    pid = ") + row.pid + "\n"), std::string::npos) << trace;
    }
}

TEST(Open, AFailedLibusbOpenReleasesTheLockFirst)
{
    EXPECT_EQ(expectOpening(STANDARD, Steps().open().fails(LIBUSB_ERROR_ACCESS), {}, "Failed to open device"),
              "-> VornCameraImpl::open()\n    unlock()\n    libusb_open() -> LIBUSB_ERROR_ACCESS\n"
              "<- VornCameraImpl::open 00\n");
}

// The pause and the flush come all the same; nothing else is sent.
TEST(Open, AFailedClaimIsFollowedByTheFlush)
{
    Steps usb = Steps().open().driverActive(false).claim().fails(LIBUSB_ERROR_BUSY).pause(200000).emptyFlush();
    EXPECT_TRUE(expectOpening(STANDARD, usb.close(), {}, NOT_INITIALIZED)
                    .starts_with("-> VornCameraImpl::open()\n    libusb_claim_interface() -> LIBUSB_ERROR_BUSY\n"
                                 " -> VornCameraImpl::flush()\n    "));
}

TEST(Open, ATypeOutsideTheEnumerationFails)
{
    Steps usb = Steps().open().driverActive(false).claim().altSetting();
    // product id and colour are read: the type is not IIDC
    usb.out(0x04, "0C ?? 00 01 88 13 ...").eepRead(3, 2, "34 DF").eepRead(0xE8, 5, "FF FF FF FF FF").close();
    EXPECT_NE(
        expectOpening(static_cast<CAMERA_TYPE>(6), usb, {}, NOT_INITIALIZED).find("\n    unsupported device!!!\n"),
        std::string::npos);
}

TEST(OpenStandard, TracesItsDescription)
{
    EXPECT_EQ(tracedOpening(STANDARD, StandardOpen({.colour = "84 D9 01 03 00", .flags = "8C 02"}).steps()),
              "    colour = 2, offsetX = 1, offsetY = 1\n    pid = df34\n     ping -> 100\n"
              "     ping <- 101\n    version: 2.5\n    model: Vorn K12\n    manufacturer: Vorn\n"
              "    flags: 0x28c  EXT_TRIGGER PREVIEW HAS_SHUTTER HAS_GUIDE_PORT HAS_GPIO\n"
              "    pixel count: 4000 x 3000\n    pixel size: 7.7 x 6.8\n    max bin: 3 x 4\n    well capacity: 50000\n"
              "     ----- DEBUG OFF -----\n     ----- DEBUG ON -----\n     APPINIT completed\n"
              "    temperature sensor count: 1\n    temperature sensor type: 2\n    cooler: COOLER_SETPOINT\n"
              "    min cooler power: 10\n    max cooler power: 200\n    serial # 0000070196\n");
}

}  // namespace
