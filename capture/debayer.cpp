// SPDX-License-Identifier: MIT
#include "capture/debayer.h"

#include <algorithm>
#include <array>

namespace vorncapture {
namespace {

constexpr size_t COLOURS = 3;
enum Colour : size_t { RED, GREEN, BLUE };

/// Sum and number of the values of each colour around a pixel.
struct Neighbours {
    std::array<uint32_t, COLOURS> sum = {};
    std::array<uint32_t, COLOURS> count = {};

    void add(size_t colour, uint16_t value)
    {
        sum[colour] += value;
        ++count[colour];
    }
};

/// Tells which colour a pixel of a picture saw.
class Pattern {
public:
    explicit Pattern(const Frame& frame) : phaseX_(frame.bayerX()), phaseY_(frame.bayerY()) {}

    Colour at(unsigned int column, unsigned int row) const
    {
        const bool oddColumn = ((column + phaseX_) & 1U) != 0;
        const bool oddRow = ((row + phaseY_) & 1U) != 0;
        if (oddColumn != oddRow)
            return GREEN;
        return oddRow ? BLUE : RED;
    }

private:
    unsigned int phaseX_;
    unsigned int phaseY_;
};

}  // namespace

std::vector<uint16_t> debayer(const Frame& frame)
{
    const Pattern pattern(frame);
    std::vector<uint16_t> colours;
    colours.reserve(frame.pixels.size() * COLOURS);
    for (unsigned int row = 0; row < frame.height; ++row) {
        const unsigned int top = row == 0 ? 0 : row - 1;
        const unsigned int bottom = std::min(row + 1, frame.height - 1);
        for (unsigned int column = 0; column < frame.width; ++column) {
            const unsigned int left = column == 0 ? 0 : column - 1;
            const unsigned int right = std::min(column + 1, frame.width - 1);
            // In a block of three by three around a pixel, those of each colour it lacks are all at the same distance.
            Neighbours neighbours;
            for (unsigned int y = top; y <= bottom; ++y) {
                for (unsigned int x = left; x <= right; ++x)
                    neighbours.add(pattern.at(x, y), frame.pixels[size_t{y} * frame.width + x]);
            }
            const uint16_t own = frame.pixels[size_t{row} * frame.width + column];
            for (const Colour colour : {RED, GREEN, BLUE}) {
                const uint32_t count = neighbours.count[colour];
                const bool seen = count == 0 || colour == pattern.at(column, row);
                colours.push_back(seen ? own : static_cast<uint16_t>(neighbours.sum[colour] / count));
            }
        }
    }
    return colours;
}

}  // namespace vorncapture
