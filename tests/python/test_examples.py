# SPDX-License-Identifier: MIT
"""The examples do what they promise, and recover what is known about the simulated camera."""

from __future__ import annotations

import os
import pathlib
import re
import subprocess

from astropy.io import fits  # type: ignore[import]
from pytest import approx

RUN = os.environ["VORNSIM_RUN"].split("|")
PYTHON = os.environ["VORNSIM_PYTHON"].split("|")
EXAMPLES = pathlib.Path(__file__).parents[2] / "examples" / "python"

# Of the simulated K12, see simulator/device/families/camera_catalogue.cpp: its full well spread over 60000 ADU, and the
# read noise of every simulated sensor.
GAIN = 18721 / 60000
READ_NOISE = 8.0
# Half of the light of the simulated sky's stars, a Moffat profile of exponent 3 with a^2 = 12 pixels, lies within
# a circle of radius (12 * (sqrt(2) - 1))^0.5 = 2.23 pixels.
IN_FOCUS = 4.46


def start(options: str, example: str, *arguments: str) -> subprocess.Popen[str]:
    command = [*RUN, "--camera", "K12", *options.split(), "--", *PYTHON, str(EXAMPLES / example), *arguments]
    return subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def numbers(process: subprocess.Popen[str], pattern: str) -> list[list[float]]:
    """What the lines of its output that fit the pattern say."""
    output, _ = process.communicate(timeout=240)
    assert process.returncode == 0, output
    found = re.findall(pattern, output)
    assert found, output
    return [[float(text) for text in (line if isinstance(line, tuple) else (line,))] for line in found]


def test_examples(tmp_path: pathlib.Path) -> None:
    # At once: they mostly wait for the simulated cameras.
    folder = str(tmp_path)
    darks = start("--ambient -9.8", "dark_library.py", "--times", "0.5", "--count", "3", "--folder", folder)
    transfer = start("--scene flat", "photon_transfer.py")
    focus = start("", "focus_run.py", "--steps", "7", "--time", "1")

    [[gain, noise]] = numbers(transfer, r"gain ([\d.]+) electrons/ADU, read noise ([\d.]+) electrons")
    assert gain == approx(GAIN, rel=0.05)
    assert noise == approx(READ_NOISE, rel=0.05)

    [[best, diameter]] = numbers(focus, r"best focus at ([\d.]+), half-flux diameter ([\d.]+) pixels")
    assert best == approx(5150, abs=50)
    assert diameter == approx(IN_FOCUS, rel=0.15)

    assert len(numbers(darks, r"0.5 s  dark current (-?[\d.]+) ADU/s  hot pixels (\d+)")) == 1
    for kind in ("bias-0s", "dark-0.5s"):
        with fits.open(tmp_path / f"master-{kind}.fits", checksum=True) as files:
            assert files[0].data.shape == (1040, 1392) and files[0].data.dtype.kind == "f"
            assert files[0].header["CCD-TEMP"] == approx(-10.0, abs=0.6) and files[0].header["NCOMBINE"] == 3
            assert abs(files[0].data.mean() - 500) < 1.5
