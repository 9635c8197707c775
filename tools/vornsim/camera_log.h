// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "device/usb/usb_device.h"

namespace vornsim {

/// A file that several cameras write lines to, each with the time of day. Safe to use from several threads.
class LogFile {
public:
    LogFile() = default;

    /// Starts the file anew; "-" means standard error. @return 0 or an errno.
    int open(const std::string& path);

    /// Appends a line. Does nothing while no file is open.
    void write(const std::string& line);

private:
    struct Close {
        void operator()(std::FILE* file) const;
    };
    std::mutex mutex_;
    std::unique_ptr<std::FILE, Close> file_;
};

/// What one camera has to say, written to a common file, and its complaints counted.
class CameraLog : public DeviceLog {
public:
    /// @p number counts from 1; @p file must outlive the log.
    CameraLog(unsigned number, const std::string& model, LogFile& file);

    void note(const std::string& text) override;
    void complain(const std::string& text) override;

    /// "camera 1 (Vorn K12)".
    const std::string& cameraName() const { return name_; }

    /// How many requests there were that real firmware could not serve. Ask when the camera is at rest.
    unsigned complaintCount() const { return complaintCount_; }

    /// The first of them.
    const std::string& firstComplaint() const { return firstComplaint_; }

private:
    std::string name_;
    LogFile& file_;
    unsigned complaintCount_ = 0;
    std::string firstComplaint_;
};

}  // namespace vornsim
