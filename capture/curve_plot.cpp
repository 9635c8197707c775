// SPDX-License-Identifier: MIT
#include "capture/curve_plot.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "capture/output_file.h"

namespace vorncapture {
namespace {

constexpr int WIDTH = 900;
constexpr int HEIGHT = 500;
constexpr int LEFT = 70;
constexpr int RIGHT = WIDTH - 60;
constexpr int TOP = 30;
constexpr int BOTTOM = HEIGHT - 45;
constexpr int SCALE = 2;  // of the letters
constexpr uint32_t GRID = 0xDDDDDD;
constexpr uint32_t INK = 0x333333;
constexpr int WISHED_STEPS = 6;  // of a scale

/// Letters of the scales: five rows of three dots, the upper left one in the highest bit.
struct Glyph {
    char letter;
    uint16_t dots;
};
constexpr Glyph GLYPHS[] = {{'0', 0b111101101101111}, {'1', 0b010110010010111}, {'2', 0b111001111100111},
                            {'3', 0b111001111001111}, {'4', 0b101101111001001}, {'5', 0b111100111001111},
                            {'6', 0b111100111101111}, {'7', 0b111001010010010}, {'8', 0b111101111101111},
                            {'9', 0b111101111001111}, {'-', 0b000000111000000}, {'.', 0b000000000000010},
                            {'%', 0b101001010100101}, {'C', 0b111100100100111}, {'m', 0b000111111101101},
                            {'i', 0b010000010010010}, {'n', 0b000110101101101}};
constexpr int GLYPH_WIDTH = 3;
constexpr int GLYPH_HEIGHT = 5;

class Painter {
public:
    Painter() : canvas_{WIDTH, HEIGHT, std::vector<uint8_t>(size_t{WIDTH} * HEIGHT * 3, 0xFF)} {}

    void dot(int x, int y, uint32_t colour)
    {
        if (x < 0 || y < 0 || x >= WIDTH || y >= HEIGHT)
            return;
        uint8_t* place = &canvas_.rgb[(static_cast<size_t>(y) * WIDTH + static_cast<size_t>(x)) * 3];
        for (int channel = 0; channel < 3; ++channel)
            place[channel] = static_cast<uint8_t>(colour >> (16 - 8 * channel));
    }

    /// A line two dots thick.
    void line(double fromX, double fromY, double toX, double toY, uint32_t colour)
    {
        const int steps =
            std::max(1, static_cast<int>(std::ceil(std::max(std::abs(toX - fromX), std::abs(toY - fromY)))));
        for (int step = 0; step <= steps; ++step) {
            const double part = static_cast<double>(step) / steps;
            const int x = static_cast<int>(std::lround(fromX + (toX - fromX) * part));
            const int y = static_cast<int>(std::lround(fromY + (toY - fromY) * part));
            dot(x, y, colour);
            dot(x, y + 1, colour);
        }
    }

    /// @param alignment 0: begins at @p x; 1: is centred on it; 2: ends there
    void text(int x, int y, std::string_view letters, int alignment)
    {
        const int step = (GLYPH_WIDTH + 1) * SCALE;
        x -= alignment * static_cast<int>(letters.size()) * step / 2;
        for (const char letter : letters) {
            const auto* glyph = std::find_if(std::begin(GLYPHS), std::end(GLYPHS),
                                             [letter](const Glyph& row) { return row.letter == letter; });
            for (int i = 0; glyph != std::end(GLYPHS) && i < GLYPH_WIDTH * GLYPH_HEIGHT * SCALE * SCALE; ++i) {
                const int column = i % (GLYPH_WIDTH * SCALE);
                const int row = i / (GLYPH_WIDTH * SCALE);
                const int bit = row / SCALE * GLYPH_WIDTH + column / SCALE;
                if ((glyph->dots >> (GLYPH_WIDTH * GLYPH_HEIGHT - 1 - bit) & 1) != 0)
                    dot(x + column, y + row, INK);
            }
            x += step;
        }
    }

    Canvas take() { return std::move(canvas_); }

private:
    Canvas canvas_;
};

/// The values that a scale spans and where its lines are.
struct Axis {
    double low = 0.0;
    double high = 1.0;
    double step = 1.0;

