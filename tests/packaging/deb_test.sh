#!/bin/sh
# SPDX-License-Identifier: MIT
# Builds the Debian packages from what git tracks, asks lintian, installs them into a fresh Debian 12 and uses them
# there. Needs root, a Debian mirror and some minutes; the installed test does the same in a prefix within seconds.
# Usage: deb_test.sh [DIRECTORY]: where packages are left, a temporary one otherwise
set -eu
source=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
root=$work/root
# shellcheck disable=SC2317  # called by trap
clean_up() {
    mountpoint -q "$root/proc" && umount "$root/proc"
    rm -rf --one-file-system "$work"
}
trap clean_up EXIT
packages=${1:-$work}

mkdir "$work/vornccd"
git -C "$source" ls-files -z | (cd "$source" && tar --null -T - -cf -) | tar -xf - -C "$work/vornccd"
(cd "$work/vornccd" && dpkg-buildpackage -us -uc -b >"$work/build.log" 2>&1) || { tail -n 40 "$work/build.log"; exit 1; }
lintian --allow-root --fail-on error,warning "$work"/*.changes
[ "$packages" = "$work" ] || cp "$work"/*.deb "$packages"

debootstrap --variant=minbase --include=g++,cmake,ninja-build,pkg-config,udev bookworm "$root" >"$work/log" 2>&1 ||
    { tail -n 20 "$work/log"; exit 1; }
mkdir "$root/packages" "$root/here"
cp "$work"/*.deb "$root/packages"
rm -f "$root"/packages/*dbgsym*
cp -r "$source/tests/packaging/use_installed.sh" "$root/here"
mount -t proc proc "$root/proc"
chroot "$root" sh -c 'apt-get install -y --no-install-recommends /packages/*.deb' >"$work/log" 2>&1 ||
    { tail -n 20 "$work/log"; exit 1; }
chroot "$root" sh -c 'cd /here && sh use_installed.sh /usr/share/doc/libvornccd-dev/examples \
    /usr/lib/udev/rules.d/60-vornccd.rules'
# What udev makes of the rules when a camera appears.
# shellcheck disable=SC2016  # expanded in the chroot
chroot "$root" vornsim run --camera K12 --camera XRM -- sh -c 'for camera in 1-1 1-2; do
    udevadm test --action=add "$(readlink -f /sys/bus/usb/devices/$camera)" 2>&1; done' >"$work/log"
if [ "$(grep -c -E '60-vornccd.rules:[0-9]+ (MODE 0660|GROUP 46)|^CURRENT_TAGS=.*:uaccess:' "$work/log")" -ne 6 ] ||
    grep 'vornccd.rules.*Invalid' "$work/log"; then
    grep -E 'vornccd|TAGS' "$work/log"
    echo "^ udev does not take the rules as they are meant"
    exit 1
fi
chroot "$root" apt-get purge -y libvornccd1 vornccd-simulator >"$work/log" 2>&1
if find "$root/usr" -name '*vorn*' | grep .; then
    echo "^ left behind after the packages were removed"
    exit 1
fi
echo "built, clean for lintian, installed into a fresh Debian, used, known to udev, removed"
