#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs a build into a clean prefix, moves it, and uses it as users do.
# Usage: install_test.sh BUILD_DIRECTORY SOURCE_DIRECTORY COMMAND...: COMMAND runs in that environment
set -eu
build=$1
source=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
mv "$work/first" "$work/prefix"

lib=$(dirname "$(find "$work/prefix/lib" -name libvornccd.so.1)")
export PATH="$work/prefix/bin:$PATH" LD_LIBRARY_PATH="$lib" PKG_CONFIG_PATH="$lib/pkgconfig"
export CMAKE_PREFIX_PATH="$work/prefix" SOURCE="$source" PREFIX="$work/prefix"
mkdir "$work/here"
cd "$work/here"
"$@"
