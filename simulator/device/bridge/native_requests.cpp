// SPDX-License-Identifier: MIT
// The requests that the bridge firmware serves.
//
// | Offset | Size | Request header, little-endian                    |
// |--------|------|--------------------------------------------------|
// | 0      | 1    | code                                             |
// | 1      | 1    | sequence, returned with the reply                |
// | 2      | 1    | 0xFF: acknowledge even without reply data        |
// | 3      | 1    | sub-code                                         |
// | 4      | 2    | value                                            |
// | 6      | 2    | index                                            |
// | 8      | 4    | reply length                                     |
// | 12     | 4    | payload length; the payload follows              |
//
// Reply: a leading 0, the data, then status (0: fine), sequence and code.
#include <algorithm>
#include <string>
#include <utility>

#include "device/parts/configuration_eeprom.h"
#include "device/usb/bytes.h"
#include "native_bridge.h"
#include "parallel_bus.h"

namespace vornsim {
namespace {

constexpr int PORT_COUNT = 5;
constexpr size_t SHORT_TABLE_LENGTH = 152;
constexpr size_t LONG_TABLE_LENGTH = 172;
constexpr uint8_t LONG_TABLE = 0x80;
constexpr uint32_t LONGEST_REPLY = 4096;
constexpr size_t FETCHED_AHEAD_LENGTH = 1024;  // two packets wait in the endpoint

constexpr uint8_t STATUS_OK = 0;
constexpr uint8_t STATUS_FAILED = 1;

// SPI pins of port A: 7 select, 6 clock and 5 data are outputs, 4 is an input.
constexpr uint8_t SPI_PINS = 0xF0;
constexpr uint8_t SPI_DIRECTION = 0xE0;

constexpr int64_t REQUEST_US = 60;
constexpr int64_t TABLE_US = 1500;
constexpr int64_t SPI_BYTE_US = 40;

std::string number(uint64_t value)
{
    return std::to_string(value);
}

}  // namespace

/// How a request of one code must look, and what serves it.
struct NativeBridge::Rule {
    static constexpr int ANY = -1;

    uint8_t code;
    bool acknowledged;
    int payloadLength;
    int replyLength;
    bool (*fits)(const Request& request);  ///< sub-code, value and index, and lengths that depend on the payload
    void (NativeBridge::*serve)(const Request& request);

