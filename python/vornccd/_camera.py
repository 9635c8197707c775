# SPDX-License-Identifier: MIT
"""Opened cameras."""

from __future__ import annotations

import itertools
import time
import weakref
from types import TracebackType
from typing import Any, Callable, Iterator, Optional, Sequence, SupportsFloat, SupportsIndex, Union

from . import _core
from ._errors import Closed
from ._exposure import Exposure, finished
from ._frame import Frame
from ._status import CoolingProgress, ExposureProgress, Gain, Status, Wheel
from ._waiting import finish, real, run, whole

Binning = Union[SupportsIndex, tuple[SupportsIndex, SupportsIndex]]
Roi = Sequence[SupportsIndex]

_LARGEST = 2**31 - 1
_KINDS = ("light", "dark", "bias", "flat")
_RELAYS = {"x+": 0, "x-": 1, "y+": 2, "y-": 3}
_SLEEP_STEP = 0.1

opened: weakref.WeakSet[Camera] = weakref.WeakSet()
"""Cameras that may be open, to be closed when the interpreter ends."""


class Camera:
    """An opened camera, from vornccd.open().

    Use it in a `with` statement, which closes it in any case; the cooler goes on as it is. All methods may be called
    from several threads: an exposure lets the others in while the sensor integrates, and a second exposure waits for
    the first. Whatever waits lets other threads run, and Ctrl-C ends it.

    Attributes:
        observer: who looks, for headers; a text, empty at first
        telescope: through what, for headers; a text, empty at first
        focal_length: of the telescope in millimetres, for headers; 0.0 is unknown
        aperture: diameter of the telescope in millimetres, for headers; 0.0 is unknown
    """

    def __init__(self, core: _core.OpenCamera) -> None:
        self._core = core
        self._info = core.info()
        self._filter_names: tuple[str, ...] = ()
        self.observer = ""
        self.telescope = ""
        self.focal_length = 0.0
        self.aperture = 0.0
        opened.add(self)

    # What the camera is.

    @property
    def name(self) -> str:
        """Name of the model, "Vorn K12"."""
        return str(self._info["name"])

    @property
    def family(self) -> str:
        """"STANDARD", "ADVANCED", "CLASSIC", "QUICKER" or "IIDC": the dialect that the camera speaks."""
        return str(self._info["family"])

    @property
    def serial(self) -> int:
        """Serial number."""
        return int(self._info["serial"])

    @property
    def firmware(self) -> str:
        """Version of the camera's own program, "3.14"."""
        return str(self._info["firmware"])

    @property
    def width(self) -> int:
        """Columns of the sensor."""
        return int(self._info["width"])

    @property
    def height(self) -> int:
        """Rows of the sensor."""
        return int(self._info["height"])

    @property
    def pixel_size(self) -> tuple[float, float]:
        """Width and height of a sensor pixel in micrometres."""
        x, y = self._info["pixel_size"]
        return x, y

    @property
    def max_binning(self) -> tuple[int, int]:
        """Largest binning in x and in y."""
        x, y = self._info["max_binning"]
        return x, y

    @property
    def colour(self) -> bool:
        """Whether the sensor has colour filters, in the Bayer pattern RGGB."""
        return bool(self._info["colour"])

    @property
    def bayer_offset(self) -> tuple[int, int]:
        """Column and row, each 0 or 1, of the pattern's element at the sensor's first pixel."""
        x, y = self._info["bayer_offset"]
        return x, y

    @property
    def cooler(self) -> str:
        """"none", "always on", "on/off", "power" or "set-point"; the last three can be told a target."""
        return str(self._info["cooler"])

    @property
    def has_shutter(self) -> bool:
        """Whether there is a shutter; without one, cover the telescope for dark frames."""
        return bool(self._info["has_shutter"])

    @property
    def has_guide_port(self) -> bool:
        """Whether there are guide relays, see guide()."""
        return bool(self._info["has_guide_port"])

    @property
    def has_filter_wheel(self) -> bool:
        """Whether there is a filter wheel, see set_filter()."""
        return bool(self._info["has_filter_wheel"])

    @property
    def has_8bit_mode(self) -> bool:
        """Whether pictures can be read out with 8 bits, see expose()."""
        return bool(self._info["has_8bit_mode"])

    @property
    def gpio_lines(self) -> int:
        """Number of general-purpose lines."""
        return int(self._info["gpio_lines"])

    @property
    def shortest_exposure(self) -> float:
        """Seconds; a shorter exposure becomes this one."""
        return float(self._info["shortest_exposure"])

    @property
    def longest_exposure(self) -> Optional[float]:
        """Seconds; None where the camera sets no limit."""
        longest = self._info["longest_exposure"]
        return None if longest is None else float(longest)

    # Opening and closing.

    @property
    def closed(self) -> bool:
        """Whether close() has been called."""
        return self._core.closed

    def close(self) -> None:
        """Stops whatever runs, opens the guide relays and closes the camera. The cooler goes on as it is.

        May be called again. Ctrl-C ends the wait for a camera that does not answer.
        """
        opened.discard(self)
        if not self._core.inherited:
            finish(self._core.close())

    def __enter__(self) -> Camera:
        if self.closed:
            raise Closed(f"the {self.name} is closed", "Open it again with vornccd.open().")
        return self

    def __exit__(
        self, kind: Optional[type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "closed" if self.closed else "open"
        return f"<vornccd.Camera {self.name}, serial number {self.serial}, {self.width} x {self.height}, {state}>"

    # Pictures.

    def expose(
        self,
        seconds: SupportsFloat = 0.0,
        *,
        binning: Binning = 1,
        roi: Optional[Roi] = None,
        kind: str = "light",
        preview: bool = False,
        eight_bit: bool = False,
        object: str = "",
        progress: Optional[Callable[[ExposureProgress], Any]] = None,
    ) -> Frame:
        """Takes a picture and returns it.

        Ctrl-C aborts the exposure, closes the shutter and raises KeyboardInterrupt within 0.2 seconds. What the camera
        does without listening, which are exposures of up to a few seconds and the readout, goes on to its end without
        its caller; the next exposure waits for that.

        Args:
            seconds: time to integrate; what is too short for the camera becomes its shortest exposure
            binning: sensor pixels summed into one of the picture: n for n x n, or (x, y)
            roi: (x, y, width, height) in unbinned sensor pixels from the top left corner; None: the whole sensor. It is
                made smaller to fit the binning; frame.roi says what came of it
            kind: "light", "flat", or with the shutter closed "dark" and "bias" (which has no time: leave it 0)
            preview: the camera's faster, noisier readout, where it has one
            eight_bit: values from 0 to 255, where the camera has them
            object: what is looked at, for the header
            progress: called about ten times a second, in this thread, with an ExposureProgress; what it raises aborts
                the exposure and is passed on

        Raises:
            ValueError, TypeError: no such picture can be taken; nothing was sent to the camera
            vornccd.Failed: the exposure failed; the camera was opened anew and can be used
            vornccd.Disconnected: the camera is gone; close it and open it again when it is back
            vornccd.Timeout: the camera does not answer
            vornccd.Cancelled: another thread called abort() or close()
        """
        job = self._start(seconds, binning, roi, kind, preview, eight_bit, object)
        return finished(job, progress)

    def expose_async(
        self,
        seconds: SupportsFloat = 0.0,
        *,
        binning: Binning = 1,
        roi: Optional[Roi] = None,
        kind: str = "light",
        preview: bool = False,
        eight_bit: bool = False,
        object: str = "",
    ) -> Exposure:
        """Starts a picture and returns at once; arguments as expose() has them.

        Returns:
            an Exposure: ask its result(), or `await` it. The camera does everything else meanwhile, such as status().
        """
        return Exposure(self._start(seconds, binning, roi, kind, preview, eight_bit, object))

    def sequence(
        self,
        count: Optional[SupportsIndex],
        seconds: SupportsFloat = 0.0,
        *,
        interval: SupportsFloat = 0.0,
        binning: Binning = 1,
        roi: Optional[Roi] = None,
        kind: str = "light",
        preview: bool = False,
        eight_bit: bool = False,
        object: str = "",
        progress: Optional[Callable[[ExposureProgress], Any]] = None,
    ) -> Iterator[Frame]:
        """Iterates over pictures, each taken when it is asked for; the other arguments as expose() has them.

        Args:
            count: number of pictures; None: without end
            interval: seconds from the start of a picture to the start of the next, where that leaves time to wait
        """
        pause = real(interval, "interval")
        if pause < 0.0:
            raise ValueError("interval must not be negative")
        numbers = itertools.count() if count is None else range(whole(count, "count", 0, _LARGEST))
        self._check(seconds, binning, roi, kind)

        def frames() -> Iterator[Frame]:
            begin = time.monotonic()
            for number in numbers:
                while (left := begin + number * pause - time.monotonic()) > 0.0 and not self.closed:
                    time.sleep(min(left, _SLEEP_STEP))
                yield finished(self._start(seconds, binning, roi, kind, preview, eight_bit, object), progress)

        return frames()

    def abort(self) -> None:
        """Ends exposures that run in other threads; they raise vornccd.Cancelled. Harmless when there are none."""
        self._core.abort()

    def _check(
        self, seconds: SupportsFloat, binning: Binning, roi: Optional[Roi], kind: str
    ) -> tuple[float, tuple[int, int], Optional[tuple[int, int, int, int]]]:
        time_wanted = real(seconds, "seconds")
        if kind not in _KINDS:
            raise ValueError(f"kind must be one of {', '.join(_KINDS)}, not {kind!r}")
        if kind == "bias" and time_wanted > 0.0:
            raise ValueError("a bias frame is as short as possible: leave seconds out")
        x, y = binning if isinstance(binning, (tuple, list)) else (binning, binning)
        bins = whole(x, "binning", 1, _LARGEST), whole(y, "binning", 1, _LARGEST)
        if roi is None:
            return time_wanted, bins, None
        if isinstance(roi, str) or len(roi) != 4:
            raise TypeError("roi must be (x, y, width, height)")
        left, top, width, height = (whole(part, "each number of roi", 0, _LARGEST) for part in roi)
        return time_wanted, bins, (left, top, width, height)

    def _start(
        self,
        seconds: SupportsFloat,
        binning: Binning,
        roi: Optional[Roi],
        kind: str,
        preview: bool,
        eight_bit: bool,
        looked_at: str,
    ) -> _core.Job:
        time_wanted, bins, region = self._check(seconds, binning, roi, kind)
        return self._core.expose(
            time_wanted,
            region,
            *bins,
            kind,
            bool(preview),
            bool(eight_bit),
            ",".join(self._filter_names),
            looked_at,
            self.observer,
            self.telescope,
            real(self.focal_length, "focal_length"),
            real(self.aperture, "aperture"),
        )

    # Cooling.

    def cool(
        self,
        celsius: SupportsFloat,
        *,
        wait: bool = True,
        ramp: Optional[SupportsFloat] = None,
        timeout: SupportsFloat = 1800.0,
        progress: Optional[Callable[[CoolingProgress], Any]] = None,
    ) -> None:
        """Cools the sensor to a target in degrees Celsius.

        Args:
            celsius: -60 to 40
            wait: until the temperature has stayed within 0.5 degrees of the target for 30 seconds
            ramp: degrees a minute by which the set-point moves; None: at once. A ramp waits for its end in any case
            timeout: longest wait in seconds, the ramp not counted
            progress: called about once a second, in this thread, with a CoolingProgress; `print` will do

        Ctrl-C ends the wait, and the cooler goes on towards the set-point it has.

        Raises:
            ValueError: no such target
            vornccd.Unsupported: there is no cooler that can be told a target
            vornccd.NotReached: the cooler cannot reach the target, or has not in time; a Timeout
        """
        limit, per_minute = real(timeout, "timeout"), None if ramp is None else real(ramp, "ramp")
        self._run_cooling(self._core.cool(real(celsius, "celsius"), per_minute, bool(wait), limit), progress)

    def warm_up(
        self,
        *,
        wait: bool = True,
        timeout: SupportsFloat = 3600.0,
        progress: Optional[Callable[[CoolingProgress], Any]] = None,
    ) -> None:
        """Starts the camera's own controlled warm-up, after which the cooler is off; arguments as cool() has them."""
        self._run_cooling(self._core.warm_up(bool(wait), real(timeout, "timeout")), progress)

    @staticmethod
    def _run_cooling(job: _core.Job, progress: Optional[Callable[[CoolingProgress], Any]]) -> None:
        def report(news: tuple[dict[str, Any], float, float]) -> None:
            if progress is not None:
                progress(CoolingProgress(Status._of(news[0]), *news[1:]))

        run(job, None if progress is None else report)

    def status(self) -> Status:
        """Reads temperatures, cooler, gain and offset."""
        return Status._of(run(self._core.status()))

    @property
    def temperature(self) -> Optional[float]:
        """Degrees Celsius of the sensor now; None where the camera does not say."""
        return self.status().temperature

    # Filter wheel, shutter, guide port, lines, gain.

    @property
    def filter_names(self) -> tuple[str, ...]:
        """Names of the filters at the positions 1, 2 and so on; the camera knows positions only.

        Set a sequence of texts; set_filter() then takes names, and headers have them.
        """
        return self._filter_names

    @filter_names.setter
    def filter_names(self, names: Sequence[str]) -> None:
        if isinstance(names, str):
            raise TypeError("filter_names must be a sequence of texts, one a filter")
        if any("," in name for name in names):
            raise ValueError("the name of a filter has no comma")
        _core.check_filter_names(",".join(names))
        self._filter_names = tuple(names)

    def wheel(self) -> Wheel:
        """Reads the filter wheel.

        Raises:
            vornccd.Unsupported: there is none
        """
        return Wheel(*run(self._core.wheel()))

    def set_filter(self, filter: Union[int, str]) -> None:
        """Turns the wheel to a filter, by position from 1 or by name, and waits until it stands there.

        Raises:
            ValueError: no such filter
            vornccd.Unsupported: there is no wheel
            vornccd.Error: the wheel does not move
        """
        if not isinstance(filter, str):
            filter = str(whole(filter, "filter", 1, _LARGEST))
        run(self._core.turn_wheel(filter, ",".join(self._filter_names)))

    def set_shutter(self, open: bool) -> None:
        """Opens or closes the shutter.

        Raises:
            vornccd.Unsupported: there is none
        """
        run(self._core.shutter(bool(open)))

    def guide(self, direction: str, seconds: SupportsFloat) -> None:
        """Closes a guide relay for a moment and opens it again, whatever happens meanwhile, Ctrl-C included.

        Args:
            direction: "x+", "x-", "y+" or "y-"
            seconds: above 0, at most 60

        Raises:
            ValueError: no such direction or time
            vornccd.Unsupported: there is no guide port
        """
        if direction not in _RELAYS:
            raise ValueError(f"direction must be one of {', '.join(_RELAYS)}, not {direction!r}")
        run(self._core.guide(_RELAYS[direction], real(seconds, "seconds")))

    def gpio_directions(self, mask: SupportsIndex) -> None:
        """Sets the directions of the lines, a bit a line; which value is an output is the camera's convention."""
        run(self._core.gpio_directions(whole(mask, "mask", 0, 0xFFFF)))

    def gpio_write(self, levels: SupportsIndex) -> None:
        """Drives the lines that are outputs, a bit a line."""
        run(self._core.gpio_drive(whole(levels, "levels", 0, 0xFFFF)))

    def gpio_read(self) -> int:
        """Reads the lines, a bit a line."""
        return int(run(self._core.gpio_read()))

    def gain(self) -> Gain:
        """Reads gain and offset of the readout.

        Raises:
            vornccd.Unsupported: they are fixed in this family
        """
        return Gain(*run(self._core.gain()))

    def set_gain(self, gain: SupportsIndex, offset: SupportsIndex) -> None:
        """Sets gain (0 to 63) and offset (0 to 512) of the readout.

        Raises:
            ValueError: out of range
            vornccd.Unsupported: they are fixed in this family
        """
        run(self._core.set_gain(whole(gain, "gain", 0, 63), whole(offset, "offset", 0, 512)))
