// SPDX-License-Identifier: MIT
#include "python_errors.h"

#include <pybind11/pybind11.h>

namespace py = pybind11;

namespace vornpy {
namespace {

/// @return the name of the exception in vornccd._errors.
const char* exceptionName(vorncapture::ErrorKind kind)
{
    using vorncapture::ErrorKind;
    switch (kind) {
        case ErrorKind::FAILED:
            return "Failed";
        case ErrorKind::BAD_REQUEST:
            return "InvalidRequest";
        case ErrorKind::UNSUPPORTED:
            return "Unsupported";
        case ErrorKind::NO_SUCH_CAMERA:
            return "NotFound";
        case ErrorKind::PERMISSION:
            return "PermissionDenied";
        case ErrorKind::BUSY:
            return "Busy";
        case ErrorKind::TIMEOUT:
            return "Timeout";
        case ErrorKind::DEVICE_LOST:
            return "Disconnected";
        case ErrorKind::NOT_REACHED:
            return "NotReached";
        case ErrorKind::CANCELLED:
            return "Cancelled";
        case ErrorKind::FILE_ERROR:
            return "FileError";
    }
    return "Failed";
}

}  // namespace

void raise(const vorncapture::Error& error)
{
    const py::object type = py::module_::import("vornccd._errors").attr(exceptionName(error.kind));
    const py::object exception = type(error.text, error.advice);
    PyErr_SetObject(type.ptr(), exception.ptr());
    throw py::error_already_set();
}

}  // namespace vornpy
