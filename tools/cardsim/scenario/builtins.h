// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <span>
#include <string>

namespace cardsim {

// A scenario that the program carries with it.
struct SBuiltIn {
  const char* name;
  const char* about;  // one line
  const char* toml;
};

std::span<const SBuiltIn> BuiltIns();
// Null when there is none of that name.
const SBuiltIn* FindBuiltIn(const std::string& name);

}  // namespace cardsim
