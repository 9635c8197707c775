// SPDX-License-Identifier: MIT
#include "camera_impl.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/layout.h"
#include "transport/quicker_registers.h"

#include <algorithm>
#include <array>
#include <iterator>

using namespace vornccd;

namespace {

constexpr unsigned ADC_WORD_COUNT = 8;
constexpr unsigned ADC_WORD_BITS = 16;

// Colour record: the marker, the pattern code, one byte without a meaning
constexpr size_t COLOUR_RECORD_LENGTH = 5;
constexpr uint8_t COLOUR_MARKER[] = {0x84, 0xD9, 0x01};
constexpr Field COLOUR_PATTERN = byteAt(3);

struct PatternPhase {
    int32_t offsetX;
    int32_t offsetY;
};

constexpr PatternPhase PATTERN_PHASES[] = {{0, 0}, {0, 1}, {1, 0}, {1, 1}};  // by pattern code

}  // namespace

bool VornCameraImpl::setADC()
{
    TRACE_ENTER("%s-> VornCameraImpl::setADC()\n");
    uint8_t words[2 * ADC_WORD_COUNT] = {};
    bool ok = eepRead(EEPROM_ADC_WORDS, words, sizeof words);
    {
        QuietTrace quiet;
        for (unsigned i = 0; ok && i < ADC_WORD_COUNT; ++i) {
            const unsigned word = unpack(words, be16At(size_t{2} * i));
            ok = setIOState(LINE_ADC_CLOCK, 0) && setIOState(LINE_ADC_SELECT, 0);
            for (unsigned bit = ADC_WORD_BITS; ok && bit-- > 0;)
                ok = setIOState(LINE_ADC_DATA, word >> bit & 1) && setIOState(LINE_ADC_CLOCK, 1) &&
                     setIOState(LINE_ADC_CLOCK, 0);
            ok = ok && setIOState(LINE_ADC_SELECT, 1);
        }
    }
    TRACE_EXIT("%s<- VornCameraImpl::setADC %d\n", ok);
    return ok;
}

void VornCameraImpl::checkColour()
{
    colour = COLOUR_NONE;
    offsetX = 0;
    offsetY = 0;
    std::array<uint8_t, COLOUR_RECORD_LENGTH> record = {};
    const bool found = eepRead(EEPROM_COLOUR, record.data(), record.size()) &&
                       std::equal(std::begin(COLOUR_MARKER), std::end(COLOUR_MARKER), record.begin());
    const uint32_t pattern = unpack(record, COLOUR_PATTERN);
    if (found && pattern < std::size(PATTERN_PHASES)) {
        colour = COLOUR_RGGB;
        offsetX = PATTERN_PHASES[pattern].offsetX;
        offsetY = PATTERN_PHASES[pattern].offsetY;
    }
    TRACE_DETAIL("%s    colour = %d, offsetX = %d, offsetY = %d\n", colour, offsetX, offsetY);
}
