# SPDX-License-Identifier: MIT
"""The package's exceptions; the compiled part raises them by name."""

from __future__ import annotations

import errno
from typing import ClassVar


class Error(Exception):
    """Anything that goes wrong with a camera.

    Its text says what happened and, on lines of its own, what to do about it.

    Attributes:
        reason: what happened, one line
        advice: what to do about it; may be empty
    """

    _errno: ClassVar[int] = errno.EIO

    def __init__(self, reason: str, advice: str = "") -> None:
        if isinstance(self, OSError):
            super().__init__(self._errno, reason)
        else:
            super().__init__(reason)
        self.reason = reason
        self.advice = advice

    def __str__(self) -> str:
        return f"{self.reason}\n{self.advice}" if self.advice else self.reason

    def __reduce__(self) -> tuple[type[Error], tuple[str, str]]:
        return type(self), (self.reason, self.advice)


class NotFound(Error, OSError):
    """No attached camera is the one that was asked for."""

    _errno = errno.ENODEV


class PermissionDenied(Error, PermissionError):
    """The system does not let this user use the camera."""

    _errno = errno.EACCES


class Busy(Error, OSError):
    """Another program, or another object of this one, has the camera open."""

    _errno = errno.EBUSY


class Disconnected(Error, ConnectionError):
    """The camera is no longer attached, or has lost its power."""

    _errno = errno.ENODEV


class Timeout(Error, TimeoutError):
    """The camera does not answer, or something did not come to its end in time."""

    _errno = errno.ETIMEDOUT


class NotReached(Timeout):
    """The camera works, but a temperature was not reached in time, or cannot be."""


class Failed(Error, OSError):
    """The camera did not do what it was told. It was opened anew, and trying again may help."""


class FileError(Error, OSError):
    """A file could not be written; there is no piece of one."""


class InvalidRequest(Error, ValueError):
    """The request makes no sense for this camera. Nothing was sent to it."""


class Unsupported(Error, OSError):
    """The camera does not have what is needed. Nothing was sent to it."""

    _errno = errno.EOPNOTSUPP


class Cancelled(Error):
    """Another thread stopped the operation, with abort() or close()."""


class Closed(Error, ValueError):
    """The camera has been closed."""
