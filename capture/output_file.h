// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "capture/result.h"

namespace vorncapture {

/// The calls of the system that can fail while a file is written; tests put failing ones in their place. Arguments,
/// results and `errno` as the calls of these names have them.
struct FileCalls {
    std::function<int(const char* path, int flags, mode_t mode)> open;
    std::function<ssize_t(int descriptor, const void* bytes, size_t length)> write;
    std::function<int(int descriptor)> fsync;
    std::function<int(const char* from, const char* to)> link;  ///< follows a symbolic link that @p from may be
    std::function<int(const char* from, const char* to, unsigned int flags)> rename;

    /// @return the system's own.
    static FileCalls system();
};

/// A file that is written whole or not at all: it gets its name when its contents are on the disk. Until then it has
/// none, or on file systems that know no files without a name a hidden one that cannot exist yet; such a file is left
/// behind only when the process is killed, and stands in nobody's way.
class OutputFile {
public:
    /// @param path where to; with @p overwrite a symbolic link is followed
    /// @param overwrite whether an existing regular file may be replaced
    OutputFile(std::string path, bool overwrite, FileCalls calls = FileCalls::system());

    /// Looks whether the file can come to be, before work is spent on it: the directory is there and writable, and
    /// nothing is in the way. Error: FILE_ERROR.
    Status check() const;

    /// Writes the file; afterwards it survives a power cut. Error: FILE_ERROR, also when another file has appeared
    /// there; then there is no new file, with one exception that the text names: a directory that could not be synced.
    Status write(std::span<const uint8_t> contents) const;

private:
    Error existsError() const;
    Error failure(int code) const;
    int writeNameless(std::span<const uint8_t> contents, bool& tryNamed) const;
    int writeNamed(std::span<const uint8_t> contents) const;
    int fill(int descriptor, std::span<const uint8_t> contents) const;
    int publish(const std::string& temporary) const;
    Status syncDirectory() const;

    std::string path_;
    bool overwrite_;
    FileCalls calls_;
};

/// Writes bytes to standard output and hands them on. Error: FILE_ERROR.
Status writeStandardOutput(std::span<const uint8_t> contents);

/// @return the error of standard output when a call on it has left @p code in `errno`.
Error standardOutputError(int code);

}  // namespace vorncapture
