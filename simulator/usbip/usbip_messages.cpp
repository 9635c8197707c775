// SPDX-License-Identifier: MIT
#include "usbip_messages.h"

#include <algorithm>
#include <set>

#include "device/usb/bytes.h"
#include "device/usb/usb_requests.h"

namespace vornsim::usbip {
namespace {

// Requests and their answers: u16 version, u16 code, u32 status.
constexpr size_t REQUEST_LENGTH = 8;
constexpr uint16_t VERSION = 0x0111;
constexpr uint16_t LIST_REQUEST = 0x8005;
constexpr uint16_t LIST_ANSWER = 0x0005;
constexpr uint16_t IMPORT_REQUEST = 0x8003;
constexpr uint16_t IMPORT_ANSWER = 0x0003;
constexpr size_t PATH_LENGTH = 256;
constexpr size_t BUS_ID_LENGTH = 32;
constexpr uint32_t SPEED_HIGH = 3;

// Commands and their answers, 48 bytes.
constexpr size_t SEQUENCE = 0x04;
constexpr size_t DIRECTION = 0x0C;
constexpr size_t ENDPOINT = 0x10;
constexpr size_t FLAGS = 0x14;
constexpr size_t LENGTH = 0x18;
constexpr size_t PACKET_COUNT = 0x20;
constexpr size_t SETUP = 0x28;
constexpr size_t VICTIM = 0x14;
constexpr size_t STATUS = 0x14;

constexpr uint32_t SUBMIT = 1;
constexpr uint32_t UNLINK = 2;
constexpr uint32_t SUBMIT_ANSWER = 3;
constexpr uint32_t UNLINK_ANSWER = 4;

constexpr uint32_t DIRECTION_IN = 1;
constexpr uint32_t LAST_ENDPOINT = 15;
constexpr uint32_t NOT_ISOCHRONOUS = 0xFFFFFFFF;  // as a number of packets; older kernels send 0
constexpr uint32_t FLAG_SHORT_NOT_OK = 1;

/// A text in a field of fixed length, with a zero byte after it.
void appendText(std::vector<uint8_t>& bytes, const std::string& text, size_t fieldLength)
{
    const size_t end = bytes.size() + fieldLength;
    const size_t length = std::min(text.size(), fieldLength - 1);
    bytes.insert(bytes.end(), text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length));
    bytes.resize(end);
}

size_t interfaceCount(const UsbLayout& layout)
{
    std::set<uint8_t> numbers;
    for (const AlternateSetting& setting : layout.settings)
        numbers.insert(setting.interface);
    return numbers.size();
}

/// path[256], busid[32], u32 busnum, devnum, speed, u16 vendor, product, release, u8 class, subclass, protocol,
/// configuration, number of configurations, number of interfaces.
void appendRecord(std::vector<uint8_t>& bytes, const DeviceRecord& device)
{
    const UsbLayout& layout = device.layout;
    appendText(bytes, device.path, PATH_LENGTH);
    appendText(bytes, device.busId, BUS_ID_LENGTH);
    appendBe32(bytes, device.busNumber);
    appendBe32(bytes, device.deviceNumber);
    appendBe32(bytes, SPEED_HIGH);
    appendBe16(bytes, layout.vendorId);
    appendBe16(bytes, layout.productId);
    appendBe16(bytes, layout.release);
    bytes.insert(bytes.end(), {layout.deviceClass, layout.subClass, layout.protocol, layout.configurationValue, 1,
                               static_cast<uint8_t>(interfaceCount(layout))});
}

std::vector<uint8_t> answer(uint16_t code, uint32_t status)
{
    std::vector<uint8_t> bytes;
    appendBe16(bytes, VERSION);
    appendBe16(bytes, code);
    appendBe32(bytes, status);
    return bytes;
}

using Commands = Parsed<SubmitCommand, UnlinkCommand>;

Commands parseSubmit(std::span<const uint8_t> bytes)
{
    SubmitCommand submit;
    submit.sequence = readBe32(bytes, SEQUENCE);
    submit.shortIsError = (readBe32(bytes, FLAGS) & FLAG_SHORT_NOT_OK) != 0;
    submit.length = readBe32(bytes, LENGTH);
    const uint32_t direction = readBe32(bytes, DIRECTION);
    const uint32_t endpoint = readBe32(bytes, ENDPOINT);
    const uint32_t packets = readBe32(bytes, PACKET_COUNT);
    if (direction > DIRECTION_IN || endpoint > LAST_ENDPOINT)
        return {Malformed{"a transfer for an endpoint that cannot exist"}};
    if (packets != 0 && packets != NOT_ISOCHRONOUS)
        return {Malformed{"an isochronous transfer"}};
    if (submit.length > LONGEST_TRANSFER)
        return {Malformed{"a transfer longer than is accepted"}};

    const bool isIn = direction == DIRECTION_IN;
    if (endpoint != 0) {
        submit.endpoint = static_cast<uint8_t>(endpoint | (isIn ? 0x80 : 0));
    } else {
        const std::span<const uint8_t> setup = bytes.subspan(SETUP, usb::SETUP_LENGTH);
        submit.setup = readSetup(setup);
        if (submit.setup.length != submit.length)
            return {Malformed{"a control transfer of another length than its setup packet says"}};
        if (submit.length > 0 && isIn != ((setup[0] & 0x80) != 0))
            return {Malformed{"a control transfer against the direction of its setup packet"}};
    }
    const size_t total = COMMAND_LENGTH + (isIn ? 0 : submit.length);
    if (bytes.size() < total)
        return {Incomplete{total}};
    submit.data = bytes.subspan(COMMAND_LENGTH, total - COMMAND_LENGTH);
    return {submit, total};
}

}  // namespace

