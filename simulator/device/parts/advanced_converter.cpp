// SPDX-License-Identifier: MIT
#include "advanced_converter.h"

#include "device/usb/bytes.h"

namespace vornsim {
namespace {

constexpr size_t HALF_LENGTH = 8;
constexpr size_t CALIBRATION = 2;  // offsets in a half
constexpr size_t GAIN = 4;
constexpr size_t OFFSET_CODE = 6;
constexpr unsigned VALID = 88;
constexpr unsigned UPDATE_HEAD = 25;
constexpr std::array<uint16_t, 2> CALIBRATIONS = {0x1207, 0x0B31};
constexpr unsigned HIGHEST_GAIN = 63;
constexpr unsigned HIGHEST_OFFSET = 512;
constexpr unsigned LOWEST_LONG_CODE = 256;

unsigned codeOf(unsigned offset)
{
    return offset <= 256 ? HIGHEST_OFFSET - offset : offset - 257;
}

unsigned offsetOf(unsigned code)
{
    return code >= LOWEST_LONG_CODE ? HIGHEST_OFFSET - code : code + 257;
}

}  // namespace

double AdvancedConverter::amplification(unsigned gain)
{
    return 6.0 / (1.0 + 5.0 * (HIGHEST_GAIN - gain) / HIGHEST_GAIN);
}

AdvancedConverter::Record AdvancedConverter::read()
{
    Record record{};
    if (++reads_ % BUSY_EVERY == 0 && busyReads_ == 0)
        busyReads_ = 1;
    if (busyReads_ > 0) {
        --busyReads_;
        record.fill(0xFF);
        record[0] = 1;
        return record;
    }
    for (size_t half = 0; half < settings_.size(); ++half) {
        const size_t at = half * HALF_LENGTH;
        writeBe16(record, at, VALID);
        writeBe16(record, at + CALIBRATION, CALIBRATIONS[half]);
        writeBe16(record, at + GAIN, settings_[half].gain);
        writeBe16(record, at + OFFSET_CODE, codeOf(settings_[half].offset));
    }
    return record;
}

std::string AdvancedConverter::update(std::span<const uint8_t> bytes)
{
    if (bytes.size() != UPDATE_LENGTH || readBe16(bytes, 0) != UPDATE_HEAD)
        return "gain record without its leading 25";
    const auto record = bytes.subspan(2);
    std::array<Setting, 2> wanted;
    for (size_t half = 0; half < wanted.size(); ++half) {
        const auto part = record.subspan(half * HALF_LENGTH, HALF_LENGTH);
        if (readBe16(part, 0) != VALID)
            return "gain record with a half that is not valid";
        if (readBe16(part, CALIBRATION) != CALIBRATIONS[half])
            return "gain record with a changed calibration";
        const unsigned code = readBe16(part, OFFSET_CODE);
        wanted[half].gain = readBe16(part, GAIN);
        if (wanted[half].gain > HIGHEST_GAIN || code > HIGHEST_OFFSET)
            return "gain record with gain " + std::to_string(wanted[half].gain) + ", offset code " +
                   std::to_string(code);
        wanted[half].offset = offsetOf(code);
    }
    settings_ = wanted;
    restart();
    return {};
}

}  // namespace vornsim
