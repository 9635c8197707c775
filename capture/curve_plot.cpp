// SPDX-License-Identifier: MIT
#include "capture/curve_plot.h"

#include <cairo-svg.h>
#include <cairo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <span>
#include <utility>

#include "capture/fits_writer.h"
#include "capture/output_file.h"
#include "capture/text.h"

namespace vorncapture {
namespace {

constexpr double WIDTH = 900.0;
constexpr double HEIGHT = 500.0;
constexpr double LEFT = 70.0;
constexpr double RIGHT = WIDTH - 60.0;
constexpr double TOP = 60.0;
constexpr double BOTTOM = HEIGHT - 55.0;
constexpr double LETTER_SIZE = 13.0;
constexpr double TITLE_SIZE = 17.0;
constexpr uint32_t GRID = 0xDDDDDD;
constexpr uint32_t INK = 0x333333;
constexpr uint32_t TEMPERATURE_COLOUR = 0x1F5FBF;
constexpr uint32_t TARGET_COLOUR = 0x2F9F3F;
constexpr uint32_t POWER_COLOUR = 0xD08020;
constexpr int WISHED_STEPS = 6;  // of a scale
constexpr int MOST_TIMES = 9;    // on the time scale
constexpr double DAY_SECONDS = 86400.0;

using Bytes = std::vector<uint8_t>;

cairo_status_t append(void* bytes, const unsigned char* data, unsigned int length)
{
    static_cast<Bytes*>(bytes)->insert(static_cast<Bytes*>(bytes)->end(), data, data + length);
    return CAIRO_STATUS_SUCCESS;
}

enum class Align { START, MIDDLE, END };

/// A drawing in the making; cairo keeps its first failure to the end.
class Drawing {
public:
    explicit Drawing(bool svg)
        : svg_(svg),
          surface_(
              svg ? cairo_svg_surface_create_for_stream(append, &bytes_, WIDTH, HEIGHT)
                  : cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(WIDTH), static_cast<int>(HEIGHT))),
          cairo_(cairo_create(surface_.get()))
    {
        colour(0xFFFFFF);
        cairo_paint(cairo_.get());
        cairo_set_line_join(cairo_.get(), CAIRO_LINE_JOIN_ROUND);
        cairo_set_line_cap(cairo_.get(), CAIRO_LINE_CAP_ROUND);
        cairo_select_font_face(cairo_.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    }

    void line(double fromX, double fromY, double toX, double toY, uint32_t ink, double width)
    {
        cairo_move_to(cairo_.get(), fromX, fromY);
        cairo_line_to(cairo_.get(), toX, toY);
        stroke(ink, width);
    }

    void moveTo(double x, double y) { cairo_move_to(cairo_.get(), x, y); }
    void lineTo(double x, double y) { cairo_line_to(cairo_.get(), x, y); }
    void stroke(uint32_t ink, double width)
    {
        colour(ink);
        cairo_set_line_width(cairo_.get(), width);
        cairo_stroke(cairo_.get());
    }

    /// Writes @p letters with their middle at the height @p y.
    /// @return where they end
    double text(double x, double y, const std::string& letters, Align align, double size = LETTER_SIZE)
    {
        cairo_text_extents_t extents = {};
        cairo_font_extents_t font = {};
        cairo_set_font_size(cairo_.get(), size);
        cairo_text_extents(cairo_.get(), letters.c_str(), &extents);
        cairo_font_extents(cairo_.get(), &font);
        if (align != Align::START)
            x -= extents.x_advance * (align == Align::END ? 1.0 : 0.5);
        colour(INK);
        cairo_move_to(cairo_.get(), x, y + (font.ascent - font.descent) / 2.0);
        cairo_show_text(cairo_.get(), letters.c_str());
        return x + extents.x_advance;
    }

    /// @return the finished file, or why there is none.
    Result<Bytes> finish()
    {
        cairo_status_t status = cairo_status(cairo_.get());
        cairo_.reset();
        if (status == CAIRO_STATUS_SUCCESS && !svg_)
            status = cairo_surface_write_to_png_stream(surface_.get(), append, &bytes_);
        cairo_surface_finish(surface_.get());
        if (status == CAIRO_STATUS_SUCCESS)
            status = cairo_surface_status(surface_.get());
        if (status != CAIRO_STATUS_SUCCESS)
            return Error{ErrorKind::FILE_ERROR,
                         std::string("the curve cannot be drawn: ") + cairo_status_to_string(status), ""};
        return std::move(bytes_);
    }

private:
    void colour(uint32_t rgb)
    {
        cairo_set_source_rgb(cairo_.get(), (rgb >> 16 & 0xFF) / 255.0, (rgb >> 8 & 0xFF) / 255.0, (rgb & 0xFF) / 255.0);
    }

    struct Release {
        void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
        void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
    };

    bool svg_;
    Bytes bytes_;
    std::unique_ptr<cairo_surface_t, Release> surface_;
    std::unique_ptr<cairo_t, Release> cairo_;
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

Clock::Utc later(Clock::Utc start, double seconds)
{
    return start + std::chrono::milliseconds(std::llround(seconds * 1000.0));
}

double column(double part)
{
    return LEFT + std::clamp(part, 0.0, 1.0) * (RIGHT - LEFT);
}

double row(double part)
{
    return BOTTOM - std::clamp(part, 0.0, 1.0) * (BOTTOM - TOP);
}

/// One of the three curves.
struct Series {
    const char* name;
    uint32_t colour;
    std::optional<double> CurvePoint::*value;
    bool percent;  ///< against the right scale

    std::optional<double> of(const CurvePoint& point) const
    {
        const auto& found = point.*value;
        return found && std::isfinite(*found) ? found : std::nullopt;
    }
};

constexpr std::array<Series, 3> SERIES = {{{"cooler power", POWER_COLOUR, &CurvePoint::powerPercent, true},
                                           {"target", TARGET_COLOUR, &CurvePoint::targetCelsius, false},
                                           {"sensor", TEMPERATURE_COLOUR, &CurvePoint::celsius, false}}};

Axis temperatureAxis(const std::vector<CurvePoint>& points)
{
    std::vector<double> temperatures;
    for (const CurvePoint& point : points) {
        for (const Series& series : SERIES) {
            if (const auto value = series.of(point); value && !series.percent)
                temperatures.push_back(*value);
        }
    }
    if (temperatures.empty())
        temperatures = {0.0};
    const auto [low, high] = std::minmax_element(temperatures.begin(), temperatures.end());
    return roundAxis(*low - 0.5, *high + 0.5);
}

void drawScales(Drawing& drawing, const CoolingCurve& curve, const Axis& time, const Axis& celsius)
{
    for (int i = 0; i <= celsius.stepCount(); ++i) {
        const double y = row(celsius.part(celsius.at(i)));
        drawing.line(LEFT, y, RIGHT, y, GRID, 1.0);
        drawing.text(LEFT - 8.0, y, label(celsius.at(i), celsius.step), Align::END);
    }
    for (const auto& [seconds, text] : timeScale(curve.start, time.high)) {
        const double x = column(time.part(seconds));
        drawing.line(x, TOP, x, BOTTOM, GRID, 1.0);
        drawing.text(x, BOTTOM + 14.0, text, Align::MIDDLE);
    }
    for (int percent = 0; percent <= 100; percent += 25)
        drawing.text(RIGHT + 8.0, row(percent / 100.0), std::to_string(percent), Align::START);
    drawing.line(LEFT, TOP, LEFT, BOTTOM, INK, 1.0);
    drawing.line(LEFT, BOTTOM, RIGHT, BOTTOM, INK, 1.0);
    drawing.text(LEFT - 8.0, TOP - 18.0, "\u00b0C", Align::END);
    drawing.text(RIGHT + 8.0, TOP - 18.0, "%", Align::START);
    drawing.text((LEFT + RIGHT) / 2.0, HEIGHT - 18.0, "time of day, UTC", Align::MIDDLE);
}

void drawTitleAndLegend(Drawing& drawing, const CoolingCurve& curve, double lastSeconds)
{
    constexpr size_t DATE_LENGTH = 10;
    const std::string first = fitsDate(curve.start).substr(0, DATE_LENGTH);
    const std::string last = fitsDate(later(curve.start, lastSeconds)).substr(0, DATE_LENGTH);
    drawing.text(LEFT, 20.0, curve.camera + ", " + first + (first == last ? "" : " to " + last), Align::START,
                 TITLE_SIZE);
    constexpr double SAMPLE_LENGTH = 24.0;
    double x = LEFT;
    for (const Series& series : SERIES) {
        const bool drawn = std::any_of(curve.points.begin(), curve.points.end(),
                                       [&series](const CurvePoint& point) { return series.of(point).has_value(); });
        if (!drawn)
            continue;
        drawing.line(x, TOP - 18.0, x + SAMPLE_LENGTH, TOP - 18.0, series.colour, 3.0);
        x = drawing.text(x + SAMPLE_LENGTH + 6.0, TOP - 18.0, series.name, Align::START) + 20.0;
    }
}

void drawSeries(Drawing& drawing, const CoolingCurve& curve, const Series& series, const Axis& time, const Axis& axis)
{
    bool begun = false;  // a gap in the values is a gap in the curve
    for (const CurvePoint& point : curve.points) {
        const auto value = series.of(point);
        if (value) {
            const double x = column(time.part(point.seconds));
            const double y = row(axis.part(*value));
            if (!begun)
                drawing.moveTo(x, y);
            drawing.lineTo(x, y);
        }
        begun = value.has_value();
    }
    drawing.stroke(series.colour, 2.0);
}

Result<Bytes> draw(const CoolingCurve& curve, bool svg)
{
    const double lastSeconds = curve.points.empty() ? 0.0 : curve.points.back().seconds;
    const Axis time = {0.0, std::max(lastSeconds, 1.0), 1.0};
    const Axis celsius = temperatureAxis(curve.points);
    const Axis percent = {0.0, 100.0, 25.0};
    Drawing drawing(svg);
    drawScales(drawing, curve, time, celsius);
    drawTitleAndLegend(drawing, curve, lastSeconds);
    for (const Series& series : SERIES)
        drawSeries(drawing, curve, series, time, series.percent ? percent : celsius);
    return drawing.finish();
}

}  // namespace

std::vector<std::pair<double, std::string>> timeScale(Clock::Utc start, double lastSeconds)
{
    constexpr double STEPS[] = {1,   2,   5,    10,   15,   30,    60,    120,   300,
                                600, 900, 1800, 3600, 7200, 10800, 21600, 43200, DAY_SECONDS};
    double step = std::ceil(lastSeconds / DAY_SECONDS / MOST_TIMES) * DAY_SECONDS;
    for (const double candidate : STEPS) {
        if (lastSeconds / candidate <= MOST_TIMES) {
            step = candidate;
            break;
        }
    }
    const double sinceEpoch = std::chrono::duration<double>(start.time_since_epoch()).count();
    std::vector<std::pair<double, std::string>> scale;
    for (double at = std::ceil(sinceEpoch / step) * step; at <= sinceEpoch + lastSeconds; at += step) {
        const std::string date = fitsDate(later(start, at - sinceEpoch));
        scale.emplace_back(at - sinceEpoch,
                           step >= DAY_SECONDS ? date.substr(5, 5) : date.substr(11, step < 60 ? 8 : 5));
    }
    return scale;
}

Status checkCurvePlot(const std::string& path, bool overwrite)
{
    const std::string name = foldedName(path);
    if (!name.ends_with(".png") && !name.ends_with(".svg"))
        return Error{ErrorKind::BAD_REQUEST,
                     "\"" + path + "\": a curve is drawn as PNG or SVG; give a name that ends in .png or .svg", ""};
    return OutputFile(path, overwrite).check();
}

Status writeCurvePlot(const CoolingCurve& curve, const std::string& path, bool overwrite)
{
    Status possible = checkCurvePlot(path, overwrite);
    if (!possible.ok())
        return possible;
    const Result<Bytes> drawn = draw(curve, foldedName(path).ends_with(".svg"));
    if (!drawn.ok())
        return drawn.error();
    return OutputFile(path, overwrite).write(drawn.value());
}

}  // namespace vorncapture
