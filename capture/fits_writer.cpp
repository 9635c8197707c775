// SPDX-License-Identifier: MIT
#include "capture/fits_writer.h"

#include <fitsio.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>

#include "capture/output_file.h"

namespace vorncapture {
namespace {

/// Makes one file in memory, so that it can be written like any other. After the first failure every call does
/// nothing, as is the way of the FITS library, so that the outcome is asked for once, at the end.
class FitsFile {
public:
    /// @param length bytes that the file will take up, about; more is allowed
    explicit FitsFile(size_t length) : size_(length)
    {
        bytes_ = std::malloc(size_);
        if (bytes_ == nullptr)
            status_ = MEMORY_ALLOCATION;
        fits_create_memfile(&file_, &bytes_, &size_, BLOCK_BYTES, std::realloc, &status_);
    }

    ~FitsFile()
    {
        int ignored = 0;
        if (file_ != nullptr)
            fits_close_file(file_, &ignored);
        std::free(bytes_);
    }

    FitsFile(const FitsFile&) = delete;
    FitsFile& operator=(const FitsFile&) = delete;

    void image(unsigned int width, unsigned int height)
    {
        std::array<long, 2> size = {static_cast<long>(width), static_cast<long>(height)};
        fits_create_img(file_, USHORT_IMG, static_cast<int>(size.size()), size.data(), &status_);
    }

    void card(const FitsCard& card)
    {
        // The FITS library shortens a text that does not fit.
        const char* key = card.key.c_str();
        const char* comment = card.comment.c_str();
        if (const auto* text = std::get_if<std::string>(&card.value))
            fits_write_key_str(file_, key, text->c_str(), comment, &status_);
        else if (const auto* whole = std::get_if<long long>(&card.value))
            fits_write_key_lng(file_, key, *whole, comment, &status_);
        else
            fits_write_key_fixdbl(file_, key, std::get<double>(card.value), card.digits, comment, &status_);
    }

    void pixels(const std::vector<uint16_t>& values)
    {
        // cfitsio takes a pointer to non-const, though it only reads.
        fits_write_img(file_, TUSHORT, 1, static_cast<LONGLONG>(values.size()), const_cast<uint16_t*>(values.data()),
                       &status_);
    }

    /// Adds date and check sums. @return the FITS library's status, 0 when all went well.
    int finish()
    {
        fits_write_date(file_, &status_);
        fits_write_chksum(file_, &status_);
        LONGLONG header = 0;
        LONGLONG data = 0;
        LONGLONG end = 0;
        fits_get_hduaddrll(file_, &header, &data, &end, &status_);
        fits_flush_file(file_, &status_);
        length_ = static_cast<size_t>(end);
        return status_;
    }

    /// @return the whole file; only after finish() went well, and until this object goes.
    std::span<const uint8_t> bytes() const { return {static_cast<const uint8_t*>(bytes_), length_}; }

private:
    static constexpr size_t BLOCK_BYTES = 2880;

    fitsfile* file_ = nullptr;
    void* bytes_ = nullptr;
    size_t size_;
    size_t length_ = 0;
    int status_ = 0;
};

/// The lines of a header in the making.
class Cards {
public:
    void text(const char* key, std::string_view value, const char* comment)
    {
        // FITS allows plain ASCII only.
        std::string plain(value);
        for (char& letter : plain)
            letter = letter < ' ' || letter > '~' ? '?' : letter;
        cards_.push_back({key, plain, comment});
    }

    void number(const char* key, long long value, const char* comment) { cards_.push_back({key, value, comment}); }

    void number(const char* key, double value, int digits, const char* comment)
    {
        cards_.push_back({key, value, comment, digits});
    }

