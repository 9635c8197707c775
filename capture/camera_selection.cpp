// SPDX-License-Identifier: MIT
#include "capture/camera_selection.h"

#include <string_view>
#include <utility>

#include "capture/text.h"
#include "capture/usb_nodes.h"

namespace vorncapture {
namespace {

constexpr size_t LONGEST_INDEX = 2;  // digits

Error noSuchCamera(const std::vector<CameraHandle>& cameras, const std::string& wanted)
{
    if (cameras.empty())
        return {ErrorKind::NO_SUCH_CAMERA, "no camera is attached; is it switched on and its USB cable plugged in?",
                ""};
    std::string attached;
    for (size_t index = 0; index < cameras.size(); ++index)
        attached += (index > 0 ? ", " : "") + std::to_string(index) +
                    (cameras[index] ? std::string(" ") + cameras[index]->getName() : " (opened)");
    return {ErrorKind::NO_SUCH_CAMERA, "no camera " + wanted + "; attached: " + attached, ""};
}

/// Finds the camera without opening any.
Result<size_t> findUnopened(const std::vector<CameraHandle>& cameras, const CameraSelector& selector)
{
    if (cameras.empty())
        return noSuchCamera(cameras, "");
    if (selector.by == CameraSelector::By::INDEX) {
        if (selector.number >= cameras.size())
            return noSuchCamera(cameras, "with index " + std::to_string(selector.number));
        return size_t{selector.number};
    }
    const bool any = selector.by == CameraSelector::By::ONLY;
    const std::string wanted = foldedModel(selector.model);
    std::vector<size_t> fitting;
    for (size_t index = 0; index < cameras.size(); ++index) {
        if (any || foldedModel(cameras[index]->getName()) == wanted)
            fitting.push_back(index);
    }
    if (fitting.empty())
        return noSuchCamera(cameras, "of model " + selector.model);
    if (fitting.size() > 1) {
        const std::string which = any ? "cameras are" : std::string(cameras[fitting.front()]->getName()) + " are";
        return Error{ErrorKind::BAD_REQUEST,
                     std::to_string(fitting.size()) + " " + which + " attached; choose one by index or serial number",
                     ""};
    }
    return fitting.front();
}

Result<std::unique_ptr<Session>> openSerial(std::vector<CameraHandle> cameras, unsigned int serialNumber,
                                            const SessionOptions& options)
{
    if (cameras.empty())
        return noSuchCamera(cameras, "");
    std::optional<Error> obstacle;
    for (size_t index = 0; index < cameras.size(); ++index) {
        SessionOptions own = options;
        own.listIndex = static_cast<int>(index);
        auto session = Session::open(std::move(cameras[index]), own);
        if (session.ok() && session.value()->info().serialNumber == serialNumber)
            return session;
        if (!session.ok()) {
            if (session.error().kind == ErrorKind::CANCELLED)
                return session;
            // The one in use is the likeliest to be the one wanted.
            if (!obstacle || obstacle->kind != ErrorKind::BUSY)
                obstacle = session.error();
        }
    }
    if (obstacle) {
        obstacle->text = "no camera with serial number " + std::to_string(serialNumber) +
                         " among those that open; another one: " + obstacle->text;
        return *obstacle;
    }
    return Error{ErrorKind::NO_SUCH_CAMERA,
                 "none of the attached cameras has the serial number " + std::to_string(serialNumber), ""};
}

/// Opens the camera at a place on the bus. The library tells a camera's USB ids only, so of several alike each is
/// opened until the device's node is found to be in use by this process.
Result<std::unique_ptr<Session>> openPort(std::vector<CameraHandle> cameras, const std::string& place,
                                          const SessionOptions& options)
{
    struct Candidate {
        size_t index;
        std::string path;
    };
    std::vector<Candidate> candidates;
    for (size_t index = 0; index < cameras.size(); ++index) {
        for (const UsbNode& node : nodesOfCamera(static_cast<int>(index))) {
            if (node.isAt(place))
                candidates.push_back({index, node.path});
        }
    }
    for (const Candidate& candidate : candidates) {
        SessionOptions own = options;
        own.listIndex = static_cast<int>(candidate.index);
        auto session = Session::open(std::move(cameras[candidate.index]), own);
        if (candidates.size() == 1 || (session.ok() && openInThisProcess(candidate.path)))
            return session;
    }
    return noSuchCamera(cameras, "at " + place);
}

}  // namespace

Result<CameraSelector> CameraSelector::parse(const std::string& text)
{
    if (text.empty())
        return CameraSelector{};
    constexpr std::string_view INDEX = "index:";
    constexpr std::string_view SERIAL = "serial:";
    const std::string_view view = text;
    if (view.starts_with(INDEX) || view.starts_with(SERIAL)) {
        const bool byIndex = view.starts_with(INDEX);
        const auto number = parseNumber<unsigned int>(view.substr(byIndex ? INDEX.size() : SERIAL.size()));
        if (!number)
            return Error{ErrorKind::BAD_REQUEST, "\"" + text + "\" names no camera: a whole number must follow", ""};
        return CameraSelector{byIndex ? By::INDEX : By::SERIAL, *number, ""};
    }
    if (const auto number = parseNumber<unsigned int>(view))
        return CameraSelector{view.size() <= LONGEST_INDEX ? By::INDEX : By::SERIAL, *number, ""};
    const bool place = view.find_first_not_of("0123456789.-:") == std::string_view::npos &&
                       view.find_first_of("-:") != std::string_view::npos;
    return CameraSelector{place ? By::PORT : By::MODEL, 0, text};
}

Result<std::unique_ptr<Session>> openSelected(std::vector<CameraHandle> cameras, const CameraSelector& selector,
                                              const SessionOptions& options)
{
    if (selector.by == CameraSelector::By::SERIAL)
        return openSerial(std::move(cameras), selector.number, options);
    if (selector.by == CameraSelector::By::PORT)
        return openPort(std::move(cameras), selector.model, options);
    const Result<size_t> index = findUnopened(cameras, selector);
    if (!index.ok())
        return index.error();
    SessionOptions own = options;
    own.listIndex = static_cast<int>(index.value());
    return Session::open(std::move(cameras[index.value()]), own);
}

}  // namespace vorncapture
