# SPDX-License-Identifier: MIT
"""Finished pictures."""

from __future__ import annotations

import datetime
import importlib
import os
from typing import Any, Optional, Union

import numpy as np
from numpy.typing import NDArray

from . import _core
from ._errors import FileError

_PREVIEW_SIDE = 1200
"""Longest side in pixels of a notebook's preview."""


class Frame:
    """A finished picture and all that is known about how it was made.

    Frames come from Camera.expose() and stay valid after their camera is closed.

    Attributes:
        data: the pixels, a numpy array of dtype uint16 and shape (height, width) in the order they were read out, the
            first row first. It shows the frame's own memory, without a copy, and cannot be written to:
            `frame.data.astype(float)` makes an array to calculate with.
        header: what the header of a FITS file of this frame says, keyword to value, see write()
    """

    def __init__(self, picture: _core.Picture) -> None:
        self._picture = picture
        self._cards = picture.cards()
        self.data: NDArray[np.uint16] = picture.pixels()
        self.header: dict[str, Any] = {key: value for key, value, _ in self._cards}

    @property
    def width(self) -> int:
        """Columns."""
        return self._picture.width

    @property
    def height(self) -> int:
        """Rows."""
        return self._picture.height

    @property
    def exposure(self) -> float:
        """Seconds that the sensor truly integrated."""
        return self._picture.seconds

    @property
    def start(self) -> datetime.datetime:
        """When the integration began, in UTC."""
        return datetime.datetime.fromtimestamp(self._picture.start, datetime.timezone.utc)

    @property
    def kind(self) -> str:
        """"light", "dark", "bias" or "flat"."""
        return self._picture.kind

    @property
    def camera(self) -> str:
        """The camera's name, "Vorn K12"."""
        return self._picture.camera

    @property
    def serial(self) -> int:
        """The camera's serial number."""
        return self._picture.serial

    @property
    def roi(self) -> tuple[int, int, int, int]:
        """(x, y, width, height) of what the picture shows, in unbinned sensor pixels."""
        return self._picture.region

    @property
    def binning(self) -> tuple[int, int]:
        """Sensor pixels summed in x and in y into one of the picture."""
        return self._picture.binning

    @property
    def temperature(self) -> Optional[float]:
        """Degrees Celsius of the sensor at the start; None where the camera does not say."""
        return self._picture.celsius

    @property
    def filter(self) -> Optional[int]:
        """Position of the filter wheel, from 1; None without a wheel."""
        return self._picture.filter

    @property
    def filter_name(self) -> str:
        """Name of that filter, or its position; empty without a wheel."""
        return self._picture.filter_name

    @property
    def notes(self) -> list[str]:
        """What is worth knowing about how the picture was made, a line each."""
        return self._picture.notes

    def write(self, path: Union[str, os.PathLike[str]], overwrite: bool = False) -> None:
        """Writes a FITS file, or an 8-bit stretched PNG where the name ends in ".png".

        The file gets its name when it is whole, so there is never a piece of one. The FITS file holds unsigned 16-bit
        values and the keywords that astronomical programs look for: DATE-OBS, EXPTIME, IMAGETYP, CCD-TEMP, XBINNING,
        BAYERPAT and so on.

        Raises:
            FileExistsError: there is such a file, and `overwrite` is false
            vornccd.FileError: the file could not be written; an OSError
        """
        name = os.fspath(path)
        write = self._picture.write_png if name.lower().endswith(".png") else self._picture.write_fits
        try:
            write(name, overwrite)
        except FileError as error:
            if not overwrite and os.path.lexists(name):
                raise FileExistsError(error.errno, f"{error.reason}; overwrite=True replaces it", name) from None
            raise

    def to_hdu(self) -> Any:
        """Returns an astropy.io.fits.PrimaryHDU with the pixels and the header.

        Raises:
            ImportError: astropy is not installed (Debian's package python3-astropy)
        """
        fits = importlib.import_module("astropy.io.fits")
        hdu = fits.PrimaryHDU(self.data)
        for key, value, comment in self._cards:
            hdu.header[key] = (value, comment)
        return hdu

    def stretch(self) -> NDArray[np.uint8]:
        """Returns the picture with its sky at a quarter of full brightness, for people to look at.

        Returns:
            dtype uint8, shape (height, width); (height, width, 3) in red, green and blue where the picture keeps a
            colour sensor's pattern
        """
        return self._picture.levels()

    def _repr_png_(self) -> bytes:
        """The preview that a notebook shows; large pictures are shown smaller."""
        levels = self.stretch()
        factor = -(-max(levels.shape[:2]) // _PREVIEW_SIDE)
        if factor > 1:
            rows, columns = levels.shape[0] // factor, levels.shape[1] // factor
            blocks = levels[: rows * factor, : columns * factor].reshape(rows, factor, columns, factor, -1)
            levels = blocks.mean(axis=(1, 3)).astype(np.uint8).reshape(rows, columns, *levels.shape[2:])
        return _core.encode_png(levels)

    def __repr__(self) -> str:
        temperature = "" if self.temperature is None else f", {self.temperature:.1f} °C"
        return (
            f"<vornccd.Frame {self.width} x {self.height} {self.kind}, {self.exposure:g} s, {self.camera}"
            f"{temperature}, {self.start:%Y-%m-%d %H:%M:%S} UTC>"
        )
