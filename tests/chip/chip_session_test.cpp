// SPDX-License-Identifier: MIT
// Whole sessions of the library with cameras behind the emulated chip, and the same with the native bridge.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "../reliability/faulty_usb.h"
#include "../support/simulated_camera.h"
#include "capture/camera_check.h"
#include "chip/chip_camera.h"
#include "packer/table.h"
#include "vornccd.h"

namespace {

using vorntest::bus;
using Bytes = std::vector<uint8_t>;

/// Notes what the host receives. What it asks again, waiting for a change, counts once.
class Recorder : public vorntest::Backend {
public:
    explicit Recorder(vorntest::Backend& inner) : inner_(inner) {}

    int serve(const vorntest::BusCall& call, std::span<uint8_t> data, int& transferred) override
    {
        const int result = inner_.serve(call, data, transferred);
        if (call.kind != vorntest::BusCall::BULK_IN)
            return result;
        Bytes bytes = {static_cast<uint8_t>(call.endpoint), static_cast<uint8_t>(result)};
        bytes.insert(bytes.end(), data.begin(), data.begin() + transferred);
        if (call.endpoint == 0x86 && transferred >= 4)
            bytes[bytes.size() - 2] = 0;  // the sequence number counts the requests of all sessions
        if (received.empty() || received.back() != bytes)
            received.push_back(bytes);
        return result;
    }

