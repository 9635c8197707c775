#!/bin/sh
# SPDX-License-Identifier: MIT
# Builds the bridge program with SDCC 4.2 (packages sdcc and sdcc-libraries of Debian 12 will do).
# usage: build.sh OUTPUT.hex [SOURCE-FOLDER]
set -eu
output=$(realpath "$1")
source=$(realpath "${2:-$(dirname "$0")}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$source"/*.c "$source"/*.h "$source"/*.asm "$work"
cd "$work" # relative names only, so that no path gets into a file
sdas8051 -plosgff start.asm
for part in main ports i2c parallel; do
    sdcc -mmcs51 --model-small --std-c99 --opt-code-speed --Werror -c "$part.c"
done
# Code and constants below 0x1A98, where the table ends; variables that do not fit into internal memory after it.
sdcc -mmcs51 --model-small --nostdlib --code-loc 0x0050 --code-size 0x1A48 --xram-loc 0x1B00 --xram-size 0x500 \
    start.rel main.rel ports.rel i2c.rel parallel.rel -o bridge.ihx
packihx bridge.ihx >"$output" 2>/dev/null
