#!/bin/sh
# SPDX-License-Identifier: MIT
# The tests that take long, with one table at the end of what each found. Their output goes to build/long/.
# usage: tests/long.sh [NAME...]    with names only those: sweep soak threads valgrind unplug packages
#     architectures fuzz mutation bridge doctor python_rounds
# shellcheck disable=SC2317  # functions are called by their names
set -eu
cd "$(dirname "$0")/.."
. scripts/dependencies.sh

# shellcheck disable=SC2086  # the lists are split on purpose
install_missing $BUILD_PACKAGES $TEST_PACKAGES $LONG_PACKAGES
cmake --preset release -DVORNCCD_BUILD_TESTS=ON -DVORNCCD_TEST_ROOMS="kernel;reliability;usbfs" >/dev/null
cmake --build --preset release --target all
bin=$PWD/build/release/bin
logs=build/long
mkdir -p "$logs"

# Each returns whether all is well, and prints last what it did.
run_sweep() {
    "$bin/fault_sweep"
}
run_soak() {
    "$bin/soak"
}
# With the other compiler's sanitizer; test.sh has that of g++, whose reports name files and lines.
run_threads() {
    cmake --preset tsan-clang -DVORNCCD_BUILD_TESTS=ON >/dev/null
    cmake --build --preset tsan-clang --target room_threads
    ctest --preset tsan-clang | tail -n 4 | grep '^100% tests passed'
}
run_valgrind() {
    valgrind --quiet --leak-check=full --errors-for-leak-kinds=definite --error-exitcode=1 --trace-children=yes \
        "$bin/soak" --nights 3
}
# Every transfer of an exposure by a camera of each family.
run_unplug() {
    VORNCCD_UNPLUG_STRIDE=1 "$bin/usbfs_test" --gtest_filter='Unplugging.EndsAnExposure*'
}
run_packages() {
    sh tests/packaging/deb_test.sh
}
run_architectures() {
    tests/architectures.sh
}
run_fuzz() {
    JOBS=$(nproc) fuzz/run.sh 300
}
run_mutation() {
    scripts/mutation/run.py
}
# Deliberate faults in the bridge program.
run_bridge() {
    cmake --preset asan-ubsan -DVORNCCD_BUILD_TESTS=ON >/dev/null
    cmake --build --preset asan-ubsan --target chip_test vornccd-pack-firmware
    scripts/mutation/bridge.py build/asan-ubsan/bin/chip_test build/asan-ubsan/bin/vornccd-pack-firmware
}
# What vornctl says when the bridge program does not work.
run_doctor() {
    tests/chip/broken_program.sh "$bin/vornsim" "$bin/vornctl"
}
# What 1,000 rounds of open, expose and close leave behind in a Python program.
run_python_rounds() {
    PYTHONPATH=build/release/python "$bin/vornsim" run --scene ramp --camera XRM -- /usr/bin/python3 tests/python/rounds.py
}

[ $# -gt 0 ] || set -- sweep soak threads valgrind unplug packages architectures fuzz mutation bridge doctor \
    python_rounds
table=""
failed=0
for name in "$@"; do
    echo "==> $name"
    start=$(date +%s)
    result=ok
    "run_$name" >"$logs/$name.log" 2>&1 || result=FAILED
    [ "$result" = ok ] || failed=1
    cat "$logs/$name.log"
    seconds=$(($(date +%s) - start))
    table="$table$(printf '%-13s %-7s %5d s   %s' "$name" "$result" "$seconds" "$(tail -n 1 "$logs/$name.log")")
"
done
printf '\n%-13s %-7s %7s   %s\n%s' test result time "last line" "$table"
exit $failed
