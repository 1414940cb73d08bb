# SPDX-License-Identifier: GPL-2.0-only

# ZELK_VERSION from the public header, the only place where the version is written.
set(zelk_version_header ${CMAKE_CURRENT_LIST_DIR}/../include/zelk/ZelkApi.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${zelk_version_header})
file(READ ${zelk_version_header} zelk_version_text)
set(ZELK_VERSION "")
foreach(part MAJOR MINOR PATCH)
  if(NOT zelk_version_text MATCHES "#define ZELK_VERSION_${part} ([0-9]+)")
    message(FATAL_ERROR "ZELK_VERSION_${part} is missing in ${zelk_version_header}")
  endif()
  list(APPEND ZELK_VERSION ${CMAKE_MATCH_1})
endforeach()
list(JOIN ZELK_VERSION "." ZELK_VERSION)
string(REGEX MATCH "#define ZELK_VERSION_STRING \"([^\"]*)\"" found "${zelk_version_text}")
if(NOT CMAKE_MATCH_1 STREQUAL ZELK_VERSION)
  message(FATAL_ERROR "ZELK_VERSION_STRING is \"${CMAKE_MATCH_1}\", its parts make ${ZELK_VERSION}")
endif()
