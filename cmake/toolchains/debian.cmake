# SPDX-License-Identifier: MIT
# Cross-compiling with Debian's compilers and its multiarch packages (dpkg --add-architecture) for the architecture of
# this name:
#     cmake -B build/arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/debian.cmake -DVORNCCD_ARCHITECTURE=arm64
# With qemu-user-static installed, tests run as if they were native.
if(NOT VORNCCD_ARCHITECTURE)
    message(FATAL_ERROR "For which architecture? Add for instance -DVORNCCD_ARCHITECTURE=armhf")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VORNCCD_ARCHITECTURE)
foreach(name GNU_TYPE GNU_CPU MULTIARCH)
    execute_process(COMMAND dpkg-architecture -A ${VORNCCD_ARCHITECTURE} -f -q DEB_TARGET_${name}
                    OUTPUT_VARIABLE ${name} OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endforeach()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${GNU_CPU})
set(CMAKE_C_COMPILER ${GNU_TYPE}-gcc)
set(CMAKE_CXX_COMPILER ${GNU_TYPE}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${MULTIARCH})
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${MULTIARCH}/pkgconfig:/usr/share/pkgconfig)

find_program(VORNCCD_EMULATOR qemu-${GNU_CPU}-static)
if(VORNCCD_EMULATOR)  # there is none for i686: an x86 machine runs its programs itself
    set(CMAKE_CROSSCOMPILING_EMULATOR ${VORNCCD_EMULATOR})
endif()
