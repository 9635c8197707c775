// SPDX-License-Identifier: MIT
#include "capture/output_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace vorncapture {
namespace {

constexpr mode_t MODE = 0666;  // less the user's umask
constexpr int NAME_TRIES = 100;

std::string reason(int code)
{
    return std::generic_category().message(code);
}

std::string directoryOf(const std::string& path)
{
    const auto parent = std::filesystem::path(path).parent_path();
    return parent.empty() ? "." : parent.string();
}

bool isThere(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

/// @return the file that @p path means once symbolic links are followed, also where it does not exist yet.
std::string withoutLinks(std::string path)
{
    constexpr int MOST_LINKS = 40;  // as many as the system follows
    std::error_code problem;
    for (int i = 0; i < MOST_LINKS && std::filesystem::is_symlink(path, problem); ++i) {
        const std::filesystem::path target = std::filesystem::read_symlink(path, problem);
        path = (std::filesystem::path(path).parent_path() / target).string();
    }
    return path;
}

/// @return a hidden name beside @p path that nobody has used: 64 random bits, since a process number comes again.
std::string hiddenName(const std::string& path)
{
    uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number)
        number = static_cast<uint64_t>(getpid());
    std::array<char, 24> digits = {};
    (void)std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(number));
    const std::filesystem::path whole(path);
    return (whole.parent_path() / ("." + whole.filename().string() + "." + digits.data() + ".part")).string();
}

/// @return whether a sync failed because there is nothing to sync there, as on some file systems in memory.
bool knowsNoSync(int code)
{
    return code == EINVAL || code == ENOTSUP || code == EROFS;
}

}  // namespace

FileCalls FileCalls::system()
{
    return {.open = [](const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); },
            .write = ::write,
            .fsync = ::fsync,
            .link = [](const char* from,
                       const char* to) { return linkat(AT_FDCWD, from, AT_FDCWD, to, AT_SYMLINK_FOLLOW); },
            .rename = [](const char* from, const char* to,
                         unsigned int flags) { return renameat2(AT_FDCWD, from, AT_FDCWD, to, flags); }};
}

OutputFile::OutputFile(std::string path, bool overwrite, FileCalls calls)
    : path_(overwrite ? withoutLinks(std::move(path)) : std::move(path)),
      overwrite_(overwrite),
      calls_(std::move(calls))
{
}

Error OutputFile::existsError() const
{
    return {ErrorKind::FILE_ERROR, path_ + " exists already", "Choose another name, or allow overwriting it."};
}

Error OutputFile::failure(int code) const
{
    Error error{ErrorKind::FILE_ERROR, "cannot write " + path_ + ": " + reason(code), ""};
    if (code == ENOSPC || code == EDQUOT || code == EFBIG)
        error.advice = "Make room on the disk, or write to another one.";
    else if (code == EIO)
        error.advice = "The disk may be failing: write to another one, and look at: sudo dmesg";
    return error;
}

