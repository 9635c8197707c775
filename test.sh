#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: ./test.sh            installs what is missing, builds and runs all tests
#        ./test.sh ROOM...    builds and runs only the tests of these folders of tests/
# Everything runs under the address and undefined-behaviour sanitizers, threads under the thread sanitizer, and in the
# release build what may differ there: the list is in CMakePresets.json.
set -eu
cd "$(dirname "$0")"
. scripts/dependencies.sh
jobs=$(($(nproc) + 2)) # as ninja does: some tests wait for programs most of the time

# configure PRESET
configure() {
    cmake --preset "$1" -DVORNCCD_BUILD_TESTS=ON -DVORNCCD_WARNINGS_AS_ERRORS=ON >/dev/null
}
# build PRESET TARGET
build() {
    echo "==> Building $1"
    nice cmake --build --preset "$1" --target "$2"
}
install_all() {
    # shellcheck disable=SC2086  # the lists are split on purpose
    install_missing $BUILD_PACKAGES $TEST_PACKAGES
    # shellcheck disable=SC2086
    install_missing $KERNEL_PACKAGES || echo "==> Going on without them"
}
# kernel_test: 77 is the status of a test that was skipped.
kernel_test() {
    tests/kernel/run.sh build/release || [ $? -eq 77 ]
}

# test_room ROOM
test_room() {
    preset=asan-ubsan
    target=room_$1
    case $1 in
        threads) preset=tsan ;;
        kernel | packaging)
            preset=release
            target=all
            ;;
    esac
    if [ ! -e "build/$preset/build.ninja" ]; then
        install_all
        configure "$preset"
    fi
    build "$preset" "$target"
    if [ "$1" = kernel ]; then
        kernel_test
    else
        ctest --preset "$preset" -j "$jobs" -L "^$1\$"
    fi
}
if [ $# -gt 0 ]; then
    for room in "$@"; do
        if [ ! -e "tests/$room/CMakeLists.txt" ]; then
            echo "There is no room $room; the rooms are the folders of tests/" >&2
            exit 2
        fi
        test_room "$room"
    done
    exit
fi

install_all
mkdir -p build
configure release
build release all

# What waits most of its time runs beside the builds that follow. Each has a process group of its own, so that a failure
# or an interrupt ends all of it, and comes before the builds, so that what compares times is not disturbed.
beside() {
    name=$1
    shift
    setsid sh -c "$*" >"build/$name.log" 2>&1 &
}
beside kernel tests/kernel/run.sh build/release
kernel=$!
beside release-tests ctest --preset release -j "$jobs"
release_tests=$!
group=""
trap 'for group in $kernel $release_tests; do kill -- "-$group" 2>/dev/null || true; done' EXIT
trap 'exit 130' INT TERM
configure tsan
build tsan room_threads
configure asan-ubsan
build asan-ubsan all

echo "==> Tests of threads under the thread sanitizer"
ctest --preset tsan -j "$jobs"
echo "==> Simulated cameras on a real kernel"
status=0
wait "$kernel" || status=$?
kernel=""
cat build/kernel.log
[ "$status" -eq 0 ] || [ "$status" -eq 77 ] # 77: skipped
echo "==> Tests of the release build"
status=0
wait "$release_tests" || status=$?
release_tests=""
cat build/release-tests.log
[ "$status" -eq 0 ]
echo "==> Tests under the address and undefined-behaviour sanitizers"
ctest --preset asan-ubsan -j "$jobs"