    bool allows(const Request& request) const
    {
        const auto is = [](int rule, size_t length) { return rule == ANY || length == static_cast<size_t>(rule); };
        return acknowledged == request.acknowledged && is(payloadLength, request.payload.size()) &&
               is(replyLength, request.replyLength) && request.replyLength <= LONGEST_REPLY && fits(request);
    }
};

const NativeBridge::Rule* NativeBridge::findRule(uint8_t code)
{
    static constexpr auto PLAIN = [](const Request& r) { return r.subCode == 0 && r.value == 0 && r.index == 0; };
    static constexpr auto ONE_OF_TWO = [](const Request& r) { return r.subCode <= 1 && r.value == 0 && r.index == 0; };
    // A write carries address and data; a read the address only.
    static constexpr auto I2C_TRANSFER = [](const Request& r) {
        return r.subCode == 0 && r.value == 0 && r.index == 1 && !r.payload.empty() &&
               ((r.payload[0] & 1) != 0 ? r.payload.size() == 1 : r.replyLength == 0);
    };
    static constexpr auto SPI_TRANSFER = [](const Request& r) {
        const size_t length = r.payload.size();
        return r.index == 1 && length >= 1 && length == r.replyLength &&
               (r.subCode == static_cast<uint8_t>(SpiMode::REGISTERS)
                    ? r.value == 0 && length == 2
                    : r.subCode == static_cast<uint8_t>(SpiMode::COMMANDS) && r.value == 3);
    };
    static constexpr auto TABLE = [](const Request& r) {
        return PLAIN(r) && !r.payload.empty() &&
               r.payload.size() == ((r.payload[0] & LONG_TABLE) != 0 ? LONG_TABLE_LENGTH : SHORT_TABLE_LENGTH);
    };
    static constexpr Rule RULES[] = {
        {1, false, 16, 0, PLAIN, &NativeBridge::setLatches},
        {2, false, 10, 0, PLAIN, &NativeBridge::setDirections},
        {3, false, 0, PORT_COUNT, PLAIN, &NativeBridge::readPorts},
        {4, true, Rule::ANY, Rule::ANY, I2C_TRANSFER, &NativeBridge::i2c},
        {5, false, 0, 0, ONE_OF_TWO, &NativeBridge::setI2cSpeed},
        {6, false, Rule::ANY, Rule::ANY, SPI_TRANSFER, &NativeBridge::spi},
        {8, true, Rule::ANY, 0, TABLE, &NativeBridge::loadWaveforms},
        {9, false, 0, 0, [](const Request& r) { return r.subCode == 0; }, &NativeBridge::startParallelInput},
        {10, true, 0, 0, PLAIN, &NativeBridge::parallelOutput},
        {12, false, 0, 0, [](const Request& r) { return r.subCode <= 1 && r.index == 0; }, &NativeBridge::setTimeout},
    };
    const auto* found = std::find_if(std::begin(RULES), std::end(RULES), [&](const Rule& r) { return r.code == code; });
    return found == std::end(RULES) ? nullptr : found;
}

void NativeBridge::serve(std::span<const uint8_t> bytes)
{
    const Request request{.code = bytes[0],
                          .sequence = bytes[1],
                          .acknowledged = bytes[2] == 0xFF,
                          .subCode = bytes[3],
                          .value = readLe16(bytes, 4),
                          .index = readLe16(bytes, 6),
                          .replyLength = readLe32(bytes, 8),
                          .payload = bytes.subspan(16)};
    const Rule* rule = findRule(request.code);
    if (rule == nullptr)
        complain("unknown request code " + number(request.code));
    else if (!rule->allows(request))
        complain("malformed request: code " + number(request.code) + ", acknowledged " + number(request.acknowledged) +
                 ", sub-code " + number(request.subCode) + ", value " + number(request.value) + ", index " +
                 number(request.index) + ", reply " + number(request.replyLength) + ", payload " +
                 number(request.payload.size()));
    else
        (this->*rule->serve)(request);
}

/// The host sends a new request: whatever it has not fetched of the one before is lost.
void NativeBridge::abandonPrevious()
{
    if (reply_.fetched < reply_.bytes.size())
        complain("reply fetched up to byte " + number(reply_.fetched) + " of " + number(reply_.bytes.size()));
    reply_ = {};
    if (!input_.active)
        return;
    // Up to two packets had already been taken from the camera; they are lost with the request.
    const int64_t until = std::min(clock_.nowUs(), input_.deadlineUs);
    const size_t ready = camera_->offeredWords(until).bytes.size();
    const auto ahead = static_cast<size_t>(
        std::min<uint64_t>({input_.wordBytesLeft, ready, static_cast<uint64_t>(FETCHED_AHEAD_LENGTH)}));
    if (input_.fetched > 0 || ahead > 0)
        complain("parallel input abandoned after " + number(input_.fetched) + " bytes");
    camera_->wordsTaken(ahead);
    input_ = {};
}

void NativeBridge::reply(const Request& request, std::span<const uint8_t> data, uint8_t status, int64_t readyAtUs)
{
    if (request.replyLength == 0 && !request.acknowledged)
        return;
    reply_.bytes.assign(1, 0);
    reply_.bytes.insert(reply_.bytes.end(), data.begin(), data.end());
    reply_.bytes.insert(reply_.bytes.end(), {status, request.sequence, request.code});
    reply_.fetched = 0;
    reply_.readyAtUs = readyAtUs;
}

void NativeBridge::setLatches(const Request& request)
{
    changePorts(request, &PortLines::latch);
}

void NativeBridge::setDirections(const Request& request)
{
    changePorts(request, &PortLines::direction);
}

/// A mask of what stays and the new bits, for each port.
void NativeBridge::changePorts(const Request& request, uint8_t PortLines::*bits)
{
    for (size_t port = 0; port < PORT_COUNT; ++port) {
        PortLines& lines = settings_.ports[port];
        const auto changed =
            static_cast<uint8_t>((lines.*bits & request.payload[2 * port]) | request.payload[2 * port + 1]);
        if (std::exchange(lines.*bits, changed) != changed)
            camera_->portChanged(static_cast<unsigned>(port), lines);
    }
}

void NativeBridge::readPorts(const Request& request)
{
    std::array<uint8_t, PORT_COUNT> levels{};
    for (size_t port = 0; port < PORT_COUNT; ++port) {
        const PortLines& lines = settings_.ports[port];
        const uint8_t inputs = camera_->portInputs(static_cast<unsigned>(port));
        levels[port] = static_cast<uint8_t>((lines.latch & lines.direction) | (inputs & ~lines.direction));
    }
    reply(request, levels, STATUS_OK, clock_.nowUs() + REQUEST_US);
}

void NativeBridge::setI2cSpeed(const Request& request)
{
    settings_.i2cSpeed = request.subCode;
}

void NativeBridge::i2c(const Request& request)
{
    const auto address = static_cast<uint8_t>(request.payload[0] >> 1);
    const bool reading = (request.payload[0] & 1) != 0;
    const std::span<const uint8_t> written = request.payload.subspan(1);
    // A slave that is not there answers nothing but the pull-ups of the bus; the host gets its reply all the same.
    std::vector<uint8_t> data(request.replyLength, 0xFF);
    bool acknowledged = false;
    if (address == ConfigurationEeprom::I2C_ADDRESS && written.size() > ConfigurationEeprom::ADDRESS_LENGTH) {
        complain("write of " + number(written.size()) + " bytes to the configuration EEPROM refused");
    } else {
        acknowledged = camera_->i2cStart(address, reading);
        if (acknowledged)
            std::generate(data.begin(), data.end(), [this] { return camera_->i2cRead(); });
        for (size_t i = 0; acknowledged && i < written.size(); ++i)
            acknowledged = camera_->i2cWrite(written[i]);
        camera_->i2cStop();
    }
    const int64_t byteUs = settings_.i2cSpeed == 0 ? 90 : 23;
    const auto bytes = static_cast<int64_t>(request.payload.size() + data.size());
    reply(request, data, acknowledged ? STATUS_OK : STATUS_FAILED, clock_.nowUs() + REQUEST_US + bytes * byteUs);
}

void NativeBridge::spi(const Request& request)
{
    std::vector<uint8_t> answer(request.replyLength, 0xFF);
    const auto mode = static_cast<SpiMode>(request.subCode);
    const bool pinsReady = (settings_.ports[0].direction & SPI_PINS) == SPI_DIRECTION;
    if (!pinsReady) {
        complain("SPI exchange before the SPI pins were set up");
    } else if (camera_->spiMode() != SpiMode::NONE && camera_->spiMode() != mode) {
        complain("SPI exchange in a mode that this camera does not have");
    } else {
        camera_->spiSelect();
        for (size_t i = 0; i < answer.size(); ++i) {
            answer[i] = camera_->spiOutput();
            camera_->spiInput(request.payload[i]);
        }
        camera_->spiDeselect();
    }
    const auto bytes = static_cast<int64_t>(request.payload.size());
    reply(request, answer, pinsReady ? STATUS_OK : STATUS_FAILED, clock_.nowUs() + REQUEST_US + bytes * SPI_BYTE_US);
}

void NativeBridge::setTimeout(const Request& request)
{
    (request.subCode == 0 ? settings_.parallelTimeoutMs : settings_.i2cTimeoutMs) = request.value;
}

void NativeBridge::loadWaveforms(const Request& request)
{
    settings_.waveformTable.assign(request.payload.begin(), request.payload.end());
    busUsable_ = understands(camera_->parallelBus(), settings_.waveformTable);
    reply(request, {}, STATUS_OK, clock_.nowUs() + TABLE_US);
}

void NativeBridge::startParallelInput(const Request& request)
{
    // Without a table the bus does not move: nothing is ever sent, and the host's own timeout ends its wait. Hosts rely
    // on that when they drain a bridge they have just started.
    if (settings_.waveformTable.empty())
        return;
    if (!busUsable_) {
        complain("parallel input with a waveform that this camera does not understand");
        return;
    }
    const uint64_t bytes = (uint64_t{request.value} << 16) | request.index;
    input_ = {.active = true,
              .wordBytesLeft = bytes + (bytes & 1),
              .trailerLeft = (bytes & 1) == 0,
              .fetched = 0,
              .deadlineUs = clock_.nowUs() + int64_t{settings_.parallelTimeoutMs} * 1000};
}

void NativeBridge::parallelOutput(const Request& request)
{
    std::vector<uint8_t> words;
    for (const std::vector<uint8_t>& packet : rawWords_)
        words.insert(words.end(), packet.begin(), packet.end());
    rawWords_.clear();
    if (words.size() % 2 != 0)
        words.push_back(0);
    const int64_t now = clock_.nowUs();
    if (words.empty() || !busUsable_) {
        complain(words.empty() ? "parallel output without data"
                               : "parallel output without a waveform that this camera understands");
        reply(request, {}, STATUS_FAILED, now + int64_t{settings_.parallelTimeoutMs} * 1000);
        return;
    }
    camera_->wordsReceived(words);
    reply(request, {}, STATUS_OK, now + REQUEST_US);
}

}  // namespace vornsim
