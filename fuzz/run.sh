#!/bin/sh
# SPDX-License-Identifier: MIT
# Looks for inputs that break the code, with libFuzzer: fuzz/run.sh [SECONDS [TARGET...]], by default 60 s each target.
# BUILD is where to build, JOBS how many targets run at once. Findings are named at the end and make it fail.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
[ $# -eq 0 ] || shift
build=${BUILD:-build/fuzz}

cmake --preset fuzz -B "$build" >/dev/null
cmake --build "$build" --target fuzz >"$build/fuzz-build.log" || { tail -n 30 "$build/fuzz-build.log" && exit 1; }
[ $# -gt 0 ] || set -- $("$build/bin/fuzz" 2>&1 | sed -n 's/^  //p')

# run_target TARGET: one line about it
run_target() {
    work=$build/fuzz-work/$1
    mkdir -p "$work/corpus"
    seeds=fuzz/seeds/$1
    [ -d "$seeds" ] || seeds=$work/corpus
    "$build/bin/fuzz" "--target=$1" "$work/corpus" "$seeds" -max_total_time="$seconds" -print_final_stats=1 \
        -artifact_prefix="$work/finding-" -timeout=20 -rss_limit_mb=4096 >"$work/log" 2>&1 && result=ok || result=FAILED
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log")
    edges=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$work/log" | tail -n 1)
    printf '%-20s %12s %8s   %s\n' "$1" "${executions:-?}" "${edges:-?}" "$result"
    [ "$result" = ok ] || { tail -n 25 "$work/log" && false; }
}

printf '%-20s %12s %8s\n' target executions edges
failed=0
running=0
pids=
for target in "$@"; do
    run_target "$target" &
    pids="$pids $!"
    running=$((running + 1))
    if [ "$running" -ge "${JOBS:-1}" ]; then
        for pid in $pids; do wait "$pid" || failed=1; done
        running=0 pids=
    fi
done
for pid in $pids; do wait "$pid" || failed=1; done
[ "$failed" -eq 0 ] || echo "The inputs that failed are in $build/fuzz-work/*/finding-*" >&2
exit "$failed"
