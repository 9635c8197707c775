#!/bin/sh
# SPDX-License-Identifier: MIT
# Prints which lines and branches of the library the tests reach.
# usage: tests/coverage.sh [FILE]    with FILE also the lines and branches of that source file that no test reaches
set -eu
cd "$(dirname "$0")/.."
build=build/coverage
cmake --preset coverage -DVORNCCD_BUILD_TESTS=ON >/dev/null
cmake --build --preset coverage

# The counters add symbols to the library, which the test of its exported names would find.
rm -rf "$build/profiles"
mkdir -p "$build/profiles"
export LLVM_PROFILE_FILE="$PWD/$build/profiles/%8m.profraw"
(cd "$build" && ctest -j "$(nproc)" -E abi_dynamic_symbols --output-on-failure) >"$build/ctest.log" || {
    tail -n 30 "$build/ctest.log" >&2
    exit 1
}
llvm-profdata-14 merge -sparse "$build"/profiles/*.profraw -o "$build/tests.profdata"

# The shared library, and the programs that hold a copy of its objects.
objects="$build/lib/libvornccd.so"
for program in "$build"/bin/*_unit_test; do
    [ -x "$program" ] && objects="$objects -object $program"
done
# shellcheck disable=SC2086  # a list of options
if [ $# -gt 0 ]; then
    llvm-cov-14 show $objects -instr-profile "$build/tests.profdata" -show-branches=count "$1" |
        grep -E '\|  *0\||: 0[,\]]' || echo "every line and branch of $1 is reached"
else
    llvm-cov-14 report $objects -instr-profile "$build/tests.profdata" -show-branch-summary \
        -show-region-summary=false "$PWD/src"
fi
