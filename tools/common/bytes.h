// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tool {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

// Where `pattern` first stands in `data`, or -1. An empty pattern is never found: a test that looks for nothing is a
// mistake.
std::ptrdiff_t FindBytes(ByteView data, ByteView pattern);

}  // namespace tool
