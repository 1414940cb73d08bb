// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "support/library_functions.h"
#include "zelk/ZelkApi.h"

// The 24 functions that a test program has instead of a linked library: each calls what stands in the table, a stand-in
// or the real library that was loaded by its path.
namespace table {

struct SFunctions {
#define ZELK_FUNCTION(name) decltype(&::ZELK_##name) name = nullptr;
  ZELK_LIBRARY_FUNCTIONS(ZELK_FUNCTION)
#undef ZELK_FUNCTION
};

// Set before any of them is called.
SFunctions& Functions();

// Fills it from whatever has members of the functions' names.
template <class Library>
void Take(const Library& library) {
#define ZELK_FUNCTION(name) Functions().name = library.name;
  ZELK_LIBRARY_FUNCTIONS(ZELK_FUNCTION)
#undef ZELK_FUNCTION
}

}  // namespace table
