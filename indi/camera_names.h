// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "capture/result.h"
#include "capture/session.h"

namespace vornindi {

/// What cameras are called. A name belongs to one camera for good, for clients keep settings under it: the first camera
/// of a model ever connected is called as the model, the second one "Vorn K12 2". Which is which is known by the serial
/// number, which a camera reports when it has been opened, and is kept in a file beside INDI's settings.
class CameraNames {
public:
    /// Reads the file. A file that is missing or damaged names no cameras.
    CameraNames();

    /// @return the names for the attached cameras of @p model. Where fewer are attached than are known, those known to
    /// be at one of @p ports come first.
    std::vector<std::string> namesFor(const std::string& model, size_t count, const std::vector<std::string>& ports);

    /// @return the name of a camera that has been opened; a new one, where it has none.
    std::string nameOf(const std::string& model, unsigned int serialNumber);

    /// Opens the camera that has @p name. One that has not been connected before takes the name if it is free.
    /// @param stranger receives the name of another camera of the model that is attached in its place
    /// Errors: NO_SUCH_CAMERA and those of Session::open().
    vorncapture::Result<std::unique_ptr<vorncapture::Session>> open(const std::string& name, std::string& stranger);

private:
    struct Entry {
        std::string name;
        std::string model;
        unsigned int serialNumber = 0;  ///< 0: not known yet
        std::string port;               ///< where it was last, empty: not known
    };

    Entry* find(const std::string& name);
    Entry& add(const std::string& model);
    bool accept(const std::string& name, unsigned int serialNumber, const std::vector<std::string>& ports);
    void save() const;

    std::mutex mutex_;
    std::string path_;
    std::vector<Entry> entries_;
};

}  // namespace vornindi
