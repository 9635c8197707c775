# SPDX-License-Identifier: MIT
"""Cooled CCD cameras on USB, for scientists and observatory scripts.

    import vornccd

    for found in vornccd.list_cameras():
        print(found.name, found.serial)

    with vornccd.open("K12") as camera:
        camera.cool(-10, progress=print)
        frame = camera.expose(30, binning=2, roi=(100, 100, 640, 480))
        print(frame.data.mean(), frame.header["CCD-TEMP"])
        frame.write("m31.fits")

Times are in seconds, temperatures in degrees Celsius, pixel sizes in micrometres. Pixels are numpy arrays of dtype
uint16 and shape (height, width), the first row read out first; regions are (x, y, width, height) in unbinned sensor
pixels.

Whatever waits lets other threads run, and Ctrl-C ends it: the shutter closes, the guide relays open, and
KeyboardInterrupt is raised. What goes wrong is raised as a vornccd.Error, whose text has the cause and the cure:

    NotFound, PermissionDenied, Busy, Disconnected, Timeout, NotReached, Failed, FileError, Unsupported   also an OSError
    InvalidRequest, Closed   also a ValueError
    Cancelled   by another thread

Arguments that are wrong for every camera raise ValueError or TypeError. Nothing is sent to the camera then.
"""

from __future__ import annotations

import atexit
import builtins
import dataclasses
from typing import Optional, SupportsFloat, Union

from . import _core

_core.check_interpreter()

from ._camera import Camera, opened as _opened
from ._errors import (
    Busy,
    Cancelled,
    Closed,
    Disconnected,
    Error,
    Failed,
    FileError,
    InvalidRequest,
    NotFound,
    NotReached,
    PermissionDenied,
    Timeout,
    Unsupported,
)
from ._exposure import Exposure
from ._frame import Frame
from ._status import CoolingProgress, ExposureProgress, Gain, Status, Wheel
from ._waiting import real as _real, run as _run, whole as _whole

__version__ = _core.version
__all__ = [
    "list_cameras",
    "open",
    "FoundCamera",
    "Camera",
    "Exposure",
    "Frame",
    "Status",
    "Wheel",
    "Gain",
    "ExposureProgress",
    "CoolingProgress",
    "Error",
    "NotFound",
    "PermissionDenied",
    "Busy",
    "Disconnected",
    "Timeout",
    "NotReached",
    "Failed",
    "FileError",
    "InvalidRequest",
    "Unsupported",
    "Cancelled",
    "Closed",
]


@dataclasses.dataclass(frozen=True)
class FoundCamera:
    """A camera in the list; it has not been opened.

    Attributes:
        index: its place in the list, which changes as cameras come and go
        name: name of the model, "Vorn K12"
        port: its place on the bus, "1-2.3" for bus and ports; None where several of one model are attached
    """

    index: int
    name: str
    port: Optional[str]

    @property
    def serial(self) -> Optional[int]:
        """Serial number. Each time it is asked for, the camera is opened for a moment; None where that fails."""
        same = [camera for camera in _opened if camera.name == self.name and not camera.closed]
        ours = [ours for index, _, _, ours in _run(_core.list()) if index == self.index]
        if len(same) == 1 and ours == [True]:
            return same[0].serial
        try:
            with open(self) as camera:
                return camera.serial
        except Error:
            return None


def list_cameras() -> list[FoundCamera]:
    """Lists the attached cameras without touching them.

    Each call leaves a little memory behind in the driver, so do not call it in a loop without end.
    """
    return [FoundCamera(index, name, port or None) for index, name, port, _ in _run(_core.list())]


def open(camera: Union[str, int, FoundCamera, None] = None, *, timeout: Optional[SupportsFloat] = None) -> Camera:
    """Opens a camera.

    Args:
        camera: which one. None: the only one attached. A number: its place in the list with one or two digits, its
            serial number with more. A text: the same, "serial:7", "index:0", a model such as "Vorn K12" or "k12", or
            its place on the bus, "1:2" (bus and device, as lsusb has them) or "1-2.3" (bus and ports). Or an entry of
            list_cameras().
        timeout: longest wait in seconds for any single answer of the camera, 60 without it

    Raises:
        ValueError, TypeError: `camera` says nothing, or several cameras fit it
        vornccd.NotFound: no such camera is attached
        vornccd.PermissionDenied: this user may not use it
        vornccd.Busy: another program uses it, or this one has it open already
        vornccd.Timeout: it does not answer
        vornccd.Disconnected: it was unplugged meanwhile
    """
    if camera is None:
        selector = ""
    elif isinstance(camera, FoundCamera):
        selector = camera.port or f"index:{camera.index}"
    elif isinstance(camera, str):
        selector = camera
        if not selector.strip():
            raise ValueError("an empty text means no camera; leave it out to open the only one")
    else:
        selector = str(_whole(camera, "camera", 0, 2**32 - 1))
    limit = 0.0
    if timeout is not None:
        limit = _real(timeout, "timeout")
        if limit <= 0.0:
            raise ValueError("timeout must be above 0")
    return Camera(_run(_core.open(selector, limit)))


def _close_all() -> None:
    for camera in builtins.list(_opened):
        camera.close()


atexit.register(_close_all)
