// SPDX-License-Identifier: MIT
// Writes inputs that get far: sessions with simulated cameras, in the notation of the targets. What the host does is
// scripted, what the cameras answer is recorded. fuzz_record DIRECTORY
#include <filesystem>
#include <fstream>

#include "camera_catalogue.h"
#include "input_usb.h"
#include "simulated.h"
#include "targets.h"

namespace {

using vorntest::BusCall;

void append(std::vector<uint8_t>& bytes, std::span<const uint8_t> more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

/// A simulated camera whose every answer is noted down the way InputUsb reads it. What the host sends goes into a
/// script for the simulated cameras.
class RecordingUsb : public vorntest::Backend {
public:
    RecordingUsb(vornsim::UsbDevice& camera, std::vector<uint8_t>& answers, std::vector<uint8_t>& requests)
        : usb_(camera), answers_(answers), requests_(requests)
    {
    }

    int serve(const BusCall& call, std::span<uint8_t> data, int& transferred) override
    {
        noteRequest(call, data);
        const int result = usb_.serve(call, data, transferred);
        if (call.kind != BusCall::BULK_IN && call.kind != BusCall::CONTROL_IN)
            return result;
        if (result < 0) {
            append(answers_, std::array{vornfuzz::InputUsb::failure(result), uint8_t{0}});
        } else {
            const auto length = static_cast<size_t>(call.kind == BusCall::CONTROL_IN ? result : transferred);
            answers_.push_back(vornfuzz::InputUsb::WHOLE);
            append(answers_, data.first(std::min(length, vornfuzz::InputUsb::LARGEST_DATA_LENGTH)));
        }
        return result;
    }

private:
    void noteRequest(const BusCall& call, std::span<const uint8_t> data)
    {
        const auto low = [](unsigned value) { return static_cast<uint8_t>(value & 0xFF); };
        const uint8_t length = static_cast<uint8_t>(std::min<size_t>(data.size(), 255));
        if (call.kind == BusCall::CONTROL_OUT || call.kind == BusCall::CONTROL_IN)
            append(requests_, std::array{uint8_t{2}, low(call.requestType), low(call.request), low(call.value),
                                         low(call.value >> 8), low(call.index), low(call.index >> 8), length});
        if (call.kind == BusCall::BULK_OUT)
            append(requests_, std::array{uint8_t{4}, low(call.endpoint), length});
        if (call.kind == BusCall::BULK_OUT || call.kind == BusCall::CONTROL_OUT)
            append(requests_, data.first(length));
        if (call.kind == BusCall::BULK_IN)
            append(requests_, std::array{uint8_t{6}, low(call.endpoint), length});
    }

    vorntest::SimulatedUsb usb_;
    std::vector<uint8_t>& answers_;
    std::vector<uint8_t>& requests_;
};

struct Session {
    const char* target;
    const char* model;
    CAMERA_TYPE family;
};

constexpr Session SESSIONS[] = {
    {"open_classic", "Vorn K30", CLASSIC},   {"open_standard", "Vorn K12", STANDARD},
    {"open_quicker", "Vorn K01", QUICKER},   {"open_iidc", "Vorn XRC", IIDC},
    {"open_advanced", "Vorn K16", ADVANCED},
};

/// Every accessory once with plain arguments, a short and a long exposure of 8 x 8 pixels: see Host::operate().
std::vector<uint8_t> nightScript()
{
    std::vector<uint8_t> script;
    for (uint8_t accessory = 0; accessory < 15; ++accessory)
        append(script, std::array<uint8_t, 5>{accessory, 1, 1, 1, 1});
    // small numbers, x, y, width, height, binning twice, long exposure or not, amplifier, seconds, no abort
    append(script, std::array<uint8_t, 12>{16, 0, 0, 0, 8, 8, 1, 1, 0, 2, 0});
    append(script, std::array<uint8_t, 12>{16, 0, 0, 0, 8, 8, 1, 1, 1, 0, 2, 0});
    return script;
}

void write(const std::filesystem::path& folder, const std::string& name, const std::vector<uint8_t>& bytes)
{
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void record(const Session& session, const std::filesystem::path& folder)
{
    using vornfuzz::Operations;
    for (const Operations operations : {Operations::NONE, Operations::ALL}) {
        const bool night = operations == Operations::ALL;
        const vorntest::BusClock clock;
        vorntest::CollectedLog log;
        const vornsim::ModelInfo* model = vornsim::findModel(session.model);
        const auto camera = vornsim::makeCamera(*model, {.scene = vornsim::SceneKind::RAMP}, clock, log);
        std::vector<uint8_t> answers;
        if (night)
            answers.push_back(static_cast<uint8_t>(session.family - CLASSIC));
        std::vector<uint8_t> requests = {static_cast<uint8_t>(model - vornsim::models().data())};
        RecordingUsb usb(*camera, answers, requests);
        std::vector<uint8_t> script = {uint8_t{night}};  // nights are traced, nothing is in the way
        if (night)
            append(script, nightScript());
        vornfuzz::Input input(script, &answers);
        vornfuzz::runHost(session.family, vornfuzz::Start::OPEN, operations, input, &usb);
        write(folder / (night ? "night" : session.target), session.target, answers);
        if (night)
            write(folder / "simulated_camera", session.target, requests);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    for (const Session& session : SESSIONS)
        record(session, argv[1]);
    return 0;
}
