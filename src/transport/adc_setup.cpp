// SPDX-License-Identifier: MIT
#include "lifecycle/camera_impl.h"
#include "trace/trace.h"
#include "transport/bridge.h"
#include "transport/wire.h"

using namespace vornccd;

namespace {

constexpr unsigned ADC_WORD_COUNT = 8;
constexpr unsigned LINE_ADC_SELECT = 2;  // 0 while a word is sent
constexpr unsigned LINE_ADC_DATA = 5;
constexpr unsigned LINE_ADC_CLOCK = 6;  // 1 then 0 for each bit

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
            const unsigned word = getBe16(words, 2UL * i);
            ok = setIOState(LINE_ADC_CLOCK, 0) && setIOState(LINE_ADC_SELECT, 0);
            for (unsigned bit = 16; ok && bit-- > 0;)
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
    uint8_t record[5] = {};  // marker 84 D9 01, pattern code, one byte without a meaning
    const bool found =
        eepRead(EEPROM_COLOUR, record, sizeof record) && record[0] == 0x84 && record[1] == 0xD9 && record[2] == 0x01;
    if (found && record[3] < std::size(PATTERN_PHASES)) {
        colour = COLOUR_RGGB;
        offsetX = PATTERN_PHASES[record[3]].offsetX;
        offsetY = PATTERN_PHASES[record[3]].offsetY;
    }
    TRACE_DETAIL("%s    colour = %d, offsetX = %d, offsetY = %d\n", colour, offsetX, offsetY);
}
