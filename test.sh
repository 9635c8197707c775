#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs what is missing, builds and runs all tests: under the address, undefined-behaviour and thread sanitizers
# first, then the release build as it is installed.
set -eu
cd "$(dirname "$0")"
. scripts/dependencies.sh

# shellcheck disable=SC2086  # the lists are split on purpose
install_missing $BUILD_PACKAGES $TEST_PACKAGES

# build PRESET [TARGET]
build() {
    echo "==> Building $1"
    cmake --preset "$1" -DVORNCCD_BUILD_TESTS=ON >/dev/null
    cmake --build --preset "$1" --target "${2:-all}"
}
build asan-ubsan
build tsan threads_test
build release

jobs=$(nproc)
echo "==> Tests under the address and undefined-behaviour sanitizers"
ctest --preset asan-ubsan -j "$jobs"
echo "==> Tests of threads under the thread sanitizer"
ctest --preset tsan -j "$jobs" -R Thread
echo "==> Tests of the release build"
ctest --preset release -j "$jobs"
