// SPDX-License-Identifier: MIT
#include "capture/fits_writer.h"

#include <fitsio.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <tuple>

#include "capture/output_file.h"

namespace vorncapture {
namespace {

/// Writes keywords and values into one file; after the first failure every call does nothing, as is the way of the
/// FITS library, so that the outcome is asked for once, at the end.
class FitsFile {
public:
    explicit FitsFile(const std::string& path)
    {
        // Not fits_create_file, which takes brackets and other characters of a name for instructions.
        fits_create_diskfile(&file_, path.c_str(), &status_);
    }

    /// A file in memory, which goes to standard output when it is finished.
    FitsFile() { fits_create_file(&file_, "-", &status_); }

    ~FitsFile()
    {
        int ignored = 0;
        if (file_ != nullptr)
            fits_close_file(file_, &ignored);
    }

    FitsFile(const FitsFile&) = delete;
    FitsFile& operator=(const FitsFile&) = delete;

    void image(unsigned int width, unsigned int height)
    {
        std::array<long, 2> size = {static_cast<long>(width), static_cast<long>(height)};
        fits_create_img(file_, USHORT_IMG, static_cast<int>(size.size()), size.data(), &status_);
    }

    void text(const char* key, std::string_view value, const char* comment)
    {
        // The FITS library shortens what does not fit into a card and refuses what is not plain ASCII.
        std::string plain(value);
        for (char& letter : plain)
            letter = letter < ' ' || letter > '~' ? '?' : letter;
        fits_write_key_str(file_, key, plain.c_str(), comment, &status_);
    }

    void number(const char* key, long long value, const char* comment)
    {
        fits_write_key_lng(file_, key, value, comment, &status_);
    }

    void number(const char* key, double value, int digits, const char* comment)
    {
        fits_write_key_fixdbl(file_, key, value, digits, comment, &status_);
    }

    void pixels(const std::vector<uint16_t>& values)
    {
        // cfitsio takes a pointer to non-const, though it only reads.
        fits_write_img(file_, TUSHORT, 1, static_cast<LONGLONG>(values.size()), const_cast<uint16_t*>(values.data()),
                       &status_);
    }

