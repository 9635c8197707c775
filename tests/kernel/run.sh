#!/bin/sh
# SPDX-License-Identifier: MIT
# Drives the simulated cameras on a stock Debian kernel under QEMU: tests/kernel/run.sh BUILD_DIRECTORY [BUS [PART...]]
# BUS is vhci or xhci, a PART one of those at the end of guest.sh; without them all are run.
# Ends with "N passed, M failed". Exit status 77: skipped, because something that it needs is not there.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
shift
work=$build/kernel
mkdir -p "$work"
cd "$work"
skip() {
    echo "Kernel test skipped: $1"
    exit 77
}
for tool in qemu-system-x86_64 busybox cpio usbip dpkg-deb apt-get; do
    PATH=$PATH:/usr/sbin command -v $tool >/dev/null || skip "$tool is not installed"
done
"$build/bin/vornsim" redir --help >/dev/null || skip "vornsim was built without libusbredirparser-dev"

# The kernel, as Debian ships it.
package=$(apt-cache depends linux-image-amd64 2>/dev/null | sed -n 's/.*Depends: \(linux-image-[0-9]\)/\1/p' | head -n 1)
[ -n "$package" ] || skip "apt knows no package linux-image-amd64"
release=${package#linux-image-}
if [ ! -e "$release/complete" ]; then
    apt-get -q download "$package" >download.log 2>&1 || skip "apt-get cannot download $package"
    mkdir -p "$release"
    dpkg-deb --fsys-tarfile "$package"_*.deb |
        tar -x -C "$release" ./boot "./lib/modules/$release/kernel/drivers/usb"
    rm -f "$package"_*.deb
    touch "$release/complete"
fi

# What the guests are to do; the kernel gives its parameters to the first process as variables.
buses=${1:-vhci xhci}
[ $# -eq 0 ] || shift
parts=$(echo "${*:-families troubles chunks together access speed unplugging}" | tr ' ' ',')

# The guest's files: busybox, what is tested, and the libraries and modules that these need.
rm -rf root
mkdir -p root/bin root/lib/modules root/lib64 root/dev root/proc root/sys root/tmp root/etc root/var/run
modules="usb-common usbcore usbip-core vhci-hcd xhci-hcd xhci-pci"
for module in $modules usbtest; do
    find "$release/lib/modules" -name "$module.ko" -exec cp {} root/lib/modules/ \;
done
programs="$build/bin/vornctl $build/bin/vornsim $build/bin/kernel_check $(PATH=$PATH:/usr/sbin command -v usbip)"
# shellcheck disable=SC2086  # the list is split on purpose
cp "$(command -v busybox)" $programs root/bin/
# shellcheck disable=SC2086
ldd $programs | sed -n 's/.*\(=> \|\t\)\(\/[^ ]*\) (0x.*/\2/p' | sort -u | xargs cp -L -t root/lib/
cp root/lib/ld-linux-x86-64.so.2 root/lib64/
cp "$here/guest.sh" root/init
printf 'root:x:0:0::/:/bin/sh\nobserver:x:1000:1000::/:/bin/sh\n' >root/etc/passwd
echo "$modules" >root/etc/modules
(cd root && find . | cpio --quiet -o -H newc | gzip -1) >initramfs

# In the xhci guest the cameras are plugged in from outside: it says with lines on its second serial port which ones.
plug() { # CAMERA ARGUMENTS
    unplug
    sockets=cam1
    case "$*" in *--camera*--camera*) sockets="cam1 cam2" ;; esac
    # shellcheck disable=SC2086
    "$build/bin/vornsim" redir $sockets "$@" >redir.log 2>&1 </dev/null &
    plugged=$!
}
unplug() {
    [ -z "$plugged" ] || kill "$plugged" 2>/dev/null || true
    [ -z "$plugged" ] || wait "$plugged" || true
    plugged=""
}
serve_guest() {
    plugged=""
    while read -r what arguments; do
        # shellcheck disable=SC2086
        case $what in plug) plug $arguments ;; unplug) unplug ;; esac
    done
    unplug
}
run_guest() { # BUS
    rm -rf "$1"
    mkdir "$1"
    cd "$1"
    mkfifo control
    serve_guest <control &
    timeout 600 qemu-system-x86_64 -accel tcg,thread=multi -cpu max -smp 1 -m 1024 -nodefaults -nographic \
        -no-reboot -kernel "../$release/boot/vmlinuz-$release" -initrd ../initramfs \
        -append "console=ttyS0 quiet loglevel=3 panic=-1 no_timer_check bus=$1 parts=$parts" \
        -chardev file,id=control,path=control -serial stdio -serial chardev:control -device qemu-xhci,id=hc \
        -chardev socket,id=cam1,path=cam1,server=on,wait=off -device usb-redir,chardev=cam1,bus=hc.0 \
        -chardev socket,id=cam2,path=cam2,server=on,wait=off -device usb-redir,chardev=cam2,bus=hc.0 \
        </dev/null 2>&1 | tee console.log | sed -un 's/\r$//; s/^.*\(PASS\|FAIL\|SPEED\): /\1: /p'
    wait
}
for bus in $buses; do
    (run_guest "$bus") &
done
wait
passed=0
failed=0
for bus in $buses; do
    passed=$((passed + $(grep -c 'PASS: ' "$bus/console.log" || true)))
    failed=$((failed + $(grep -c 'FAIL: ' "$bus/console.log" || true)))
    if ! grep -q '^COMPLETE' "$bus/console.log"; then
        echo "FAIL: the $bus guest did not come to its end; see $work/$bus/console.log"
        failed=$((failed + 1))
    fi
done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
