#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: in_namespace.sh PROGRAM ARGS    runs it with a network of its own that holds nothing but loopback
# When this process ends, be it killed, everything that PROGRAM started ends too.
set -eu
rights=""
[ "$(id -u)" -eq 0 ] || rights="--map-root-user"
# The shell stays as the first process: it collects what is orphaned, and lets PROGRAM receive signals as usual.
# shellcheck disable=SC2086  # one word or none
exec unshare --net --pid --fork --kill-child --mount-proc $rights sh -c 'ip link set lo up && "$@"; exit $?' sh "$@"
