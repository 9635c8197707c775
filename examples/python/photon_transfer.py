#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Measures a camera's gain and read noise with a photon-transfer curve.

Light arrives in single photons, so the variance of a flat grows in proportion to its signal; the factor between the
two is the gain, and what is left without light is the read noise. Each point of the curve comes from two flats of the
same exposure: in their difference everything that does not vary from frame to frame is gone. Point the camera at an
evenly lit screen, or try it without one:

    vornsim run --camera K12 --scene flat -- python3 photon_transfer.py
"""

from __future__ import annotations

import argparse

import numpy as np
import vornccd


def mean_and_variance(first: np.ndarray, second: np.ndarray) -> tuple[float, float]:
    """Mean of two frames, and the variance within one of them; both of what does not vary between pixels."""
    difference = first.astype(float) - second
    return float((first.mean() + second.mean()) / 2), float(difference.var() / 2)


def main() -> None:
    parser = argparse.ArgumentParser(description="Measures gain and read noise.")
    parser.add_argument("--camera", help="which one, as vornctl takes it; the only one without it")
    parser.add_argument("--times", type=float, nargs="+", default=[0.1, 0.25, 0.5, 0.75, 1.0], help="seconds")
    parser.add_argument("--side", type=int, default=400, help="side of the square looked at, in pixels")
    options = parser.parse_args()

    with vornccd.open(options.camera) as camera:
        side = options.side
        middle = ((camera.width - side) // 2, (camera.height - side) // 2, side, side)
        bias, bias_variance = mean_and_variance(*(f.data for f in camera.sequence(2, kind="bias", roi=middle)))
        signals, variances = [], []
        for seconds in options.times:
            pair = [frame.data for frame in camera.sequence(2, seconds, kind="flat", roi=middle)]
            mean, variance = mean_and_variance(*pair)
            print(f"{seconds:6g} s  signal {mean - bias:8.1f} ADU  variance {variance:8.1f} ADU^2")
            if max(frame.max() for frame in pair) == np.iinfo(np.uint16).max:
                print("          saturated, left out")
                continue
            signals.append(mean - bias)
            variances.append(variance)

    if len(signals) < 2:
        raise SystemExit("Fewer than two points are left; take shorter exposures with --times.")
    slope, _ = np.polyfit(signals, variances, 1)
    gain = 1.0 / slope
    print(f"gain {gain:.4f} electrons/ADU, read noise {gain * bias_variance**0.5:.2f} electrons")


if __name__ == "__main__":
    main()
