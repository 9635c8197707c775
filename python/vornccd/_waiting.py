# SPDX-License-Identifier: MIT
"""Waiting for jobs of the compiled part, and checking arguments before they start."""

from __future__ import annotations

import math
import numbers
import operator
from typing import Any, Callable, Optional, SupportsFloat, SupportsIndex

from . import _core

PROGRESS_STEP = 0.1
"""Seconds between two calls of a progress function, at least."""

INTERRUPT_PATIENCE = 0.15
"""Seconds that a stopped operation has to come to its end before its caller goes on without it."""


def run(job: _core.Job, progress: Optional[Callable[[Any], object]] = None) -> Any:
    """Waits for a job and returns what it delivers.

    Whatever is raised meanwhile, by Ctrl-C or by `progress`, stops the job and is passed on.
    """
    try:
        while not job.wait(-1.0 if progress is None else PROGRESS_STEP):
            if progress is not None:
                news = job.news()
                if news is not None:
                    progress(news)
    except BaseException:
        job.cancel(False)
        finish(job, INTERRUPT_PATIENCE)
        raise
    return job.result()


def finish(job: _core.Job, patience: float = -1.0) -> None:
    """Waits for a job to end, however often Ctrl-C is pressed; then it no longer waits for the camera."""
    interrupted: Optional[BaseException] = None
    while not job.done():
        try:
            if not job.wait(patience) and patience >= 0.0:
                break
        except BaseException as trouble:
            interrupted = trouble
            job.cancel(True)
    if interrupted is not None:
        raise interrupted


def real(value: SupportsFloat, name: str) -> float:
    """Returns `value` as a float; texts and infinities are no numbers here."""
    if not isinstance(value, numbers.Real):
        raise TypeError(f"{name} must be a number, not {type(value).__name__}")
    number = float(value)
    if not math.isfinite(number):
        raise ValueError(f"{name} must be a finite number, not {number}")
    return number


def whole(value: SupportsIndex, name: str, lowest: int, highest: int) -> int:
    """Returns `value` as an int between two limits, both included."""
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"{name} must be a whole number, not {type(value).__name__}") from None
    if not lowest <= number <= highest:
        raise ValueError(f"{name} must lie from {lowest} to {highest}, not {number}")
    return number
