// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "capture/accessories.h"
#include "capture/exposure_request.h"
#include "capture/filter_names.h"
#include "capture/name_pattern.h"
#include "capture/observation.h"
#include "capture/result.h"

namespace vornctl {

/// What the user asked for, checked as far as that goes without a camera. Each command uses what concerns it.
struct Options {
    std::string device;                    ///< text of -d; empty: the only camera
    bool json = false;                     ///< results as JSON objects on standard output
    bool quiet = false;                    ///< no progress, no notes
    std::optional<double> timeoutSeconds;  ///< longest wait; empty: what is usual for the command

    // expose
    bool force = false;    ///< existing files may be replaced
    std::string fitsPath;  ///< pattern of names; empty: none given; "-": standard output
    std::string pngPath;   ///< pattern of names; empty: none wanted
    vorncapture::ExposureRequest request;
    std::optional<double> seconds;
    vorncapture::FrameKind kind = vorncapture::FrameKind::LIGHT;
    unsigned int count = 1;
    unsigned int retries = 0;      ///< pictures that may be taken again after a failure, in all
    double intervalSeconds = 0.0;  ///< from the start of one picture to the next
    bool warmAtEnd = false;
    vorncapture::Observation observation;

    // expose and filter
    std::string filter;       ///< position or name to turn the wheel to; empty: it stays where it is
    std::string filterNames;  ///< as FilterNames::parse() reads them
};

/// Reads "2.5" or "1e-3" into @p request. Error: BAD_REQUEST, for anything that is not a time to expose.
vorncapture::Status parseSeconds(const std::string& text, vorncapture::ExposureRequest& request);

/// Reads "2x2" or, the same both ways, "2" into @p request. Error: BAD_REQUEST, also for 0.
vorncapture::Status parseBinning(const std::string& text, vorncapture::ExposureRequest& request);

/// Reads "X,Y,WIDTH,HEIGHT" in unbinned sensor pixels into @p request. Error: BAD_REQUEST.
vorncapture::Status parseRegion(const std::string& text, vorncapture::ExposureRequest& request);

/// Reads the colours of the sensor's first four pixels, "RGGB", "GRBG", "GBRG" or "BGGR" in capitals or not, into
/// @p request. Error: BAD_REQUEST.
vorncapture::Status parseBayer(const std::string& text, vorncapture::ExposureRequest& request);

/// Reads hours or degrees: "0.712", "00:42:44.3" or "-00 42 44", from @p low to @p high. Error: BAD_REQUEST, which
/// calls them @p what.
vorncapture::Status parseAngle(const std::string& text, double low, double high, const std::string& what,
                               std::optional<double>& angle);

/// Reads "light", "dark", "bias" or "flat". Error: BAD_REQUEST.
vorncapture::Status parseKind(const std::string& text, vorncapture::FrameKind& kind);

/// Reads "x+", "x-", "y+", "y-" or a relay's number from 1 to 4. Error: BAD_REQUEST.
vorncapture::Status parseDirection(const std::string& text, vorncapture::GuideRelay& relay);

/// The filter that the user wants in the light, and what all are called.
struct WantedFilter {
    std::optional<unsigned int> position;  ///< empty: none in particular
    vorncapture::FilterNames names;
};

/// Reads Options::filter and Options::filterNames. Error: BAD_REQUEST.
vorncapture::Result<WantedFilter> wantedFilter(const Options& options);

/// Reads a mask of GPIO lines: "5", "0x5" or "0b101". Error: BAD_REQUEST.
vorncapture::Status parseMask(const std::string& text, std::optional<uint16_t>& mask);

}  // namespace vornctl
