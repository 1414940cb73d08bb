# How this project's targets are made: one function a kind of target, so that warnings, sanitizers and
# include paths are stated once.

add_library(zelk_options INTERFACE)
target_compile_options(zelk_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  # Single precision must give the same digits on every build: no fused multiply-add behind our back.
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

add_library(zelk_posix_sockets INTERFACE)
target_compile_options(zelk_posix_sockets INTERFACE -Wno-conversion -Wno-narrowing -Wno-sign-compare)

# zelk_add_layer(NAME LOWER [LIBRARIES...]): the folder src/NAME as the static library zelk_NAME over the layer zelk_LOWER
# (empty for the lowest), with the outside libraries that only this layer may use.
# Sources are found by their place; an operating system's own are in its folder (linux/, windows/).
function(zelk_add_layer name lower)
  string(TOLOWER ${CMAKE_SYSTEM_NAME} system)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp
       ${CMAKE_CURRENT_SOURCE_DIR}/${name}/${system}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/api/exports\\.cpp$")
  if(sources)
    add_library(zelk_${name} STATIC ${sources})
    target_link_libraries(zelk_${name} PRIVATE zelk_options ${ARGN})
    set(scope PUBLIC)
  else()
    add_library(zelk_${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(zelk_${name} ${scope} ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/src/platform/${system}
    ${CMAKE_SOURCE_DIR}/include)
  if(lower)
    target_link_libraries(zelk_${name} ${scope} zelk_${lower})
  endif()
endfunction()

# zelk_add_tests(TARGET DIRECTORY LIBRARIES...): every *_test.cpp of a directory in one GoogleTest program. Each test
# case runs as a ctest of its own, inside a private network namespace of its own; Windows programs run whole under Wine.
function(zelk_add_tests target directory)
  file(GLOB sources CONFIGURE_DEPENDS ${directory}/*_test.cpp ${directory}/*_test.c)
  if(NOT sources)
    return()
  endif()
  add_executable(${target} ${sources})
  string(TOLOWER ${CMAKE_SYSTEM_NAME} system)
  target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/tests ${directory}
    ${CMAKE_SOURCE_DIR}/tests/support/${system})
  target_link_libraries(${target} PRIVATE zelk_options ${ARGN} GTest::gmock GTest::gtest_main)
  # The test framework's headers are most of what a test's compilation costs.
  target_precompile_headers(${target} PRIVATE
    "$<$<COMPILE_LANGUAGE:CXX>:<gmock/gmock.h$<ANGLE-R>>" "$<$<COMPILE_LANGUAGE:CXX>:<gtest/gtest.h$<ANGLE-R>>")
  if(WIN32)
    # The tests keep sockets in ints, as POSIX has them.
    target_link_libraries(${target} PRIVATE zelk_posix_sockets)
    # What Wine cannot do as Windows does is left out by name; the file says why.
    file(STRINGS ${CMAKE_SOURCE_DIR}/tests/windows/skipped-under-wine.txt skipped REGEX "^[A-Z]")
    list(TRANSFORM skipped REPLACE " #.*" "")
    list(JOIN skipped ":" skipped)
    add_test(NAME ${target} COMMAND ${CMAKE_SOURCE_DIR}/scripts/wine-netns $<TARGET_FILE:${target}>
                                    --gtest_filter=-${skipped})
    set_tests_properties(${target} PROPERTIES TIMEOUT 600 RESOURCE_LOCK wine PASS_REGULAR_EXPRESSION "PASSED  . [1-9]"
      FAIL_REGULAR_EXPRESSION "FAILED  .;Unhandled" ENVIRONMENT "WINEPREFIX=${CMAKE_BINARY_DIR}/wine")
    return()
  endif()
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR ${CMAKE_SOURCE_DIR}/scripts/netns)
  endif()
  gtest_discover_tests(${target} TEST_PREFIX "${target}." DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()
