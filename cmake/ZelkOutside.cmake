# SPDX-License-Identifier: GPL-2.0-only

# The outside libraries of the tools and tests: libsndfile (PkgConfig::SNDFILE), nlohmann_json, CLI11, toml11 and asio;
# for what reads captures libpcap (PkgConfig::PCAP), libfmt, pugixml and, not on Windows, ncursesw (PkgConfig::NCURSES).
if(WIN32)
  # libsndfile, libpcap's file reader and pugixml come from deps/. The others are headers of the distribution's packages,
  # which serve every system; they are reached through a folder of links of their own, because /usr/include would bring
  # the build machine's C library.
  set(outside_headers ${PROJECT_BINARY_DIR}/outside/include)
  file(MAKE_DIRECTORY ${outside_headers})
  foreach(name asio asio.hpp CLI fmt nlohmann toml toml.hpp)
    if(NOT EXISTS /usr/include/${name})
      message(FATAL_ERROR "/usr/include/${name} is missing: run scripts/setup")
    endif()
    file(CREATE_LINK /usr/include/${name} ${outside_headers}/${name} SYMBOLIC)
  endforeach()
  foreach(target nlohmann_json::nlohmann_json CLI11::CLI11 toml11::toml11)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    target_include_directories(${target} SYSTEM INTERFACE ${outside_headers})
  endforeach()
  # libfmt's functions are compiled once, from its headers: those that are not inline, and what the headers declare as
  # instantiated elsewhere.
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/outside/format.cpp CONTENT [[#include <fmt/format-inl.h>
namespace fmt::detail {
template auto thousands_sep_impl<char>(locale_ref) -> thousands_sep_result<char>;
template auto decimal_point_impl(locale_ref) -> char;
}
]])
  add_library(zelk_fmt STATIC EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/outside/format.cpp)
  target_include_directories(zelk_fmt SYSTEM PUBLIC ${outside_headers})
  target_compile_options(zelk_fmt PRIVATE -w -g0)
  add_library(fmt::fmt ALIAS zelk_fmt)
  add_library(PkgConfig::SNDFILE ALIAS sndfile)
  add_library(PkgConfig::PCAP ALIAS zelk_pcap)
  add_library(pugixml::pugixml ALIAS zelk_pugixml)
else()
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET GLOBAL sndfile)
  pkg_check_modules(PCAP REQUIRED IMPORTED_TARGET GLOBAL libpcap)
  pkg_check_modules(NCURSES REQUIRED IMPORTED_TARGET GLOBAL ncursesw)
  find_package(fmt REQUIRED GLOBAL)
  find_package(pugixml REQUIRED GLOBAL)
  find_package(nlohmann_json REQUIRED GLOBAL)
  find_package(CLI11 REQUIRED GLOBAL)
  find_package(toml11 REQUIRED GLOBAL)
endif()
