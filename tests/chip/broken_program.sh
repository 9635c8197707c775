#!/bin/sh
# SPDX-License-Identifier: MIT
# What vornctl doctor says of a camera whose bridge program does not work: one that idles, and random bytes. Both at
# once, in real time: the library waits a minute for an answer.
# usage: broken_program.sh VORNSIM VORNCTL
set -eu
vornsim=$1
vornctl=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Loaded into vornctl, it puts another program into the records of the table before main() begins.
cat >"$work/broken.c" <<'END'
#include <stdlib.h>
extern unsigned char FIRMWARE[18146] __attribute__((weak));
__attribute__((constructor)) static void breakProgram(void)
{
    const char* kind = getenv("BROKEN_PROGRAM");
    unsigned state = 1;
    if (!FIRMWARE || !kind)
        return;
    for (unsigned at = 0, copies = 0; copies < 2 && at + 3 < sizeof FIRMWARE; at += 3 + FIRMWARE[at]) {
        const unsigned address = FIRMWARE[at + 1] | FIRMWARE[at + 2] << 8;
        copies += FIRMWARE[at] == 0;
        for (unsigned i = 0; i < FIRMWARE[at]; ++i) {
            state = state * 1103515245u + 12345u;
            if (address + i >= 0x2E) /* after the vectors; 80 FE jumps to itself */
                FIRMWARE[at + 3 + i] = *kind == 'r' ? state >> 16 : (address + i) % 2 ? 0xFE : 0x80;
        }
    }
}
END
cc -shared -fPIC -o "$work/broken.so" "$work/broken.c"

jobs=""
for kind in idle random; do
    # shellcheck disable=SC2016  # the inner shell has the variables
    BROKEN_PROGRAM=$kind timeout 150 "$vornsim" run --chip emulated --camera K12 -- \
        sh -c 'LD_PRELOAD=$LD_PRELOAD:$1 exec "$2" doctor' sh "$work/broken.so" "$vornctl" \
        >"$work/$kind.out" 2>"$work/$kind.err" &
    jobs="$jobs $kind:$!"
done
for job in $jobs; do
    kind=${job%%:*}
    status=0
    wait "${job#*:}" || status=$?
    if [ "$status" -ne 5 ] || ! grep -q "took its program, but the program does not answer" "$work/$kind.out" ||
        ! grep -q "suspect the program" "$work/$kind.out"; then
        cat "$work/$kind.out" "$work/$kind.err"
        echo "$kind: status $status, and not the finding that was expected"
        exit 1
    fi
done
echo "the doctor suspects both programs"
