# SPDX-License-Identifier: MIT
"""Exposures that run while the program does something else."""

from __future__ import annotations

import asyncio
from typing import Generator, Optional

from . import _core
from ._errors import Timeout
from ._frame import Frame
from ._status import ExposureProgress
from ._waiting import run


class Exposure:
    """An exposure under way, from Camera.expose_async().

    Ask result() for its frame, in any thread, or `await` it in a coroutine. Keep it: an exposure that nobody refers to
    any more is aborted.
    """

    def __init__(self, job: _core.Job) -> None:
        self._job = job
        self._progress: Optional[ExposureProgress] = None
        self._frame: Optional[Frame] = None

    def done(self) -> bool:
        """Whether it has ended, in one way or the other."""
        return self._job.done()

    @property
    def progress(self) -> Optional[ExposureProgress]:
        """Where it stands; None while it waits for another exposure of the camera to end."""
        news = self._job.news()
        if news is not None:
            self._progress = ExposureProgress(*news)
        return self._progress

    def result(self, timeout: Optional[float] = None) -> Frame:
        """Waits for the frame and returns it.

        Ctrl-C ends the waiting, not the exposure.

        Args:
            timeout: longest wait in seconds

        Raises:
            vornccd.Timeout: the exposure has not ended; it goes on
            vornccd.Cancelled: it was aborted
            vornccd.Error: as Camera.expose()
        """
        if not self._job.wait(-1.0 if timeout is None else max(0.0, timeout)):
            raise Timeout(f"the exposure has not ended in {timeout:g} s", "It goes on: ask again, or abort() it.")
        if self._frame is None:
            self._frame = Frame(self._job.result())
        return self._frame

    def abort(self) -> None:
        """Ends it without a picture. Harmless when it has ended.

        Returns at once; an exposure of up to a few seconds, and a readout, come to their end first.
        """
        self._job.cancel(False)

    def __await__(self) -> Generator[None, None, Frame]:
        return self._wait().__await__()

    async def _wait(self) -> Frame:
        loop = asyncio.get_running_loop()
        if not self._job.done():
            ended = asyncio.Event()
            descriptor = self._job.fileno()
            loop.add_reader(descriptor, ended.set)
            try:
                await ended.wait()
            except asyncio.CancelledError:
                self.abort()
                raise
            finally:
                loop.remove_reader(descriptor)
        return self.result()

    def __repr__(self) -> str:
        return f"<vornccd.Exposure {'ended' if self.done() else self.progress or 'waiting'}>"


def finished(job: _core.Job, progress: object = None) -> Frame:
    """Waits for an exposure's job and returns its frame; what is raised meanwhile aborts it."""
    report = (lambda news: progress(ExposureProgress(*news))) if callable(progress) else None
    return Frame(run(job, report))
