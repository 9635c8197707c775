#!/bin/sh
# SPDX-License-Identifier: MIT
# Builds for other architectures with warnings as errors and runs the library's tests there, by emulation (i386 on the
# machine itself); for those of small computers it also makes the Debian packages. s390x is there for its byte order.
# All of it happens in a Debian of its own in build/architectures/, since development packages of several architectures
# do not always stand beside each other; it is kept for the next time. Needs root.
# Usage: architectures.sh [ARCHITECTURE...]    by their Debian names; all of the table below without any
set -eu
cd "$(dirname "$0")/.."
. scripts/dependencies.sh

# The library's own tests, each a program; the sweep takes every so-manieth point only.
tests="abi_test transport_test lifecycle_test first_call_test exposure_test accessories_test trace_test"
rooms="abi;transport;lifecycle;exposure;accessories;trace;reliability"
stride=997

# ---- in that Debian ---------------------------------------------------------------------------------------------------

# packages ARCHITECTURE: what builds for it, which takes the place of what built for another one.
packages() {
    export DEBIAN_FRONTEND=noninteractive
    dpkg --print-foreign-architectures | grep -qx "$1" || { dpkg --add-architecture "$1" && apt-get update; }
    list=""
    for package in $ARCH_PACKAGES; do
        list="$list $(echo "$package" | sed "s/ARCH/$1/")"
    done
    # shellcheck disable=SC2086  # the list is split on purpose
    apt-get install -y --no-install-recommends $list
    apt-get build-dep -y --no-install-recommends -a "$1" -P cross,nocheck ./
}

# unit_tests ARCHITECTURE
unit_tests() {
    cmake -B "/build/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORNCCD_WARNINGS_AS_ERRORS=ON -DVORNCCD_BUILD_TESTS=ON \
        -DVORNCCD_BUILD_TOOLS=OFF -DVORNCCD_BUILD_EXAMPLES=OFF -DVORNCCD_TEST_ROOMS="$rooms" \
        -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/debian.cmake -DVORNCCD_ARCHITECTURE="$1" >/dev/null
    # shellcheck disable=SC2086
    cmake --build "/build/$1" --target $tests fault_sweep
    emulator=$(sed -n 's/^VORNCCD_EMULATOR:[^=]*=//p' "/build/$1/CMakeCache.txt" | grep -v NOTFOUND) || true
    for test in $tests; do
        echo "==> $1: $test"
        # shellcheck disable=SC2086  # empty where the machine runs it itself
        $emulator "/build/$1/bin/$test" --gtest_brief=1
    done
    sh tests/abi/check_dynamic_symbols.sh "/build/$1/lib/libvornccd.so" tests/abi/exported_names.txt
    # shellcheck disable=SC2086
    $emulator "/build/$1/bin/fault_sweep" --stride $stride
    file -b "/build/$1/bin/transport_test" | cut -d, -f1-2
}

# debian_packages ARCHITECTURE: what the tests left out is compiled here, with the same warnings.
debian_packages() {
    rm -rf /build/packages && mkdir -p /build/packages
    cp -r /source /build/packages/vornccd
    (cd /build/packages/vornccd && DEB_CXXFLAGS_APPEND=-Werror dpkg-buildpackage -us -uc -b -a "$1" -Pcross,nocheck)
    for package in /build/packages/*.deb; do
        found=$(dpkg-deb -f "$package" Architecture)
        [ "$found" = "$1" ] || { echo "$package is for $found"; return 1; }
    done
    lintian --allow-root --fail-on error,warning /build/packages/*.changes
}

if [ "${1:-}" = --inside ]; then
    packages "$2" >/build/packages.log 2>&1 || { tail -n 20 /build/packages.log; exit 1; }
    unit_tests "$2"
    case $2 in
        armhf | arm64) debian_packages "$2" >/build/packages.log 2>&1 || { tail -n 40 /build/packages.log; exit 1; } ;;
    esac
    exit 0
fi

# ---- from outside -----------------------------------------------------------------------------------------------------

[ "$(id -u)" -eq 0 ] || { echo "architectures.sh sets up another Debian, which only root can do" >&2; exit 1; }
[ $# -gt 0 ] || set -- armhf arm64 i386 s390x
install_missing debootstrap
root=$PWD/build/architectures/root
logs=build/architectures
mkdir -p "$logs"
# shellcheck disable=SC2317  # called by trap
clean_up() {
    ! mountpoint -q "$root/proc" || umount "$root/proc"
}
trap clean_up EXIT
if [ ! -e "$root/ready" ]; then
    rm -rf --one-file-system "$root"
    debootstrap --variant=minbase bookworm "$root" >"$logs/debootstrap.log" 2>&1 ||
        { tail -n 20 "$logs/debootstrap.log"; exit 1; }
    touch "$root/ready"
fi
mountpoint -q "$root/proc" || mount -t proc proc "$root/proc"
rm -rf --one-file-system "$root/source" && mkdir -p "$root/source" "$root/build"
git ls-files -z | tar --null -T - -cf - | tar -xf - -C "$root/source"

table=""
good=0
for architecture in "$@"; do
    start=$(date +%s)
    result=ok
    chroot "$root" sh /source/tests/architectures.sh --inside "$architecture" >"$logs/$architecture.log" 2>&1 ||
        result=FAILED
    if [ "$result" = ok ]; then
        good=$((good + 1))
    else
        tail -n 40 "$logs/$architecture.log"
    fi
    passed=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) test.*/\1/p' "$logs/$architecture.log" |
        awk '{sum += $1} END {print sum + 0}')
    kind=$(grep '^ELF' "$logs/$architecture.log" | tail -n 1)
    sweep=$(grep 'points,' "$logs/$architecture.log" | tail -n 1)
    seconds=$(($(date +%s) - start))
    table="$table$(printf '%-6s %-7s %5d s  %3d tests, sweep of %s; %s' "$architecture" "$result" "$seconds" "$passed" \
        "$sweep" "$kind")
"
done
printf '\n%s%s\n' "$table" "$good of $# architectures"
[ "$good" -eq $# ]
