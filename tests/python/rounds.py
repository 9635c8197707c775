# SPDX-License-Identifier: MIT
"""Opens a camera, takes a picture and closes it, many times; fails when that leaves memory, files or threads behind.

usage, below `vornsim run`: rounds.py [ROUNDS]
"""

from __future__ import annotations

import gc
import os
import resource
import sys
import time

import vornccd

# What listing leaves behind in the driver by contract, and the simulator's own records, with room to spare.
ALLOWED_BYTES_A_ROUND = 4096
WARM_UP = 50


def held() -> tuple[int, int, int]:
    """Bytes resident, open files, threads."""
    gc.collect()
    with open("/proc/self/statm") as statm:
        pages = int(statm.read().split()[1])
    return pages * resource.getpagesize(), len(os.listdir("/proc/self/fd")), len(os.listdir("/proc/self/task"))


def one_round() -> None:
    with vornccd.open() as camera:
        frame = camera.expose(0.001, roi=(0, 0, 64, 64), kind="dark")
    assert frame.data.shape == (64, 64)


def main() -> None:
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 1000
    for _ in range(WARM_UP):
        one_round()
    before, begin = held(), time.monotonic()
    for _ in range(rounds):
        one_round()
    after, seconds = held(), time.monotonic() - begin
    bytes_a_round = (after[0] - before[0]) / rounds
    print(
        f"{rounds} rounds in {seconds:.0f} s: {bytes_a_round:.0f} bytes resident, "
        f"{after[1] - before[1]} files and {after[2] - before[2]} threads more (bytes a round)"
    )
    sys.exit(bytes_a_round > ALLOWED_BYTES_A_ROUND or after[1:] != before[1:])


if __name__ == "__main__":
    main()
