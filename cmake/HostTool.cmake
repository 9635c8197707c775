# SPDX-License-Identifier: MIT
# Programs that run during the build, also when it is a cross build.
include_guard(GLOBAL)

# vornccd_host_tool(<variable> <program target> SOURCES <file>... [DIRECTORIES <directory>...]): sets <variable> to what
# COMMAND and DEPENDS of a custom command take: the target itself or, in a cross build, the same program compiled for
# the machine that builds, by $CXX_FOR_BUILD or its usual compiler.
function(vornccd_host_tool variable target)
    cmake_parse_arguments(ARG "" "" "SOURCES;DIRECTORIES" ${ARGN})
    if(NOT CMAKE_CROSSCOMPILING)
        set(${variable} ${target} PARENT_SCOPE)
        return()
    endif()
    find_program(VORNCCD_HOST_COMPILER NAMES $ENV{CXX_FOR_BUILD} c++ g++ clang++ REQUIRED
                 DOC "C++ compiler for programs that run during a cross build")
    set(program ${CMAKE_CURRENT_BINARY_DIR}/${target}-host)
    list(TRANSFORM ARG_DIRECTORIES PREPEND -I)
    add_custom_command(
        OUTPUT ${program}
        COMMAND ${VORNCCD_HOST_COMPILER} -std=c++20 ${ARG_DIRECTORIES} ${ARG_SOURCES} -o ${program}
        DEPENDS ${ARG_SOURCES}
        WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
        COMMENT "Compiling ${target} for the machine that builds"
        VERBATIM)
    set(${variable} ${program} PARENT_SCOPE)
endfunction()
