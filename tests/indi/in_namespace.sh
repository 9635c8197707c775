#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: in_namespace.sh PROGRAM ARGS    runs it with a network of its own that holds nothing but loopback
set -eu
rights=""
[ "$(id -u)" -eq 0 ] || rights="--map-root-user"
# shellcheck disable=SC2086  # one word or none
exec unshare -n $rights sh -c 'ip link set lo up && exec "$@"' sh "$@"
