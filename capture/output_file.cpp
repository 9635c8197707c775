// SPDX-License-Identifier: MIT
#include "capture/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace vorncapture {
namespace {

std::string reason(int code)
{
    return std::generic_category().message(code);
}

std::string directoryOf(const std::string& path)
{
    const auto parent = std::filesystem::path(path).parent_path();
    return parent.empty() ? "." : parent.string();
}

/// @return a hidden name beside the true one that no other process and no other file of this one uses.
std::string temporaryName(const std::string& path)
{
    static std::atomic<unsigned int> count{0};
    std::string name = ".";
    name += std::filesystem::path(path).filename().string();
    name.append(".").append(std::to_string(getpid())).append("-").append(std::to_string(count++)).append(".part");
    return (std::filesystem::path(path).parent_path() / name).string();
}

bool isThere(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

/// Makes sure that the contents are on the disk before the name is.
void flushToDisk(const std::string& path)
{
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    (void)fsync(descriptor);
    (void)close(descriptor);
}

}  // namespace

OutputFile::OutputFile(std::string path, bool overwrite)
    : path_(std::move(path)), temporary_(temporaryName(path_)), overwrite_(overwrite)
{
}

OutputFile::~OutputFile()
{
    if (!published_)
        (void)unlink(temporary_.c_str());
}

Error OutputFile::existsError() const
{
    return {ErrorKind::FILE_ERROR, path_ + " exists already", "Choose another name, or allow overwriting it."};
}

Status OutputFile::check() const
{
    struct stat status = {};
    const std::string directory = directoryOf(path_);
    if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        return Error{ErrorKind::FILE_ERROR, "there is no directory " + directory + " to write " + path_ + " to", ""};
    if (stat(path_.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        return Error{ErrorKind::FILE_ERROR, path_ + " is a directory", ""};
    if (!overwrite_ && isThere(path_))
        return existsError();
    if (access(directory.c_str(), W_OK) != 0)
        return Error{ErrorKind::FILE_ERROR, "cannot write to the directory " + directory + ": " + reason(errno), ""};
    return Done{};
}

Status OutputFile::publish()
{
    flushToDisk(temporary_);
    int failure = 0;
    if (overwrite_) {
        failure = std::rename(temporary_.c_str(), path_.c_str()) == 0 ? 0 : errno;
    } else {
        // A hard link fails where a rename would replace. File systems without links leave only the second best.
        failure = link(temporary_.c_str(), path_.c_str()) == 0 ? 0 : errno;
        if (failure == 0)
            (void)unlink(temporary_.c_str());
        else if (failure != EEXIST && !isThere(path_))
            failure = std::rename(temporary_.c_str(), path_.c_str()) == 0 ? 0 : errno;
        if (failure == EEXIST)
            return existsError();
    }
    if (failure != 0)
        return Error{ErrorKind::FILE_ERROR, "cannot write " + path_ + ": " + reason(failure), ""};
    published_ = true;
    return Done{};
}

}  // namespace vorncapture