    double part(double value) const { return (value - low) / (high - low); }
    int stepCount() const { return static_cast<int>((high - low) / step + 1e-6); }  // a little against rounding
    double at(int index) const { return low + index * step; }
};

/// @return a scale with round steps around all values.
Axis roundAxis(double low, double high)
{
    const double raw = std::max(high - low, 1e-3) / WISHED_STEPS;
    const double decade = std::pow(10.0, std::floor(std::log10(raw)));
    const double digit = raw / decade;
    const double step = decade * (digit <= 1.0 ? 1.0 : digit <= 2.0 ? 2.0 : digit <= 5.0 ? 5.0 : 10.0);
    return {std::floor(low / step) * step, std::max(std::ceil(high / step), std::floor(low / step) + 1.0) * step, step};
}

/// @return a multiple of the step with as many decimals as the step needs.
std::string label(double value, double step)
{
    const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step))));
    const double rounded = std::round(value / step) * step + 0.0;  // no "-0"
    std::array<char, 32> text = {};
    (void)std::snprintf(text.data(), text.size(), "%.*f", decimals, rounded);
    return text.data();
}

double column(double part)
{
    return LEFT + part * (RIGHT - LEFT);
}

double row(double part)
{
    return BOTTOM - part * (BOTTOM - TOP);
}

void drawScales(Painter& painter, const Axis& minutes, const Axis& celsius)
{
    for (int i = 0; i <= celsius.stepCount(); ++i) {
        const double y = row(celsius.part(celsius.at(i)));
        painter.line(LEFT, y, RIGHT, y, GRID);
        painter.text(LEFT - 8, static_cast<int>(y) - 4, label(celsius.at(i), celsius.step), 2);
    }
    for (int i = 0; i <= minutes.stepCount(); ++i) {
        const double x = column(minutes.part(minutes.at(i)));
        painter.line(x, TOP, x, BOTTOM, GRID);
        painter.text(static_cast<int>(x), BOTTOM + 10, label(minutes.at(i), minutes.step), 1);
    }
    for (int percent = 0; percent <= 100; percent += 25)
        painter.text(RIGHT + 8, static_cast<int>(row(percent / 100.0)) - 4, std::to_string(percent), 0);
    painter.text(LEFT - 8, 8, "C", 2);
    painter.text(RIGHT + 8, 8, "%", 0);
    painter.text((LEFT + RIGHT) / 2, HEIGHT - 16, "min", 1);
}

}  // namespace

Canvas drawCurve(const std::vector<CurvePoint>& points)
{
    std::vector<double> temperatures;
    double lastSeconds = 0.0;
    for (const CurvePoint& point : points) {
        lastSeconds = std::max(lastSeconds, point.seconds);
        for (const auto& celsius : {point.celsius, point.targetCelsius}) {
            if (celsius)
                temperatures.push_back(*celsius);
        }
    }
    if (temperatures.empty())
        temperatures = {0.0};
    const auto [low, high] = std::minmax_element(temperatures.begin(), temperatures.end());
    const Axis celsius = roundAxis(*low - 0.5, *high + 0.5);
    const Axis minutes = {0.0, std::max(lastSeconds / 60.0, 1e-3), roundAxis(0.0, lastSeconds / 60.0).step};
    const Axis percent = {0.0, 100.0, 25.0};

    Painter painter;
    drawScales(painter, minutes, celsius);
    struct Curve {
        std::optional<double> CurvePoint::*value;
        const Axis& axis;
        uint32_t colour;
    };
    const Curve curves[] = {{&CurvePoint::powerPercent, percent, POWER_COLOUR},
                            {&CurvePoint::targetCelsius, celsius, TARGET_COLOUR},
                            {&CurvePoint::celsius, celsius, TEMPERATURE_COLOUR}};
    for (const Curve& curve : curves) {
        const CurvePoint* before = nullptr;  // a gap in the values is a gap in the curve
        for (const CurvePoint& point : points) {
            const auto& value = point.*curve.value;
            if (value) {
                const CurvePoint& from = before != nullptr ? *before : point;
                painter.line(column(minutes.part(from.seconds / 60.0)),
                             row(std::clamp(curve.axis.part(*(from.*curve.value)), 0.0, 1.0)),
                             column(minutes.part(point.seconds / 60.0)),
                             row(std::clamp(curve.axis.part(*value), 0.0, 1.0)), curve.colour);
            }
            before = value ? &point : nullptr;
        }
    }
    painter.line(LEFT, TOP, LEFT, BOTTOM, INK);
    painter.line(LEFT, BOTTOM, RIGHT, BOTTOM, INK);
    return painter.take();
}

Status writeCurvePlot(const std::vector<CurvePoint>& points, const std::string& path, bool overwrite)
{
    OutputFile output(path, overwrite);
    Status possible = output.check();
    if (!possible.ok())
        return possible;
    const Canvas canvas = drawCurve(points);
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = canvas.width;
    image.height = canvas.height;
    image.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, output.temporaryPath().c_str(), 0, canvas.rgb.data(), 0, nullptr) == 0)
        return Error{ErrorKind::FILE_ERROR, "cannot write " + path + ": " + static_cast<const char*>(image.message),
                     "Is there room on the disk?"};
    return output.publish();
}

}  // namespace vorncapture