    /// Adds date and check sums and closes the file. @return the FITS library's status, 0 when all went well.
    int finish()
    {
        fits_write_date(file_, &status_);
        fits_write_chksum(file_, &status_);
        int closed = 0;
        if (file_ != nullptr)
            fits_close_file(file_, &closed);
        file_ = nullptr;
        return status_ != 0 ? status_ : closed;
    }

private:
    fitsfile* file_ = nullptr;
    int status_ = 0;
};

std::string frameType(const Frame& frame)
{
    if (!frame.imageType.empty())
        return frame.imageType;
    if (!frame.request.dark)
        return "Light Frame";
    return frame.request.seconds > 0.0 ? "Dark Frame" : "Bias Frame";
}

void writeTime(FitsFile& fits, const Frame& frame)
{
    fits.text("DATE-OBS", fitsDate(frame.start), "UTC start of the exposure");
    fits.number("EXPTIME", frame.exposureSeconds, 6, "[s] time truly exposed");
    fits.number("EXPOSURE", frame.exposureSeconds, 6, "[s] the same");
    if (frame.request.dark)
        fits.number("DARKTIME", frame.exposureSeconds, 6, "[s] the same");
    fits.text("IMAGETYP", frameType(frame), "type of frame");
}

void writeCamera(FitsFile& fits, const Frame& frame)
{
    fits.text("INSTRUME", frame.camera.name, "camera");
    fits.number("CAMSER", static_cast<long long>(frame.camera.serialNumber), "camera serial number");
    if (frame.filter)
        fits.text("FILTER", frame.filterName.empty() ? std::to_string(*frame.filter) : frame.filterName,
                  "filter, or position of the filter wheel");
    const Telemetry& telemetry = frame.telemetry;
    if (telemetry.ccdCelsius())
        fits.number("CCD-TEMP", *telemetry.ccdCelsius(), 2, "[degC] sensor temperature at the start");
    if (telemetry.targetCelsius)
        fits.number("SET-TEMP", *telemetry.targetCelsius, 2, "[degC] set-point of the cooler");
    if (telemetry.gain)
        fits.number("GAIN", static_cast<long long>(*telemetry.gain), "gain setting of the camera");
    if (telemetry.offset)
        fits.number("OFFSET", static_cast<long long>(*telemetry.offset), "offset setting of the camera");
}

void writeObservation(FitsFile& fits, const Observation& observation)
{
    const std::tuple<const char*, const std::string&, const char*> texts[] = {
        {"OBJECT", observation.object, "what was looked at"},
        {"OBSERVER", observation.observer, "who looked"},
        {"TELESCOP", observation.telescope, "telescope"}};
    for (const auto& [key, value, comment] : texts) {
        if (!value.empty())
            fits.text(key, value, comment);
    }
    if (observation.focalLengthMm > 0.0)
        fits.number("FOCALLEN", observation.focalLengthMm, 1, "[mm] focal length");
    if (observation.apertureMm > 0.0)
        fits.number("APTDIA", observation.apertureMm, 1, "[mm] diameter of the aperture");
}

void writeGeometry(FitsFile& fits, const Frame& frame)
{
    const VornCapabilities& caps = frame.camera.caps;
    const unsigned int binX = frame.request.binX;
    const unsigned int binY = frame.request.binY;
    fits.number("XBINNING", static_cast<long long>(binX), "sensor pixels summed in X");
    fits.number("YBINNING", static_cast<long long>(binY), "sensor pixels summed in Y");
    if (caps.pixelSizeX > 0.0 && caps.pixelSizeY > 0.0) {
        fits.number("XPIXSZ", caps.pixelSizeX * binX, 4, "[um] pixel width, binning included");
        fits.number("YPIXSZ", caps.pixelSizeY * binY, 4, "[um] pixel height, binning included");
        fits.number("PIXSIZE1", caps.pixelSizeX, 4, "[um] pixel width of the sensor");
        fits.number("PIXSIZE2", caps.pixelSizeY, 4, "[um] pixel height of the sensor");
    }
    fits.number("XORGSUBF", static_cast<long long>(frame.region.x / binX), "first column, in binned pixels");
    fits.number("YORGSUBF", static_cast<long long>(frame.region.y / binY), "first row, in binned pixels");
    fits.text("ROWORDER", "TOP-DOWN", "the first row stored is the top one");
    if (frame.bayer()) {
        fits.text("BAYERPAT", "RGGB", "colour filter pattern");
        fits.number("XBAYROFF", static_cast<long long>(frame.bayerX()), "phase of the pattern in X");
        fits.number("YBAYROFF", static_cast<long long>(frame.bayerY()), "phase of the pattern in Y");
    }
}

void fillFile(FitsFile& fits, const Frame& frame, const std::string& creator)
{
    fits.image(frame.width, frame.height);
    writeTime(fits, frame);
    writeCamera(fits, frame);
    writeGeometry(fits, frame);
    writeObservation(fits, frame.observation);
    fits.text("SWCREATE", creator, "program that wrote this file");
    fits.pixels(frame.pixels);
}

Status finishFile(FitsFile& fits, const std::string& name, const std::string& advice)
{
    const int status = fits.finish();
    if (status == 0)
        return Done{};
    std::array<char, FLEN_STATUS> text = {};
    fits_get_errstatus(status, text.data());
    return Error{ErrorKind::FILE_ERROR, "cannot write " + name + ": " + text.data(), advice};
}

}  // namespace

std::string fitsDate(Clock::Utc moment)
{
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(moment.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(milliseconds);
    const std::time_t wholeSeconds = seconds.count();
    std::tm utc = {};
    gmtime_r(&wholeSeconds, &utc);
    std::array<char, 80> text = {};
    (void)std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03d", utc.tm_year + 1900,
                        utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                        static_cast<int>((milliseconds - seconds).count()));
    return text.data();
}

Status writeFits(const Frame& frame, const std::string& path, const std::string& creator, bool overwrite)
{
    OutputFile output(path, overwrite);
    Status possible = output.check();
    if (!possible.ok())
        return possible;

    FitsFile fits(output.temporaryPath());
    fillFile(fits, frame, creator);
    const Status written = finishFile(fits, path, "Is there room on the disk?");
    return written.ok() ? output.publish() : written;
}

Status streamFits(const Frame& frame, const std::string& creator)
{
    FitsFile fits;
    fillFile(fits, frame, creator);
    Status written = finishFile(fits, "standard output", "Has its reader ended early?");
    if (written.ok() && std::fflush(stdout) != 0)
        return Error{ErrorKind::FILE_ERROR, "cannot write to standard output", "Has its reader ended early?"};
    return written;
}

}  // namespace vorncapture
