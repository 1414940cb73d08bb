# SPDX-License-Identifier: GPL-2.0-only
# Takes the search path for libraries out of the last argument's file.
math(EXPR last "${CMAKE_ARGC} - 1")
file(RPATH_REMOVE FILE ${CMAKE_ARGV${last}})
