# SPDX-License-Identifier: MIT
# Sourced by quickstart.sh and test.sh: what has to be installed, and how.

# To build the library, the simulator and the tools, and to run them.
BUILD_PACKAGES="g++ cmake ninja-build pkg-config libusb-1.0-0-dev libcli11-dev nlohmann-json3-dev libcfitsio-dev
    libpng-dev libumockdev-dev umockdev"

# For the tests besides.
TEST_PACKAGES="libgtest-dev libgmock-dev python3-minimal clang-14 llvm-14 libclang-rt-14-dev binutils fitsverify
    abigail-tools appstream doxygen scdoc sdcc sdcc-ucsim"

# To drive the simulated cameras on a real kernel; without them that test is skipped.
KERNEL_PACKAGES="qemu-system-x86 busybox-static cpio usbip libusbredirparser-dev"

# For tests/long.sh besides.
LONG_PACKAGES="valgrind debhelper debootstrap libusbredirparser-dev lintian python3-clang-14"

# install_missing PACKAGE...: installs with apt those that are not installed yet.
install_missing() {
    missing=""
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing="$missing $package"
    done
    if [ -z "$missing" ]; then
        echo "==> All packages needed are installed"
        return 0
    fi
    echo "==> Installing with apt:$missing"
    as_root=""
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "These packages are missing and only root can install them. As root, run:" >&2
            echo "    apt-get update && apt-get install -y --no-install-recommends$missing" >&2
            return 1
        fi
        as_root="sudo"
    fi
    log=$(mktemp)
    # shellcheck disable=SC2086  # the list is split on purpose
    if ! { $as_root apt-get update && $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y \
        --no-install-recommends $missing; } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        echo "apt could not install the packages above; is this Debian 12 with a network connection?" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}
