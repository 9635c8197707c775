#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs what is missing, builds, and takes a picture with a simulated camera through the real libusb.
set -eu
here=$(pwd)
cd "$(dirname "$0")"
. scripts/dependencies.sh

# shellcheck disable=SC2086  # the list is split on purpose
install_missing $BUILD_PACKAGES

echo "==> Building in $PWD/build/release"
cmake --preset release -DVORNCCD_BUILD_TESTS=OFF >/dev/null
cmake --build --preset release

echo "==> Taking a picture with a simulated Vorn K12"
bin="$PWD/build/release/bin"
fits="$here/vornccd-first-light.fits"
png="$here/vornccd-first-light.png"
"$bin/vornsim" run --camera "Vorn K12" -- "$bin/vornctl" expose -t 5 -o "$fits" --png "$png" --force

cat <<END

Your first picture is there:
    $fits    the measurement, for astronomy programs (ds9, siril, astropy)
    $png    a stretched preview, for any picture viewer: xdg-open "$png"

Try next:
    $bin/vornsim run --camera "Vorn K12" -- $bin/vornctl info
    $bin/vornctl --help
END
