// SPDX-License-Identifier: MIT
#include "frame_binding.h"

#include <pybind11/chrono.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "capture/fits_writer.h"
#include "capture/png_writer.h"
#include "interpreter_released.h"
#include "python_errors.h"

namespace py = pybind11;

namespace vornpy {
namespace {

const char* const CREATOR = "python3-vornccd " VORNCCD_VERSION;
constexpr py::ssize_t COLOURS = 3;

/// An array that shows the picture's own pixels; @p self, the Python object, stays as long as it does.
py::array pixelsOf(const py::object& self)
{
    const auto& frame = *self.cast<const Picture&>().frame;
    py::array_t<uint16_t> pixels({static_cast<py::ssize_t>(frame.height), static_cast<py::ssize_t>(frame.width)},
                                 frame.pixels.data(), self);
    pixels.attr("flags").attr("writeable") = false;
    return pixels;
}

/// The value as the file has it, with so many digits.
double asWritten(double value, int digits)
{
    std::array<char, 64> text = {};
    (void)std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return std::strtod(text.data(), nullptr);
}

py::list cardsOf(const Picture& picture)
{
    py::list cards;
    for (const vorncapture::FitsCard& card : vorncapture::fitsCards(*picture.frame, CREATOR)) {
        py::object value;
        if (const auto* number = std::get_if<double>(&card.value))
            value = py::float_(asWritten(*number, card.digits));
        else
            value = std::visit([](const auto& held) -> py::object { return py::cast(held); }, card.value);
        cards.append(py::make_tuple(card.key, value, card.comment));
    }
    return cards;
}

/// Moves levels into an array of rows and columns, with colours where there are three a pixel.
py::array levelsOf(const Picture& picture)
{
    std::unique_ptr<std::vector<uint8_t>> levels;
    {
        const InterpreterReleased released;
        levels = std::make_unique<std::vector<uint8_t>>(vorncapture::stretchedLevels(*picture.frame));
    }
    const vorncapture::Frame& frame = *picture.frame;
    std::vector<py::ssize_t> shape = {static_cast<py::ssize_t>(frame.height), static_cast<py::ssize_t>(frame.width)};
    if (frame.bayer())
        shape.push_back(COLOURS);
    const uint8_t* data = levels->data();
    const py::capsule owner(levels.get(), [](void* held) { delete static_cast<std::vector<uint8_t>*>(held); });
    (void)levels.release();
    return py::array_t<uint8_t>(shape, data, owner);
}

py::bytes pngOf(const py::array_t<uint8_t, py::array::c_style | py::array::forcecast>& levels)
{
    const bool colour = levels.ndim() == 3;
    if (levels.ndim() < 2 || levels.size() == 0 || (colour && levels.shape(2) != COLOURS))
        throw py::value_error("a picture has rows and columns, and none or three colours");
    const std::vector<uint8_t> bytes(levels.data(), levels.data() + levels.size());
    const auto height = static_cast<unsigned int>(levels.shape(0));
    const auto width = static_cast<unsigned int>(levels.shape(1));
    std::vector<uint8_t> file;
    {
        const InterpreterReleased released;
        file = vorncapture::encodePng(bytes, width, height, colour);
    }
    if (file.empty())
        throw std::bad_alloc();
    return {reinterpret_cast<const char*>(file.data()), file.size()};
}

template <typename Write>
void writeFile(const Write& write)
{
    auto written = [&write] {
        const InterpreterReleased released;
        return write();
    }();
    (void)valueOrRaise(written);
}

}  // namespace

void bindFrame(py::module_& module)
{
    using vorncapture::Frame;
    const auto field = [](auto read) { return [read](const Picture& picture) { return read(*picture.frame); }; };
    py::class_<Picture>(module, "Picture")
        .def("pixels", &pixelsOf)
        .def("cards", &cardsOf)
        .def("levels", &levelsOf)
        .def("write_fits",
             [](const Picture& picture, const std::string& path, bool overwrite) {
                 writeFile([&] { return vorncapture::writeFits(*picture.frame, path, CREATOR, overwrite); });
             })
        .def("write_png",
             [](const Picture& picture, const std::string& path, bool overwrite) {
                 writeFile([&] { return vorncapture::writePng(*picture.frame, path, overwrite); });
             })
        .def_property_readonly("kind", [](const Picture& picture) { return vorncapture::frameKindName(picture.kind); })
        .def_property_readonly("width", field([](const Frame& frame) { return frame.width; }))
        .def_property_readonly("height", field([](const Frame& frame) { return frame.height; }))
        .def_property_readonly("camera", field([](const Frame& frame) { return frame.camera.name; }))
        .def_property_readonly("serial", field([](const Frame& frame) { return frame.camera.serialNumber; }))
        .def_property_readonly("seconds", field([](const Frame& frame) { return frame.exposureSeconds; }))
        .def_property_readonly("start", field([](const Frame& frame) {
                                   return std::chrono::duration<double>(frame.start.time_since_epoch()).count();
                               }))
        .def_property_readonly("region", field([](const Frame& frame) {
                                   return std::make_tuple(frame.region.x, frame.region.y, frame.region.width,
                                                          frame.region.height);
                               }))
        .def_property_readonly("binning", field([](const Frame& frame) {
                                   return std::make_tuple(frame.request.binX, frame.request.binY);
                               }))
        .def_property_readonly("celsius", field([](const Frame& frame) { return frame.telemetry.ccdCelsius(); }))
        .def_property_readonly("filter", field([](const Frame& frame) { return frame.filter; }))
        .def_property_readonly("filter_name", field([](const Frame& frame) { return frame.filterName; }))
        .def_property_readonly("notes", field([](const Frame& frame) { return frame.notes; }));
    module.def("encode_png", &pngOf);
}

}  // namespace vornpy
