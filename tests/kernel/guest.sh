#!/bin/busybox sh
# SPDX-License-Identifier: MIT
# The first process of the guest: prints PASS: or FAIL: lines for each thing that is checked, then switches off.
/bin/busybox --install -s /bin
export PATH=/bin HOME=/tmp
mount -t devtmpfs none /dev
mount -t proc none /proc
mount -t sysfs none /sys
exec >/dev/ttyS0 2>&1 </dev/null
ip link set lo up
stty -F /dev/ttyS1 raw
cd /tmp || exit 1
# shellcheck disable=SC2013  # words are wanted
for module in $(cat /etc/modules); do
    insmod "/lib/modules/$module.ko"
done

# check NAME COMMAND...: the command must succeed; what it says is shown when it does not.
check() {
    name="$bus: $1"
    shift
    if "$@" >said 2>&1; then
        echo "PASS: $name ($(cut -d . -f 1 /proc/uptime) s)"
    else
        echo "FAIL: $name: $(tr '\n' ' ' <said)"
    fi
}
# ends STATUS TEXT COMMAND...: the command ends with this status and says this text.
ends() {
    wanted=$1 text=$2
    shift 2
    status=0
    said=$("$@" 2>&1) || status=$?
    [ $status -eq "$wanted" ] && case "$said" in *"$text"*) true ;; *) false ;; esac && return 0
    echo "status $status: $said"
    return 1
}
patiently() { # until the command succeeds, 10 s at the most
    for _ in $(seq 200); do
        "$@" && return 0
        usleep 50000
    done
    echo "waited in vain: $*"
    return 1
}
devices() { # sysfs directories of simulated cameras
    for id in /sys/bus/usb/devices/*-*/idVendor; do
        # the interface comes last
        [ -e "$id" ] && read -r vendor <"$id" && [ "$vendor" = 1234 ] && [ -e "${id%idVendor}"*:1.0 ] && echo "${id%/idVendor}"
    done
}
# shellcheck disable=SC2046  # words are counted
plugged() { set -- "$1" $(devices) && [ $# -eq $(($1 + 1)) ]; }
claimed() { [ -e "/sys/bus/usb/drivers/$1/"*:1.0 ]; } # by a kernel driver
unplug() {
    if [ "$bus" = xhci ]; then
        echo unplug >/dev/ttyS1
    elif [ -n "$server" ]; then
        kill "$server"
        wait "$server"
        server=""
    fi
    patiently plugged 0
}
# plug ARGUMENTS of vornsim
plug() {
    unplug
    count=$(echo "$*" | grep -o -e '--camera' | wc -l)
    if [ "$bus" = xhci ]; then
        echo "plug --scene ramp $*" >/dev/ttyS1
    else
        vornsim usbip --scene ramp "$@" >server.log 2>&1 &
        server=$!
        patiently grep -q Ctrl-C server.log
        for number in $(seq "$count"); do
            attach "1-$number"
        done
    fi
    patiently plugged "$count"
}
attach() { usbip attach -r 127.0.0.1 -b "$1"; }

family() { # MODEL WIDTH HEIGHT FOLDED
    plug --camera "$1"
    check "$1 is listed" ends 0 "Vorn $1" vornctl list
    check "$1 tells what it is" ends 0 "$2" vornctl info
    check "$1 exposes for a short time" vornctl expose -q -f -t 0.02 -o picture.fits
    # shellcheck disable=SC2086
    check "$1 shows every pixel" kernel_check ramp picture.fits "$2" "$3" $4
    [ -z "$4" ] || return 0 # cameras without long exposures
    check "$1 exposes for a long time" vornctl expose -q -f -t 3.1 -o picture.fits
    check "$1 shows every pixel of that, too" kernel_check ramp picture.fits "$2" "$3"
}
troubles() {
    # xHCI tries again by itself when there is no handshake
    plug --camera K12 --fault endpoint=0x86,transfer=1,error=PIPE --fault endpoint=0x86,transfer=2,error=OVERFLOW \
        --fault endpoint=0x86,transfer=3,error=TIMEOUT --fault endpoint=0x86,transfer=4,error=IO,times=ever
    check "errors of transfers are told as they are" kernel_check errors PIPE OVERFLOW TIMEOUT IO
    for error in PIPE OVERFLOW IO; do
        times=$([ "$bus$error" = xhciIO ] && echo 5 || echo 1)
        plug --camera K06 --fault "exposure=1,endpoint=0x88,error=$error,times=$times"
        check "$error in an image ends the exposure" kernel_check exposure 65536 "$error"
    done
    check "the next exposure works" kernel_check exposure 65536 NONE
}
unplugging() {
    transfers="1 2 3 4 5 6 8 10 12 14 16"
    [ "$bus" = xhci ] || transfers="1 2 3 4 5 7 9 11 13 15 17"
    for transfer in $transfers; do
        plug --camera K06 --fault "exposure=1,transfer=$transfer,error=NO_DEVICE,replug=0"
        check "unplugged at transfer $transfer" kernel_check exposure 32768 NO_DEVICE
    done
    [ "$bus" = xhci ] || attach 1-1
    patiently plugged 1
    check "replugged" kernel_check exposure 32768 NONE
}
chunks() {
    plug --camera K33
    check "the default chunk needs more memory than usbfs has" kernel_check exposure 0 NO_MEM
    check "chunks of 1 MiB do not" kernel_check exposure 1048576 NONE
}
together() {
    plug --camera K12 --camera K06
    vornctl expose -q -f -d "Vorn K12" -t 6 -o first.fits >first.log 2>&1 &
    first=$!
    patiently claimed usbfs
    check "a camera in use is refused" ends 1 "used by another program" vornctl info -d "Vorn K12"
    vornctl expose -q -f -d "Vorn K06" -t 0.02 -o second.fits >second.log 2>&1
    check "a second camera shows every pixel" kernel_check ramp second.fits 768 512
    wait $first
    check "the first camera's picture is whole" kernel_check ramp first.fits 1392 1040
}
access() {
    plug --camera K12
    device=$(devices)
    chmod 0600 "/dev/$(sed -n 's/DEVNAME=//p' "$device/uevent")"
    check "without permission there is the udev rule to copy" \
        ends 4 'SUBSYSTEM=="usb"' su observer -s /bin/sh -c "vornctl info"
    insmod /lib/modules/usbtest.ko vendor=0x1234 product=0xdf34
    check "a kernel driver has the camera" patiently claimed usbtest
    check "it is detached" kernel_check exposure 1048576 NONE
    rmmod usbtest
}
speed() {
    plug --camera K13
    check "getImage keeps up with bare libusb" kernel_check speed "$bus"
    echo "SPEED: $(cat said)"
}

families() {
    family K06 768 512 ""
    family K27 1392 1040 ""
    family K01 752 580 ""
    family K30 768 512 ""
    family XRM 1280 960 folded
}

server=""
for part in $(echo "$parts" | tr , ' '); do
    $part
done
echo COMPLETE
poweroff -f
