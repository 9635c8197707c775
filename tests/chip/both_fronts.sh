#!/bin/sh
# SPDX-License-Identifier: MIT
# Sessions through the real libusb: the same with the native bridge and with the emulated chip, and an end when the
# camera is unplugged.
# usage: both_fronts.sh VORNSIM VORNCTL WHOLE_SESSION
set -eu
vornsim=$1
vornctl=$2
session=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# What the camera noted, without times and without what differs between the fronts on purpose.
notes() {
    sed -n -e 's/[0-9.]* s\b//g' -e 's/.*: camera: //p' "$1"
}

for model in K13 K20 K30 K01; do
    jobs=""
    for chip in native emulated; do
        timeout 100 "$vornsim" run --chip "$chip" --camera "$model" --scene ramp --log "$work/$model.$chip.log" -- \
            "$session" >"$work/$model.$chip" 2>"$work/$model.$chip.err" &
        jobs="$jobs $!"
    done
    for job in $jobs; do
        wait "$job" || { cat "$work/$model".*.err; echo "$model: the session failed"; exit 1; }
    done
    if grep "could not serve" "$work/$model".*.err; then
        exit 1
    fi
    for chip in native emulated; do
        notes "$work/$model.$chip.log" >"$work/$model.$chip.notes"
        test -s "$work/$model.$chip.notes"
    done
    cmp "$work/$model.native" "$work/$model.emulated"
    diff "$work/$model.native.notes" "$work/$model.emulated.notes"
done
for fault in exposure=1,endpoint=0x88,transfer=1,error=NO_DEVICE open=1,endpoint=in,transfer=3,error=NO_DEVICE; do
    status=0
    timeout 100 "$vornsim" run --chip emulated --camera K13 --scene ramp --fault "$fault" -- \
        "$vornctl" --quiet expose -t 0.05 -o "$work/unplugged.fits" 2>/dev/null || status=$?
    if [ "$status" -eq 0 ] || [ "$status" -ge 124 ]; then
        echo "$fault: status $status"
        exit 1
    fi
done
echo "the same answers, pictures and notes on both fronts"
