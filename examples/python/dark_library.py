#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Makes a library of master darks at one sensor temperature.

For each exposure time several darks are taken and their median is written as one FITS file; the table tells the dark
current and how many pixels are hot. Try it without a camera:

    vornsim run --camera K12 -- python3 dark_library.py --celsius 5 --times 1 4 --count 3
"""

from __future__ import annotations

import argparse
import pathlib

import numpy as np
import vornccd

HOT_DEVIATIONS = 10.0


def master_dark(camera: vornccd.Camera, seconds: float, count: int, folder: pathlib.Path) -> np.ndarray:
    """Takes `count` darks (biases for 0 s), writes their median and returns it in ADU."""
    kind = "dark" if seconds > 0 else "bias"
    frames = list(camera.sequence(count, seconds, kind=kind))
    master = np.median([frame.data for frame in frames], axis=0).astype(np.float32)

    hdu = frames[0].to_hdu()
    hdu.data = master
    hdu.header["NCOMBINE"] = (count, "frames in this median")
    hdu.header["CCD-TEMP"] = float(np.mean([frame.temperature for frame in frames]))
    hdu.writeto(folder / f"master-{kind}-{seconds:g}s.fits", overwrite=True, checksum=True)
    return master


def main() -> None:
    parser = argparse.ArgumentParser(description="Makes a library of master darks.")
    parser.add_argument("--camera", help="which one, as vornctl takes it; the only one without it")
    parser.add_argument("--celsius", type=float, default=-10.0, help="temperature of the sensor")
    parser.add_argument("--times", type=float, nargs="+", default=[60.0, 300.0], help="exposure times in seconds")
    parser.add_argument("--count", type=int, default=9, help="frames a master dark")
    parser.add_argument("--folder", type=pathlib.Path, default=pathlib.Path("darks"), help="where they go")
    options = parser.parse_args()
    options.folder.mkdir(parents=True, exist_ok=True)

    with vornccd.open(options.camera) as camera:
        camera.cool(options.celsius, progress=print)
        bias = master_dark(camera, 0.0, options.count, options.folder)
        for seconds in options.times:
            dark = master_dark(camera, seconds, options.count, options.folder) - bias
            noise = 1.4826 * np.median(np.abs(dark - np.median(dark)))
            hot = int(np.count_nonzero(dark > np.median(dark) + HOT_DEVIATIONS * noise))
            print(f"{seconds:8g} s  dark current {dark.mean() / seconds:.4f} ADU/s  hot pixels {hot}")
        camera.warm_up(wait=False)


if __name__ == "__main__":
    main()
