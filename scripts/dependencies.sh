# SPDX-License-Identifier: MIT
# Sourced by quickstart.sh and test.sh: what has to be installed, and how.

# To build the library, the simulator and the tools, and to run them.
BUILD_PACKAGES="g++ cmake ninja-build pkg-config libusb-1.0-0-dev libcairo2-dev libcli11-dev nlohmann-json3-dev libcfitsio-dev
    libpng-dev libumockdev-dev umockdev"

# For the tests besides.
TEST_PACKAGES="libgtest-dev libgmock-dev python3-minimal clang-14 llvm-14 libclang-rt-14-dev binutils fitsverify
    abigail-tools appstream doxygen scdoc libindi-dev indi-bin python3 iproute2 sdcc sdcc-ucsim pybind11-dev python3-dev
    python3-numpy python3-pytest python3-astropy python3-sep mypy"

# To drive the simulated cameras on a real kernel; without them that test is skipped.
KERNEL_PACKAGES="qemu-system-x86 busybox-static cpio usbip libusbredirparser-dev"

# For tests/long.sh besides.
LONG_PACKAGES="valgrind debhelper debootstrap libusbredirparser-dev lintian python3-clang-14 dh-python"

# What tests/architectures.sh installs into a Debian of its own for the architecture ARCH, besides what packages need.
ARCH_PACKAGES="build-essential crossbuild-essential-ARCH file libgmock-dev:ARCH libgtest-dev:ARCH
    libstdc++6:ARCH lintian qemu-user-static"

# not_installed PACKAGE...: prints those, each after a blank.
not_installed() {
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || printf ' %s' "$package"
    done
}

# install_missing PACKAGE...: installs with apt those that are not installed yet. Package lists that can be fetched in
# part only do not matter as long as they name what is needed.
install_missing() {
    missing=$(not_installed "$@")
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
    apt_install="$as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends"
    log=$(mktemp)
    $as_root apt-get update >"$log" 2>&1 || true
    # shellcheck disable=SC2086  # the lists are split on purpose
    $apt_install $missing >>"$log" 2>&1 || for package in $missing; do
        # One that cannot be had must not keep the others out.
        $apt_install "$package" >>"$log" 2>&1 || true
    done
    # shellcheck disable=SC2086
    missing=$(not_installed $missing)
    if [ -n "$missing" ]; then
        grep -E '^(E|W|Err|Err:.*):' "$log" | sort -u | head -n 20 >&2
        echo "apt could not install:$missing" >&2
        echo "The lines above say why. Is this Debian 12 with a network connection? Repair it, and start again." >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}
