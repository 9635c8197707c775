#!/bin/sh
# SPDX-License-Identifier: MIT
# Pictures by vornctl through the real libusb: the same with the native bridge and with the emulated chip, and an end
# when the camera is unplugged.
# usage: both_fronts.sh VORNSIM VORNCTL
set -eu
vornsim=$1
vornctl=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
HEADERS=28801 # where a FITS file holds nothing but pixels for certain

# expose MODEL CHIP NAME OPTION...
expose() {
    model=$1
    chip=$2
    name=$3
    shift 3
    timeout 100 "$vornsim" run --chip "$chip" --camera "$model" --scene ramp "$@" -- \
        "$vornctl" --quiet expose -t 0.05 -o "$work/$name.$chip.fits" 2>"$work/$name.$chip.log"
}

for model in K13 K20 K30 K01; do
    for chip in native emulated; do
        expose "$model" "$chip" "$model" || { cat "$work/$model.$chip.log"; echo "$model, $chip: no picture"; exit 1; }
        tail -c +$HEADERS "$work/$model.$chip.fits" >"$work/$model.$chip.pixels"
        test -s "$work/$model.$chip.pixels"
        ! grep "could not serve" "$work/$model.$chip.log"
    done
    cmp "$work/$model.native.pixels" "$work/$model.emulated.pixels"
done
for fault in exposure=1,endpoint=0x88,transfer=1,error=NO_DEVICE open=1,endpoint=in,transfer=3,error=NO_DEVICE; do
    status=0
    expose K13 emulated unplugged --fault "$fault" || status=$?
    [ "$status" -gt 0 ] && [ "$status" -lt 124 ] || { echo "$fault: status $status"; exit 1; }
done
echo "the same pictures on both fronts"
