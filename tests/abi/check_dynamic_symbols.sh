#!/bin/sh
# SPDX-License-Identifier: MIT
# Compares what the shared library exports, needs and is called with what hosts and packagers rely on.
# Usage: check_dynamic_symbols.sh LIBRARY EXPORTED_NAMES_FILE
set -eu
library=$1
expected_names=$2
export LC_ALL=C

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# compare TITLE EXPECTED ACTUAL
compare() {
    if ! diff -u "$2" "$3" >"$work/difference"; then
        echo "$1 changed (- expected, + found):"
        cat "$work/difference"
        failed=1
    fi
}

nm -D --defined-only "$library" | awk '{print $3}' | sort >"$work/exported"
compare "The list of exported names" "$expected_names" "$work/exported"

cat >"$work/expected_libusb" <<'END'
libusb_bulk_transfer
libusb_claim_interface
libusb_close
libusb_control_transfer
libusb_detach_kernel_driver
libusb_error_name
libusb_get_device_descriptor
libusb_get_device_list
libusb_init
libusb_kernel_driver_active
libusb_open
libusb_ref_device
libusb_set_interface_alt_setting
END
nm -D --undefined-only "$library" | awk '{print $2}' | grep '^libusb_' | sort >"$work/libusb"
compare "The list of libusb functions used" "$work/expected_libusb" "$work/libusb"

echo "libvornccd.so.1" >"$work/expected_soname"
readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p' >"$work/soname"
compare "The soname" "$work/expected_soname" "$work/soname"

exit $failed
