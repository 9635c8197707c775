// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace vorncapture {

/// What kind of trouble an Error is; tools make their exit status of it.
enum class ErrorKind {
    FAILED,          ///< the operation failed; trying again may help
    BAD_REQUEST,     ///< the request makes no sense for this camera; nothing was done
    UNSUPPORTED,     ///< the camera does not have what is needed; nothing was done
    NO_SUCH_CAMERA,  ///< no camera fits the selection
    PERMISSION,      ///< the system does not let this user use the camera
    BUSY,            ///< another program uses the camera
    TIMEOUT,         ///< the camera does not answer
    DEVICE_LOST,     ///< the camera is no longer attached
    NOT_REACHED,     ///< the camera works, but a temperature was not reached, or cannot be
    CANCELLED,       ///< the caller asked to stop
    FILE_ERROR,      ///< a file could not be written
};

/// A failure, in words for people.
struct Error {
    ErrorKind kind = ErrorKind::FAILED;
    std::string text;    ///< one line: what happened and, where known, why; no full stop, no line end
    std::string advice;  ///< what to do about it; lines separated by line ends, may be empty
};

/// Stands for "nothing" in a Result without a value.
struct Done {};

/// Either a value or the error that prevented it.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : outcome_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : outcome_(std::in_place_index<1>, std::move(error)) {}

    /// @return true when there is a value.
    bool ok() const { return outcome_.index() == 0; }

    /// @return the value; only when ok().
    T& value() { return *std::get_if<0>(&outcome_); }
    const T& value() const { return *std::get_if<0>(&outcome_); }

    /// @return the error; only when not ok().
    const Error& error() const { return *std::get_if<1>(&outcome_); }

private:
    std::variant<T, Error> outcome_;
};

/// Outcome of an operation that yields no value.
using Status = Result<Done>;

}  // namespace vorncapture
