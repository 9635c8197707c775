#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes standin.hex, the bridge program that does nothing, to standard output.

Regenerate it with:  python3 make_standin.py > standin.hex
"""

TEXT = (
    b"libvornccd stand-in image: idles, no bridge functions; "
    b"build with -DVORNCCD_FIRMWARE=<file>\0"
)

PARTS = [
    (0x0000, bytes.fromhex("02 00 2E")),  # reset:       ljmp boot
    (0x0003, bytes.fromhex("32")),        # interrupt 0: reti
    (0x000B, bytes.fromhex("32")),        # timer 0:     reti
    (0x0013, bytes.fromhex("32")),        # interrupt 1: reti
    (0x001B, bytes.fromhex("32")),        # timer 1:     reti
    (0x0023, bytes.fromhex("32")),        # serial 0:    reti
    (0x002B, bytes.fromhex("02 00 30")),  # timer 2:     ljmp tick
    (0x002E, bytes.fromhex("80 FE")),     # boot:        sjmp boot
    (0x0030, bytes.fromhex("32")),        # tick:        reti
    (0x0031, TEXT),
]


def record(kind: int, address: int, data: bytes) -> str:
    body = bytes([len(data), address >> 8, address & 0xFF, kind]) + data
    return f":{body.hex().upper()}{-sum(body) & 0xFF:02X}"


for start, data in PARTS:
    for offset in range(0, len(data), 16):
        print(record(0, start + offset, data[offset:offset + 16]))
print(record(1, 0, b""))
