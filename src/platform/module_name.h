// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zelk {

// The longest module path, in characters.
constexpr size_t kMaxModulePath = 259;

// The absolute path of a module of which the loader knows this name: a path, absolute or from the current directory on,
// or a name without a separator, which is that of the program. Cut to kMaxModulePath characters. For systems whose
// separator is the slash. Thread: any.
std::string ModulePathOf(std::string_view name, std::string_view directory, std::string_view program);

}  // namespace zelk