    std::vector<Bytes> received;

private:
    vorntest::Backend& inner_;
};

/// What a session comes to.
struct Session {
    std::vector<Bytes> received;
    std::vector<std::vector<uint16_t>> pictures;
    std::vector<double> numbers;
};

/// Opens, cools, turns the wheel, guides, exposes long and short, and closes.
Session runSession(const char* name, vorntest::SimulatedCamera::Make make, bool wholeFrame)
{
    vorntest::SimulatedCamera subject(name, vornsim::SceneKind::RAMP, make);
    Recorder recorder(subject.usb);
    subject.device.backend = &recorder;
    VornCameraImpl& camera = subject.camera;
    Session session;
    const auto take = [&session](auto... values) { (session.numbers.push_back(static_cast<double>(values)), ...); };

    take(camera.open());
    VornCapabilities caps{};
    take(camera.getCapabilities(nullptr, nullptr, &caps), caps.pixelCountX, caps.pixelCountY, caps.colour,
         caps.tempSensorCount, camera.getSerialNumber());
    if (caps.tempSensorCount > 0) {
        float celsius = 0.0F, power = 0.0F;
        COOLING_STATE state = COOLING_INACTIVE;
        take(camera.setCooling(-5.0F));
        bus().advanceUs(7'200'000'000);
        take(camera.getTemperatureSensorStatus(1, &celsius), celsius, camera.getCoolingStatus(&state, nullptr, &power),
             state, std::lround(power));
    }
    unsigned count = 0, current = 0, target = 0;
    bool moving = false;
    take(camera.setFilter(2));
    bus().advanceUs(5'000'000);
    take(camera.getFilterWheelStatus(&count, &moving, &current, &target), count, moving, current, target);
    for (const int relays : {0x9, 0x0}) {
        take(camera.setGuideRelays(static_cast<unsigned short>(relays)));
        bus().advanceUs(500'000);
    }
    take(std::lround(10 * subject.simulated->truth().driftX), std::lround(10 * subject.simulated->truth().driftY));

    const auto picture = [&](bool exposed, unsigned width, unsigned height) {
        std::vector<uint16_t> pixels(size_t{width} * height + 1);
        take(exposed, camera.getImage(pixels.data(), width * height));
        session.pictures.push_back(pixels);
    };
    take(camera.startExposure(false));
    bus().advanceUs(camera.delay(20.0));
    const unsigned width = wholeFrame ? caps.pixelCountX : 200, height = wholeFrame ? caps.pixelCountY : 100;
    picture(camera.readCCD(0, 0, width, height, 1, 1), width, height);
    take(std::lround(subject.simulated->truth().lightSeconds));
    picture(camera.readCCD(0, 0, 64, 48, 2, 2, 0.05), 32, 24);
    take(std::lround(1000 * subject.simulated->truth().lightSeconds), camera.initiateWarmUp());
    camera.close();
    subject.expectNoComplaints();
    session.received = recorder.received;
    return session;
}

TEST(ChipSession, IsTheSameOnBothFronts)
{
    // A STANDARD camera with a wheel, and one of each other family.
    for (const char* name : {"K13", "K20", "K30", "K01"}) {
        SCOPED_TRACE(name);
        const bool wholeFrame = std::string(name) == "K13";
        const Session native = runSession(name, vornsim::makeCamera, wholeFrame);
        const Session chip = runSession(name, vornsim::makeChipCamera, wholeFrame);
        EXPECT_EQ(chip.numbers, native.numbers);
        ASSERT_EQ(chip.received.size(), native.received.size());
        for (size_t i = 0; i < chip.received.size(); ++i)
            ASSERT_EQ(chip.received[i], native.received[i]) << "answer " << i;
        EXPECT_EQ(chip.pictures, native.pictures);
    }
}

TEST(ChipSession, EveryModelOpensTwice)
{
    for (const vornsim::ModelInfo& model : vornsim::models()) {
        SCOPED_TRACE(model.name);
        vorntest::SimulatedCamera subject(model.name, vornsim::SceneKind::RAMP, vornsim::makeChipCamera);
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(subject.camera.open()) << subject.camera.getLastError();
            subject.camera.close();
            // The last requests of an open want no answer. A host needs more time than they do before it can load the
            // program again; calls in virtual time need none.
            bus().advanceUs(1000);
        }
        subject.expectNoComplaints();
    }
}

// The sweep of tests/reliability over the emulated chip, thinned: no call that fails may crash the library, hang it or
// leave its lock held, and unplugging (NO_DEVICE for ever) ends whatever goes on.
TEST(ChipSession, SurvivesFailingCalls)
{
    constexpr uint64_t STRIDE = 89;
    unsigned points = 0;
    for (const char* name : {"K12", "K16", "K30", "K01"}) {
        for (uint64_t at = 1;; at += STRIDE) {
            const vorntest::Trouble& trouble = vorntest::CALL_TROUBLES[points % std::size(vorntest::CALL_TROUBLES)];
            SCOPED_TRACE(std::string(name) + ", call " + std::to_string(at) + ", " + trouble.name);
            vorntest::SimulatedCamera subject(name, vornsim::SceneKind::RAMP, vornsim::makeChipCamera);
            vorntest::FaultyUsb faulty(subject.usb);
            std::vector<vorntest::BusCall> calls;
            faulty.recorded = &calls;
            faulty.plan(trouble, at, trouble.result == LIBUSB_ERROR_NO_DEVICE);
            subject.device.backend = &faulty;
            const int64_t before = bus().nowUs();
            VornCameraImpl& camera = subject.camera;
            uint16_t pixels[65] = {};
            if (camera.open() && camera.readCCD(0, 0, 8, 8, 1, 1, 0.05))
                (void)camera.getImage(pixels, 64);
            camera.close();
            EXPECT_TRUE(subject.lockFree());
            EXPECT_LT(bus().nowUs() - before, 12 * 3'600'000'000LL);
            ++points;
            if (calls.size() < at)
                break;
        }
    }
    EXPECT_GT(points, 40U);
}

/// Puts another table in place of FIRMWARE for a while.
struct OtherFirmware {
    explicit OtherFirmware(const Bytes& table)
    {
        std::fill(std::begin(FIRMWARE), std::end(FIRMWARE), uint8_t{0});
        std::copy_n(table.begin(), std::min(table.size(), sizeof FIRMWARE), FIRMWARE);
    }
    ~OtherFirmware() { std::copy(original.begin(), original.end(), FIRMWARE); }

    Bytes original{std::begin(FIRMWARE), std::end(FIRMWARE)};
};

/// @return a table of the usual layout with a program that begins with @p code.
Bytes tableOf(const Bytes& code)
{
    firmware::Image image;
    for (const firmware::Vector& vector : firmware::VECTORS)
        for (size_t i = 0; i < vector.length; ++i)
            (void)image.define(vector.address + i, vector.code[i]);
    for (size_t i = 0; i < code.size(); ++i)
        (void)image.define(firmware::CODE_START + i, code[i]);
    return firmware::packImage(image).value();
}

/// @return tables with programs that never answer.
std::vector<Bytes> brokenPrograms()
{
    Bytes truncated(std::begin(FIRMWARE), std::begin(FIRMWARE) + 3000);
    size_t end = 0;
    while (end + 3U + truncated[end] < 2900)
        end += 3U + truncated[end];
    truncated.resize(end);
    std::mt19937 random(1);
    Bytes noise(2000);
    for (uint8_t& byte : noise)
        byte = static_cast<uint8_t>(random());
    return {tableOf({0x80, 0xFE}),              // sjmp to itself: the stand-in of old
            tableOf({0xB2, 0x00, 0x80, 0xFC}),  // an endless loop that does something
            truncated, tableOf(noise)};
}

TEST(ChipSession, ProgramsThatDoNotWorkFailInTime)
{
    const std::vector<Bytes> programs = brokenPrograms();
    // Not with a CLASSIC camera, which the library tries to open for ever.
    for (const char* name : {"K12", "K16", "K01"}) {
        for (const Bytes& program : programs) {
            if (std::string(name) != "K12" && &program != programs.data())
                continue;
            SCOPED_TRACE(std::string(name) + ", program " + std::to_string(&program - programs.data()));
            const OtherFirmware other(program);
            vorntest::SimulatedCamera subject(name, vornsim::SceneKind::RAMP, vornsim::makeChipCamera);
            const int64_t before = bus().nowUs();
            EXPECT_FALSE(subject.camera.open());
            EXPECT_STREQ(subject.camera.getLastError(), "Failed to initialize device");
            EXPECT_LE(bus().nowUs() - before, 70'000'000) << "two timeouts of the library";
            EXPECT_TRUE(subject.lockFree());
        }
    }
    vorntest::SimulatedCamera subject("K12", vornsim::SceneKind::RAMP, vornsim::makeChipCamera);
    EXPECT_TRUE(subject.camera.open()) << "with the good program again";
}

TEST(ChipSession, TheDoctorSuspectsAProgramThatDoesNotWork)
{
    const Bytes good(std::begin(FIRMWARE), std::end(FIRMWARE));
    std::vector<Bytes> programs = brokenPrograms();
    programs.push_back(good);
    for (const Bytes& program : programs) {
        SCOPED_TRACE("program " + std::to_string(&program - programs.data()));
        const OtherFirmware other(program);
        vorntest::SimulatedCamera subject("K12", vornsim::SceneKind::RAMP, vornsim::makeChipCamera);
        bus().attach(subject.device);
        const std::vector<vorncapture::Finding> findings = vorncapture::checkCameras({});
        bus().reset();
        ASSERT_FALSE(findings.empty());
        const vorncapture::Finding& first = findings.front();
        if (program == good) {
            EXPECT_EQ(first.level, vorncapture::Finding::Level::GOOD) << first.text;
            continue;
        }
        EXPECT_EQ(first.level, vorncapture::Finding::Level::PROBLEM);
        EXPECT_NE(first.text.find("took its program, but the program does not answer"), std::string::npos)
            << first.text;
        EXPECT_NE(first.cure.find("suspect the program"), std::string::npos) << first.cure;
        EXPECT_NE(first.cure.find("-DVORNCCD_FIRMWARE="), std::string::npos) << first.cure;
    }
}

}  // namespace
