# SPDX-License-Identifier: GPL-2.0-only

# How this project's targets are made: one function a kind of target, so that warnings, sanitizers and
# include paths are stated once.

add_library(zelk_options INTERFACE)
target_compile_options(zelk_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${PROJECT_IS_TOP_LEVEL}>:-Werror>
  # Single precision must give the same digits on every build: no fused multiply-add that the compiler chose.
  -ffp-contract=off)
if(WIN32)
  # Windows 7 and later; small headers; one printf for every source, with the formats of the standard.
  target_compile_definitions(zelk_options INTERFACE _WIN32_WINNT=0x0601 WIN32_LEAN_AND_MEAN NOMINMAX
    __USE_MINGW_ANSI_STDIO=1)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(zelk_options INTERFACE -Wthread-safety)
endif()
if(ZELK_SANITIZE)
  # Assertions are on and the code is lightly optimised here: reports are readable and the build is quick.
  target_compile_options(zelk_options INTERFACE
    -fsanitize=${ZELK_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all -O1 -g1 -UNDEBUG)
  target_link_options(zelk_options INTERFACE -fsanitize=${ZELK_SANITIZE})
endif()
if(ZELK_FUZZ)
  # Every branch taken is reported to the fuzzer, which the programs link.
  target_compile_options(zelk_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

add_library(zelk_posix_sockets INTERFACE)
target_compile_options(zelk_posix_sockets INTERFACE -Wno-conversion -Wno-narrowing -Wno-sign-compare)

# zelk_add_include_root(TARGET SCOPE NAME): lets TARGET include the headers of our folder NAME ("stream" for src/stream,
# "cardsim/base" for tools/cardsim/base) and of no other: the root holds a link to that one folder. What a folder may see of
# the others comes from the libraries it links, so that an include in the wrong direction does not compile.
function(zelk_add_include_root target scope name)
  foreach(place src tools)
    if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${place}/${name})
      set(folder ${PROJECT_SOURCE_DIR}/${place}/${name})
    endif()
  endforeach()
  string(REPLACE "/" "_" root ${name})
  set(link ${PROJECT_BINARY_DIR}/include-roots/${root}/${name})
  get_filename_component(parent ${link} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${folder} ${link} SYMBOLIC)
  target_include_directories(${target} ${scope} ${PROJECT_BINARY_DIR}/include-roots/${root})
endfunction()

# Sources named *_avx2.cpp hold what platform/instruction_set.h chooses on machines that have AVX2. They use no inline
# function of a header: the linker keeps one copy of such a function, and it could be theirs.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  set(ZELK_AVX2_OPTIONS -mavx2)
  if(WIN32)
    # The stack is aligned to 16 bytes there, and this compiler spills 32-byte registers with aligned moves all the same.
    list(APPEND ZELK_AVX2_OPTIONS -Wa,-muse-unaligned-vector-move)
  endif()
endif()

# zelk_add_variants(SOURCE...): those of the sources that are built for more than every machine has. The property is kept
# by a folder's build file, so each that makes a library of them says so.
function(zelk_add_variants)
  list(FILTER ARGN INCLUDE REGEX "_avx2\\.cpp$")
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "${ZELK_AVX2_OPTIONS}")
endfunction()

