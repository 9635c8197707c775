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

#include "device_bytes.h"
#include "fx2_bridge.h"

namespace vornsim {
namespace {

enum RequestCode : uint8_t {
    PORT_STATE = 1,
    PORT_DIRECTION = 2,
    READ_PORTS = 3,
    I2C = 4,
    I2C_SPEED = 5,
    SPI = 6,
    LOAD_WAVEFORMS = 8,
    PARALLEL_IN = 9,
    PARALLEL_OUT = 10,
    TIMEOUT = 12,
};

constexpr size_t PORT_COUNT = 5;
constexpr size_t PORT_STATE_LENGTH = 16;
constexpr size_t PORT_DIRECTION_LENGTH = 10;
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

void Fx2Bridge::serve(std::span<const uint8_t> bytes)
{
    const Request request{.code = bytes[0],
                          .sequence = bytes[1],
                          .acknowledged = bytes[2] == 0xFF,
                          .subCode = bytes[3],
                          .value = readLe16(bytes, 4),
                          .index = readLe16(bytes, 6),
                          .replyLength = readLe32(bytes, 8),
                          .payload = bytes.subspan(16)};
    if (!wellFormed(request))
        return;
    switch (request.code) {
        case PORT_STATE:
            return changePorts(request, false);
        case PORT_DIRECTION:
            return changePorts(request, true);
        case READ_PORTS:
            return readPorts(request);
        case I2C:
            return i2c(request);
        case I2C_SPEED:
            settings_.i2cSpeed = request.subCode;
            return;
        case SPI:
            return spi(request);
        case LOAD_WAVEFORMS:
            return loadWaveforms(request);
        case PARALLEL_IN:
            return startParallelInput(request);
        case PARALLEL_OUT:
            return parallelOutput(request);
        case TIMEOUT:
            return setTimeout(request);
        default:
            return;
    }
}

/// Complains about a request that does not follow the rules of its code; such a request is not served.
bool Fx2Bridge::wellFormed(const Request& request)
{
    const size_t length = request.payload.size();
    const bool plain = request.value == 0 && request.index == 0;
    const bool noData = length == 0 && request.replyLength == 0;
    bool fits = false;
    bool acknowledged = false;
    switch (request.code) {
        case PORT_STATE:
            fits = plain && request.subCode == 0 && length == PORT_STATE_LENGTH && request.replyLength == 0;
            break;
        case PORT_DIRECTION:
            fits = plain && request.subCode == 0 && length == PORT_DIRECTION_LENGTH && request.replyLength == 0;
            break;
        case READ_PORTS:
            fits = plain && request.subCode == 0 && length == 0 && request.replyLength == PORT_COUNT;
            break;
        case I2C:
            acknowledged = true;
            // A write carries address and data; a read the address only.
            fits = request.value == 0 && request.index == 1 && request.subCode == 0 && length >= 1 &&
                   ((request.payload[0] & 1) != 0 ? length == 1 : request.replyLength == 0);
            break;
        case I2C_SPEED:
            fits = plain && noData && request.subCode <= 1;
            break;
        case SPI:
            fits = request.index == 1 && length >= 1 && length == request.replyLength &&
                   ((request.subCode == 1 && request.value == 0 && length == 2) ||
                    (request.subCode == 2 && request.value == 3));
            break;
        case LOAD_WAVEFORMS:
            acknowledged = true;
            fits = plain && request.subCode == 0 && request.replyLength == 0 && length >= 1 &&
                   length == ((request.payload[0] & LONG_TABLE) != 0 ? LONG_TABLE_LENGTH : SHORT_TABLE_LENGTH);
            break;
        case PARALLEL_IN:
            fits = noData && request.subCode == 0;
            break;
        case PARALLEL_OUT:
            acknowledged = true;
            fits = plain && noData && request.subCode == 0;
            break;
        case TIMEOUT:
            fits = noData && request.subCode <= 1 && request.index == 0;
            break;
        default:
            complain("unknown request code " + number(request.code));
            return false;
    }
    if (!fits || acknowledged != request.acknowledged || request.replyLength > LONGEST_REPLY) {
        complain("malformed request: code " + number(request.code) + ", acknowledged " + number(request.acknowledged) +
                 ", sub-code " + number(request.subCode) + ", value " + number(request.value) + ", index " +
                 number(request.index) + ", reply " + number(request.replyLength) + ", payload " + number(length));
        return false;
    }
    return true;
}

/// The host sends a new request: whatever it has not fetched of the one before is lost.
void Fx2Bridge::abandonPrevious()
{
    if (reply_.fetched < reply_.bytes.size())
        complain("reply fetched up to byte " + number(reply_.fetched) + " of " + number(reply_.bytes.size()));
    reply_ = {};
    if (!input_.active)
        return;
    // Up to two packets had already been taken from the camera; they are lost with the request.
    const int64_t until = std::min(clock_.nowUs(), input_.deadlineUs);
    const size_t ready = peripheral_.offeredWords(until).bytes.size();
    const auto ahead = static_cast<size_t>(
        std::min<uint64_t>({input_.wordBytesLeft, ready, static_cast<uint64_t>(FETCHED_AHEAD_LENGTH)}));
    if (input_.fetched > 0 || ahead > 0)
        complain("parallel input abandoned after " + number(input_.fetched) + " bytes");
    peripheral_.wordsTaken(ahead);
    input_ = {};
}

void Fx2Bridge::reply(const Request& request, std::span<const uint8_t> data, uint8_t status, int64_t readyAtUs)
{
    if (request.replyLength == 0 && !request.acknowledged)
        return;
    reply_.bytes.assign(1, 0);
    reply_.bytes.insert(reply_.bytes.end(), data.begin(), data.end());
    reply_.bytes.insert(reply_.bytes.end(), {status, request.sequence, request.code});
    reply_.fetched = 0;
    reply_.readyAtUs = readyAtUs;
}

void Fx2Bridge::changePorts(const Request& request, bool direction)
{
    for (size_t port = 0; port < PORT_COUNT; ++port) {
        const uint8_t mask = request.payload[2 * port];
        const uint8_t value = request.payload[2 * port + 1];
        uint8_t& bits = direction ? settings_.ports[port].direction : settings_.ports[port].latch;
        const auto changed = static_cast<uint8_t>((bits & mask) | value);
        if (changed == bits)
            continue;
        bits = changed;
        peripheral_.portChanged(static_cast<unsigned>(port), settings_.ports[port]);
    }
}

void Fx2Bridge::readPorts(const Request& request)
{
    std::array<uint8_t, PORT_COUNT> levels{};
    for (size_t port = 0; port < PORT_COUNT; ++port) {
        const PortLines& lines = settings_.ports[port];
        const uint8_t inputs = peripheral_.portInputs(static_cast<unsigned>(port));
        levels[port] = static_cast<uint8_t>((lines.latch & lines.direction) | (inputs & ~lines.direction));
    }
    reply(request, levels, STATUS_OK, clock_.nowUs() + REQUEST_US);
}

void Fx2Bridge::i2c(const Request& request)
{
    const auto address = static_cast<uint8_t>(request.payload[0] >> 1);
    const bool reading = (request.payload[0] & 1) != 0;
    const bool eeprom = address == ConfigurationEeprom::I2C_ADDRESS;
    // A slave that is not there answers nothing but the pull-ups of the bus; the host gets its reply all the same.
    std::vector<uint8_t> data(request.replyLength, 0xFF);
    bool acknowledged = false;
    if (reading && eeprom) {
        eeprom_.read(data);
        acknowledged = true;
    } else if (reading) {
        acknowledged = peripheral_.i2cRead(address, data);
    } else if (eeprom) {
        acknowledged = eeprom_.write(request.payload.subspan(1));
        if (!acknowledged)
            complain("write of " + number(request.payload.size() - 1) + " bytes to the configuration EEPROM refused");
    } else {
        acknowledged = peripheral_.i2cWrite(address, request.payload.subspan(1));
    }
    const int64_t byteUs = settings_.i2cSpeed == 0 ? 90 : 23;
    const auto bytes = static_cast<int64_t>(request.payload.size() + data.size());
    reply(request, data, acknowledged ? STATUS_OK : STATUS_FAILED, clock_.nowUs() + REQUEST_US + bytes * byteUs);
}

void Fx2Bridge::spi(const Request& request)
{
    const int64_t now = clock_.nowUs();
    std::vector<uint8_t> answer(request.replyLength, 0xFF);
    int64_t doneAtUs = 0;
    const bool pinsReady = (settings_.ports[0].direction & SPI_PINS) == SPI_DIRECTION;
    if (pinsReady)
        doneAtUs = peripheral_.spiExchange({request.subCode, request.value, request.index}, request.payload, answer);
    else
        complain("SPI exchange before the SPI pins were set up");
    const auto bytes = static_cast<int64_t>(request.payload.size());
    reply(request, answer, pinsReady ? STATUS_OK : STATUS_FAILED,
          std::max(doneAtUs, now + REQUEST_US + bytes * SPI_BYTE_US));
}

void Fx2Bridge::setTimeout(const Request& request)
{
    (request.subCode == 0 ? settings_.parallelTimeoutMs : settings_.i2cTimeoutMs) = request.value;
}

void Fx2Bridge::loadWaveforms(const Request& request)
{
    settings_.waveformTable.assign(request.payload.begin(), request.payload.end());
    busUsable_ = peripheral_.understandsWaveform(settings_.waveformTable);
    reply(request, {}, STATUS_OK, clock_.nowUs() + TABLE_US);
}

void Fx2Bridge::startParallelInput(const Request& request)
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

void Fx2Bridge::parallelOutput(const Request& request)
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
    peripheral_.wordsReceived(words);
    reply(request, {}, STATUS_OK, now + REQUEST_US);
}

}  // namespace vornsim