    std::vector<FitsCard> finish() { return std::move(cards_); }

private:
    std::vector<FitsCard> cards_;
};

std::string frameType(const Frame& frame)
{
    if (!frame.imageType.empty())
        return frame.imageType;
    if (!frame.request.dark)
        return "Light Frame";
    return frame.request.seconds > 0.0 ? "Dark Frame" : "Bias Frame";
}

void addTime(Cards& header, const Frame& frame)
{
    header.text("DATE-OBS", fitsDate(frame.start), "UTC start of the exposure");
    header.number("EXPTIME", frame.exposureSeconds, 6, "[s] integration time that was made");
    header.number("EXPOSURE", frame.exposureSeconds, 6, "[s] the same");
    if (frame.request.dark)
        header.number("DARKTIME", frame.exposureSeconds, 6, "[s] the same");
    header.text("IMAGETYP", frameType(frame), "type of frame");
}

void addCamera(Cards& header, const Frame& frame)
{
    header.text("INSTRUME", frame.camera.name, "camera");
    header.number("CAMSER", static_cast<long long>(frame.camera.serialNumber), "camera serial number");
    if (frame.filter)
        header.text("FILTER", frame.filterName.empty() ? std::to_string(*frame.filter) : frame.filterName,
                    "filter, or position of the filter wheel");
    const Telemetry& telemetry = frame.telemetry;
    if (telemetry.ccdCelsius())
        header.number("CCD-TEMP", *telemetry.ccdCelsius(), 2, "[degC] sensor temperature at the start");
    if (telemetry.targetCelsius)
        header.number("SET-TEMP", *telemetry.targetCelsius, 2, "[degC] set-point of the cooler");
    if (telemetry.gain)
        header.number("GAIN", static_cast<long long>(*telemetry.gain), "gain setting of the camera");
    if (telemetry.offset)
        header.number("OFFSET", static_cast<long long>(*telemetry.offset), "offset setting of the camera");
}

void addObservation(Cards& header, const Observation& observation)
{
    const std::tuple<const char*, const std::string&, const char*> texts[] = {
        {"OBJECT", observation.object, "what was looked at"},
        {"OBSERVER", observation.observer, "who looked"},
        {"TELESCOP", observation.telescope, "telescope"}};
    for (const auto& [key, value, comment] : texts) {
        if (!value.empty())
            header.text(key, value, comment);
    }
    if (observation.focalLengthMm > 0.0)
        header.number("FOCALLEN", observation.focalLengthMm, 1, "[mm] focal length");
    if (observation.apertureMm > 0.0)
        header.number("APTDIA", observation.apertureMm, 1, "[mm] diameter of the aperture");
}

void addGeometry(Cards& header, const Frame& frame)
{
    const VornCapabilities& caps = frame.camera.caps;
    const unsigned int binX = frame.request.binX;
    const unsigned int binY = frame.request.binY;
    header.number("XBINNING", static_cast<long long>(binX), "sensor pixels summed in X");
    header.number("YBINNING", static_cast<long long>(binY), "sensor pixels summed in Y");
    if (caps.pixelSizeX > 0.0 && caps.pixelSizeY > 0.0) {
        header.number("XPIXSZ", caps.pixelSizeX * binX, 4, "[um] pixel width, binning included");
        header.number("YPIXSZ", caps.pixelSizeY * binY, 4, "[um] pixel height, binning included");
        header.number("PIXSIZE1", caps.pixelSizeX, 4, "[um] pixel width of the sensor");
        header.number("PIXSIZE2", caps.pixelSizeY, 4, "[um] pixel height of the sensor");
    }
    header.number("XORGSUBF", static_cast<long long>(frame.region.x / binX), "first column, in binned pixels");
    header.number("YORGSUBF", static_cast<long long>(frame.region.y / binY), "first row, in binned pixels");
    header.text("ROWORDER", "TOP-DOWN", "the first row stored is the top one");
    if (frame.bayer()) {
        header.text("BAYERPAT", "RGGB", "colour filter pattern");
        header.number("XBAYROFF", static_cast<long long>(frame.bayerX()), "phase of the pattern in X");
        header.number("YBAYROFF", static_cast<long long>(frame.bayerY()), "phase of the pattern in Y");
    }
}

/// Makes the file and hands its bytes to @p write.
Status makeFile(const Frame& frame, const std::string& creator,
                const std::function<Status(std::span<const uint8_t>)>& write)
{
    constexpr size_t HEADER_BYTES = 1 << 16;
    FitsFile fits(frame.pixels.size() * sizeof(uint16_t) + HEADER_BYTES);
    fits.image(frame.width, frame.height);
    for (const FitsCard& card : fitsCards(frame, creator))
        fits.card(card);
    fits.pixels(frame.pixels);
    const int status = fits.finish();
    if (status == 0)
        return write(fits.bytes());
    std::array<char, FLEN_STATUS> text = {};
    fits_get_errstatus(status, text.data());
    return Error{ErrorKind::FILE_ERROR, std::string("the FITS file cannot be made: ") + text.data(), ""};
}

}  // namespace

std::vector<FitsCard> fitsCards(const Frame& frame, const std::string& creator)
{
    Cards header;
    addTime(header, frame);
    addCamera(header, frame);
    addGeometry(header, frame);
    addObservation(header, frame.observation);
    header.text("SWCREATE", creator, "program that wrote this file");
    return header.finish();
}

std::string fitsDate(Clock::Utc moment)
{
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(moment.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(milliseconds);
    const auto wholeSeconds = static_cast<std::time_t>(seconds.count());
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
    const OutputFile output(path, overwrite);
    Status possible = output.check();
    if (!possible.ok())
        return possible;
    return makeFile(frame, creator, [&output](std::span<const uint8_t> bytes) { return output.write(bytes); });
}

Status streamFits(const Frame& frame, const std::string& creator)
{
    return makeFile(frame, creator, writeStandardOutput);
}

}  // namespace vorncapture
