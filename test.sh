#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs what is missing, builds and runs all tests: under the address, undefined-behaviour and thread sanitizers
# first, then the release build as it is installed.
set -eu
cd "$(dirname "$0")"
. scripts/dependencies.sh

# shellcheck disable=SC2086  # the lists are split on purpose
install_missing $BUILD_PACKAGES $TEST_PACKAGES
# shellcheck disable=SC2086
install_missing $KERNEL_PACKAGES || echo "==> Going on without them"

# build PRESET [TARGET]
build() {
    echo "==> Building $1"
    cmake --preset "$1" -DVORNCCD_BUILD_TESTS=ON -DVORNCCD_WARNINGS_AS_ERRORS=ON >/dev/null
    cmake --build --preset "$1" --target "${2:-all}"
}
build asan-ubsan
build tsan threads_test
build tsan-clang threads_test
build release

jobs=$(nproc)
echo "==> Tests under the address and undefined-behaviour sanitizers"
ctest --preset asan-ubsan -j "$jobs"
echo "==> Tests of threads under the thread sanitizers of g++ and clang++"
ctest --preset tsan -j "$jobs" -R Thread
ctest --preset tsan-clang -j "$jobs" -R Thread
echo "==> Simulated cameras on a real kernel"
status=0
tests/kernel/run.sh build/release || status=$?
[ "$status" -eq 0 ] || [ "$status" -eq 77 ] # 77: skipped
echo "==> Tests of the release build"
ctest --preset release -j "$jobs"
