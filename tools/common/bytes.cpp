// SPDX-License-Identifier: GPL-2.0-only
#include "common/bytes.h"

#include <algorithm>

namespace tool {

std::ptrdiff_t FindBytes(ByteView data, ByteView pattern) {
  if (pattern.empty()) {
    return -1;
  }
  const auto found = std::search(data.begin(), data.end(), pattern.begin(), pattern.end());
  return found == data.end() ? -1 : found - data.begin();
}

}  // namespace tool
