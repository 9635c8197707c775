#!/bin/sh
# SPDX-License-Identifier: MIT
# Runs PYTHON with a sanitizer's RUNTIME, if there is one, in front of what the simulator has put into LD_PRELOAD.
if [ -n "${RUNTIME:-}" ]; then
    export LD_PRELOAD="$RUNTIME${LD_PRELOAD:+:$LD_PRELOAD}" ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0
    export PYTHONMALLOC=malloc # overruns of small objects are seen as well
fi
exec "$PYTHON" "$@"
