# SPDX-License-Identifier: MIT
"""Fixtures for tests that run below `vornsim run` with a camera of each family and the test pattern as its scene."""

from __future__ import annotations

import concurrent.futures
import os
import pathlib
from typing import Callable, Iterator

import pytest
import vornccd


@pytest.fixture(scope="session")
def cameras() -> Iterator[dict[str, vornccd.Camera]]:
    """The opened cameras by family."""
    found = vornccd.list_cameras()
    with concurrent.futures.ThreadPoolExecutor(len(found)) as threads:  # each waits for its camera most of the time
        opened = {camera.family: camera for camera in threads.map(vornccd.open, found)}
    yield opened
    for camera in opened.values():
        camera.close()


@pytest.fixture
def k12(cameras: dict[str, vornccd.Camera]) -> vornccd.Camera:
    """A camera with shutter and guide port."""
    return cameras["STANDARD"]


@pytest.fixture
def k20(cameras: dict[str, vornccd.Camera]) -> vornccd.Camera:
    """A camera with filter wheel, lines and gain, without shutter."""
    return cameras["ADVANCED"]


@pytest.fixture
def log() -> Callable[[], list[str]]:
    """What the cameras did since it was last called, in words."""
    path = pathlib.Path(os.environ["CAMERA_LOG"])
    position = path.stat().st_size

    def since() -> list[str]:
        nonlocal position
        text = path.read_bytes()[position:]
        position += len(text)
        return [line.partition(": ")[2] for line in text.decode().splitlines()]

    return since
