#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Finds the best focus from the half-flux diameters of the stars.

A star's half-flux diameter is that of the circle around it that holds half its light. It grows evenly with the
distance from focus on either side, so a hyperbola through a few of them has its lowest point at the best focus. Give
the command that moves your focuser, with {} for the position:

    python3 focus_run.py --move "my-focuser goto {}" --from 4000 --to 6000

Without --move nothing is moved, and each picture is blurred as a telescope out of focus would, with the best focus at
--pretend. So you can try it without a focuser and without a camera:

    vornsim run --camera K12 -- python3 focus_run.py
"""

from __future__ import annotations

import argparse
import shlex
import subprocess

import numpy as np
import sep
import vornccd

STEPS_PER_PIXEL = 150.0  # of defocus that widen the pretended disc's radius by one pixel


def half_flux_diameter(pixels: np.ndarray, stars: int = 50) -> float:
    """Median half-flux diameter, in pixels, of the brightest stars that are not saturated."""
    data = pixels.astype(np.float32)
    background = sep.Background(data)
    data -= background.back()
    found = sep.extract(data, 8.0, err=background.globalrms, minarea=9)
    good = found[(found["peak"] < 50000) & (found["a"] < 3.0 * found["b"])]
    good = good[np.argsort(good["flux"])[-stars:]]
    if len(good) < 5:
        raise SystemExit(f"Only {len(good)} stars are bright enough; expose longer with --time.")
    reach = np.full(len(good), 25.0)
    radius, _ = sep.flux_radius(data, good["x"], good["y"], reach, 0.5, subpix=5)
    return float(2.0 * np.median(radius))


def blurred(pixels: np.ndarray, radius: float) -> np.ndarray:
    """Spreads each pixel's light over a disc, as a telescope out of focus does."""
    if radius < 0.5:
        return pixels.astype(float)
    y, x = np.ogrid[-(pixels.shape[0] // 2) : -(-pixels.shape[0] // 2), -(pixels.shape[1] // 2) : -(-pixels.shape[1] // 2)]
    disc = np.clip(radius + 0.5 - np.hypot(x, y), 0.0, 1.0)
    spectrum = np.fft.rfft2(np.fft.ifftshift(disc / disc.sum()))
    return np.fft.irfft2(np.fft.rfft2(pixels) * spectrum, pixels.shape)


def best_position(positions: np.ndarray, diameters: np.ndarray) -> tuple[float, float]:
    """Fits d^2 = a^2 + b^2 (p - best)^2, a parabola in d^2. @return best position and its diameter."""
    scale = np.ptp(positions) / 2
    middle = positions.mean()
    square, linear, constant = np.polyfit((positions - middle) / scale, diameters**2, 2)
    if square <= 0:
        raise SystemExit("The diameters have no minimum; move further on both sides with --from and --to.")
    lowest = -linear / (2 * square)
    return middle + scale * lowest, max(constant - square * lowest**2, 0.0) ** 0.5


def main() -> None:
    parser = argparse.ArgumentParser(description="Finds the best focus.")
    parser.add_argument("--camera", help="which one, as vornctl takes it; the only one without it")
    parser.add_argument("--move", help="command that moves the focuser, with {} for the position")
    parser.add_argument("--from", dest="first", type=float, default=4200.0, help="first position")
    parser.add_argument("--to", dest="last", type=float, default=6200.0, help="last position")
    parser.add_argument("--steps", type=int, default=9, help="number of positions")
    parser.add_argument("--time", type=float, default=2.0, help="exposure time in seconds")
    parser.add_argument("--pretend", type=float, default=5150.0, help="without --move: where the focus is")
    options = parser.parse_args()

    positions = np.linspace(options.first, options.last, options.steps)
    diameters = []
    with vornccd.open(options.camera) as camera:
        side = min(camera.width, camera.height, 1000)
        for position in positions:
            if options.move:
                subprocess.run(shlex.split(options.move.format(f"{position:.0f}")), check=True)
            pixels: np.ndarray = camera.expose(options.time, roi=(0, 0, side, side)).data
            if not options.move:
                pixels = blurred(pixels, abs(position - options.pretend) / STEPS_PER_PIXEL)
            diameters.append(half_flux_diameter(pixels))
            print(f"position {position:7.0f}  half-flux diameter {diameters[-1]:5.2f} pixels")
    best, diameter = best_position(positions, np.array(diameters))
    print(f"best focus at {best:.0f}, half-flux diameter {diameter:.2f} pixels")


if __name__ == "__main__":
    main()
