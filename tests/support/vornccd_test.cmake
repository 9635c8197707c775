# SPDX-License-Identifier: MIT
include_guard(GLOBAL)

# vornccd_test(<name> LIBRARY <vornccd|vornccd_internal> SOURCES <file>...): a test program on the seam.
function(vornccd_test name)
    cmake_parse_arguments(ARG "" "LIBRARY" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PRIVATE vornccd_test_bus vornccd_test_script ${ARG_LIBRARY} ${ARG_LIBRARIES}
        GTest::gtest_main vornccd_warnings)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60)
endfunction()
