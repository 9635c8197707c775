# SPDX-License-Identifier: MIT
from __future__ import annotations

import asyncio
import math
import os
import pathlib
import pickle
import signal
import struct
import threading
import time
from typing import Any, Callable

import numpy as np
import pytest
import vornccd
from astropy.io import fits  # type: ignore[import]

Cameras = dict[str, vornccd.Camera]
Log = Callable[[], list[str]]
ROI = (100, 50, 40, 130)


def test_pictures_of_every_family_show_the_pattern_in_its_place(cameras: Cameras) -> None:
    assert set(cameras) == {"CLASSIC", "STANDARD", "QUICKER", "IIDC", "ADVANCED"}
    for family, camera in cameras.items():
        frame = camera.expose(0.01, binning=2, roi=ROI)
        # Each pixel tells row and column of its first sensor pixel; register cameras fold the two bytes.
        y, x = np.mgrid[50:180:2, 100:140:2]
        value = y * 256 + x
        if family == "IIDC":
            value = ((value >> 8) ^ value) << 8
        assert frame.data.shape == (65, 20) and frame.data.dtype == np.uint16, family
        assert np.array_equal(frame.data, value & 0xFFFF), family
        assert (frame.binning, frame.roi, frame.camera) == ((2, 2), ROI, camera.name)


def test_pixels_are_shown_without_a_copy_and_outlive_frame_and_camera(k12: vornccd.Camera) -> None:
    frame = k12.expose(0.01, roi=ROI)
    assert np.shares_memory(frame.data, frame._picture.pixels())
    with pytest.raises(ValueError, match="read-only"):
        frame.data[0, 0] = 1
    corner = frame.data[:1, :2]
    del frame
    k12.expose(0.01, roi=ROI)
    assert corner.tolist() == [[50 * 256 + 100, 50 * 256 + 101]]


def test_file_header_and_hdu_say_the_same(k20: vornccd.Camera, tmp_path: pathlib.Path) -> None:
    k20.filter_names = ("L", "R", "G", "B", "Ha")
    k20.observer, k20.telescope, k20.focal_length, k20.aperture = "E. H.", "C11", 2800, 280.0
    k20.set_filter("ha")
    frame = k20.expose(0.01, binning=(4, 2), kind="flat", object="Dämmerung")
    told = {"IMAGETYP": "Flat Frame", "FILTER": "Ha", "OBJECT": "Daemmerung", "FOCALLEN": 2800.0, "XBINNING": 4}
    assert told.items() <= frame.header.items()
    assert (frame.kind, frame.filter, frame.filter_name, frame.exposure) == ("flat", 5, "Ha", 0.01)

    path = tmp_path / "a[1].fits"
    frame.write(path)
    frame.to_hdu().writeto(tmp_path / "hdu.fits")
    for name in (path, tmp_path / "hdu.fits"):
        with fits.open(name) as files:
            assert np.array_equal(files[0].data, frame.data)
            assert {key: files[0].header[key] for key in frame.header} == frame.header

    with pytest.raises(FileExistsError, match="overwrite=True"):
        frame.write(str(path))
    frame.write(path, overwrite=True)
    with pytest.raises(vornccd.FileError):
        frame.write(tmp_path / "nowhere" / "a.fits")
    assert sorted(os.listdir(tmp_path)) == ["a[1].fits", "hdu.fits"]


def test_previews_fit_a_notebook(k20: vornccd.Camera, tmp_path: pathlib.Path) -> None:
    frame = k20.expose(0.01)
    assert frame.stretch().shape == (2200, 2750) and frame.stretch().dtype == np.uint8
    png = frame._repr_png_()
    assert png[:8] == b"\x89PNG\r\n\x1a\n" and struct.unpack(">II", png[16:24]) == (916, 733)
    frame.write(tmp_path / "whole.PNG")
    assert struct.unpack(">II", (tmp_path / "whole.PNG").read_bytes()[16:24]) == (2750, 2200)


def test_colour_is_kept_where_the_pattern_is(cameras: Cameras) -> None:
    quicker = cameras["QUICKER"]
    assert quicker.colour and quicker.bayer_offset == (0, 1)
    assert quicker.expose(0.01, roi=ROI).stretch().shape == (130, 40, 3)
    assert quicker.expose(0.01, roi=ROI, binning=2).stretch().shape == (65, 20)


