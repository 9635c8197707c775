#!/bin/sh
# SPDX-License-Identifier: MIT
# Compares the soname of the shared library, what it exports, and what it uses of libusb, with what hosts and packagers
# rely on: first what should be there, then what is.
# Usage: check_dynamic_symbols.sh LIBRARY EXPORTED_NAMES_FILE
set -eu
library=$1
export LC_ALL=C

found=$(mktemp)
trap 'rm -f "$found"' EXIT
{
    readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p'
    nm -D --defined-only "$library" | awk '{print $3}' | sort
    nm -D --undefined-only "$library" | awk '{print $2}' | grep '^libusb_' | sort
} >"$found"
{
    echo "libvornccd.so.1"
    case $(readelf -h "$library") in
        *ELF32*) sed -E 's/^(.*(Register|AbsValue)E)m/\1y/' "$2" ;;  # there uint64_t has another name
        *) cat "$2" ;;
    esac
    printf 'libusb_%s\n' bulk_transfer claim_interface close control_transfer detach_kernel_driver error_name \
        get_device_descriptor get_device_list init kernel_driver_active open ref_device set_interface_alt_setting
} | diff -u - "$found"
