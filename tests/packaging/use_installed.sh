#!/bin/sh
# SPDX-License-Identifier: MIT
# What a user of the installed packages does: builds the examples with pkg-config and with CMake, and runs them on
# simulated cameras. Works in the current directory; tools and library are found as in the caller's environment.
# Usage: use_installed.sh EXAMPLES_DIRECTORY UDEV_RULES_FILE
set -eu
examples=$1
rules=$2

# expect TEXT COMMAND...: the command succeeds and prints a line that matches TEXT
expect() {
    pattern=$1
    shift
    if ! "$@" >out.log 2>&1 || ! grep -q -E -- "$pattern" out.log; then
        echo "expected '$pattern' from: $*"
        cat out.log
        exit 1
    fi
}

echo "pkg-config"
for source in "$examples"/*.cpp; do
    name=$(basename "$source" .cpp)
    # shellcheck disable=SC2046  # flags are split on purpose
    c++ -std=c++20 -Wall -Wextra -Werror "$source" -o "$name" $(pkg-config --cflags --libs vornccd)
done
cc -Wall -Wextra -Werror "$examples/plain_c.c" -o plain_c -ldl

echo "find_package"
cmake -G Ninja -S "$examples" -B cmake-build >cmake.log 2>&1 || { cat cmake.log; exit 1; }
cmake --build cmake-build --target example_list >cmake.log 2>&1 || { cat cmake.log; exit 1; }

echo "examples"
expect 'no camera found' sh -c 'vornsim run --no-camera -- ./list || test $? -eq 1'
expect '^Vorn K20 \(ADVANCED\), .* 2750 x 2200 .*filter wheel' vornsim run --camera K12 --camera K20 -- \
    cmake-build/example-list
expect 'serial number 4711, firmware 3\.14' vornsim run --camera K12 --serial 4711 -- ./plain_c
expect '^picture-2\.pgm' vornsim run --camera K12 -- ./cooled_sequence 14 2 0.1 picture-
expect 'relay 2 for 50 ms: the star moved by' vornsim run --camera K14 -- ./guide 2 50
expect 'sensor at 1[0-9.]+ degrees' vornsim run --camera K12 -- sh -c './watch_temperature 0.5 watched.pgm 2>&1'
# The ramp's value tells row and column, so the last value tells whether the picture is whole and straight.
while read -r model last; do
    expect '^ramp\.pgm' vornsim run --camera "$model" --scene ramp -- ./snap 0.1 ramp.pgm
    found=$(tail -c 2 ramp.pgm | od -A n -t x1 | tr -d ' ')
    [ "$found" = "$last" ] || { echo "$model: the last pixel is $found, not $last"; exit 1; }
done <<END_OF_TABLE
K12 146f
K20 a1bd
K31 45ef
XRM 3c00
K03 ef8f
END_OF_TABLE

echo "udev rules"
vornsim list | awk 'NR > 1 {print substr($NF, 3)}' | sort >simulated
sed -n 's/^ATTR{idProduct}=="\([0-9a-f]*\)", MODE="0660", GROUP="plugdev", TAG+="uaccess".*/\1/p' "$rules" | sort >ruled
diff simulated ruled || { echo "^ models without a rule and rules without a model"; exit 1; }
# udev ignores a line that is not made of these throughout, a comment behind them included.
pair='[A-Z]+(\{[A-Za-z_]+\})?(==|!=|=|\+=)"[^"]*"'
if grep -v -n -E "^(#.*|$pair(, $pair)*)?\$" "$rules"; then
    echo "^ not a rule"
    exit 1
fi
if sed 's/#.*//' "$rules" | grep -o 'MODE="[^"]*"' | grep -v 'MODE="0660"'; then
    echo "^ a rule that opens a camera to everybody, or to nobody"
    exit 1
fi
