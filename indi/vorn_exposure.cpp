// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>

#include "capture/exposure_plan.h"
#include "event_loop.h"
#include "vorn_ccd.h"

namespace vornindi {

using vorncapture::Error;
using vorncapture::ErrorKind;
using vorncapture::FitsCard;
using vorncapture::Frame;
using vorncapture::Phase;

namespace {

const char* const CREATOR = "indi_vorn_ccd " INDI_VORN_VERSION;
constexpr std::chrono::seconds UPLOAD_LIMIT{30};

const char* imageType(INDI::CCDChip::CCD_FRAME type)
{
    switch (type) {
        case INDI::CCDChip::LIGHT_FRAME:
            return "Light Frame";
        case INDI::CCDChip::BIAS_FRAME:
            return "Bias Frame";
        case INDI::CCDChip::DARK_FRAME:
            return "Dark Frame";
        case INDI::CCDChip::FLAT_FRAME:
            return "Flat Frame";
    }
    return "";
}

}  // namespace

vorncapture::ExposureRequest VornCcd::requestFor(int x, int y, int width, int height, int binX, int binY) const
{
    const auto whole = [](int value) { return static_cast<unsigned int>(std::max(value, 0)); };
    vorncapture::ExposureRequest request;
    request.region = vorncapture::Region{whole(x), whole(y), whole(width), whole(height)};
    request.binX = whole(binX);
    request.binY = whole(binY);
    request.eightBit = eightBit_;
    return request;
}

bool VornCcd::checkGeometry(int x, int y, int width, int height, int binX, int binY)
{
    const auto plan = vorncapture::planExposure(info_, requestFor(x, y, width, height, binX, binY));
    if (!plan.ok())
        report(plan.error());
    return plan.ok();
}

bool VornCcd::UpdateCCDFrame(int x, int y, int width, int height)
{
    const bool possible = checkGeometry(x, y, width, height, PrimaryCCD.getBinX(), PrimaryCCD.getBinY());
    const auto whole = [](int value) { return static_cast<uint32_t>(std::max(value, 0)); };
    if (possible)
        PrimaryCCD.setFrame(whole(x), whole(y), whole(width), whole(height));
    else  // the base class has put the refused numbers into the property
        PrimaryCCD.setFrame(whole(PrimaryCCD.getSubX()), whole(PrimaryCCD.getSubY()), whole(PrimaryCCD.getSubW()),
                            whole(PrimaryCCD.getSubH()));
    showBayer();
    return possible;
}

bool VornCcd::UpdateCCDBin(int binX, int binY)
{
    const bool possible = checkGeometry(PrimaryCCD.getSubX(), PrimaryCCD.getSubY(), PrimaryCCD.getSubW(),
                                        PrimaryCCD.getSubH(), binX, binY);
    if (possible)
        PrimaryCCD.setBin(static_cast<uint8_t>(binX), static_cast<uint8_t>(binY));
    else
        PrimaryCCD.setBin(static_cast<uint8_t>(PrimaryCCD.getBinX()), static_cast<uint8_t>(PrimaryCCD.getBinY()));
    showBayer();
    return possible;
}

bool VornCcd::SetCaptureFormat(uint8_t index)
{
    eightBit_ = index > 0;
    PrimaryCCD.setBPP(eightBit_ ? 8 : 16);
    return true;
}

/// Tells which colour the first pixel of a picture has; a binned picture has no pattern.
void VornCcd::showBayer()
{
    if (info_.caps.colour != COLOUR_RGGB)
        return;
    Frame frame;
    frame.camera = info_;
    frame.region.x = static_cast<unsigned int>(PrimaryCCD.getSubX());
    frame.region.y = static_cast<unsigned int>(PrimaryCCD.getSubY());
    frame.request.binX = static_cast<unsigned int>(PrimaryCCD.getBinX());
    frame.request.binY = static_cast<unsigned int>(PrimaryCCD.getBinY());
    IUSaveText(&BayerT[0], std::to_string(frame.bayerX()).c_str());
    IUSaveText(&BayerT[1], std::to_string(frame.bayerY()).c_str());
    IUSaveText(&BayerT[2], frame.bayer() ? "RGGB" : "");
    if (isConnected())
        IDSetText(&BayerTP, nullptr);
}

bool VornCcd::StartExposure(float /*duration*/)
{
    if (!session_)
        return false;
    const auto exposure = std::make_shared<Exposure>();
    const auto type = PrimaryCCD.getFrameType();
    exposure->request = requestFor(PrimaryCCD.getSubX(), PrimaryCCD.getSubY(), PrimaryCCD.getSubW(),
                                   PrimaryCCD.getSubH(), PrimaryCCD.getBinX(), PrimaryCCD.getBinY());
    // The base class hands the seconds over in single precision, but keeps them.
    exposure->request.seconds = type == INDI::CCDChip::BIAS_FRAME ? 0.0 : ExposureTime;
    exposure->request.dark = type == INDI::CCDChip::BIAS_FRAME || type == INDI::CCDChip::DARK_FRAME;
    exposure->request.preview = qualityS_[1].s == ISS_ON && info_.family != QUICKER && info_.family != IIDC;
    exposure->imageType = imageType(type);
    const auto plan = vorncapture::planExposure(info_, exposure->request);
    if (!plan.ok()) {
        report(plan.error());
        return false;
    }
    for (const std::string& note : plan.value().notes)
        LOGF_INFO("%s", note.c_str());
    PrimaryCCD.setExposureDuration(ExposureTime);
    exposure_ = exposure;
    sequence_.post([this, connection = connection_, session = session_, exposure] {
        if (!exposure->cancel.requested())
            takePicture(connection, session, exposure);
    });
    return true;
}

bool VornCcd::AbortExposure()
{
    if (exposure_)
        exposure_->cancel.request();
    exposure_.reset();
    return true;
}

/// Runs in the thread of the sequence.
void VornCcd::takePicture(unsigned int connection, const SessionPointer& session, const ExposurePointer& exposure)
{
    const vorncapture::CameraInfo& info = session->info();
    if (info.caps.hasFilterWheel) {
        const auto wheel = vorncapture::readWheel(*session);
        if (wheel.ok())
            exposure->filter = wheel.value().current;
    }
    // A short exposure and a readout keep the camera from opening a relay on time.
    bool suspended = false;
    const auto suspend = [&] {
        if (!suspended && info.caps.hasGuidePort)
            guider_.suspend(exposure->cancel);
        suspended = true;
    };
    const auto plan = vorncapture::planExposure(info, exposure->request);
    if (plan.ok() && !plan.value().longExposure)
        suspend();
    int told = -1;
    const auto progress = [&](Phase phase, double elapsed, double total) {
        if (phase == Phase::READING)
            suspend();
        else
            tellProgress(connection, exposure, elapsed, total, told);
    };
    auto taken = session->expose(exposure->request, &exposure->cancel, progress);
    if (suspended && info.caps.hasGuidePort)
        guider_.resume();
    if (exposure->cancel.requested())
        return;
    if (taken.ok()) {
        taken.value().imageType = exposure->imageType;
        taken.value().filter = exposure->filter;
        deliver(connection, exposure, std::move(taken.value()));
    } else {
        whileConnected(connection, [this, exposure, error = taken.error()] { failExposure(exposure, error); });
    }
}

/// Counts down in whole seconds.
void VornCcd::tellProgress(unsigned int connection, const ExposurePointer& exposure, double elapsed, double total,
                           int& told)
{
    const double left = std::max(total - elapsed, 0.0);
    const auto now = std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    exposure->endsAt = now + left;
    const int whole = static_cast<int>(std::ceil(left));
    if (whole == told || left <= 0.0)
        return;
    const bool first = told < 0;
    told = whole;
    whileConnected(connection, [this, exposure, left, first] {
        if (exposure != exposure_ || !PrimaryCCD.isExposing())
            return;
        if (first)  // stamps the time: the sensor integrates from now on
            PrimaryCCD.setExposureDuration(PrimaryCCD.getExposureDuration());
        PrimaryCCD.setExposureLeft(left);
    });
}

void VornCcd::waitForUpload()
{
    std::unique_lock guard(uploadMutex_);
    (void)uploaded_.wait_for(guard, UPLOAD_LIMIT, [this] { return !uploading_; });
    uploading_ = true;
}

/// Puts the picture into the frame buffer, when the one before has left it, and hands it to the base class.
void VornCcd::deliver(unsigned int connection, const ExposurePointer& exposure, Frame frame)
{
    waitForUpload();
    const size_t valueLength = frame.request.eightBit ? 1 : 2;
    {
        const std::lock_guard guard(ccdBufferLock);
        const size_t length = frame.pixels.size() * valueLength;
        if (static_cast<size_t>(PrimaryCCD.getFrameBufferSize()) != length)
            PrimaryCCD.setFrameBufferSize(static_cast<uint32_t>(length));
        uint8_t* buffer = PrimaryCCD.getFrameBuffer();
        if (frame.request.eightBit)
            std::transform(frame.pixels.begin(), frame.pixels.end(), buffer,
                           [](uint16_t value) { return static_cast<uint8_t>(value); });
        else
            std::memcpy(buffer, frame.pixels.data(), length);
    }
    frame.pixels = {};
    runInEventLoop([this, connection, exposure, frame = std::move(frame)]() mutable {
        if (connection != connection_ || exposure != exposure_) {
            UploadComplete(&PrimaryCCD);
            return;
        }
        if (frame.filter && FilterNameTP != nullptr && *frame.filter <= static_cast<unsigned int>(FilterNameTP->ntp))
            frame.filterName = FilterNameT[*frame.filter - 1].text;
        {
            const std::lock_guard guard(uploadMutex_);
            header_ = vorncapture::fitsCards(frame, CREATOR);
        }
        exposure_.reset();
        ExposureComplete(&PrimaryCCD);
    });
}

void VornCcd::UploadComplete(INDI::CCDChip* /*chip*/)
{
    {
        const std::lock_guard guard(uploadMutex_);
        uploading_ = false;
    }
    uploaded_.notify_all();
}

/// Runs in a thread of the base class, which has written keywords of its own.
void VornCcd::addFITSKeywords(INDI::CCDChip* chip)
{
    INDI::CCD::addFITSKeywords(chip);
    std::vector<FitsCard> cards;
    {
        const std::lock_guard guard(uploadMutex_);
        cards = header_;
    }
    fitsfile* file = *chip->fitsFilePointer();
    const auto has = [&cards](const char* key) {
        return std::any_of(cards.begin(), cards.end(), [key](const FitsCard& card) { return card.key == key; });
    };
    for (const char* key : {"OBJECT", "OBSERVER"}) {
        std::array<char, FLEN_VALUE> value{};
        int absent = 0;
        if (fits_read_key_str(file, key, value.data(), nullptr, &absent) == 0 &&
            std::strcmp(value.data(), "Unknown") == 0)
            fits_delete_key(file, key, &absent);
    }
    for (const char* key : {"BAYERPAT", "XBAYROFF", "YBAYROFF", "DARKTIME", "CCD-TEMP"}) {
        int absent = 0;
        if (!has(key))
            fits_delete_key(file, key, &absent);
    }
    int status = 0;
    for (const FitsCard& card : cards) {
        const char* key = card.key.c_str();
        const char* comment = card.comment.c_str();
        if (const auto* text = std::get_if<std::string>(&card.value))
            fits_update_key_str(file, key, text->c_str(), comment, &status);
        else if (const auto* number = std::get_if<long long>(&card.value))
            fits_update_key_lng(file, key, *number, comment, &status);
        else if (const auto* real = std::get_if<double>(&card.value))
            fits_update_key_fixdbl(file, key, *real, card.digits, comment, &status);
    }
}

void VornCcd::failExposure(const ExposurePointer& exposure, const Error& error)
{
    if (exposure != exposure_)
        return;
    exposure_.reset();
    if (error.kind == ErrorKind::DEVICE_LOST || error.kind == ErrorKind::TIMEOUT) {
        lose(error);
        return;
    }
    PrimaryCCD.setExposureFailed();
    report(error);
}

}  // namespace vornindi