# zelk_add_layer(NAME [LOWER layer...] [OUTSIDE library...]): the folder src/NAME as the static library zelk_NAME over the
# layers it may include, with the outside libraries that only this layer may use.
# Sources are found by their place; an operating system's own are in its folder (linux/, windows/).
function(zelk_add_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 layer "" "" "LOWER;OUTSIDE")
  string(TOLOWER ${CMAKE_SYSTEM_NAME} system)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp
       ${CMAKE_CURRENT_SOURCE_DIR}/${name}/${system}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/api/exports\\.cpp$")
  add_library(zelk_${name} STATIC ${sources})
  zelk_add_variants(${sources})
  list(TRANSFORM layer_LOWER PREPEND zelk_)
  target_link_libraries(zelk_${name} PRIVATE zelk_options ${layer_OUTSIDE} PUBLIC ${layer_LOWER})
  zelk_add_include_root(zelk_${name} PUBLIC ${name})
  if(IS_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/${name}/${system})
    target_include_directories(zelk_${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/${name}/${system})
  endif()
endfunction()

# zelk_add_simulated_layer(NAME [LOWER layer...] [OUTSIDE library...]): the same folder once more, as zelk_sim_NAME, over
# the simulated system of src/platform/simulated. For tests.
function(zelk_add_simulated_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 layer "" "" "LOWER;OUTSIDE")
  set(folder ${PROJECT_SOURCE_DIR}/src/${name})
  file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp ${folder}/simulated/*.cpp ${folder}/simulated/*/*.cpp)
  add_library(zelk_sim_${name} STATIC EXCLUDE_FROM_ALL ${sources})
  zelk_add_variants(${sources})
  list(TRANSFORM layer_LOWER PREPEND zelk_sim_)
  target_link_libraries(zelk_sim_${name} PRIVATE zelk_options ${layer_OUTSIDE} PUBLIC ${layer_LOWER})
  zelk_add_include_root(zelk_sim_${name} PUBLIC ${name})
  if(IS_DIRECTORY ${folder}/simulated)
    target_include_directories(zelk_sim_${name} PUBLIC ${folder}/simulated)
  endif()
  # A report names functions where the linker knows their names.
  set_target_properties(zelk_sim_${name} PROPERTIES CXX_VISIBILITY_PRESET default)
  if(ZELK_TOGETHER)
    set_target_properties(zelk_sim_${name} PROPERTIES UNITY_BUILD ON)
  endif()
endfunction()

# zelk_compile_quickly(SOURCE...): sources of templates from outside, a command line or a report, that run once in a
# program's life. What they cost is their compilation: optimised, each would take as long as twenty of the others.
# Inline functions that they share with others, of JSON say, would run as slowly wherever the linker takes theirs: they
# include none of those, or stand last among the sources of their program.
function(zelk_compile_quickly)
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "-O0;-g0;-fno-sanitize=undefined")
endfunction()

# For a whole target of such sources, which are then compiled as one where others are (CMAKE_UNITY_BUILD). Linked after
# zelk_options.
add_library(zelk_quick_options INTERFACE)
target_compile_options(zelk_quick_options INTERFACE -O0 -g0 -fno-sanitize=undefined)

# What Wine cannot do as Windows does is left out by name; the file says why.
file(STRINGS ${PROJECT_SOURCE_DIR}/tests/windows/skipped-under-wine.txt ZELK_SKIPPED_UNDER_WINE REGEX "^[A-Z]")
list(TRANSFORM ZELK_SKIPPED_UNDER_WINE REPLACE " #.*" "")
list(JOIN ZELK_SKIPPED_UNDER_WINE ":" ZELK_SKIPPED_UNDER_WINE)

# zelk_wine_test(TEST VARIABLE=VALUE...): a ctest that runs a whole GoogleTest program under Wine. It fails if a test of
# the program fails, if it ends early (the closing line is missing then), and if no test ran.
function(zelk_wine_test test)
  set_tests_properties(${test} PROPERTIES TIMEOUT 600 PASS_REGULAR_EXPRESSION "PASSED  . [1-9]"
    FAIL_REGULAR_EXPRESSION "FAILED  ." ENVIRONMENT "WINEPREFIX=${PROJECT_BINARY_DIR}/wine;${ARGN}")
endfunction()

# What a test costs is its compilation: no optimisation (a little for what calculates: sound, checksums, thousands of
# inputs), and of the sanitizers those that the linked code needs; what is undefined is looked for in the code under test.
# Linked after zelk_options, so that their options come after those and overrule them.
function(zelk_add_test_options name level)
  add_library(${name} INTERFACE)
  target_compile_options(${name} INTERFACE ${level} -g1)
  if(ZELK_SANITIZE MATCHES "undefined")
    target_compile_options(${name} INTERFACE -fno-sanitize=undefined)
  endif()
endfunction()
zelk_add_test_options(zelk_test_options -O0)
zelk_add_test_options(zelk_optimised_test_options -O1)
# The sanitizer and Windows builds compile several sources of a target as one (the presets' CMAKE_UNITY_BUILD): a third of
# the time. The library of the release build is always compiled source by source, so that a header that is missing is
# missed and the code is the one that packages have; its tools and tests are with this option, for who builds them all
# once.
option(ZELK_TOGETHER "Compile several sources of a tool or test program as one" OFF)
set(ZELK_OPTIMISED_TESTS unit_formats unit_playback unit_dsp unit_stream world_tests)