Parsed<ListRequest, ImportRequest> parseRequest(std::span<const uint8_t> bytes)
{
    if (bytes.size() < REQUEST_LENGTH)
        return {Incomplete{REQUEST_LENGTH}};
    if (readBe16(bytes, 0) != VERSION)
        return {Malformed{"not a USB/IP client, or of another version than 1.1.1"}};
    switch (readBe16(bytes, 2)) {
        case LIST_REQUEST:
            return {ListRequest{}, REQUEST_LENGTH};
        case IMPORT_REQUEST: {
            constexpr size_t TOTAL = REQUEST_LENGTH + BUS_ID_LENGTH;
            if (bytes.size() < TOTAL)
                return {Incomplete{TOTAL}};
            const auto text = bytes.subspan(REQUEST_LENGTH, BUS_ID_LENGTH);
            const auto end = std::find(text.begin(), text.end(), 0);
            if (end == text.end())
                return {Malformed{"a bus id without an end"}};
            return {ImportRequest{std::string(text.begin(), end)}, TOTAL};
        }
        default:
            return {Malformed{"an unknown request"}};
    }
}

Commands parseCommand(std::span<const uint8_t> bytes)
{
    if (bytes.size() < COMMAND_LENGTH)
        return {Incomplete{COMMAND_LENGTH}};
    switch (readBe32(bytes, 0)) {
        case SUBMIT:
            return parseSubmit(bytes);
        case UNLINK:
            return {UnlinkCommand{readBe32(bytes, SEQUENCE), readBe32(bytes, VICTIM)}, COMMAND_LENGTH};
        default:
            return {Malformed{"an unknown command"}};
    }
}

std::vector<uint8_t> packList(std::span<const DeviceRecord> devices)
{
    std::vector<uint8_t> bytes = answer(LIST_ANSWER, 0);
    appendBe32(bytes, static_cast<uint32_t>(devices.size()));
    for (const DeviceRecord& device : devices) {
        appendRecord(bytes, device);
        for (const AlternateSetting& setting : device.layout.settings)
            if (setting.alternate == 0)
                bytes.insert(bytes.end(), {setting.deviceClass, setting.subClass, setting.protocol, 0});
    }
    return bytes;
}

std::vector<uint8_t> packImport(ImportStatus status, const DeviceRecord* device)
{
    std::vector<uint8_t> bytes = answer(IMPORT_ANSWER, static_cast<uint32_t>(status));
    if (status == ImportStatus::OK)
        appendRecord(bytes, *device);
    return bytes;
}

AnswerHeader packSubmitAnswer(uint32_t sequence, int status, size_t actualLength)
{
    AnswerHeader bytes{};
    writeBe32(bytes, 0, SUBMIT_ANSWER);
    writeBe32(bytes, SEQUENCE, sequence);
    writeBe32(bytes, STATUS, static_cast<uint32_t>(status));
    writeBe32(bytes, LENGTH, static_cast<uint32_t>(actualLength));
    return bytes;
}

AnswerHeader packUnlinkAnswer(uint32_t sequence, int status)
{
    AnswerHeader bytes{};
    writeBe32(bytes, 0, UNLINK_ANSWER);
    writeBe32(bytes, SEQUENCE, sequence);
    writeBe32(bytes, STATUS, static_cast<uint32_t>(status));
    return bytes;
}

}  // namespace vornsim::usbip
