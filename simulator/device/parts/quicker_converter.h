// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vornsim {

/// Serial port of the converter in a QUICKER camera, on three lines of the bridge: line 2 selects it while low, line 5
/// carries a bit, which it takes when line 6 rises. After every restart it wants its eight set-up words, highest bit
/// first, each within one selection.
class QuickerConverter {
public:
    static constexpr size_t WORD_COUNT = 8;
    using Words = std::array<uint16_t, WORD_COUNT>;

    /// What the factory found to be right for every converter of this kind.
    static const Words SETUP_WORDS;

    /// The levels of lines 0 to 7 of the bridge have changed. @return what is wrong, or an empty text.
    std::string linesChanged(uint8_t levels);

    /// Forgets the words received.
    void restart();

    bool selected() const { return (levels_ & SELECT) == 0; }
    /// @return whether all words have arrived since the restart.
    bool configured() const { return wordsReceived_ == WORD_COUNT; }

private:
    static constexpr uint8_t SELECT = 1U << 2;
    static constexpr uint8_t DATA = 1U << 5;
    static constexpr uint8_t CLOCK = 1U << 6;

    std::string endOfWord();

    uint8_t levels_ = 0xFF;
    size_t wordsReceived_ = 0;
    unsigned bitCount_ = 0;
    uint32_t shiftRegister_ = 0;
};

}  // namespace vornsim
