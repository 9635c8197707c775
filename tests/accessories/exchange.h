// SPDX-License-Identifier: MIT
#pragma once

/// @file exchange.h
/// What the operations of accessories have in common: one exchange, which fails where one of its transfers fails, and a
/// refusal where a camera lacks the accessory.

#include <string>
#include <vector>

#include "opened_camera.h"

namespace vorntest {

/// A camera with every accessory: many 10-bit sensors, a cooler whose power reads from 10 to 210, all ports.
struct EquippedCamera : OpenedCamera {
    explicit EquippedCamera(CAMERA_TYPE type = STANDARD);
};

/// What a failure must leave in the outputs of an operation.
constexpr float UNTOUCHED = 999.0F;
inline constexpr const char* UNSUPPORTED = "Unsupported operation";

/// An operation of one family, and what travels.
struct Exchange {
    /// @param itsCommands as the family frames them; several are separated by |, with 5 ms between them
    Exchange(CAMERA_TYPE family, const char* itsCommands, Operation operation)
        : type(family), commands(itsCommands), act(std::move(operation))
    {
    }
    /// @param itsReply to the last command
    /// @param agrees whether that reply means that the camera does it
    Exchange(CAMERA_TYPE family, const char* itsCommands, const char* itsReply, Operation operation, bool agrees = true)
        : type(family), commands(itsCommands), reply(itsReply), act(std::move(operation)), agreed(agrees)
    {
    }

    /// @param pauseUs between the command and its reply, in families whose reply is fetched
    Steps steps(long pauseUs = 0) const;

    CAMERA_TYPE type;
    std::string commands;
    std::string reply;
    Operation act;
    bool agreed = true;
};

/// Plays each of @p exchanges whole and with each of its transfers failing, with all coolers that can be set.
/// @param error the text after a failure
void expectExchanges(const char* error, const std::vector<Exchange>& exchanges, long pauseUs = 0);

/// Expects that @p act fails with @p error and without traffic in @p families, which never have the accessory.
void expectRefused(const std::vector<CAMERA_TYPE>& families, const Operation& act, const char* error);
/// Expects the same of a STANDARD camera that has no accessories, even while another thread has the camera's lock.
void expectRefusedUnequipped(const Operation& act, const char* error = UNSUPPORTED);

}  // namespace vorntest
