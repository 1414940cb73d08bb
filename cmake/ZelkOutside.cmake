# SPDX-License-Identifier: GPL-2.0-only

# The outside libraries of the tools and tests: libsndfile (PkgConfig::SNDFILE), nlohmann_json, CLI11, toml11 and asio;
# for what reads captures, not on Windows yet, libpcap (PkgConfig::PCAP), ncursesw (PkgConfig::NCURSES), libfmt and
# pugixml.
if(WIN32)
  # libsndfile comes from deps/. The others are headers of the distribution's packages, which serve every system; they
  # are reached through a folder of links of their own, because /usr/include would bring the build machine's C library.
  set(outside_headers ${PROJECT_BINARY_DIR}/outside/include)
  file(MAKE_DIRECTORY ${outside_headers})
  foreach(name asio asio.hpp CLI nlohmann toml toml.hpp)
    if(NOT EXISTS /usr/include/${name})
      message(FATAL_ERROR "/usr/include/${name} is missing: run scripts/setup")
    endif()
    file(CREATE_LINK /usr/include/${name} ${outside_headers}/${name} SYMBOLIC)
  endforeach()
  foreach(target nlohmann_json::nlohmann_json CLI11::CLI11 toml11::toml11)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    target_include_directories(${target} SYSTEM INTERFACE ${outside_headers})
  endforeach()
  add_library(PkgConfig::SNDFILE ALIAS sndfile)
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