WRONG: list[tuple[type[Exception], dict[str, Any]]] = [
    (TypeError, {"seconds": "1"}),
    (ValueError, {"seconds": math.nan}),
    (ValueError, {"seconds": -1}),
    (ValueError, {"seconds": 1e6}),
    (ValueError, {"seconds": 1, "kind": "bias"}),
    (ValueError, {"kind": "lights"}),
    (TypeError, {"binning": 1.5}),
    (ValueError, {"binning": 0}),
    (ValueError, {"binning": (1, 99)}),
    (TypeError, {"roi": (1, 2, 3)}),
    (TypeError, {"roi": (0.0, 0, 9, 9)}),
    (ValueError, {"roi": (-1, 0, 9, 9)}),
    (ValueError, {"roi": (0, 0, 2**40, 9)}),
    (ValueError, {"roi": (1390, 0, 9, 9)}),
    (ValueError, {"eight_bit": True}),
]


def test_wrong_arguments_are_refused_before_anything_is_sent(
    k12: vornccd.Camera, k20: vornccd.Camera, log: Log
) -> None:
    k20.filter_names = ()
    for kind, arguments in WRONG:
        with pytest.raises(kind):
            k12.expose(**arguments)
        with pytest.raises(kind):
            k12.expose_async(**arguments).result()
        with pytest.raises(kind):
            next(k12.sequence(1, **arguments))
    calls: list[Callable[[], Any]] = [
        lambda: k12.cool(-300, wait=False),
        lambda: k12.guide("north", 1),
        lambda: k12.guide("x+", 61),
        lambda: k12.sequence(-1),
        lambda: setattr(k12, "filter_names", ["L", "l"]),
        lambda: k20.set_filter("Ha"),
        lambda: vornccd.open("serial:x"),
        lambda: vornccd.open(-1),
        lambda: vornccd.open(timeout=0),
    ]
    for call in calls:
        with pytest.raises(ValueError):
            call()
    assert log() == []


def test_what_a_camera_lacks_is_unsupported(k12: vornccd.Camera, cameras: Cameras) -> None:
    xrm = cameras["IIDC"]
    calls: list[Callable[[], Any]] = [k12.wheel, lambda: k12.set_filter("Ha"), k12.gain, k12.gpio_read, lambda: xrm.cool(0)]
    for call in calls:
        with pytest.raises(vornccd.Unsupported, match="has no") as caught:
            call()
        assert isinstance(caught.value, OSError) and not isinstance(caught.value, ValueError)


def test_accessories(k12: vornccd.Camera, k20: vornccd.Camera, log: Log) -> None:
    k20.set_filter(2)
    assert k20.wheel() == vornccd.Wheel(positions=5, current=2, target=2, moving=False)
    k20.set_gain(17, 200)
    assert k20.gain() == (17, 200) == (k20.status().gain, k20.status().offset)
    k20.gpio_directions(0)
    assert 0 <= k20.gpio_read() < 1 << k20.gpio_lines
    log()
    k12.guide("y-", 0.05)
    k12.set_shutter(True)
    k12.set_shutter(False)
    assert [line for line in log() if "relay" in line or "shutter" in line]
    k12.cool(0, wait=False)
    assert k12.status().cooling == "regulating" and k12.status().set_point == pytest.approx(0, abs=0.1)
    k12.warm_up(wait=False)
    assert k12.status().cooling in ("warming up", "off")


def test_selectors_find_the_camera_or_say_why_not(cameras: Cameras) -> None:
    listed = vornccd.list_cameras()
    assert [found.index for found in listed] == [0, 1, 2, 3, 4]
    # All are open already, which shows which of them was meant.
    [k12] = [found for found in listed if found.name == "Vorn K12"]
    assert k12.serial == cameras["STANDARD"].serial
    selectors: list[Any] = ["k12", "Vorn K12", k12.index, f"index:{k12.index}", k12.port, k12]
    for selector in selectors:
        with pytest.raises(vornccd.Busy) as caught:
            vornccd.open(selector)
        assert caught.value.advice
    missing: Any
    for missing in ("K99", 17, "7-7"):
        with pytest.raises(vornccd.NotFound):
            vornccd.open(missing)
    with pytest.raises(vornccd.InvalidRequest, match="choose one"):
        vornccd.open()
    copy = pickle.loads(pickle.dumps(caught.value))
    assert (type(copy), str(copy)) == (type(caught.value), str(caught.value))


def in_a_moment(action: Callable[[], Any], seconds: float = 0.3) -> threading.Thread:
    thread = threading.Timer(seconds, action)
    thread.start()
    return thread


def interrupt() -> None:
    os.kill(os.getpid(), signal.SIGINT)


