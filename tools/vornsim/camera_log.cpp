// SPDX-License-Identifier: MIT
#include "camera_log.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>

namespace vornsim {
namespace {

/// "2026-01-31T23:59:58.123Z".
std::string timeOfDay()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch());
    std::tm parts{};
    (void)gmtime_r(&seconds, &parts);
    std::array<char, 32> date{};
    (void)std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::array<char, 48> text{};
    (void)std::snprintf(text.data(), text.size(), "%s.%03dZ", date.data(), static_cast<int>(sinceEpoch.count() % 1000));
    return text.data();
}

}  // namespace

void LogFile::Close::operator()(std::FILE* file) const
{
    if (file != stderr)
        (void)std::fclose(file);  // each line was flushed
}

int LogFile::open(const std::string& path)
{
    file_.reset(path == "-" ? stderr : std::fopen(path.c_str(), "we"));
    return file_ ? 0 : errno;
}

void LogFile::write(const std::string& line)
{
    if (!file_)
        return;
    std::lock_guard held(mutex_);
    std::fprintf(file_.get(), "%s %s\n", timeOfDay().c_str(), line.c_str());
    (void)std::fflush(file_.get());  // so that it can be followed
}

CameraLog::CameraLog(unsigned number, const std::string& model, LogFile& file)
    : name_("camera " + std::to_string(number) + " (" + model + ")"), file_(file)
{
}

void CameraLog::note(const std::string& text)
{
    file_.write(name_ + ": " + text);
}

void CameraLog::complain(const std::string& text)
{
    if (complaintCount_++ == 0)
        firstComplaint_ = text;
    file_.write(name_ + ": COMPLAINT: " + text);
}

}  // namespace vornsim
