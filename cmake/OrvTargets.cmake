# What every target of the tree shares: language level, warnings, the packaged platform
# libraries, and one function per kind of target so that a folder's CMakeLists.txt only names
# its sources and the folders it builds on.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

find_program(ORV_CCACHE ccache)
if(ORV_CCACHE)
    # Without this it passes over everything that uses precompiled headers.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
        CCACHE_SLOPPINESS=pch_defines,time_macros ${ORV_CCACHE})
endif()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

# Sanitizers: "address;undefined", "thread", set by the presets.
set(ORV_SANITIZE "" CACHE STRING "Sanitizers to build with")

add_library(orv_flags INTERFACE)
target_compile_options(orv_flags INTERFACE
    -Wall -Wextra -Werror -Wshadow -Wnon-virtual-dtor -Wcast-qual -Wformat=2 -Wvla
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
target_compile_definitions(orv_flags INTERFACE _FILE_OFFSET_BITS=64)
if(ORV_SANITIZE)
    string(REPLACE ";" "," orv_sanitize_list "${ORV_SANITIZE}")
    target_compile_options(orv_flags INTERFACE -fsanitize=${orv_sanitize_list}
        -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(orv_flags INTERFACE -fsanitize=${orv_sanitize_list})
endif()

# ThreadSanitizer's run-time crashes on the notification threads of the C library's POSIX timers:
# its programs get timers of our own.
if("thread" IN_LIST ORV_SANITIZE)
    add_library(orv_timer_shim STATIC ${CMAKE_SOURCE_DIR}/tests/support/TimerShim.cpp)
    target_link_libraries(orv_timer_shim PRIVATE orv_flags Threads::Threads)
endif()

# The packaged platform utilities (RefBase, sp/wp, Thread, String8/16, Vector) live in a private
# library folder and come without pkg-config data.
find_path(ORV_ANDROID_INCLUDE utils/RefBase.h PATH_SUFFIXES android REQUIRED)
find_library(ORV_ANDROID_UTILS utils PATH_SUFFIXES android REQUIRED)
get_filename_component(ORV_ANDROID_LIBDIR ${ORV_ANDROID_UTILS} DIRECTORY)
add_library(orv_android INTERFACE)
target_include_directories(orv_android SYSTEM INTERFACE ${ORV_ANDROID_INCLUDE})
target_link_libraries(orv_android INTERFACE ${ORV_ANDROID_UTILS} Threads::Threads)
target_link_options(orv_android INTERFACE -Wl,-rpath,${ORV_ANDROID_LIBDIR})

# The host's half of the platform headers: <media/...>, <gui/...>, <dtv/...> ...
add_library(orv_platform_headers INTERFACE)
target_include_directories(orv_platform_headers INTERFACE ${CMAKE_SOURCE_DIR}/platform/include)
target_link_libraries(orv_platform_headers INTERFACE orv_flags orv_android)

# orv_platform_library(NAME SOURCES a.cpp ... DEPS target ...): one service of the host. Its symbols
# are visible, for the shared library that is made of all of them.
function(orv_platform_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET default)
    target_compile_options(${name} PRIVATE -fno-semantic-interposition)
    set_property(GLOBAL APPEND PROPERTY ORV_PLATFORM_LIBRARIES ${name})
    target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/platform)
    target_link_libraries(${name} PUBLIC orv_platform_headers ${ARG_DEPS})
endfunction()

# orv_player_library(NAME SOURCES a.cpp ... DEPS target ...): one folder of the player. It sees the
# host only through the platform headers, and no exceptions are used in it.
function(orv_player_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
    target_compile_options(${name} PRIVATE -fno-exceptions)
    target_link_libraries(${name} PUBLIC orv_platform_headers ${ARG_DEPS})
    if(TARGET orv_timer_shim)
        target_link_libraries(${name} PUBLIC orv_timer_shim)
    endif()
endfunction()

# Test code is compiled once and run for seconds: half the compile time is worth more, and with a
# sanitizer half of that again. Undefined behaviour is looked for in what is tested.
add_library(orv_test_flags INTERFACE)
if(ORV_SANITIZE)
    target_compile_options(orv_test_flags INTERFACE -O0 -g1)
    if("undefined" IN_LIST ORV_SANITIZE)
        target_compile_options(orv_test_flags INTERFACE -fno-sanitize=undefined)
    endif()
else()
    target_compile_options(orv_test_flags INTERFACE -O1 -g1)
endif()
# What gcc 12 warns of in its own strings when they come precompiled.
target_compile_options(orv_test_flags INTERFACE
    "$<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds;-Wno-restrict;-Wno-stringop-overflow>")

# What every test includes, compiled once, as part of a program: its users have the same flags.
function(orv_precompile_test_headers)
    if(NOT TARGET orv_test_headers)
        file(WRITE ${CMAKE_BINARY_DIR}/test_headers.cpp "int main() {}\n")
        add_executable(orv_test_headers ${CMAKE_BINARY_DIR}/test_headers.cpp)
        target_link_libraries(orv_test_headers PRIVATE orv_flags GTest::gmock orv_test_flags)
        target_precompile_headers(orv_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>
            <algorithm> <chrono> <functional> <map> <string> <thread> <vector>)
    endif()
endfunction()

# orv_test(NAME SOURCES a.cpp ... DEPS target ... [TIMEOUT s] [SERIAL]): one GoogleTest program.
# SERIAL: it measures time, so nothing else runs beside it; with a sanitizer, where figures of time
# say little, two such tests at most. Sound is silent unless a test chooses otherwise.
function(orv_test name)
    cmake_parse_arguments(ARG "SERIAL" "TIMEOUT" "SOURCES;DEPS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
    orv_precompile_test_headers()
    target_precompile_headers(${name} REUSE_FROM orv_test_headers)
    target_link_libraries(${name} PRIVATE orv_flags ${ARG_DEPS} GTest::gmock GTest::gtest_main
        orv_test_flags)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "ORV_AUDIO=silent;XDG_STATE_HOME=${CMAKE_BINARY_DIR}/state;TSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/cmake/tsan.supp halt_on_error=1")
    if(ARG_SERIAL AND NOT ORV_SANITIZE)
        set_tests_properties(${name} PROPERTIES RUN_SERIAL TRUE)
    endif()
endfunction()

# orv_fuzzer(NAME SOURCES a.cpp ... DEPS target ...): one libFuzzer program. Target `fuzzers` builds
# them all and nothing else.
if(ORV_BUILD_FUZZERS)
    add_custom_target(fuzzers)
endif()
function(orv_fuzzer name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE orv_flags ${ARG_DEPS})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    add_dependencies(fuzzers ${name})
endfunction()

# orv_benchmark(NAME SOURCES a.cpp ... DEPS target ...): one program that measures. Target `bench`
# builds them all; nothing else does.
if(ORV_BUILD_BENCH)
    add_custom_target(bench)
endif()
function(orv_benchmark name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
    add_executable(${name} EXCLUDE_FROM_ALL ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE orv_flags ${ARG_DEPS})
    add_dependencies(bench ${name})
endfunction()
