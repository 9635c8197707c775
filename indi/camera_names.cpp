// SPDX-License-Identifier: MIT
#include "camera_names.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <thread>
#include <utility>

#include "capture/camera_list.h"
#include "capture/usb_nodes.h"

namespace vornindi {

using vorncapture::Error;
using vorncapture::ErrorKind;
using vorncapture::Result;
using vorncapture::Session;

CameraNames::CameraNames()
{
    const char* home = std::getenv("HOME");
    const std::string folder = std::string(home != nullptr ? home : "/tmp") + "/.indi";
    (void)mkdir(folder.c_str(), 0755);
    path_ = folder + "/vorn_cameras";
    std::ifstream file(path_);
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        Entry entry;
        std::string serialNumber;
        if (!std::getline(fields, entry.name, '\t') || !std::getline(fields, entry.model, '\t') ||
            !std::getline(fields, serialNumber, '\t') || entry.name.empty() || find(entry.name) != nullptr)
            continue;
        std::getline(fields, entry.port);
        entry.serialNumber = static_cast<unsigned int>(std::strtoul(serialNumber.c_str(), nullptr, 10));
        entries_.push_back(entry);
    }
}

CameraNames::Entry* CameraNames::find(const std::string& name)
{
    const auto found =
        std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.name == name; });
    return found != entries_.end() ? &*found : nullptr;
}

CameraNames::Entry& CameraNames::add(const std::string& model)
{
    std::string name = model;
    for (int count = 2; find(name) != nullptr; ++count)
        name = model + " " + std::to_string(count);
    entries_.push_back({name, model, 0, ""});
    return entries_.back();
}

std::vector<std::string> CameraNames::namesFor(const std::string& model, size_t count,
                                               const std::vector<std::string>& ports)
{
    const std::lock_guard guard(mutex_);
    const auto isHere = [&ports](const Entry& entry) {
        return std::find(ports.begin(), ports.end(), entry.port) != ports.end();
    };
    std::vector<std::string> names;
    for (const bool here : {true, false}) {
        for (const Entry& entry : entries_) {
            if (entry.model == model && isHere(entry) == here && names.size() < count)
                names.push_back(entry.name);
        }
    }
    while (names.size() < count)
        names.push_back(add(model).name);
    return names;
}

std::string CameraNames::nameOf(const std::string& model, unsigned int serialNumber)
{
    const std::lock_guard guard(mutex_);
    for (const Entry& entry : entries_) {
        if (entry.model == model && entry.serialNumber == serialNumber)
            return entry.name;
    }
    Entry& entry = add(model);
    entry.serialNumber = serialNumber;
    save();
    return entry.name;
}

/// @return whether the opened camera may have the name; then it is remembered.
bool CameraNames::accept(const std::string& name, unsigned int serialNumber, const std::vector<std::string>& ports)
{
    const std::lock_guard guard(mutex_);
    Entry* entry = find(name);
    if (entry == nullptr)
        return false;
    const bool taken = std::any_of(entries_.begin(), entries_.end(), [&](const Entry& other) {
        return other.model == entry->model && other.serialNumber == serialNumber && serialNumber != 0;
    });
    // A camera without a serial number is taken for the one that is meant.
    if (entry->serialNumber != serialNumber && serialNumber != 0 && (entry->serialNumber != 0 || taken))
        return false;
    const std::string port = ports.size() == 1 ? ports.front() : entry->port;
    if (entry->serialNumber == serialNumber && entry->port == port)
        return true;
    entry->serialNumber = serialNumber;
    entry->port = port;
    save();
    return true;
}

void CameraNames::save() const
{
    const std::string temporary = path_ + ".new";
    {
        std::ofstream file(temporary);
        for (const Entry& entry : entries_)
            file << entry.name << '\t' << entry.model << '\t' << entry.serialNumber << '\t' << entry.port << '\n';
        if (!file.flush())
            return;  // the old file stays; names are then as they were
    }
    (void)std::rename(temporary.c_str(), path_.c_str());
}

Result<std::unique_ptr<Session>> CameraNames::open(const std::string& name, std::string& stranger)
{
    // Another device of this process may just be looking for its own camera among equal ones.
    constexpr int TRIES = 10;
    constexpr std::chrono::milliseconds PAUSE{500};
    std::string model;
    bool several = false;
    {
        const std::lock_guard guard(mutex_);
        const Entry* entry = find(name);
        model = entry != nullptr ? entry->model : name;
        several =
            std::count_if(entries_.begin(), entries_.end(), [&](const Entry& one) { return one.model == model; }) > 1;
    }
    std::optional<Error> obstacle;
    for (int tries = 0; tries < TRIES; ++tries) {
        auto cameras = vorncapture::listCameras();
        obstacle.reset();
        stranger.clear();
        for (size_t index = 0; index < cameras.size(); ++index) {
            if (cameras[index]->getName() != model)
                continue;
            vorncapture::SessionOptions options;
            options.listIndex = static_cast<int>(index);
            auto session = Session::open(std::move(cameras[index]), options);
            if (!session.ok()) {
                obstacle = session.error();
                continue;
            }
            std::vector<std::string> ports;
            for (const auto& node : vorncapture::nodesOfCamera(static_cast<int>(index))) {
                if (vorncapture::openInThisProcess(node.path))
                    ports.push_back(node.port);
            }
            const unsigned int serialNumber = session.value()->info().serialNumber;
            if (accept(name, serialNumber, ports))
                return session;
            stranger = nameOf(model, serialNumber);
        }
        if (!obstacle || obstacle->kind != ErrorKind::BUSY || !several)
            break;
        std::this_thread::sleep_for(PAUSE);
    }
    if (obstacle)
        return *obstacle;
    if (!stranger.empty())
        return Error{ErrorKind::NO_SUCH_CAMERA, "the attached " + model + " is another camera, called " + stranger,
                     "Connect " + stranger + ". If it replaces the old camera, delete the line of " + name + " in " +
                         path_ + " and start INDI again."};
    return Error{ErrorKind::NO_SUCH_CAMERA, "no " + model + " is attached",
                 "Is it switched on and its USB cable plugged in? Then connect again."};
}

}  // namespace vornindi
