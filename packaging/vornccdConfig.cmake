# SPDX-License-Identifier: MIT
# find_package(vornccd) defines the target vornccd::vornccd. Programs need nothing else: libusb stays behind the library.
include(${CMAKE_CURRENT_LIST_DIR}/vornccdTargets.cmake)
