// SPDX-License-Identifier: MIT
#include "quicker_converter.h"

namespace vornsim {
namespace {

constexpr unsigned WORD_BITS = 16;

}  // namespace

// Bit 15: 0, a write; bits 14 to 12: register; the rest: value.
const QuickerConverter::Words QuickerConverter::SETUP_WORDS = {0x0058, 0x10C0, 0x2000, 0x3000,
                                                               0x4000, 0x5020, 0x6115, 0x7001};

void QuickerConverter::restart()
{
    wordsReceived_ = 0;
    bitCount_ = 0;
}

std::string QuickerConverter::linesChanged(uint8_t levels)
{
    const auto changed = static_cast<uint8_t>(levels ^ levels_);
    levels_ = levels;
    if ((changed & SELECT) != 0) {
        if (!selected())
            return endOfWord();
        bitCount_ = 0;
        shiftRegister_ = 0;
    } else if (selected() && (changed & levels & CLOCK) != 0) {
        ++bitCount_;
        shiftRegister_ = (shiftRegister_ << 1) | ((levels & DATA) != 0 ? 1U : 0U);
    }
    return {};
}

std::string QuickerConverter::endOfWord()
{
    // While a host sets its pins up it may select the converter and move the clock once; that means nothing.
    if (bitCount_ <= 1)
        return {};
    if (bitCount_ != WORD_BITS)
        return "converter: a word of " + std::to_string(bitCount_) + " bits";
    if (configured())
        return "converter: more words than it has registers";
    const size_t index = wordsReceived_++;
    if (shiftRegister_ != SETUP_WORDS[index])
        return "converter: word " + std::to_string(index) + " is " + std::to_string(shiftRegister_) + ", not " +
               std::to_string(SETUP_WORDS[index]);
    return {};
}

}  // namespace vornsim