# zelk_add_test_headers(NAME OPTIONS): a target whose precompiled headers every test program with those options uses.
function(zelk_add_test_headers name options)
  # A program too, so that it is compiled as the others are.
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/test_headers.cpp CONTENT "int main() {}\n")
  add_executable(${name} ${PROJECT_BINARY_DIR}/test_headers.cpp)
  target_link_libraries(${name} PRIVATE zelk_options ${options} GTest::gmock GTest::gtest_main
    Threads::Threads)
  if(WIN32)
    target_link_libraries(${name} PRIVATE zelk_posix_sockets)
  endif()
  target_precompile_headers(${name} PRIVATE
    <gmock/gmock.h> <gtest/gtest.h>
    <algorithm> <array> <atomic> <chrono> <condition_variable> <filesystem> <fstream> <functional> <map> <memory> <mutex>
    <random> <string> <thread> <vector>)
endfunction()

# zelk_add_tests(TARGET DIRECTORY LIBRARIES...): every *_test.cpp at or below a directory in one GoogleTest program. Each test
# case runs as a ctest of its own, inside a private network namespace of its own. Windows programs run whole under Wine, and
# unit tests in a few parts under sanitizers, where the start of a program costs more than most tests.
function(zelk_add_tests target directory)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${directory}/*_test.cpp ${directory}/*_test.c)
  # What stands in a folder simulated/ is for a program over the simulated system.
  if(NOT directory MATCHES "/simulated$")
    list(FILTER sources EXCLUDE REGEX "/simulated/")
  endif()
  if(NOT sources)
    return()
  endif()
  add_executable(${target} ${sources})
  string(TOLOWER ${CMAKE_SYSTEM_NAME} system)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${directory}
    ${PROJECT_SOURCE_DIR}/tests/support/${system})
  set(kind test)
  if(target IN_LIST ZELK_OPTIMISED_TESTS)
    set(kind optimised_test)
  endif()
  target_link_libraries(${target} PRIVATE zelk_options zelk_${kind}_options ${ARGN} GTest::gmock GTest::gtest_main)
  # The test framework's headers are read once for all.
  target_precompile_headers(${target} REUSE_FROM ${kind}_headers)
  file(GLOB c_sources ${directory}/*_test.c)
  set_source_files_properties(${c_sources} PROPERTIES SKIP_PRECOMPILE_HEADERS ON SKIP_UNITY_BUILD_INCLUSION ON)
  if(WIN32)
    # The tests keep sockets in ints, as POSIX has them.
    target_link_libraries(${target} PRIVATE zelk_posix_sockets)
    add_test(NAME ${target} COMMAND ${PROJECT_SOURCE_DIR}/scripts/wine-netns $<TARGET_FILE:${target}>
                                    --gtest_filter=-${ZELK_SKIPPED_UNDER_WINE})
    zelk_wine_test(${target})
    set_tests_properties(${target} PROPERTIES RESOURCE_LOCK wine)
    return()
  endif()
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR ${PROJECT_SOURCE_DIR}/scripts/netns)
  endif()
  # One thread runs in these: the thread sanitizer has nothing to see.
  set(with_one_thread unit_formats unit_common unit_trace unit_phone fuzz_tests fuzz_replay_tests)
  if(ZELK_SANITIZE MATCHES "thread" AND target IN_LIST with_one_thread)
    set_target_properties(${target} PROPERTIES EXCLUDE_FROM_ALL ON)
    return()
  endif()
  if(ZELK_SANITIZE AND NOT target MATCHES "^system_")
    foreach(part RANGE 3)
      add_test(NAME ${target}.${part} COMMAND ${target})
      set_tests_properties(${target}.${part} PROPERTIES TIMEOUT 300
        ENVIRONMENT "GTEST_TOTAL_SHARDS=4;GTEST_SHARD_INDEX=${part}")
    endforeach()
    return()
  endif()
  gtest_discover_tests(${target} TEST_PREFIX "${target}." DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()
