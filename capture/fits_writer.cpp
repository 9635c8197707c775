// SPDX-License-Identifier: MIT
#include "capture/fits_writer.h"

#include <fitsio.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>

#include "capture/ascii_text.h"
#include "capture/output_file.h"
#include "capture/text.h"

namespace vorncapture {
namespace {

/// Makes one file in memory, so that it can be written like any other. After the first failure every call does
/// nothing, as is the way of the FITS library, so that the outcome is asked for once, at the end.
class FitsFile {
public:
    /// @param length bytes that the file will take up, about; more is allowed
    /// @param compress whether the picture goes compressed into an extension, as in files called .fits.fz
    FitsFile(size_t length, bool compress) : size_(length)
    {
        bytes_ = std::malloc(size_);
        if (bytes_ == nullptr)
            status_ = MEMORY_ALLOCATION;
        fits_create_memfile(&file_, &bytes_, &size_, BLOCK_BYTES, std::realloc, &status_);
        if (compress)
            fits_set_compression_type(file_, RICE_1, &status_);  // without loss
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
        const char* key = card.key.c_str();
        const char* comment = card.comment.c_str();
        if (const auto* text = std::get_if<std::string>(&card.value))
            fits_write_key_longstr(file_, key, text->c_str(), comment, &status_);
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
        cards_.push_back({key, toAscii(value), comment});
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
    const auto after = [&frame](double part) {
        return frame.start + std::chrono::microseconds(std::llround(frame.exposureSeconds * part * 1e6));
    };
    header.text("DATE-AVG", fitsDate(after(0.5)), "UTC middle of the exposure");
    header.text("DATE-END", fitsDate(after(1.0)), "UTC end of the exposure");
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

/// @return "+41 16 09.0" or "00 42 44.3": whole units, minutes and seconds.
std::string sexagesimal(double value, bool sign)
{
    const long long tenths = std::llround(std::abs(value) * 36000.0);
    std::array<char, 48> text = {};
    (void)std::snprintf(text.data(), text.size(), "%s%02lld %02lld %02lld.%lld",
                        !sign         ? ""
                        : value < 0.0 ? "-"
                                      : "+",
                        tenths / 36000, tenths / 600 % 60, tenths / 10 % 60, tenths % 10);
    return text.data();
}

void addPlaces(Cards& header, const Observation& observation)
{
    if (observation.rightAscensionHours)
        header.text("OBJCTRA", sexagesimal(*observation.rightAscensionHours, false),
                    "[hms] right ascension as asked for");
    if (observation.declinationDegrees)
        header.text("OBJCTDEC", sexagesimal(*observation.declinationDegrees, true), "[dms] declination as asked for");
    if (observation.siteLatitudeDegrees)
        header.text("SITELAT", sexagesimal(*observation.siteLatitudeDegrees, true), "[dms] latitude, north positive");
    if (observation.siteLongitudeDegrees)
        header.text("SITELONG", sexagesimal(*observation.siteLongitudeDegrees, true), "[dms] longitude, east positive");
}

void addKeywords(Cards& header, const Observation& observation)
{
    for (const auto& [key, value] : observation.keywords) {
        if (const auto whole = parseNumber<long long>(value))
            header.number(key.c_str(), *whole, "");
        else
            header.text(key.c_str(), value, "");
    }
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
    addPlaces(header, observation);
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
    header.text("ROWORDER", "TOP-DOWN", "first row is the first read; flip to display");
    const std::string mode = std::string(frame.request.preview ? "Preview" : "Normal") +
                             (frame.request.eightBit || frame.camera.family == IIDC ? " 8-bit" : "");
    header.text("READOUTM", mode, "readout mode");
    // A register camera's bytes are the high ones of its values.
    const long long saturation = frame.request.eightBit ? 0xFF : frame.camera.family == IIDC ? 0xFF00 : 0xFFFF;
    header.number("SATURATE", saturation, "[adu] value of a pixel that cannot say more");
    if (frame.bayer()) {
        header.text("BAYERPAT", "RGGB", "colour filter pattern");
        header.number("XBAYROFF", static_cast<long long>(frame.bayerX()), "phase of the pattern in X");
        header.number("YBAYROFF", static_cast<long long>(frame.bayerY()), "phase of the pattern in Y");
    }
}

/// Makes the file and hands its bytes to @p write.
Status makeFile(const Frame& frame, const std::string& creator, bool compress,
                const std::function<Status(std::span<const uint8_t>)>& write)
{
    constexpr size_t HEADER_BYTES = 1 << 16;
    FitsFile fits(frame.pixels.size() * sizeof(uint16_t) + HEADER_BYTES, compress);
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

Result<std::pair<std::string, std::string>> parseKeyword(const std::string& text)
{
    constexpr const char* LETTERS = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";
    constexpr size_t LONGEST = 8;
    const size_t equals = text.find('=');
    std::string key = text.substr(0, equals);
    for (char& letter : key)
        letter = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    if (equals == std::string::npos || key.empty() || key.size() > LONGEST ||
        key.find_first_not_of(LETTERS) != key.npos)
        return Error{ErrorKind::BAD_REQUEST,
                     "\"" + text +
                         "\" is no keyword: give NAME=VALUE, with a name of up to eight letters A to Z, digits, "
                         "- and _",
                     ""};
    for (const char* own : {"SIMPLE", "BITPIX", "NAXIS", "EXTEND", "BZERO", "BSCALE", "END", "CHECKSUM", "DATASUM",
                            "DATE", "CONTINUE", "COMMENT", "HISTORY", "XTENSION", "PCOUNT", "GCOUNT", "HIERARCH"}) {
        if (key == own || (key.starts_with("NAXIS") && std::string(own) == "NAXIS"))
            return Error{ErrorKind::BAD_REQUEST,
                         "the keyword " + key + " says how a FITS file is laid out; it is not free", ""};
    }
    return std::pair{key, text.substr(equals + 1)};
}

std::vector<FitsCard> fitsCards(const Frame& frame, const std::string& creator)
{
    Cards header;
    addTime(header, frame);
    addCamera(header, frame);
    addGeometry(header, frame);
    addObservation(header, frame.observation);
    addKeywords(header, frame.observation);
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
    const bool compress = foldedName(path).ends_with(".fz");
    return makeFile(frame, creator, compress,
                    [&output](std::span<const uint8_t> bytes) { return output.write(bytes); });
}

Status streamFits(const Frame& frame, const std::string& creator)
{
    return makeFile(frame, creator, false, writeStandardOutput);
}

}  // namespace vorncapture
