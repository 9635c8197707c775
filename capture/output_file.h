// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "capture/result.h"

namespace vorncapture {

/// A file in the making: it is written under a temporary name in its own directory and gets its true name when whole.
/// Until then, and after any failure, there is nothing under the true name.
class OutputFile {
public:
    /// @param path the true name
    /// @param overwrite whether an existing file may be replaced
    OutputFile(std::string path, bool overwrite);
    ~OutputFile();  ///< removes what was not published
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Looks whether the file can come to be, before work is spent on it: the directory is there and writable, and no
    /// file is in the way. Error: FILE_ERROR.
    Status check() const;

    /// @return the name to write to; no such file exists at first.
    const std::string& temporaryPath() const { return temporary_; }

    /// @return the true name.
    const std::string& path() const { return path_; }

    /// Gives the finished file its true name. Error: FILE_ERROR, also when another file has appeared there.
    Status publish();

private:
    Error existsError() const;

    std::string path_;
    std::string temporary_;
    bool overwrite_;
    bool published_ = false;
};

}  // namespace vorncapture