Status OutputFile::check() const
{
    struct stat status = {};
    const std::string directory = directoryOf(path_);
    if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        return Error{
            ErrorKind::FILE_ERROR,
            "there is no directory " + directory + " to write " + path_ + " to; make it with: mkdir -p " + directory,
            ""};
    if (stat(path_.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        return Error{ErrorKind::FILE_ERROR,
                     path_ + (S_ISDIR(status.st_mode) ? " is a directory" : " is no regular file"), ""};
    if (!overwrite_ && isThere(path_))
        return existsError();
    if (access(directory.c_str(), W_OK) != 0)
        return Error{ErrorKind::FILE_ERROR, "cannot write to the directory " + directory + ": " + reason(errno), ""};
    return Done{};
}

/// @return 0, or why the contents are not on the disk.
int OutputFile::fill(int descriptor, std::span<const uint8_t> contents) const
{
    while (!contents.empty()) {
        const ssize_t written = calls_.write(descriptor, contents.data(), contents.size());
        if (written == 0)
            return EIO;
        if (written < 0 && errno != EINTR)
            return errno;
        contents = contents.subspan(written > 0 ? static_cast<size_t>(written) : 0);
    }
    if (calls_.fsync(descriptor) != 0 && !knowsNoSync(errno))
        return errno;
    return 0;
}

/// Gives a whole file its true name. @return 0 or why that failed
int OutputFile::publish(const std::string& temporary) const
{
    if (overwrite_)
        return calls_.rename(temporary.c_str(), path_.c_str(), 0) == 0 ? 0 : errno;
    if (calls_.rename(temporary.c_str(), path_.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    // Some file systems cannot refuse to replace. A link does; without links, looking first is the second best.
    if (calls_.link(temporary.c_str(), path_.c_str()) == 0) {
        (void)unlink(temporary.c_str());
        return 0;
    }
    if (errno == EEXIST || isThere(path_))
        return EEXIST;
    return calls_.rename(temporary.c_str(), path_.c_str(), 0) == 0 ? 0 : errno;
}

/// @param tryNamed set when this file system, or its mount, does not do this
int OutputFile::writeNameless(std::span<const uint8_t> contents, bool& tryNamed) const
{
    const int descriptor = calls_.open(directoryOf(path_).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, MODE);
    tryNamed = descriptor < 0;
    if (descriptor < 0)
        return errno;
    const std::string self = "/proc/self/fd/" + std::to_string(descriptor);
    int code = fill(descriptor, contents);
    if (code == 0 && overwrite_) {  // a link does not replace, so it is made beside and renamed
        std::string beside;
        for (int i = 0; i < NAME_TRIES && (i == 0 || code == EEXIST); ++i) {
            beside = hiddenName(path_);
            code = calls_.link(self.c_str(), beside.c_str()) == 0 ? 0 : errno;
        }
        tryNamed = code != 0;
        if (code == 0 && (code = publish(beside)) != 0)
            (void)unlink(beside.c_str());
    } else if (code == 0) {
        code = calls_.link(self.c_str(), path_.c_str()) == 0 ? 0 : errno;
        tryNamed = code != 0 && code != EEXIST;
    }
    (void)close(descriptor);
    return code;
}

int OutputFile::writeNamed(std::span<const uint8_t> contents) const
{
    std::string temporary;
    int descriptor = -1;
    for (int i = 0; i < NAME_TRIES && descriptor < 0 && (i == 0 || errno == EEXIST); ++i) {
        temporary = hiddenName(path_);
        descriptor = calls_.open(temporary.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, MODE);
    }
    if (descriptor < 0)
        return errno;
    int code = fill(descriptor, contents);
    if (close(descriptor) != 0 && code == 0)  // where network file systems report a full disk
        code = errno;
    if (code == 0)
        code = publish(temporary);
    if (code != 0)
        (void)unlink(temporary.c_str());
    return code;
}

/// Makes sure that the name is on the disk, too.
Status OutputFile::syncDirectory() const
{
    const int directory = calls_.open(directoryOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    const bool failed = directory < 0 || (calls_.fsync(directory) != 0 && !knowsNoSync(errno));
    const int code = errno;
    if (directory >= 0)
        (void)close(directory);
    if (!failed || (directory < 0 && code == EACCES))  // a directory may be writable and yet not readable
        return Done{};
    return Error{ErrorKind::FILE_ERROR, path_ + " was written, but may not survive a power cut: " + reason(code),
                 failure(code).advice};
}

Status OutputFile::write(std::span<const uint8_t> contents) const
{
    Status possible = check();
    if (!possible.ok())
        return possible;
    bool tryNamed = false;
    int code = writeNameless(contents, tryNamed);
    if (code != 0 && tryNamed)
        code = writeNamed(contents);
    if (code == EEXIST)
        return existsError();
    if (code != 0)
        return failure(code);
    return syncDirectory();
}

Error standardOutputError(int code)
{
    Error error{ErrorKind::FILE_ERROR, "cannot write to standard output: " + reason(code), ""};
    if (code == EPIPE)
        error.advice = "The program that reads it has ended.";
    else if (code == ENOSPC || code == EDQUOT)
        error.advice = "Make room on the disk that it goes to.";
    return error;
}

Status writeStandardOutput(std::span<const uint8_t> contents)
{
    errno = 0;
    if (std::fwrite(contents.data(), 1, contents.size(), stdout) == contents.size() && std::fflush(stdout) == 0)
        return Done{};
    return standardOutputError(errno != 0 ? errno : EIO);
}

}  // namespace vorncapture
