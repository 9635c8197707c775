// SPDX-License-Identifier: MIT
/// @file family.h
/// What each family does in its own way. Operations do what the families share, and call these for the rest; the
/// functions stand in families/, a file a family.
#pragma once

#include "readout_region.h"

#include "vornccd.h"

#include <cstdint>

class VornCameraImpl;

namespace vornccd {

class StepRunner;
struct CoolingReply;
struct FilterStatus;

/// A numbered command on its way, as sendCommand() was given it.
struct CommandExchange {
    unsigned code = 0;
    const uint8_t* payload = nullptr;  ///< null: zeros
    uint8_t* reply = nullptr;          ///< null: no reply is read
    unsigned payloadLength = 0;
    unsigned replyLength = 0;
};

/// For what a family does not do: returns @p RESULT and nothing else.
template <auto RESULT, typename... Arguments>
decltype(RESULT) always(Arguments... /*unused*/)
{
    return RESULT;
}

/// Connecting without steps.
inline void connectAtOnce(StepRunner& /*steps*/) {}
/// Fails the opening of a camera whose type is outside the enumeration.
void identifyNothing(StepRunner& steps, uint32_t productId);
/// Ends the process: this family offers no data apart from replies.
bool refuseData(VornCameraImpl& camera, uint8_t* buffer, unsigned length);
/// No exposure is refused.
inline const char* refuseNothing(const ReadoutRegion& /*region*/, double /*seconds*/)
{
    return nullptr;
}
/// Whole binned pixels.
inline unsigned wholePixels(const VornCameraImpl& /*camera*/, unsigned width, unsigned binX)
{
    return width / binX;
}

/// The functions of a family. The defaults do what a family without the thing in question does. Unless said otherwise
/// each runs with the camera's lock held and returns whether the exchange worked; no one sets lastError.
struct FamilyFunctions {
    // ---- opening, without the lock --------------------------------------------------------------------------------

    /// Bring-up until the camera answers.
    void (*connect)(StepRunner& steps) = connectAtOnce;
    /// Reads what the camera says about itself into its fields. @p productId comes from the EEPROM.
    void (*identify)(StepRunner& steps, uint32_t productId) = identifyNothing;

    // ---- commands -------------------------------------------------------------------------------------------------

    /// Sends a command in the family's dialect and reads the reply.
    bool (*exchangeCommand)(VornCameraImpl& camera, const CommandExchange& exchange) = always<false>;
    /// Reads @p length bytes that the camera offers after a command.
    bool (*readData)(VornCameraImpl& camera, uint8_t* buffer, unsigned length) = refuseData;
    /// @return whether the camera answers.
    bool (*ping)(VornCameraImpl& camera) = always<false>;

    // ---- exposure -------------------------------------------------------------------------------------------------

    /// Begins an exposure that the host times.
    bool (*startExposure)(VornCameraImpl& camera) = always<false>;
    /// Ends it before its time.
    bool (*abortExposure)(VornCameraImpl& camera) = always<true>;
    /// Microseconds that readCCD() itself spends before a long exposure ends.
    int64_t (*readoutLead)(const VornCameraImpl& camera) = always<int64_t{0}>;
    /// Ends a long exposure and begins its readout.
    bool (*endLongExposure)(VornCameraImpl& camera, const ReadoutRegion& region) = always<false>;
    /// @return why this short exposure is refused, or null.
    const char* (*refusal)(const ReadoutRegion& region, double seconds) = refuseNothing;
    /// Makes an exposure that the camera times, and waits for its end.
    bool (*exposeShort)(VornCameraImpl& camera, const ReadoutRegion& region, double seconds) = always<false>;
    /// Values in a row of the image. @p width in pixels, @p binX not 0.
    unsigned (*imageWidth)(const VornCameraImpl& camera, unsigned width, unsigned binX) = wholePixels;
    /// Takes the image that is being read out into the caller's buffer of @p pixels values.
    bool (*receiveImage)(VornCameraImpl& camera, uint16_t* buffer, uint32_t pixels) = always<false>;

    // ---- accessories ----------------------------------------------------------------------------------------------

    /// Asks one sensor. @p celsius may be null.
    bool (*readTemperature)(VornCameraImpl& camera, unsigned sensor, float* celsius) = always<false>;
    bool (*readCooling)(VornCameraImpl& camera, CoolingReply& cooling) = always<false>;
    /// Sends the set-point. @p acknowledgement receives what the camera answers, 1 when it accepts.
    bool (*setCoolingTarget)(VornCameraImpl& camera, float celsius, uint8_t& acknowledgement) = always<false>;
    bool (*readFilterStatus)(VornCameraImpl& camera, FilterStatus& status) = always<false>;
    /// Turns the filter wheel to position @p index. @p accepted receives the camera's answer.
    bool (*turnFilterWheel)(VornCameraImpl& camera, unsigned index, bool& accepted) = always<false>;
    /// Closes the relays of @p relayMask and opens the others.
    bool (*setGuideRelays)(VornCameraImpl& camera, unsigned relayMask) = always<false>;
};

extern const FamilyFunctions CLASSIC_FUNCTIONS;
extern const FamilyFunctions STANDARD_FUNCTIONS;
extern const FamilyFunctions QUICKER_FUNCTIONS;
extern const FamilyFunctions IIDC_FUNCTIONS;
extern const FamilyFunctions ADVANCED_FUNCTIONS;

/// @return the functions of @p type; for a type outside the enumeration those of a camera that can do nothing.
const FamilyFunctions& functionsOf(CAMERA_TYPE type);

}  // namespace vornccd