def test_ctrl_c_aborts_and_leaves_the_camera_in_order(k12: vornccd.Camera) -> None:
    timers: list[threading.Thread] = []

    def watch(progress: vornccd.ExposureProgress) -> None:
        if progress.phase == "exposing" and not timers:
            timers.append(in_a_moment(interrupt))

    begin = time.monotonic()
    with pytest.raises(KeyboardInterrupt):
        k12.expose(30, progress=watch)
    assert time.monotonic() - begin < 10
    with pytest.raises(KeyboardInterrupt):
        k12.cool(-10, progress=lambda progress: interrupt())
    assert k12.status().cooling == "regulating"
    assert k12.expose(0.01, roi=ROI).data[0, 0] == 50 * 256 + 100


def test_progress_is_told_in_order_and_may_end_the_exposure(k12: vornccd.Camera) -> None:
    told: list[vornccd.ExposureProgress] = []
    k12.expose(0.5, roi=ROI, progress=told.append)
    assert told[-1].total == 0.5 and [p.elapsed for p in told] == sorted(p.elapsed for p in told)
    with pytest.raises(ZeroDivisionError):
        k12.expose(30, progress=lambda progress: 1 // 0)


def test_threads_share_a_camera(k12: vornccd.Camera) -> None:
    frames: list[vornccd.Frame] = []
    troubles: list[BaseException] = []
    statuses = 0

    def take() -> None:
        try:
            for _ in range(3):
                frames.append(k12.expose(0.02, roi=ROI))
        except BaseException as trouble:
            troubles.append(trouble)

    threads = [threading.Thread(target=take) for _ in range(3)]
    for thread in threads:
        thread.start()
    while any(thread.is_alive() for thread in threads):
        k12.status()
        statuses += 1
    assert not troubles and len(frames) == 9 and statuses > 0
    assert all(np.array_equal(frame.data, frames[0].data) for frame in frames)
    # One after the other: no two integrations overlap.
    spans = sorted((frame.start.timestamp(), frame.exposure) for frame in frames)
    assert all(first + seconds <= second for (first, seconds), (second, _) in zip(spans, spans[1:]))


def test_other_threads_run_and_can_abort(k12: vornccd.Camera) -> None:
    turns = 0

    def spin() -> None:
        nonlocal turns
        while not k12_done.is_set():
            turns += 1
            time.sleep(0.001)
        k12.abort()

    k12_done = threading.Event()
    spinner = threading.Thread(target=spin)
    spinner.start()
    in_a_moment(k12_done.set)
    with pytest.raises(vornccd.Cancelled):
        k12.expose(30)
    spinner.join()
    assert turns > 10
    k12.abort()


def test_exposures_can_be_awaited(k12: vornccd.Camera) -> None:
    async def watch() -> None:
        exposure = k12.expose_async(0.3, roi=ROI)
        with pytest.raises(vornccd.Timeout):
            exposure.result(timeout=0)
        assert not exposure.done() and k12.status().temperature is not None
        frame = await exposure
        assert frame is exposure.result() and exposure.done()
        with pytest.raises(asyncio.TimeoutError):
            await asyncio.wait_for(k12.expose_async(30), 0.3)
        stopped = k12.expose_async(30)
        stopped.abort()
        with pytest.raises(vornccd.Cancelled):
            await stopped
        del stopped
        k12.expose_async(30)  # nobody keeps it
        await k12.expose_async(0.01, roi=ROI)

    asyncio.run(watch())


def test_sequences_keep_their_interval(k12: vornccd.Camera) -> None:
    frames = list(k12.sequence(3, 0.01, interval=0.3, roi=ROI, kind="dark"))
    starts = [frame.start.timestamp() for frame in frames]
    assert len(frames) == 3 and starts[2] - starts[0] > 0.5
    endless = k12.sequence(None, 0.01, roi=ROI)
    assert next(endless).kind == "light" and next(endless).kind == "light"


def test_zz_closing_ends_what_runs(cameras: Cameras) -> None:
    camera = cameras["CLASSIC"]
    exposure = camera.expose_async(30)
    in_a_moment(camera.close).join()
    with pytest.raises(vornccd.Cancelled):
        exposure.result()
    with pytest.raises(vornccd.Closed) as caught:
        camera.expose(0.01)
    assert isinstance(caught.value, ValueError) and camera.closed and "closed" in repr(camera)
    camera.close()
    with vornccd.open(camera.name) as again:
        assert again.serial == camera.serial
