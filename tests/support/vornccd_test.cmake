# SPDX-License-Identifier: MIT
include_guard(GLOBAL)

# vornccd_test(<name> LIBRARY <vornccd|vornccd_internal> SOURCES <file>... [LIBRARIES <library>...]): a test program on
# the seam.
function(vornccd_test name)
    cmake_parse_arguments(ARG "" "LIBRARY" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PRIVATE vornccd_test_bus vornccd_test_script ${ARG_LIBRARY} ${ARG_LIBRARIES}
        GTest::gtest_main vornccd_warnings)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60)
endfunction()

# vornccd_finish_room(<folder>): its tests bear its name as a label, and the target room_<folder> builds what they need.
# Its programs that use GoogleTest get the precompiled headers, and are not optimised: compiling takes longer than
# running them.
function(vornccd_finish_room folder)
    set_property(DIRECTORY ${folder} PROPERTY LABELS ${folder})
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    add_custom_target(room_${folder})
    foreach(target ${targets})
        get_target_property(type ${target} TYPE)
        if(type STREQUAL UTILITY)
            add_dependencies(room_${folder} ${target})
        endif()
        if(type MATCHES "EXECUTABLE|UTILITY")
            add_dependencies(room_${folder} ${target})
        endif()
        if(type STREQUAL EXECUTABLE)
            get_target_property(libraries ${target} LINK_LIBRARIES)
            if(libraries MATCHES "GTest::")
                target_precompile_headers(${target} REUSE_FROM vornccd_test_headers)
                target_compile_options(${target} PRIVATE -O0)
            endif()
        endif()
    endforeach()
endfunction()

# What most test programs include, compiled once and as their own sources are.
add_library(vornccd_test_headers OBJECT ${CMAKE_CURRENT_LIST_DIR}/headers.cpp)
target_precompile_headers(vornccd_test_headers PRIVATE
    <gmock/gmock.h> <gtest/gtest.h> <algorithm> <array> <functional> <map> <memory> <span> <string> <tuple> <vector>)
set_target_properties(vornccd_test_headers PROPERTIES POSITION_INDEPENDENT_CODE OFF)
target_compile_options(vornccd_test_headers PRIVATE -fPIE -O0)
target_link_libraries(vornccd_test_headers PRIVATE GTest::gmock Threads::Threads vornccd_warnings)
