// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "camera_log.h"
#include "device/families/camera_catalogue.h"
#include "device/faults/camera_slot.h"

namespace vornsim {

/// Which cameras to simulate, and how: the options that every subcommand with cameras has.
struct CameraChoice {
    std::vector<std::string> cameras;  ///< names of models, one for each camera to plug in
    bool noCamera = false;             ///< asked for in so many words
    bool emulatedChip = false;         ///< bridges execute the program that the host loads
    CameraOptions options;             ///< of the first camera; the others get the following seeds and serial numbers
    std::string logPath;               ///< empty: no log
    std::vector<std::string> faults;   ///< as parseFault() reads them
};

/// The simulated cameras of a run with their logs.
class CameraSet {
public:
    /// @p clock must outlive the cameras.
    explicit CameraSet(const Clock& clock) : clock_(clock) {}

    /// Makes the cameras and opens the log. @return 0, or an exit status after a message on standard error.
    int make(const CameraChoice& choice);

    size_t size() const { return cameras_.size(); }
    CameraSlot& camera(size_t index) { return *cameras_[index]; }
    CameraLog& log(size_t index) { return *logs_[index]; }

    /// Sums up on standard error what real firmware could not have served. Call when the cameras are at rest.
    void reportComplaints() const;

private:
    /// Reads what shall go wrong.
    int readFaults(const CameraChoice& choice);
    std::unique_ptr<CameraSlot> makeOne(const ModelInfo& model, const CameraOptions& options, unsigned index);

    const Clock& clock_;
    bool emulatedChip_ = false;
    std::string logPath_;
    LogFile logFile_;
    std::vector<FaultRule> faults_;
    std::vector<std::unique_ptr<CameraLog>> logs_;
    std::vector<std::unique_ptr<CameraSlot>> cameras_;
};

}  // namespace vornsim
